#include <cstdint>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/Error.h"
#include "ny80211/InterfaceInfo.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::Bytes;
using Ny80211::testing::bytesOf;
using Ny80211::testing::TestMessage;
using ::testing::ThrowsMessage;

// The mandatory attributes of an AP interface, without `skip`.
void ifc(TestMessage& m, int skip = -1, std::int32_t mBm = 2000) {
  auto put = [&](int type, Bytes const& payload) {
    if (type != skip) m.put(type, payload);
  };
  put(NL80211_ATTR_IFINDEX, bytesOf<std::uint32_t>(7));
  put(NL80211_ATTR_IFNAME, Bytes{'w', 'l', 'a', 'n', '0', 0});
  put(NL80211_ATTR_WIPHY, bytesOf<std::uint32_t>(1));
  put(NL80211_ATTR_IFTYPE, bytesOf<std::uint32_t>(NL80211_IFTYPE_AP));
  put(NL80211_ATTR_WDEV, bytesOf<std::uint64_t>(0x100000002));
  put(NL80211_ATTR_MAC, Bytes{2, 0, 0, 0, 1, 0});
  put(NL80211_ATTR_GENERATION, bytesOf<std::uint32_t>(5));
  put(NL80211_ATTR_WIPHY_TX_POWER_LEVEL, bytesOf(mBm));
}

TEST(InterfaceInfo, ReadsAndPrintsTheOptionalPartsAndClearsThemOnARead) {
  TestMessage full, bare;
  ifc(full);
  full.u32(NL80211_ATTR_WIPHY_FREQ, 5180).u32(NL80211_ATTR_CENTER_FREQ1, 5210);
  full.u32(NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_80);
  full.put(NL80211_ATTR_SSID, Bytes{'l', 'a', 'b'});
  // The MLD address is attribute 351 in the kernels served; 314 (a 6.1
  // header's number) is not it.
  full.put(351, Bytes{2, 0, 0, 0, 2, 0, 9});
  full.put(314, Bytes{2, 0, 0, 0, 3, 0});
  ifc(bare, -1, -150);
  bare.u32(NL80211_ATTR_WIPHY_FREQ, 5180).u32(NL80211_ATTR_CHANNEL_WIDTH, 1);  // no centre 1
  InterfaceInfo info;
  info.readFrom(full.stream());
  EXPECT_EQ(info.wdev.id(), 0x100000002u);
  EXPECT_EQ(fmt::format("{}", info),
            "[gen 5] AP 'wlan0' / ID 7 / wiphy ID 1 / MAC 02:00:00:00:01:00 / channel (primary "
            "5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 MHz) / SSID 'lab' / TX power "
            "20 dBm/ MLD 02:00:00:00:02:00");
  info.readFrom(bare.stream());
  EXPECT_FALSE(info.ssid || info.channel || info.mldAddress);
  EXPECT_EQ(fmt::format("{:>84}|", info),
            "  [gen 5] AP 'wlan0' / ID 7 / wiphy ID 1 / MAC 02:00:00:00:01:00 / TX power -1.5 "
            "dBm|");
}

TEST(InterfaceInfo, MissingAndShortAttributesFail) {
  for (int type : {NL80211_ATTR_IFINDEX, NL80211_ATTR_IFNAME, NL80211_ATTR_WIPHY, NL80211_ATTR_IFTYPE,
                   NL80211_ATTR_WDEV, NL80211_ATTR_MAC, NL80211_ATTR_GENERATION, NL80211_ATTR_WIPHY_TX_POWER_LEVEL}) {
    TestMessage m;
    ifc(m, type);
    EXPECT_THROW(InterfaceInfo().readFrom(m.stream()), AttrNotFound) << "without " << type;
  }
  struct Row {
    int type;
    std::size_t size;
    std::size_t needed;
  };
  for (auto const& r : {Row{NL80211_ATTR_WDEV, 4, 8},
                        {NL80211_ATTR_MAC, 5, 6},
                        {NL80211_ATTR_WIPHY_TX_POWER_LEVEL, 3, 4},
                        {351, 4, 6}}) {
    TestMessage m;
    m.put(r.type, Bytes(r.size));  // first occurrence wins
    ifc(m);
    EXPECT_THAT([&] { InterfaceInfo().readFrom(m.stream()); },
                ThrowsMessage<Error>(fmt::format("attribute (type {}) payload too small for data type ({} < {})",
                                                 r.type, r.size, r.needed)));
  }
}

TEST(InterfaceInfo, ValuesPastTheKernelsEnumerationsAreKeptAndPrintUnknown) {
  TestMessage m;
  m.u32(NL80211_ATTR_IFTYPE, 0xffff).u32(NL80211_ATTR_CHANNEL_WIDTH, 99);
  m.u32(NL80211_ATTR_WIPHY_FREQ, 2412).u32(NL80211_ATTR_CENTER_FREQ1, 2412);
  ifc(m);
  InterfaceInfo info;
  info.readFrom(m.stream());
  EXPECT_EQ(info.iftype.raw(), 0xffffu);
  EXPECT_EQ(info.channel->width.raw(), 99u);
  EXPECT_EQ(info.toString(),
            "[gen 5] <unknown> 'wlan0' / ID 7 / wiphy ID 1 / MAC 02:00:00:00:01:00 / channel "
            "(primary 2412 MHz (#  1) / center 2412 MHz (#  1) / width <unknown>) / TX power 20 dBm");
}

TEST(InterfaceInfo, TypeTextsHonourWidthFillAndAlignment) {
  char const* const texts[] = {"unspecified", "ad-hoc",  "station",      "AP",         "AP VLAN",
                               "WDS",         "monitor", "mesh point",   "P2P client", "P2P group owner",
                               "P2P device",  "OCB",     "not a netdev", "<unknown>"};
  for (int type = 0; type < 14; ++type) {
    EXPECT_EQ(fmt::format("{}", static_cast<nl80211_iftype>(type)), texts[type]);
  }
  EXPECT_EQ(fmt::format("[{:*^6}|{:<9}]", NL80211_IFTYPE_AP, NL80211_IFTYPE_WDS), "[**AP**|WDS      ]");
}

}  // namespace
