#include <cstdint>
#include <optional>

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

TEST(Frequency, AgreesWithTheChannelConversionsOverEveryChannel) {
  int checked = 0;
  for (auto band : {NL80211_BAND_2GHZ, NL80211_BAND_5GHZ, NL80211_BAND_60GHZ, NL80211_BAND_6GHZ}) {
    for (unsigned n = 1; n <= 255; ++n) {
      auto const f = channelToFrequency(n, band);
      if (!f) continue;
      SCOPED_TRACE(fmt::format("band {} channel {} = {} MHz", static_cast<int>(band), n, *f));
      MHz const frequency(*f);
      auto const expected = frequencyToChannel(*f);
      ASSERT_TRUE(expected.has_value());
      EXPECT_EQ(frequency.GetChannelNumber(), *expected);
      // 5 GHz numbers from 197 up land on the 6 GHz raster and read back as 6 GHz.
      auto const expectedBand =
          (band == NL80211_BAND_5GHZ && n >= 197) ? NL80211_BAND_6GHZ : band;
      EXPECT_EQ(frequency.GetBand(), expectedBand);
      EXPECT_EQ(channelToFrequency(frequency.GetChannelNumber(), frequency.GetBand()), *f);
      ++checked;
    }
  }
  EXPECT_EQ(checked, 14 + 255 + 6 + 253);
}

TEST(Frequency, AgreesWithTheConversionOffTheRasterToo) {
  for (std::uint32_t f = 0; f <= 80000; ++f) {
    auto const expected = frequencyToChannel(f);
    auto const got = MHz(f).GetChannelNumber();
    ASSERT_EQ(got, expected.value_or(0)) << f << " MHz";
  }
}

struct BandEdge {
  std::uint32_t mhz;
  nl80211_band band;
  unsigned channel;
};

void PrintTo(BandEdge const& e, std::ostream* out) { *out << e.mhz << " MHz"; }

class FrequencyEdges : public testing::TestWithParam<BandEdge> {};

TEST_P(FrequencyEdges, BandAndChannel) {
  auto const& e = GetParam();
  EXPECT_EQ(MHz(e.mhz).GetBand(), e.band) << e.mhz;
  EXPECT_EQ(MHz(e.mhz).GetChannelNumber(), e.channel) << e.mhz;
}

INSTANTIATE_TEST_SUITE_P(
    Edges, FrequencyEdges,
    testing::Values(BandEdge{2412, NL80211_BAND_2GHZ, 1}, BandEdge{2472, NL80211_BAND_2GHZ, 13},
                    BandEdge{2484, NL80211_BAND_2GHZ, 14}, BandEdge{2407, NL80211_BAND_2GHZ, 0},
                    BandEdge{4910, NL80211_BAND_5GHZ, 182}, BandEdge{4980, NL80211_BAND_5GHZ, 196},
                    BandEdge{4920, NL80211_BAND_5GHZ, 184}, BandEdge{5180, NL80211_BAND_5GHZ, 36},
                    BandEdge{5182, NL80211_BAND_5GHZ, 36}, BandEdge{5925, NL80211_BAND_5GHZ, 185},
                    BandEdge{5935, NL80211_BAND_6GHZ, 2}, BandEdge{5950, NL80211_BAND_6GHZ, 0},
                    BandEdge{5955, NL80211_BAND_6GHZ, 1}, BandEdge{7115, NL80211_BAND_6GHZ, 233},
                    BandEdge{58320, NL80211_BAND_60GHZ, 1}, BandEdge{70200, NL80211_BAND_60GHZ, 6},
                    BandEdge{50000, NUM_NL80211_BANDS, 0}, BandEdge{70201, NUM_NL80211_BANDS, 0},
                    BandEdge{0xffffffffu, NUM_NL80211_BANDS, 0}));

TEST(Frequency, FormattersPrintThePlainNumberWithWidthFillAndAlignment) {
  EXPECT_EQ(fmt::format("{}", MHz(5180)), "5180");
  EXPECT_EQ(fmt::format("{:6}|", MHz(2412)), "  2412|");
  EXPECT_EQ(fmt::format("{:<6}|", MHz(2412)), "2412  |");
  EXPECT_EQ(fmt::format("{:4} MHz (#{:3})", MHz(5180), ChannelNumber(36)), "5180 MHz (# 36)");
  EXPECT_EQ(fmt::format("{:0>3}", ChannelNumber(6)), "006");
  EXPECT_EQ(fmt::format("{:^5}", ChannelNumber(255)), " 255 ");
  EXPECT_EQ(fmt::format("{}", ChannelNumber()), "0");
}

}  // namespace
