#include <tuple>

#include "Records.h"
#include "TraceCapture.h"
#include "ny80211/BssInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

using U8 = std::uint8_t;
Bytes ssid(std::string const& s) { return Bytes{0, static_cast<U8>(s.size())} + Bytes(s.begin(), s.end()); }
// HT Operation: primary; secondary offset (bits 0-1) and any STA width (bit 2); CCFS2 in bits 5-12 of the next word.
Bytes ht(U8 primary, U8 info, U8 ccfs2 = 0) {
  return Bytes{61, 22, primary, info, static_cast<U8>(ccfs2 << 5), static_cast<U8>(ccfs2 >> 3)} + Bytes(18);
}
Bytes vht(U8 width, U8 ccfs0, U8 ccfs1) { return {192, 5, width, ccfs0, ccfs1, 0xfc, 0xff}; }
// HE Operation with 6 GHz Operation Information only.
Bytes he6(U8 primary, U8 control, U8 ccfs0, U8 ccfs1) {
  return {255, 12, 36, 0x00, 0x00, 0x02, 0x01, 0xfc, 0xff, primary, control, ccfs0, ccfs1, 6};
}
Bytes eht(U8 control, U8 ccfs0, U8 ccfs1) { return {255, 9, 106, 0x01, 0xfc, 0xff, 0xff, 0xff, control, ccfs0, ccfs1}; }
// The system vendor's own element: OUI 02:51:54, record kind, 16-bit version (low byte first), record.
Bytes vendor(U8 kind, std::string const& record, U8 version = 1) {
  return Bytes{221, static_cast<U8>(6 + record.size()), 0x02, 0x51, 0x54, kind, version, 0} +
         Bytes(record.begin(), record.end());
}
Bytes const utf8 = hex("7f08 0000000000000100");

// The attributes of a BSS in the kernel's order, with these elements.
Attrs bssAttrs(Bytes const& ies, std::uint32_t mhz = 5180) {
  return attrs(NL80211_BSS_BSSID, "020000000100", NL80211_BSS_FREQUENCY, bytesOf(mhz), NL80211_BSS_CHAN_WIDTH,
               "00000000", NL80211_BSS_SEEN_MS_AGO, "70000000", NL80211_BSS_SIGNAL_MBM, "74f5ffff",
               NL80211_BSS_BEACON_INTERVAL, "6400", NL80211_BSS_CAPABILITY, "1104", NL80211_BSS_LAST_SEEN_BOOTTIME,
               "00d4e36203000000", NL80211_BSS_INFORMATION_ELEMENTS, ies);
}

// A scan-result message read, every field in a line (after the bar, what the elements gave), or its exception.
std::string read(Attrs const& bss, Attrs const& top = attrs(NL80211_ATTR_IFINDEX, "01000000")) {
  return outcome([&] {
    Cmd::ScanInfo const scan(
        TestMessage().put((bss.empty() ? Attrs{} : attrs(NL80211_ATTR_BSS, body(bss))) + top).stream());
    auto const& b = scan.bss;
    return fmt::format(
        "{} {} {} MHz width {} seen {} ms {} ns {} mBm interval {} cap {:#06x} status {} | {}{}type {} {}{}{}",
        scan.ifc, b.bssid, b.frequency, b.chanWidth, b.seenMsAgo, b.lastSeenBoottime, b.signalMbm, b.beaconInterval,
        b.capability, b.status ? std::to_string(*b.status) : "-",
        b.ssid.bytes().empty() ? "" : "'" + b.ssid.toEscapedString() + "' ", b.utf8Ssid ? "utf8 " : "", b.channelType,
        b.channel ? b.channel->toString() : "no channel",
        b.vendorId ? " id " + std::string(reinterpret_cast<char const*>(b.vendorId->data()), b.vendorId->size()) : "",
        b.vendorName ? " name " + *b.vendorName : "");
  });
}

TEST(Bss, ElementsGiveSsidChannelAndVendorDataAndBrokenOnesAreLoggedInOrder) {
  std::string const bad = "could not process channel information for BSSID 02:00:00:00:01:00: cannot convert channel ";
  std::string const band0 = bad + "index 0 in band 0 to frequency", broken = "; broken element @ ";
  std::string const at2412 = "primary 2412 MHz (#  1) / center 2412 MHz (#  1) / width 20 MHz (HT)";
  std::string const at5180 = "primary 5180 MHz (# 36) / center 5180 MHz (# 36) / width 20 MHz (HT)";
  std::string const p36 = "primary 5180 MHz (# 36) / center ", p37 = "primary 6135 MHz (# 37) / center ";
  std::string const p40 = "primary 5200 MHz (# 40) / center ", at42 = "5210 MHz (# 42) / center2 ";
  std::string const w160 = "type 3 " + p36 + "5250 MHz (# 50) / width 160 MHz";
  // The frequency, the elements; what they gave, then each line logged at ny80211_cmd/log_err.
  std::tuple<std::uint32_t, Bytes, std::string> const rows[] = {
      // Legacy access points get their frequency's 20 MHz channel; SSIDs print escaped.
      {2412, ssid(" "), "'\\x20' type 0 " + at2412},
      {2412, ssid("two words") + ht(1, 0), "'two words' type 1 " + at2412},
      {2437, ssid("  x  ") + ht(6, 5),
       "'\\x20 x \\x20' type 3 primary 2437 MHz (#  6) / center 2447 MHz (#  8) / width 40 MHz"},
      {5200, ssid("a\\x") + ht(40, 7), "'a\\x5cx' type 2 " + p40 + "5190 MHz (# 38) / width 40 MHz"},
      {5200, ssid(" !~") + ht(40, 3), "'\\x20!~' type 2 " + p40 + "5200 MHz (# 40) / width 20 MHz (HT)"},
      {5200, ssid(std::string("\0\x1f\x7f\x80\xff", 5)) + ht(40, 6), "'\\x00\\x1f\\x7f\\x80\\xff' type 0 no channel"},
      {5180, ssid("lab 5") + ht(36, 5) + vht(1, 42, 0) + vendor(8, "AP-7") + utf8,
       "'lab 5' utf8 type 3 " + p36 + "5210 MHz (# 42) / width 80 MHz name AP-7"},
      {5180, ht(36, 5) + vht(1, 42, 50), w160},
      {5180, ht(36, 5, 50) + vht(1, 42, 0), w160},
      {5180, ht(36, 5, 50) + vht(1, 42, 50), "type 3 no channel"},
      {5180, ht(36, 5) + vht(1, 42, 155), "type 3 " + p36 + at42 + "5775 MHz (#155)/ width 80+80 MHz"},
      {5180, ht(36, 5) + vht(1, 42, 59), "type 3 " + p36 + at42 + "5295 MHz (# 59)/ width 80+80 MHz"},
      {5180, ht(36, 5) + vht(1, 42, 52), "type 3 no channel"},
      {5180, ht(36, 5) + vht(2, 50, 0), w160},
      {5180, ht(36, 1) + vht(1, 42, 0), "type 3 no channel"},
      {5180, ht(36, 0) + vht(0, 0, 0), "type 1 " + at5180},
      {5180, vht(1, 42, 0), "type 0 no channel"},
      {6135, he6(37, 2, 39, 0), "type 0 " + p37 + "6145 MHz (# 39) / width 80 MHz"},
      {6135, he6(37, 3, 39, 47), "type 0 " + p37 + "6185 MHz (# 47) / width 160 MHz"},
      {6135, he6(37, 3, 39, 71), "type 0 " + p37 + "6145 MHz (# 39) / center2 6305 MHz (# 71)/ width 80+80 MHz"},
      {6135, he6(37, 3, 39, 51), "type 0 no channel"},
      {6135, he6(37, 3, 39, 47) + eht(4, 47, 63), "type 0 " + p37 + "6265 MHz (# 63) / width <unknown>"},
      {5180, ht(36, 5) + vht(1, 42, 50) + eht(3, 42, 50), w160},
      {6135, he6(37, 3, 39, 47) + eht(5, 47, 63), "type 0 no channel"},
      {5180, vht(1, 42, 0) + eht(2, 42, 0), "type 0 no channel"},
      // Vendor data only under the own OUI and version 1, later elements winning; a short identifier, version 2,
      // a name without text and a foreign OUI are ignored.
      {5180, vendor(4, "0123456789abcdef") + vendor(8, "old") + vendor(8, "new"),
       "type 0 " + at5180 + " id 0123456789abcdef name new"},
      {5180, vendor(4, "0123456789abcde") + vendor(8, "v2", 2) + vendor(8, "") + hex("dd07 fd5154 080100 78"),
       "type 0 " + at5180},
      // A broken element ends the walk with a line, what came before stays; an empty extension element takes its
      // extension ID from the next byte.
      {5180, ssid("lab") + ht(36, 5) + hex("dd09 025154 08"),
       "'lab' type 3 " + p36 + "5190 MHz (# 38) / width 40 MHz" + broken + "(29/35): too short (6 < 11)"},
      {5180, hex("c004 012a0000") + ssid("late"), "type 0 " + at5180 + broken + "(0/12): wrong length (4 != 5)"},
      {5180, ssid("lab") + Bytes{0}, "'lab' type 0 " + at5180 + broken + "(5/6): too short (1 < 2)"},
      {5180, hex("ff00") + ssid("lab"), "'lab' type 0 " + at5180},
      {5180, ssid("lab") + hex("ff00"), "'lab' type 0 " + at5180 + broken + "(5/7): too short (2 < 3)"},
      {5180, utf8 + ssid("one") + ssid("two") + hex("7f08 0000000000000000"), "'two' type 0 " + at5180},
      // A channel that does not convert is logged after any broken element.
      {2412, ssid("lab") + ht(0, 0), "'lab' type 0 no channel; " + band0},
      {2412, ht(1, 5) + ht(0, 0) + ssid("lab"), "'lab' type 3 no channel; " + band0},
      {5180, ht(36, 5) + vht(1, 0, 0), "type 3 no channel; " + bad + "index 0 in band 1 to frequency"},
      {2407, ssid("lab"), "'lab' type 0 no channel; " + band0},
      {2412, ht(0, 0) + ssid("lab") + utf8 + hex("dd0902"),
       "'lab' utf8 type 0 no channel" + broken + "(39/42): too short (3 < 11); " + band0},
  };
  for (auto const& [mhz, ies, expected] : rows) {
    TraceCapture log;
    auto text = read(bssAttrs(ies, mhz));
    for (auto const& line : log.lines()) {
      EXPECT_EQ(std::pair(line.provider, line.level), std::pair(trace::Provider::Cmd, trace::Level::Err));
      text += "; " + line.text;
    }
    EXPECT_EQ(text.substr(text.find(" | ") + 3), expected);
  }
}

TEST(Bss, AttributesAbsentShortAndRepeated) {
  std::string const full =
      "netifc lo 02:00:00:00:01:00 5180 MHz width 0 seen 112 ms 14544000000 ns -2700 mBm interval 100 cap 0x0411 "
      "status - | 'lab' type 0 primary 5180 MHz (# 36) / center 5180 MHz (# 36) / width 20 MHz (HT)";
  auto const with = [&](int type, std::vector<char const*> const& payloads) {
    return read(replaced(bssAttrs(ssid("lab")), type, payloads));
  };
  // The first of repeated attributes counts.
  EXPECT_EQ(with(NL80211_BSS_INFORMATION_ELEMENTS, {"00036c6162", "000374776f"}), full);
  EXPECT_EQ(with(NL80211_BSS_STATUS, {"07000000", "08000000"}), edit(full, "status -", "status 7"));
  EXPECT_EQ(with(NL80211_BSS_BSSID, {"020000000200", "020000000100"}), edit(full, "01:00", "02:00"));
  EXPECT_EQ(with(NL80211_BSS_STATUS, {"0700"}), tooSmall(NL80211_BSS_STATUS, 2, 4));
  EXPECT_EQ(with(NL80211_BSS_BSSID, {"0200000002", "020000000100"}), tooSmall(NL80211_BSS_BSSID, 5, 6));
  for (auto const& [type, _] : bssAttrs({})) EXPECT_EQ(with(type, {}), notFound(type));
  EXPECT_EQ(read({}), notFound(NL80211_ATTR_BSS));
  EXPECT_EQ(AttrSsid(std::vector<std::byte>()).toEscapedString(), "");
  EXPECT_EQ(read(bssAttrs({}), {}), notFound(NL80211_ATTR_IFINDEX));
}

}  // namespace
