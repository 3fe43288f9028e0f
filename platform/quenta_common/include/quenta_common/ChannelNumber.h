#pragma once
// quenta_common::ChannelNumber: an IEEE 802.11 channel number (unsigned 8-bit).

#include <cstdint>

#include <fmt/format.h>

namespace quenta_common {

class ChannelNumber {
 public:
  constexpr ChannelNumber() noexcept = default;
  constexpr ChannelNumber(std::uint8_t number) noexcept : number_(number) {}
  constexpr operator std::uint8_t() const noexcept { return number_; }
  constexpr std::uint8_t Get() const noexcept { return number_; }

 private:
  std::uint8_t number_ = 0;
};

}  // namespace quenta_common

// The plain decimal number; width, fill and alignment as for an unsigned.
template <>
struct fmt::formatter<quenta_common::ChannelNumber> : fmt::formatter<unsigned> {
  template <class Context>
  auto format(quenta_common::ChannelNumber const& n, Context& ctx) const {
    return fmt::formatter<unsigned>::format(n.Get(), ctx);
  }
};
