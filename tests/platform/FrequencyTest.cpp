#include <cstdint>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "ny80211/Channel.h"
#include "ny80211/Error.h"
#include "quenta_common/MHz.h"

namespace {

using quenta_common::ChannelNumber;
using quenta_common::MHz;

// The library's conversions, with their failures as empty results.
std::optional<std::uint32_t> channelToFrequency(ChannelNumber n, nl80211_band band) {
  try {
    return Ny80211::Channel().indexToFreq(n, band).Get();
  } catch (Ny80211::Error const&) {
    return std::nullopt;
  }
}

std::optional<std::uint8_t> frequencyToChannel(std::uint32_t f) {
  try {
    return Ny80211::Channel().freqToindex(f).Get();
  } catch (Ny80211::Error const&) {
    return std::nullopt;
  }
}

TEST(Frequency, AgreesWithTheChannelConversions) {
  // The channel number of every frequency, off the raster too.
  for (std::uint32_t f = 0; f <= 80000; ++f) {
    ASSERT_EQ(MHz(f).GetChannelNumber(), frequencyToChannel(f).value_or(0)) << f << " MHz";
  }
  // The band of every channel, and the way back to its frequency.
  int checked = 0;
  for (auto band : {NL80211_BAND_2GHZ, NL80211_BAND_5GHZ, NL80211_BAND_60GHZ, NL80211_BAND_6GHZ}) {
    for (unsigned n = 1; n <= 255; ++n) {
      auto const f = channelToFrequency(n, band);
      if (!f) continue;
      SCOPED_TRACE(fmt::format("band {} channel {} = {} MHz", static_cast<int>(band), n, *f));
      MHz const frequency(*f);
      // 5 GHz numbers from 197 up land on the 6 GHz raster and read back as 6 GHz.
      auto const expected = band == NL80211_BAND_5GHZ && n >= 197 ? NL80211_BAND_6GHZ : band;
      EXPECT_EQ(frequency.GetBand(), expected);
      EXPECT_EQ(channelToFrequency(frequency.GetChannelNumber(), frequency.GetBand()), *f);
      ++checked;
    }
  }
  EXPECT_EQ(checked, 14 + 255 + 6 + 253);
}

// Off the raster and between the bands; the channel numbers follow from the
// agreement above.
TEST(Frequency, BandOffTheRasterAndOutsideEveryBand) {
  std::pair<std::uint32_t, nl80211_band> const edges[] = {{2407, NL80211_BAND_2GHZ},  {5182, NL80211_BAND_5GHZ},
                                                          {5950, NL80211_BAND_6GHZ},  {50000, NUM_NL80211_BANDS},
                                                          {70201, NUM_NL80211_BANDS}, {0xffffffffu, NUM_NL80211_BANDS}};
  for (auto const& [mhz, band] : edges) EXPECT_EQ(MHz(mhz).GetBand(), band) << mhz << " MHz";
}

// Numbers, aligned as numbers: a channel number is a byte but no character.
TEST(Frequency, FormattersPrintThePlainNumberWithWidthAndFill) {
  EXPECT_EQ(fmt::format("{:6}|", MHz(2412)), "  2412|");
  EXPECT_EQ(fmt::format("{:0>3}", ChannelNumber(6)), "006");
}

}  // namespace
