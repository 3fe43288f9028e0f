#include <cstdint>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "TraceCapture.h"
#include "ny80211/BssInfo.h"
#include "ny80211/Error.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::Bytes;
using Ny80211::testing::TestMessage;
using Ny80211::testing::TraceCapture;
using Ny80211::testing::TraceLine;

Bytes operator+(Bytes a, Bytes const& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// Elements as access points send them, byte by byte.
Bytes ssid(std::string const& text) {
  Bytes e{0, static_cast<std::uint8_t>(text.size())};
  return e + Bytes(text.begin(), text.end());
}
// Primary channel, then secondary offset (bits 0-1) and STA channel width
// (bit 2); CCFS2 in bits 5-12 of the next word; the rest zero.
Bytes ht(std::uint8_t primary, std::uint8_t offset, bool anyWidth, std::uint8_t ccfs2 = 0) {
  Bytes e(24, 0);
  e[0] = 61, e[1] = 22, e[2] = primary;
  e[3] = static_cast<std::uint8_t>(offset | (anyWidth ? 0x04 : 0));
  auto const word = static_cast<std::uint16_t>(ccfs2 << 5);
  e[4] = static_cast<std::uint8_t>(word & 0xff), e[5] = static_cast<std::uint8_t>(word >> 8);
  return e;
}
Bytes vht(std::uint8_t width, std::uint8_t ccfs0, std::uint8_t ccfs1) {
  return {192, 5, width, ccfs0, ccfs1, 0xfc, 0xff};
}
// HE Operation with 6 GHz Operation Information only.
Bytes he6(std::uint8_t primary, std::uint8_t control, std::uint8_t ccfs0, std::uint8_t ccfs1) {
  return {255, 12, 36, 0x00, 0x00, 0x02, 0x01, 0xfc, 0xff, primary, control, ccfs0, ccfs1, 6};
}
Bytes eht(std::uint8_t control, std::uint8_t ccfs0, std::uint8_t ccfs1) {
  return {255, 9, 106, 0x01, 0xfc, 0xff, 0xff, 0xff, control, ccfs0, ccfs1};
}
Bytes vendor(std::uint8_t kind, Bytes const& data, std::uint8_t versionLow = 1) {
  auto const oui = QuentaOui.GetBytes();
  Bytes body{oui[0], oui[1], oui[2], kind, versionLow, 0};
  body = body + data;
  return Bytes{221, static_cast<std::uint8_t>(body.size())} + body;
}

// A scan-result message: interface 1 (lo, which every machine has) and a
// nested BSS with these elements.
struct ScanResult {
  explicit ScanResult(Bytes const& ies, std::uint32_t mhz = 5180, int skip = -1) {
    auto bss = TestMessage::nestBody();
    auto put = [&](int type, Bytes const& payload) {
      if (type != skip) bss.put(type, payload);
    };
    put(NL80211_BSS_BSSID, {0x02, 0, 0, 0, 0x01, 0});
    put(NL80211_BSS_FREQUENCY, Ny80211::testing::bytesOf(mhz));
    put(NL80211_BSS_CHAN_WIDTH, Ny80211::testing::bytesOf(std::uint32_t{0}));
    put(NL80211_BSS_SEEN_MS_AGO, Ny80211::testing::bytesOf(std::uint32_t{112}));
    put(NL80211_BSS_SIGNAL_MBM, Ny80211::testing::bytesOf(std::int32_t{-2700}));
    put(NL80211_BSS_BEACON_INTERVAL, Ny80211::testing::bytesOf(std::uint16_t{100}));
    put(NL80211_BSS_CAPABILITY, Ny80211::testing::bytesOf(std::uint16_t{0x0411}));
    put(NL80211_BSS_LAST_SEEN_BOOTTIME, Ny80211::testing::bytesOf(std::uint64_t{14544000000}));
    put(NL80211_BSS_INFORMATION_ELEMENTS, ies);
    message.nest(NL80211_ATTR_BSS, bss);
    message.u32(NL80211_ATTR_IFINDEX, 1);
  }
  Cmd::ScanInfo read() const { return Cmd::ScanInfo(message.stream()); }
  TestMessage message;
};

struct ChannelCase {
  char const* name;
  std::uint32_t mhz;
  Bytes ies;
  char const* channel;  // "" for none
};

class BssChannel : public ::testing::TestWithParam<ChannelCase> {};

TEST_P(BssChannel, IsDerivedFromTheOperationElements) {
  auto const& c = GetParam();
  TraceCapture log;
  auto const bss = ScanResult(ssid("lab") + c.ies, c.mhz).read().bss;
  EXPECT_EQ(bss.channel ? bss.channel->toString() : "", c.channel);
  EXPECT_EQ(log.lines(), std::vector<TraceLine>{});
}

INSTANTIATE_TEST_SUITE_P(
    AccessPoints, BssChannel,
    ::testing::Values(
        ChannelCase{"Legacy2G", 2412, {}, "primary 2412 MHz (#  1) / center 2412 MHz (#  1) / width 20 MHz (HT)"},
        ChannelCase{"Ht20", 2412, ht(1, 0, false), "primary 2412 MHz (#  1) / center 2412 MHz (#  1) / width 20 MHz (HT)"},
        ChannelCase{"Ht40Above", 2437, ht(6, 1, true), "primary 2437 MHz (#  6) / center 2447 MHz (#  8) / width 40 MHz"},
        ChannelCase{"Ht40Below", 5200, ht(40, 3, true), "primary 5200 MHz (# 40) / center 5190 MHz (# 38) / width 40 MHz"},
        ChannelCase{"Ht40BelowNarrowStations", 5200, ht(40, 3, false), "primary 5200 MHz (# 40) / center 5200 MHz (# 40) / width 20 MHz (HT)"},
        ChannelCase{"HtReservedOffset", 5200, ht(40, 2, true), ""},
        ChannelCase{"Vht80", 5180, ht(36, 1, true) + vht(1, 42, 0), "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 MHz"},
        ChannelCase{"Vht160", 5180, ht(36, 1, true) + vht(1, 42, 50), "primary 5180 MHz (# 36) / center 5250 MHz (# 50) / width 160 MHz"},
        ChannelCase{"Vht160InHtSegment", 5180, ht(36, 1, true, 50) + vht(1, 42, 0), "primary 5180 MHz (# 36) / center 5250 MHz (# 50) / width 160 MHz"},
        ChannelCase{"VhtBothSecondSegments", 5180, ht(36, 1, true, 50) + vht(1, 42, 50), ""},
        ChannelCase{"Vht80Plus80", 5180, ht(36, 1, true) + vht(1, 42, 155), "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / center2 5775 MHz (#155)/ width 80+80 MHz"},
        ChannelCase{"VhtSegmentsTooClose", 5180, ht(36, 1, true) + vht(1, 42, 52), ""},
        ChannelCase{"Vht160Deprecated", 5180, ht(36, 1, true) + vht(2, 50, 0), "primary 5180 MHz (# 36) / center 5250 MHz (# 50) / width 160 MHz"},
        ChannelCase{"VhtNarrowStations", 5180, ht(36, 1, false) + vht(1, 42, 0), ""},
        ChannelCase{"VhtNarrowStations20", 5180, ht(36, 0, false) + vht(0, 0, 0), "primary 5180 MHz (# 36) / center 5180 MHz (# 36) / width 20 MHz (HT)"},
        ChannelCase{"VhtWithoutHt", 5180, vht(1, 42, 0), ""},
        ChannelCase{"He6Ghz80", 6135, he6(37, 2, 39, 0), "primary 6135 MHz (# 37) / center 6145 MHz (# 39) / width 80 MHz"},
        ChannelCase{"He6Ghz160", 6135, he6(37, 3, 39, 47), "primary 6135 MHz (# 37) / center 6185 MHz (# 47) / width 160 MHz"},
        ChannelCase{"He6Ghz80Plus80", 6135, he6(37, 3, 39, 71), "primary 6135 MHz (# 37) / center 6145 MHz (# 39) / center2 6305 MHz (# 71)/ width 80+80 MHz"},
        ChannelCase{"He6GhzSegmentsTooClose", 6135, he6(37, 3, 39, 51), ""},
        ChannelCase{"Eht320", 6135, he6(37, 3, 39, 47) + eht(4, 47, 63), "primary 6135 MHz (# 37) / center 6265 MHz (# 63) / width <unknown>"},
        ChannelCase{"Eht160OnHtPrimary", 5180, ht(36, 1, true) + vht(1, 42, 50) + eht(3, 42, 50), "primary 5180 MHz (# 36) / center 5250 MHz (# 50) / width 160 MHz"},
        ChannelCase{"EhtReservedWidth", 6135, he6(37, 3, 39, 47) + eht(5, 47, 63), ""},
        ChannelCase{"EhtWithoutPrimary", 5180, vht(1, 42, 0) + eht(2, 42, 0), ""}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(Bss, ReadsEveryFieldOfAScanResult) {
  auto const result =
      ScanResult(ssid("lab 5") + ht(36, 1, true) + vht(1, 42, 0) + vendor(8, {'A', 'P', '-', '7'}) +
                 Bytes{127, 8, 0, 0, 0, 0, 0, 0, 0x01, 0})
          .read();
  auto const& bss = result.bss;
  EXPECT_EQ(result.ifc.index(), 1u);
  EXPECT_EQ(fmt::format("{}", bss.bssid), "02:00:00:00:01:00");
  EXPECT_EQ(bss.frequency, 5180u);
  EXPECT_EQ(bss.seenMsAgo, 112u);
  EXPECT_EQ(bss.lastSeenBoottime, 14544000000u);
  EXPECT_EQ(bss.signalMbm, -2700);
  EXPECT_EQ(bss.beaconInterval, 100);
  EXPECT_EQ(bss.capability, 0x0411);
  EXPECT_FALSE(bss.status);
  EXPECT_EQ(bss.getRawSSID(), "lab 5");
  EXPECT_TRUE(bss.utf8Ssid);
  EXPECT_EQ(bss.channelType, NL80211_CHAN_HT40PLUS);
  EXPECT_EQ(bss.vendorName, "AP-7");
  EXPECT_FALSE(bss.vendorId);
}

TEST(Bss, ChannelTypeFollowsTheHtSecondaryOffset) {
  EXPECT_EQ(ScanResult(ht(1, 0, false), 2412).read().bss.channelType, NL80211_CHAN_HT20);
  EXPECT_EQ(ScanResult(ht(40, 3, true), 5200).read().bss.channelType, NL80211_CHAN_HT40MINUS);
  EXPECT_EQ(ScanResult(ht(40, 2, true), 5200).read().bss.channelType, NL80211_CHAN_NO_HT);
  EXPECT_EQ(ScanResult(he6(37, 2, 39, 0), 6135).read().bss.channelType, NL80211_CHAN_NO_HT);
}

TEST(Bss, VendorDataOnlyUnderTheOwnOuiAndVersion) {
  Bytes id(16);
  for (std::size_t i = 0; i < id.size(); ++i) id[i] = static_cast<std::uint8_t>(0xa0 + i);
  auto bss = ScanResult(vendor(4, id) + vendor(8, {'o', 'l', 'd'}) + vendor(8, {'n', 'e', 'w'})).read().bss;
  ASSERT_TRUE(bss.vendorId);
  EXPECT_EQ((*bss.vendorId)[0], std::byte{0xa0});
  EXPECT_EQ((*bss.vendorId)[15], std::byte{0xaf});
  EXPECT_EQ(bss.vendorName, "new");

  // An identifier one byte short, a wrong version, a name without text and a
  // foreign OUI are all ignored.
  Bytes foreign = vendor(8, {'x'});
  foreign[2] ^= 0xff;
  bss = ScanResult(vendor(4, Bytes(15, 1)) + vendor(8, {'v', '2'}, 2) + vendor(8, {}) + foreign).read().bss;
  EXPECT_FALSE(bss.vendorId);
  EXPECT_FALSE(bss.vendorName);
}

TEST(Bss, BrokenElementEndsTheWalkWithALogLine) {
  TraceCapture log;
  // The HT element is sound, the vendor element claims 9 bytes and has 4.
  auto const ies = ssid("lab") + ht(36, 1, true) + Bytes{221, 9, 0x02, 0x51, 0x54, 8};
  auto const bss = ScanResult(ies).read().bss;
  EXPECT_EQ(bss.getRawSSID(), "lab");
  ASSERT_TRUE(bss.channel);
  EXPECT_EQ(bss.channel->width, NL80211_CHAN_WIDTH_40);
  EXPECT_EQ(log.lines(), (std::vector<TraceLine>{{trace::Provider::Cmd, trace::Level::Err,
                                                  "broken element @ (29/35): too short (6 < 11)"}}));

  // A well-framed element of the wrong length breaks the walk just the same.
  TraceCapture again;
  EXPECT_EQ(ScanResult(Bytes{192, 4, 1, 42, 0, 0} + ssid("late")).read().bss.getRawSSID(), "");
  EXPECT_EQ(again.lines(), (std::vector<TraceLine>{{trace::Provider::Cmd, trace::Level::Err,
                                                    "broken element @ (0/12): wrong length (4 != 5)"}}));
}

TEST(Bss, ChannelThatCannotBeConvertedIsLoggedAndLeftOut) {
  TraceCapture log;
  auto const bss = ScanResult(ssid("lab") + ht(0, 0, false), 2412).read().bss;
  EXPECT_FALSE(bss.channel);
  EXPECT_EQ(bss.getRawSSID(), "lab");
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].text.rfind("could not process channel information for BSSID 02:00:00:00:01:00: ", 0), 0u)
      << log.lines()[0];
}

TEST(Bss, MandatoryAttributesAndSizes) {
  for (int type : {NL80211_BSS_BSSID, NL80211_BSS_FREQUENCY, NL80211_BSS_CHAN_WIDTH, NL80211_BSS_SEEN_MS_AGO,
                   NL80211_BSS_SIGNAL_MBM, NL80211_BSS_BEACON_INTERVAL, NL80211_BSS_CAPABILITY,
                   NL80211_BSS_LAST_SEEN_BOOTTIME, NL80211_BSS_INFORMATION_ELEMENTS}) {
    ScanResult const result(ssid("lab"), 5180, type);
    try {
      result.read();
      ADD_FAILURE() << "read without attribute " << type;
    } catch (AttrNotFound const& e) {
      EXPECT_EQ(std::string(e.what()), fmt::format("attribute not found (type {})", type));
    }
  }
  TestMessage message;
  message.u32(NL80211_ATTR_IFINDEX, 1);
  EXPECT_THROW(Cmd::ScanInfo{message.stream()}, AttrNotFound);
}

}  // namespace
