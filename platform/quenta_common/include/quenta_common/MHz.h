#pragma once
// quenta_common::MHz: a frequency in MHz (unsigned 32-bit), with its band and
// channel number.

#include <cstdint>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "quenta_common/ChannelNumber.h"

namespace quenta_common {

class MHz {
 public:
  constexpr MHz() noexcept = default;
  constexpr MHz(std::uint32_t value) noexcept : value_(value) {}
  constexpr operator std::uint32_t() const noexcept { return value_; }
  constexpr std::uint32_t Get() const noexcept { return value_; }

  // The band whose channel raster the frequency is read against: the 2.4 GHz
  // band up to 2484 MHz, the 4.9 GHz channels and everything else up to
  // 5949 MHz as 5 GHz (5935 MHz, 6 GHz channel 2, excepted), 6 GHz up to
  // 45000 MHz, 60 GHz from 58320 to 70200 MHz. Frequencies of no band give
  // NUM_NL80211_BANDS.
  nl80211_band GetBand() const noexcept;
  // The channel number on that band's raster (truncated, not checked against
  // it); 0 where the frequency has no channel number.
  ChannelNumber GetChannelNumber() const noexcept;

 private:
  std::uint32_t value_ = 0;
};

}  // namespace quenta_common

// The plain decimal number; width, fill and alignment as for an unsigned.
template <>
struct fmt::formatter<quenta_common::MHz> : fmt::formatter<unsigned> {
  template <class Context>
  auto format(quenta_common::MHz const& f, Context& ctx) const {
    return fmt::formatter<unsigned>::format(f.Get(), ctx);
  }
};
