#include "quenta_common/MHz.h"

namespace quenta_common {

namespace {

// Band and channel of a frequency in one place, so that the two accessors
// cannot disagree.
struct Placement {
  nl80211_band band;
  std::int64_t base;     // frequency of channel 0 on the band's raster
  std::int64_t spacing;  // MHz between channels
};

Placement place(std::int64_t f) {
  if (f == 2484) return {NL80211_BAND_2GHZ, 2484 - 14 * 5, 5};
  if (f == 5935) return {NL80211_BAND_6GHZ, 5935 - 2 * 5, 5};
  if (f <= 2483) return {NL80211_BAND_2GHZ, 2407, 5};
  if (f >= 4910 && f <= 4980) return {NL80211_BAND_5GHZ, 4000, 5};
  if (f <= 5949) return {NL80211_BAND_5GHZ, 5000, 5};
  if (f <= 45000) return {NL80211_BAND_6GHZ, 5950, 5};
  if (f >= 58320 && f <= 70200) return {NL80211_BAND_60GHZ, 56160, 2160};
  return {NUM_NL80211_BANDS, 0, 0};
}

}  // namespace

nl80211_band MHz::GetBand() const noexcept { return place(static_cast<std::int64_t>(value_)).band; }

ChannelNumber MHz::GetChannelNumber() const noexcept {
  auto const f = static_cast<std::int64_t>(value_);
  auto const p = place(f);
  if (p.spacing == 0) return ChannelNumber();
  // Truncated to 8 bits like any other channel number of the firmware.
  return ChannelNumber(static_cast<std::uint8_t>((f - p.base) / p.spacing));
}

}  // namespace quenta_common
