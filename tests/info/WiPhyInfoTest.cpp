#include <cstdint>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/Error.h"
#include "ny80211/WiPhyInfo.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::TestMessage;

// A nest of entries typed 0, 1, ..., each written by f(i).
template <class F>
void list(nl_msg* msg, int type, std::size_t count, F f) {
  auto* nest = nla_nest_start(msg, type);
  for (std::size_t i = 0; i < count; ++i) {
    auto* entry = nla_nest_start(msg, static_cast<int>(i));
    f(i);
    nla_nest_end(msg, entry);
  }
  nla_nest_end_keep_empty(msg, nest);
}

// A wiphy without the attribute `skip`, with 5 GHz before 2.4 GHz.
void wiphy(nl_msg* msg, int skip = -1, bool withBands = true) {
  struct Chan {
    std::uint32_t mhz, mBm;
    std::vector<int> flags;
  };
  std::vector<std::vector<Chan>> const chans{
      {{5260, 0xFFFFFF9C, {NL80211_FREQUENCY_ATTR_RADAR}}},
      {{2412, 2000, {}}, {2484, 2350, {NL80211_FREQUENCY_ATTR_DISABLED, NL80211_FREQUENCY_ATTR_NO_IR}}}};
  std::vector<std::vector<std::uint32_t>> const rates{{60}, {10, 540}};
  auto put = [&](int type, std::uint32_t value) {
    if (type != skip) nla_put_u32(msg, type, value);
  };
  put(NL80211_ATTR_WIPHY, 3);
  if (skip != NL80211_ATTR_WIPHY_NAME) nla_put_string(msg, NL80211_ATTR_WIPHY_NAME, "phy3");
  put(NL80211_ATTR_GENERATION, 7);
  if (skip != NL80211_ATTR_WIPHY_BANDS) {
    list(msg, NL80211_ATTR_WIPHY_BANDS, withBands ? 2 : 0, [&](std::size_t band) {
      list(msg, NL80211_BAND_ATTR_FREQS, chans[band].size(), [&](std::size_t i) {
        nla_put_u32(msg, NL80211_FREQUENCY_ATTR_FREQ, chans[band][i].mhz);
        for (int flag : chans[band][i].flags) nla_put_flag(msg, flag);
        nla_put_u32(msg, NL80211_FREQUENCY_ATTR_MAX_TX_POWER, chans[band][i].mBm);
      });
      list(msg, NL80211_BAND_ATTR_RATES, rates[band].size(),
           [&](std::size_t i) { nla_put_u32(msg, NL80211_BITRATE_ATTR_RATE, rates[band][i]); });
    });
  }
  put(NL80211_ATTR_WIPHY_ANTENNA_RX, 1), put(NL80211_ATTR_WIPHY_ANTENNA_TX, 3);
  put(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_RX, 3), put(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_TX, 15);
}

TEST(WiPhyInfo, ReadsAndPrintsACompleteMessage) {
  TestMessage m, noBands;
  wiphy(m.msg);
  WiPhyInfo info;
  info.readFrom(m.stream());
  ASSERT_EQ(info.bands.bands.size(), 2u);
  auto const& band2 = info.bands.bands[1];
  EXPECT_EQ(fmt::format("{}", info),
            "[gen 7] wiphy 'phy3' / ID 3 / antenna avail:used RX 11:1 TX 1111:11 / bands (["
            "Channels (freq 5260 MHz (# 52) / max TX power -1 dBm / flags [radar]) / "
            "Non-HT Rates ([kbps] 6000), "
            "Channels (freq 2412 MHz (#  1) / max TX power 20 dBm, "
            "freq 2484 MHz (# 14) / max TX power 23.5 dBm / flags [disabled] [no IR]) / "
            "Non-HT Rates ([kbps] 1000, 54000)])");
  EXPECT_EQ(fmt::format("{:>22}|{}", band2.rates, info.bands.bands[0].freqs),
            "  [[kbps] 1000, 54000]|[freq 5260 MHz (# 52) / max TX power -1 dBm / flags [radar]]");
  wiphy(noBands.msg, -1, false);  // replaces the bands read before
  info.readFrom(noBands.stream());
  EXPECT_EQ(info.toString(), "[gen 7] wiphy 'phy3' / ID 3 / antenna avail:used RX 11:1 TX 1111:11 / bands ([])");
}

TEST(WiPhyInfo, EveryAttributeIsMandatoryAndEarlierOnesStayRead) {
  for (int type : {NL80211_ATTR_WIPHY, NL80211_ATTR_WIPHY_NAME, NL80211_ATTR_GENERATION, NL80211_ATTR_WIPHY_BANDS,
                   NL80211_ATTR_WIPHY_ANTENNA_RX, NL80211_ATTR_WIPHY_ANTENNA_TX, NL80211_ATTR_WIPHY_ANTENNA_AVAIL_RX,
                   NL80211_ATTR_WIPHY_ANTENNA_AVAIL_TX}) {
    TestMessage m;
    wiphy(m.msg, type);
    WiPhyInfo info;
    EXPECT_THROW(info.readFrom(m.stream()), AttrNotFound) << "without attribute " << type;
    if (type == NL80211_ATTR_GENERATION) {
      EXPECT_EQ(info.name, "phy3");  // read before the failure
    }
  }
  TestMessage m;
  list(m.msg, 1, 1, [&](std::size_t) {  // a band without rates
    list(m.msg, NL80211_BAND_ATTR_FREQS, 1,
         [&](std::size_t) { m.u32(NL80211_FREQUENCY_ATTR_FREQ, 2412).u32(NL80211_FREQUENCY_ATTR_MAX_TX_POWER, 0); });
  });
  list(m.msg, 2, 1, [&](std::size_t) { m.u32(NL80211_FREQUENCY_ATTR_FREQ, 5180); });  // no power
  EXPECT_THROW(AttrWiphyBands(m.stream().getNestedList(1)), AttrNotFound);
  EXPECT_THROW(BandAttrFreqs(m.stream().getNestedList(2)), AttrNotFound);
}

TEST(AttrWiphyAntenna, BitsAndText) {
  EXPECT_TRUE(AttrWiphyAntenna(1).isEnabled(0));
  EXPECT_TRUE(AttrWiphyAntenna(0x80000000u).isEnabled(31));
  EXPECT_FALSE(AttrWiphyAntenna(0xffffffffu).isEnabled(32));
  EXPECT_EQ(fmt::format("[{:<4}|{}]", AttrWiphyAntenna(5), AttrWiphyAntenna()), "[101 |0]");
}

}  // namespace
