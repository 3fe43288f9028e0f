#include <sstream>
#include <tuple>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/AttrFmt.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// Types of enum qca_wlan_vendor_attr_config, which no system header has.
constexpr int qcaCommand = 17, qcaData = 19;
constexpr auto nl = AttrScope::Nl80211, bss = AttrScope::Bss, qca = AttrScope::QcaWifiConfig;
constexpr int subcmd = NL80211_ATTR_VENDOR_SUBCMD, data = NL80211_ATTR_VENDOR_DATA;

// The values a stream's lines end in, joined by "|", from a message of exactly its attributes (type, hex payload).
std::string values(AttrScope scope, std::vector<std::pair<int, char const*>> const& payloads) {
  Attrs attrs;
  std::size_t size = NLMSG_HDRLEN + GENL_HDRLEN;
  for (auto const& [type, payload] : payloads) {
    size += nla_total_size(static_cast<int>(attrs.emplace_back(type, hex(payload)).second.size()));
  }
  TestMessage m(size);
  std::istringstream text(AttrFmt::Format({scope, m.put(attrs).stream()}));
  std::string joined;
  for (std::string line; std::getline(text, line);) {
    auto const value = line.find(" : ");
    joined += (joined.empty() ? "" : "|") + (value == std::string::npos ? line : line.substr(value + 3));
  }
  return joined;
}

TEST(AttrFmt, DecodersRenderValuesAndRejectWrongSizes) {
  std::tuple<AttrScope, char const*, std::vector<std::pair<int, char const*>>> const rows[] = {
      {nl, "4294967295|<invalid>", {{NL80211_ATTR_WIPHY, "ffffffff"}, {NL80211_ATTR_IFINDEX, "010203"}}},
      {nl, "255|65535", {{NL80211_ATTR_KEY_IDX, "ff"}, {NL80211_ATTR_MAX_SCAN_IE_LEN, "ffff"}}},
      {nl, "-2000|0x1374", {{NL80211_ATTR_WIPHY_TX_POWER_LEVEL, "30f8ffff"}, {NL80211_ATTR_VENDOR_ID, "74130000"}}},
      {nl, "disabled", {{NL80211_ATTR_WIPHY_RTS_THRESHOLD, "ffffffff"}}},
      {nl, "2346", {{NL80211_ATTR_WIPHY_FRAG_THRESHOLD, "2a090000"}}},
      {nl, "0xdeadbeef01|<invalid>", {{NL80211_ATTR_COOKIE, "01efbead de000000"}, {NL80211_ATTR_COOKIE, "01000000"}}},
      {nl, "yes|<invalid>", {{NL80211_ATTR_ACK, ""}, {NL80211_ATTR_ACK, "01"}}},
      {nl, "<...>|<>", {{NL80211_ATTR_IE, "dd"}, {NL80211_ATTR_UNSPEC, ""}}},
      // A string ends at its NUL or, unterminated, at the attribute's end; an SSID is all of it, escaped.
      {nl, "ab|wlan|<invalid>", {{NL80211_ATTR_IFNAME, "61620063 64"}, {NL80211_ATTR_IFNAME, "776c616e"}, {2, ""}}},
      {nl, "a\\x5cb\\x00\\xff~|<invalid>", {{NL80211_ATTR_SSID, "615c6200 ff7e"}, {NL80211_ATTR_SSID, ""}}},
      {nl, "[hex dead000f]|[hex ab]|[hex ]", {{NL80211_ATTR_FRAME, "dead000f"}, {NL80211_ATTR_FRAME, "ab"}, {51, ""}}},
      {nl, "02:00:00:ab:01:0a|<invalid>", {{NL80211_ATTR_MAC, "020000ab 010a"}, {NL80211_ATTR_MAC, "01000000"}}},
      // Nested headers that claim more than the nest holds, or less than themselves.
      {nl, "nested =>||nested =>|", {{NL80211_ATTR_BSS, "c8000100"}, {NL80211_ATTR_BSS, "03000100"}}},
      {bss, "0b10000110001", {{NL80211_BSS_CAPABILITY, "3104"}}},
      {bss, "18446744073709551615", {{NL80211_BSS_TSF, "ffffffff ffffffff"}}},
      {qca, "<unknown>|<...>|<invalid>", {{qcaCommand, "05000000"}, {qcaData, "0102"}, {qcaCommand, ""}}},
      // Vendor data follows the subcommand before it, whose first four bytes are its number.
      {nl, "<...>(missing subcmd)|QCA_NL80211_VENDOR_SUBCMD_TEST", {{data, "01"}, {subcmd, "01000000"}}},
      {nl, "QCA_NL80211_VENDOR_SUBCMD_MBSSID_TX_VDEV_STATUS|[hex ab01]", {{subcmd, "c4000000"}, {data, "ab01"}}},
      {nl, "QCA_NL80211_VENDOR_SUBCMD_TEST|<...>(unmapped subcmd)", {{subcmd, "01000000"}, {data, "01"}}},
      {nl, "<unknown>|<>(unmapped subcmd)", {{subcmd, "02000000"}, {data, ""}}},  // a gap of the enumeration
      {nl, "<invalid>|<...>(missing subcmd)|<invalid>", {{subcmd, "4a"}, {data, "01"}, {subcmd, ""}}},
      {nl, "QCA_NL80211_VENDOR_SUBCMD_GET_WIFI_CONFIGURATION|nested =>|", {{subcmd, "4b000000 00000000"}, {data, ""}}},
  };
  for (auto const& [scope, expected, attrs] : rows) EXPECT_EQ(values(scope, attrs), expected);
}

// Line heads align the size and the name, one level deeper inside a nest; streams add their sizes.
TEST(AttrFmt, StreamsRenderALineAnAttribute) {
  std::tuple<AttrScope, char const*, char const*> const rows[] = {
      {nl, "08000300 07000000 0a000400 776c616e 30000000 04005c00 09002c01 01020304 05000000 04001a01",
       "\t\t[    4 byte] NL80211_ATTR_IFINDEX                     : 7\n"
       "\t\t[    6 byte] NL80211_ATTR_IFNAME                      : wlan0\n"
       "\t\t[    0 byte] NL80211_ATTR_ACK                         : yes\n"
       "\t\t[    5 byte] <attr type 300>                          : <...>\n"
       "\t\t[    0 byte] NL80211_ATTR_VLAN_ID                     : <>\n\tattrs\t[   15 byte]\n\tstream\t[   40 "
       "byte]\n"},
      // A nest cut inside its second attribute shows the first alone.
      {nl, "12002f00 08000200 6c090000 0c000300 01000000",
       "\t\t[   14 byte] NL80211_ATTR_BSS                         : nested =>\n"
       "\t\t[    4 byte]    NL80211_BSS_FREQUENCY                    : 2412\n\n\tattrs\t[   14 byte]\n\tstream\t[   20 "
       "byte]\n"},
      {nl, "0800c400 4a000000 1400c500 08001100 09000000 05003f00 02000000 08000300 07000000",
       "\t\t[    4 byte] NL80211_ATTR_VENDOR_SUBCMD               : QCA_NL80211_VENDOR_SUBCMD_SET_WIFI_CONFIGURATION\n"
       "\t\t[   16 byte] NL80211_ATTR_VENDOR_DATA                 : nested =>\n"
       "\t\t[    4 byte]    QCA_WLAN_VENDOR_ATTR_CONFIG_GENERIC_COMMAND : <unknown>\n"
       "\t\t[    1 byte]    QCA_WLAN_VENDOR_ATTR_CONFIG_CHANNEL_WIDTH : 2\n\n"
       "\t\t[    4 byte] NL80211_ATTR_IFINDEX                     : 7\n\tattrs\t[   24 byte]\n\tstream\t[   36 "
       "byte]\n"},
      // A scope that names no table knows no attribute.
      {static_cast<AttrScope>(1), "08000100 01000000",
       "\t\t[    4 byte] <attr type 1>                            : <...>\n\tattrs\t[    4 byte]\n\tstream\t[    8 "
       "byte]\n"},
      {bss, "", "\tattrs\t[    0 byte]\n\tstream\t[    0 byte]\n"},
  };
  for (auto const& [scope, attrs, text] : rows) {
    auto bytes = hex(attrs);
    std::ostringstream out;
    AttrStream(nullptr, reinterpret_cast<nlattr*>(bytes.data()), bytes.size()).printToStream(out, scope);
    EXPECT_EQ(out.str(), "\tAttributes:\n" + std::string(text));
  }
  // The tables run to the last attribute of their enumerations.
  EXPECT_EQ(fmt::format("{} {} {}", AttrFmt::GetTable(nl)->size(), AttrFmt::GetTable(bss)->size(),
                        AttrFmt::GetTable(qca)->size()),
            "283 19 79");
}

}  // namespace
