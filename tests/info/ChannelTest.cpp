#include <cstdint>
#include <optional>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestMessage.h"
#include "ny80211/Channel.h"
#include "ny80211/Error.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::TestMessage;
using quenta_common::MHz;
using ::testing::ThrowsMessage;

void expectChannel(Channel const& c, unsigned number, std::uint32_t mhz) {
  EXPECT_EQ(c.number.Get(), number);
  EXPECT_EQ(c.frequency.Get(), mhz);
}

TEST(Channel, NumberToFrequencyAtTheBandEdges) {
  auto const B2 = NL80211_BAND_2GHZ, B5 = NL80211_BAND_5GHZ, B60 = NL80211_BAND_60GHZ, B6 = NL80211_BAND_6GHZ;
  struct Row {
    nl80211_band band;
    unsigned n;
    std::uint32_t mhz;
  };  // 0 MHz: fails
  for (auto const& r : {Row{B2, 13, 2472},
                        {B2, 14, 2484},
                        {B2, 15, 0},
                        {B5, 0, 0},
                        {B5, 181, 5905},
                        {B5, 182, 4910},
                        {B5, 196, 4980},
                        {B5, 197, 5985},
                        {B60, 1, 58320},
                        {B60, 6, 69120},
                        {B60, 7, 0},
                        {B6, 1, 5955},
                        {B6, 2, 5935},
                        {B6, 253, 7215},
                        {B6, 254, 0},
                        {NL80211_BAND_S1GHZ, 1, 0}}) {
    SCOPED_TRACE(fmt::format("band {} channel {}", static_cast<int>(r.band), r.n));
    if (r.mhz == 0) {
      EXPECT_THAT(
          [&] { Channel(r.band, r.n); },
          ThrowsMessage<Error>(fmt::format("cannot convert channel index {} in band {} to frequency", r.n, +r.band)));
    } else {
      expectChannel(Channel(r.band, r.n), r.n, r.mhz);
    }
  }
}

TEST(Channel, FrequencyToNumberTruncatesAndFailsOnAZeroQuotient) {
  struct Row {
    std::uint32_t mhz;
    unsigned n;
  };  // 0: fails
  for (auto const& r : {Row{2484, 14},
                        {2416, 1},
                        {2411, 0},
                        {4910, 182},
                        {4985, 253},
                        {5925, 185},
                        {5935, 2},
                        {5950, 0},
                        {5955, 1},
                        {45000, 130},
                        {45001, 0},
                        {58319, 0},
                        {58320, 1},
                        {70200, 6},
                        {70201, 0},
                        {0xffffffffu, 0}}) {
    SCOPED_TRACE(fmt::format("{} MHz", r.mhz));
    if (r.n == 0) {
      EXPECT_THAT([&] { Channel(MHz(r.mhz)); },
                  ThrowsMessage<Error>(fmt::format("cannot convert {} MHz to channel index", r.mhz)));
    } else {
      EXPECT_EQ(Channel().freqToindex(r.mhz).Get(), r.n);
    }
  }
  // The frequency is kept off the raster; a negative number keeps its low byte.
  expectChannel(Channel(MHz(5182)), 36, 5182);
  expectChannel(Channel(MHz(3000)), 112, 3000);
}

TEST(Channel, TextsHonourWidthFillAndAlignment) {
  EXPECT_EQ(Channel(NL80211_BAND_60GHZ, 1).toString(), "58320 MHz (#  1)");
  EXPECT_EQ(fmt::format("[{:>17}]", Channel()), "[     0 MHz (#  0)]");
  EXPECT_EQ(fmt::format("[{:*<17}]", Channel(NL80211_BAND_6GHZ, 233)), "[7115 MHz (#233)**]");
  struct Width {
    int value;
    char const* text;
  };
  for (auto const& w : {Width{0, "20 MHz (non-HT)"},
                        {1, "20 MHz (HT)"},
                        {2, "40 MHz"},
                        {3, "80 MHz"},
                        {4, "80+80 MHz"},
                        {5, "160 MHz"},
                        {6, "5 MHz (OFDM)"},
                        {7, "10 MHz (OFDM)"},
                        {8, "<unknown>"},
                        {13, "<unknown>"}}) {
    EXPECT_EQ(fmt::format("{}", static_cast<nl80211_chan_width>(w.value)), w.text);
  }
  EXPECT_EQ(fmt::format("[{:^10}]", NL80211_CHAN_WIDTH_40), "[  40 MHz  ]");
  EXPECT_EQ(fmt::format("{:>70}|", ChannelInfo(NL80211_BAND_2GHZ, 6, NL80211_CHAN_WIDTH_20, 6, {})),
            "  primary 2437 MHz (#  6) / center 2437 MHz (#  6) / width 20 MHz (HT)|");
}

TEST(ChannelInfo, BuildAndReadEveryChannelOnTheBandOfThePrimary) {
  // The primary is rebuilt from its number: back on the raster.
  ChannelInfo const he(Channel(MHz(5957)), NL80211_CHAN_WIDTH_160, 15, std::nullopt);
  expectChannel(he.primary, 1, 5955);
  expectChannel(he.center1, 15, 6025);
  EXPECT_THROW(ChannelInfo(Channel(), NL80211_CHAN_WIDTH_20, 1, std::nullopt), Error);
  EXPECT_THROW(ChannelInfo(NL80211_BAND_2GHZ, 1, NL80211_CHAN_WIDTH_40, 3, 15), Error);

  TestMessage full, plain;
  full.u32(NL80211_ATTR_WIPHY_FREQ, 5745).u32(NL80211_ATTR_CENTER_FREQ1, 5775);
  full.u32(NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_80P80);
  full.u32(NL80211_ATTR_CENTER_FREQ2, 5210).u32(NL80211_ATTR_WIPHY_CHANNEL_TYPE, 3);
  ChannelInfo info;
  info.readFrom(full.stream());
  EXPECT_EQ(info.toString(),
            "primary 5745 MHz (#149) / center 5775 MHz (#155) / center2 "
            "5210 MHz (# 42)/ width 80+80 MHz");
  EXPECT_EQ(info.channelType, std::optional<std::uint32_t>(3));
  // A second read clears the channel type but keeps an earlier second centre.
  plain.u32(NL80211_ATTR_WIPHY_FREQ, 2412).u32(NL80211_ATTR_CENTER_FREQ1, 2412);
  plain.u32(NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_20_NOHT);
  info.readFrom(plain.stream());
  EXPECT_FALSE(info.channelType);
  ASSERT_TRUE(info.center2);
  expectChannel(*info.center2, 42, 5210);
}

}  // namespace
