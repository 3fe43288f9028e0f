#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "../events/LinkPeer.h"
#include "TestMessage.h"
#include "TraceCapture.h"
#include "ny80211/BssInfo.h"
#include "ny80211/Error.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::Attrs;
using Ny80211::testing::Bytes;
using Ny80211::testing::outcome;
using Ny80211::testing::replaced;
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

// The attributes of a BSS in the kernel's order, with these elements.
Attrs bssAttrs(Bytes const& ies, std::uint32_t mhz = 5180) {
  using Ny80211::testing::bytesOf;
  return {{NL80211_BSS_BSSID, {0x02, 0, 0, 0, 0x01, 0}},
          {NL80211_BSS_FREQUENCY, bytesOf(mhz)},
          {NL80211_BSS_CHAN_WIDTH, bytesOf(std::uint32_t{0})},
          {NL80211_BSS_SEEN_MS_AGO, bytesOf(std::uint32_t{112})},
          {NL80211_BSS_SIGNAL_MBM, bytesOf(std::int32_t{-2700})},
          {NL80211_BSS_BEACON_INTERVAL, bytesOf(std::uint16_t{100})},
          {NL80211_BSS_CAPABILITY, bytesOf(std::uint16_t{0x0411})},
          {NL80211_BSS_LAST_SEEN_BOOTTIME, bytesOf(std::uint64_t{14544000000})},
          {NL80211_BSS_INFORMATION_ELEMENTS, ies}};
}

// A scan-result message: a nested BSS and the interface, 1 (lo, which every
// machine has) unless told.
struct ScanResult {
  explicit ScanResult(Bytes const& ies, std::uint32_t mhz = 5180, int skip = -1)
      : ScanResult(replaced(bssAttrs(ies, mhz), skip, {})) {}
  explicit ScanResult(Attrs const& bssAttrs, std::uint32_t ifindex = 1) {
    auto bss = TestMessage::nestBody();
    bss.put(bssAttrs);
    message.nest(NL80211_ATTR_BSS, bss);
    message.u32(NL80211_ATTR_IFINDEX, ifindex);
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
        ChannelCase{"Ht20", 2412, ht(1, 0, false),
                    "primary 2412 MHz (#  1) / center 2412 MHz (#  1) / width 20 MHz (HT)"},
        ChannelCase{"Ht40Above", 2437, ht(6, 1, true),
                    "primary 2437 MHz (#  6) / center 2447 MHz (#  8) / width 40 MHz"},
        ChannelCase{"Ht40Below", 5200, ht(40, 3, true),
                    "primary 5200 MHz (# 40) / center 5190 MHz (# 38) / width 40 MHz"},
        ChannelCase{"Ht40BelowNarrowStations", 5200, ht(40, 3, false),
                    "primary 5200 MHz (# 40) / center 5200 MHz (# 40) / width 20 MHz (HT)"},
        ChannelCase{"HtReservedOffset", 5200, ht(40, 2, true), ""},
        ChannelCase{"Vht80", 5180, ht(36, 1, true) + vht(1, 42, 0),
                    "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 MHz"},
        ChannelCase{"Vht160", 5180, ht(36, 1, true) + vht(1, 42, 50),
                    "primary 5180 MHz (# 36) / center 5250 MHz (# 50) / width 160 MHz"},
        ChannelCase{"Vht160InHtSegment", 5180, ht(36, 1, true, 50) + vht(1, 42, 0),
                    "primary 5180 MHz (# 36) / center 5250 MHz (# 50) / width 160 MHz"},
        ChannelCase{"VhtBothSecondSegments", 5180, ht(36, 1, true, 50) + vht(1, 42, 50), ""},
        ChannelCase{"Vht80Plus80", 5180, ht(36, 1, true) + vht(1, 42, 155),
                    "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / center2 5775 MHz (#155)/ width 80+80 MHz"},
        ChannelCase{"VhtSegmentsTooClose", 5180, ht(36, 1, true) + vht(1, 42, 52), ""},
        ChannelCase{"Vht160Deprecated", 5180, ht(36, 1, true) + vht(2, 50, 0),
                    "primary 5180 MHz (# 36) / center 5250 MHz (# 50) / width 160 MHz"},
        ChannelCase{"VhtNarrowStations", 5180, ht(36, 1, false) + vht(1, 42, 0), ""},
        ChannelCase{"VhtNarrowStations20", 5180, ht(36, 0, false) + vht(0, 0, 0),
                    "primary 5180 MHz (# 36) / center 5180 MHz (# 36) / width 20 MHz (HT)"},
        ChannelCase{"VhtWithoutHt", 5180, vht(1, 42, 0), ""},
        ChannelCase{"He6Ghz80", 6135, he6(37, 2, 39, 0),
                    "primary 6135 MHz (# 37) / center 6145 MHz (# 39) / width 80 MHz"},
        ChannelCase{"He6Ghz160", 6135, he6(37, 3, 39, 47),
                    "primary 6135 MHz (# 37) / center 6185 MHz (# 47) / width 160 MHz"},
        ChannelCase{"He6Ghz80Plus80", 6135, he6(37, 3, 39, 71),
                    "primary 6135 MHz (# 37) / center 6145 MHz (# 39) / center2 6305 MHz (# 71)/ width 80+80 MHz"},
        ChannelCase{"He6GhzSegmentsTooClose", 6135, he6(37, 3, 39, 51), ""},
        ChannelCase{"Eht320", 6135, he6(37, 3, 39, 47) + eht(4, 47, 63),
                    "primary 6135 MHz (# 37) / center 6265 MHz (# 63) / width <unknown>"},
        ChannelCase{"Eht160OnHtPrimary", 5180, ht(36, 1, true) + vht(1, 42, 50) + eht(3, 42, 50),
                    "primary 5180 MHz (# 36) / center 5250 MHz (# 50) / width 160 MHz"},
        ChannelCase{"EhtReservedWidth", 6135, he6(37, 3, 39, 47) + eht(5, 47, 63), ""},
        ChannelCase{"EhtWithoutPrimary", 5180, vht(1, 42, 0) + eht(2, 42, 0), ""}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(Bss, ReadsEveryFieldOfAScanResult) {
  auto const result = ScanResult(ssid("lab 5") + ht(36, 1, true) + vht(1, 42, 0) + vendor(8, {'A', 'P', '-', '7'}) +
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

struct Logged {
  char const* name;
  std::uint32_t mhz;
  Bytes ies;
  std::string read;                // SSID, UTF-8 flag, channel type, channel
  std::vector<std::string> lines;  // at ny80211_cmd/log_err, in order
};

TEST(Bss, BrokenElementsAndChannelsAreLoggedInOrderAndTheReadGoesOn) {
  std::string const bad = "could not process channel information for BSSID 02:00:00:00:01:00: ";
  std::string const band0 = bad + "cannot convert channel index 0 in band 0 to frequency";
  std::string const at5180 = " type 0 primary 5180 MHz (# 36) / center 5180 MHz (# 36) / width 20 MHz (HT)";
  Bytes const utf8{127, 8, 0, 0, 0, 0, 0, 0, 0x01, 0};
  Logged const rows[] = {
      // The HT element is sound, the vendor element claims 9 bytes and has 4.
      {"BrokenVendor",
       5180,
       ssid("lab") + ht(36, 1, true) + Bytes{221, 9, 0x02, 0x51, 0x54, 8},
       "'lab' type 3 primary 5180 MHz (# 36) / center 5190 MHz (# 38) / width 40 MHz",
       {"broken element @ (29/35): too short (6 < 11)"}},
      {"WellFramedOfTheWrongLength",
       5180,
       Bytes{192, 4, 1, 42, 0, 0} + ssid("late"),
       "''" + at5180,
       {"broken element @ (0/12): wrong length (4 != 5)"}},
      {"TrailingByte", 5180, ssid("lab") + Bytes{0}, "'lab'" + at5180, {"broken element @ (5/6): too short (1 < 2)"}},
      // An empty extension element takes its extension ID from the next byte.
      {"EmptyExtension", 5180, Bytes{255, 0} + ssid("lab"), "'lab'" + at5180, {}},
      {"EmptyExtensionLast",
       5180,
       ssid("lab") + Bytes{255, 0},
       "'lab'" + at5180,
       {"broken element @ (5/7): too short (2 < 3)"}},
      {"LaterSsidAndCapabilitiesWin",
       5180,
       utf8 + ssid("one") + ssid("two") + Bytes{127, 8, 0, 0, 0, 0, 0, 0, 0, 0},
       "'two'" + at5180,
       {}},
      {"HtPrimaryZero", 2412, ssid("lab") + ht(0, 0, false), "'lab' type 0 no channel", {band0}},
      {"SecondHtBroken", 2412, ht(1, 1, true) + ht(0, 0, false) + ssid("lab"), "'lab' type 3 no channel", {band0}},
      {"CentreZeroAtTheEnd",
       5180,
       ht(36, 1, true) + vht(1, 0, 0),
       "'' type 3 no channel",
       {bad + "cannot convert channel index 0 in band 1 to frequency"}},
      {"NoChannelNumberForTheFallback", 2407, ssid("lab"), "'lab' type 0 no channel", {band0}},
      {"BrokenElementThenBadChannel",
       2412,
       ht(0, 0, false) + ssid("lab") + utf8 + Bytes{221, 9, 2},
       "'lab' utf8 type 0 no channel",
       {"broken element @ (39/42): too short (3 < 11)", band0}},
  };
  for (auto const& r : rows) {
    SCOPED_TRACE(r.name);
    TraceCapture log;
    auto const bss = ScanResult(r.ies, r.mhz).read().bss;
    EXPECT_EQ(fmt::format("'{}'{} type {} {}", bss.getRawSSID(), bss.utf8Ssid ? " utf8" : "", bss.channelType,
                          bss.channel ? bss.channel->toString() : "no channel"),
              r.read);
    std::vector<TraceLine> lines;
    for (auto const& text : r.lines) lines.push_back({trace::Provider::Cmd, trace::Level::Err, text});
    EXPECT_EQ(log.lines(), lines);
  }
}

TEST(Bss, AbsentShortRepeatedAndReorderedAttributes) {
  struct Row {
    int type;
    std::vector<char const*> payloads;  // hex, in message order; none: absent
    std::string read;
  };
  std::string const rest = " / 5180 MHz / 'lab' / primary 5180 MHz (# 36) / center 5180 MHz (# 36) / width 20 MHz (HT)";
  Row const rows[] = {
      {NL80211_BSS_STATUS, {}, "02:00:00:00:01:00 status -" + rest},
      {NL80211_BSS_STATUS, {"07000000"}, "02:00:00:00:01:00 status 7" + rest},
      {NL80211_BSS_STATUS, {"0700"}, "Error: attribute (type 9) payload too small for data type (2 < 4)"},
      {NL80211_BSS_STATUS, {"07000000", "08000000"}, "02:00:00:00:01:00 status 7" + rest},
      {NL80211_BSS_BSSID, {"020000000200", "020000000100"}, "02:00:00:00:02:00 status -" + rest},
      {NL80211_BSS_BSSID,
       {"0200000002", "020000000100"},
       "Error: attribute (type 1) payload too small for data type (5 < 6)"},
      {NL80211_BSS_INFORMATION_ELEMENTS, {"00036c6162", "000374776f"}, "02:00:00:00:01:00 status -" + rest},
  };
  for (bool const reorder : {false, true}) {
    for (auto const& r : rows) {
      auto attrs = replaced(bssAttrs(ssid("lab")), r.type, r.payloads);
      // By type, falling; repeats keep their order.
      if (reorder) std::stable_sort(attrs.begin(), attrs.end(), [](auto& a, auto& b) { return a.first > b.first; });
      EXPECT_EQ(outcome([&] {
                  auto const b = ScanResult(attrs).read().bss;
                  return fmt::format("{} status {} / {} MHz / '{}' / {}", b.bssid,
                                     b.status ? std::to_string(*b.status) : "-", b.frequency, b.getRawSSID(),
                                     b.channel ? b.channel->toString() : "");
                }),
                r.read)
          << "attribute " << r.type << " x" << r.payloads.size() << (reorder ? " reordered" : "");
    }
  }
}

TEST(Bss, ScanInfoNamesTheInterfaceAsTheKernelDoesAtEachRead) {
  std::vector<std::string> names;
  unsigned v0 = 0;
  auto const made = Ny80211::testing::withVethPair([&](Ny80211::testing::LinkPeer& peer, unsigned index) {
    v0 = index;
    ScanResult const result(bssAttrs(ssid("lab")), index);
    names.push_back(result.read().ifc.name());
    peer.renameLink(index, "w0");
    names.push_back(result.read().ifc.name());
    peer.deleteLink("w0");
    names.push_back(result.read().ifc.name());
  });
  if (!made) GTEST_SKIP() << "needs root and veth links for a network namespace";
  EXPECT_EQ(names, (std::vector<std::string>{"v0", "w0", fmt::format("<ifindex {}>", v0)}));
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
