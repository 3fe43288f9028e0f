#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/AttrFmt.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// Types of enum qca_wlan_vendor_attr_config, which no system header has.
constexpr int qcaGenericCommand = 17;
constexpr int qcaGenericData = 19;
constexpr int qcaChannelWidth = 63;

Bytes text(std::string const& s) { return Bytes(s.begin(), s.end()); }

// The value of a one-line rendering.
std::string valueOf(std::string const& line) {
  auto const start = line.find(" : ") + 3;
  return line.substr(start, line.size() - start - 1);
}

// Each payload is the last bytes of its buffer: a read past the attribute is a
// read past the allocation.
TEST(AttrFmt, DecodersRenderValuesAndRejectWrongSizes) {
  struct Case {
    AttrScope scope;
    int type;
    Bytes payload;
    std::string value;
  };
  auto const nl = AttrScope::Nl80211, bss = AttrScope::Bss, qca = AttrScope::QcaWifiConfig;
  Case const cases[] = {
      {nl, NL80211_ATTR_IFINDEX, Bytes{1, 2, 3}, "<invalid>"},
      {nl, NL80211_ATTR_WIPHY, bytesOf(0xffffffffu), "4294967295"},
      {nl, NL80211_ATTR_KEY_IDX, Bytes{255}, "255"},
      {nl, NL80211_ATTR_MAX_SCAN_IE_LEN, bytesOf<std::uint16_t>(65535), "65535"},
      {nl, NL80211_ATTR_WIPHY_TX_POWER_LEVEL, bytesOf(-2000), "-2000"},
      {nl, NL80211_ATTR_WIPHY_RTS_THRESHOLD, bytesOf(0xffffffffu), "disabled"},
      {nl, NL80211_ATTR_WIPHY_FRAG_THRESHOLD, bytesOf(2346u), "2346"},
      {nl, NL80211_ATTR_VENDOR_ID, bytesOf(0x001374u), "0x1374"},
      {nl, NL80211_ATTR_COOKIE, bytesOf<std::uint64_t>(0xdeadbeef01), "0xdeadbeef01"},
      {nl, NL80211_ATTR_COOKIE, bytesOf(1u), "<invalid>"},
      {nl, NL80211_ATTR_ACK, Bytes{}, "yes"},
      {nl, NL80211_ATTR_ACK, Bytes{1}, "<invalid>"},
      {nl, NL80211_ATTR_IFNAME, text(std::string("ab\0cd", 5)), "ab"},
      {nl, NL80211_ATTR_IFNAME, text("wlan"), "wlan"},  // unterminated
      {nl, NL80211_ATTR_WIPHY_NAME, Bytes{}, "<invalid>"},
      {nl, NL80211_ATTR_SSID, text(std::string("a\\b\0\xff~", 6)), "a\\x5cb\\x00\\xff~"},
      {nl, NL80211_ATTR_SSID, Bytes{}, "<invalid>"},
      {nl, NL80211_ATTR_FRAME, Bytes{0xde, 0xad, 0x00, 0x0f}, "[hex dead000f]"},
      {nl, NL80211_ATTR_FRAME, Bytes{}, "[hex ]"},
      {nl, NL80211_ATTR_MAC, Bytes{2, 0, 0, 0xab, 1, 0x0a}, "02:00:00:ab:01:0a"},
      {nl, NL80211_ATTR_MAC, bytesOf(1u), "<invalid>"},
      {nl, NL80211_ATTR_VENDOR_SUBCMD, Bytes{}, "<invalid>"},
      {nl, NL80211_ATTR_IE, Bytes{0xdd}, "<...>"},
      {nl, NL80211_ATTR_UNSPEC, Bytes{}, "<>"},
      // Nested headers that claim more than the nest holds, or less than themselves.
      {nl, NL80211_ATTR_BSS, Bytes{200, 0, 1, 0}, "nested =>\n"},
      {nl, NL80211_ATTR_BSS, Bytes{3, 0, 1, 0}, "nested =>\n"},
      {bss, NL80211_BSS_CAPABILITY, bytesOf<std::uint16_t>(0x0431), "0b10000110001"},
      {bss, NL80211_BSS_TSF, bytesOf(~std::uint64_t{0}), "18446744073709551615"},
      {qca, qcaGenericCommand, bytesOf(5u), "<unknown>"},
      {qca, qcaGenericCommand, Bytes{}, "<invalid>"},
      {qca, qcaGenericData, Bytes{1, 2}, "<...>"},
  };
  for (auto const& c : cases) {
    auto m = TestMessage::fitting(c.payload.size());
    auto const* attr = m.put(c.type, c.payload);
    ASSERT_NE(attr, nullptr) << c.type;
    EXPECT_EQ(valueOf(AttrFmt::Format({c.scope, attr})), c.value)
        << "scope " << static_cast<int>(c.scope) << " type " << c.type;
  }
}

TEST(AttrFmt, TruncatedNestShowsItsWholeAttributesOnly) {
  auto bss = TestMessage::nestBody();
  bss.put(NL80211_BSS_FREQUENCY, bytesOf(2412u));
  bss.put(NL80211_BSS_TSF, bytesOf<std::uint64_t>(1));
  TestMessage m;
  auto* attr = m.nest(NL80211_ATTR_BSS, bss);
  attr->nla_len = static_cast<std::uint16_t>(NLA_HDRLEN + 8 + 6);  // inside the second attribute
  EXPECT_EQ(AttrFmt::Format({AttrScope::Nl80211, attr}),
            "\t\t[   14 byte] NL80211_ATTR_BSS                         : nested =>\n"
            "\t\t[    4 byte]    NL80211_BSS_FREQUENCY                    : 2412\n"
            "\n");
  // A header that claims less than itself leaves no payload to read.
  attr->nla_len = 2;
  EXPECT_EQ(AttrFmt::Format({AttrScope::Nl80211, attr}),
            "\t\t[   -2 byte] NL80211_ATTR_BSS                         : nested =>\n\n");
  attr->nla_type = NL80211_ATTR_FRAME;
  EXPECT_EQ(valueOf(AttrFmt::Format({AttrScope::Nl80211, attr})), "[hex ]");
}

TEST(AttrFmt, VendorDataFollowsTheSubcommandBeforeIt) {
  auto config = TestMessage::nestBody();
  config.put(qcaGenericCommand, bytesOf(9u));
  config.put(qcaChannelWidth, Bytes{2});
  TestMessage m;
  m.put(NL80211_ATTR_VENDOR_DATA, Bytes{1});  // before any subcommand
  m.put(NL80211_ATTR_VENDOR_SUBCMD, bytesOf(74u));
  m.nest(NL80211_ATTR_VENDOR_DATA, config);
  AttrFmt fmt;
  fmt.FormatAttrStream(m.stream(), AttrFmt::GetTable(AttrScope::Nl80211));
  EXPECT_EQ(fmt.out.str(),
            "\t\t[    1 byte] NL80211_ATTR_VENDOR_DATA                 : <...>(missing subcmd)\n"
            "\t\t[    4 byte] NL80211_ATTR_VENDOR_SUBCMD               : "
            "QCA_NL80211_VENDOR_SUBCMD_SET_WIFI_CONFIGURATION\n"
            "\t\t[   16 byte] NL80211_ATTR_VENDOR_DATA                 : nested =>\n"
            "\t\t[    4 byte]    QCA_WLAN_VENDOR_ATTR_CONFIG_GENERIC_COMMAND : <unknown>\n"
            "\t\t[    1 byte]    QCA_WLAN_VENDOR_ATTR_CONFIG_CHANNEL_WIDTH : 2\n"
            "\n");
  EXPECT_EQ(fmt.indent, 0u);
  // Each Format starts afresh: no subcommand carries over.
  EXPECT_EQ(valueOf(AttrFmt::Format({AttrScope::Nl80211, m.stream().find(NL80211_ATTR_VENDOR_DATA)})),
            "<...>(missing subcmd)");

  struct Case {
    Bytes subcmd, data;
    std::string subcmdValue, dataValue;
  };
  Case const cases[] = {
      {bytesOf(196u), Bytes{0xab, 1}, "QCA_NL80211_VENDOR_SUBCMD_MBSSID_TX_VDEV_STATUS", "[hex ab01]"},
      {bytesOf(1u), Bytes{1}, "QCA_NL80211_VENDOR_SUBCMD_TEST", "<...>(unmapped subcmd)"},
      {bytesOf(2u), Bytes{}, "<unknown>", "<>(unmapped subcmd)"},  // a gap of the enumeration
      {Bytes{74}, Bytes{1}, "<invalid>", "<...>(missing subcmd)"},
      // The first four bytes are the number, whatever follows.
      {bytesOf<std::uint64_t>(75), Bytes{}, "QCA_NL80211_VENDOR_SUBCMD_GET_WIFI_CONFIGURATION", "nested =>\n"},
  };
  for (auto const& c : cases) {
    AttrFmt one;
    one.QcaVendorSubCmd(m.put(NL80211_ATTR_VENDOR_SUBCMD, c.subcmd));
    EXPECT_EQ(one.out.str(), c.subcmdValue);
    one.out.str("");
    one.QcaVendorData(m.put(NL80211_ATTR_VENDOR_DATA, c.data));
    EXPECT_EQ(one.out.str(), c.dataValue) << c.subcmdValue;
  }
}

TEST(AttrFmt, LineHeadsAlignSizeAndNameAndStreamsAddTheirSizes) {
  TestMessage m;
  m.put(NL80211_ATTR_IFINDEX, bytesOf(7u));
  m.put(NL80211_ATTR_IFNAME, text(std::string("wlan0\0", 6)));
  m.put(NL80211_ATTR_ACK, Bytes{});
  std::ostringstream os, empty;
  m.stream().printToStream(os, AttrScope::Nl80211);
  EXPECT_EQ(os.str(),
            "\tAttributes:\n"
            "\t\t[    4 byte] NL80211_ATTR_IFINDEX                     : 7\n"
            "\t\t[    6 byte] NL80211_ATTR_IFNAME                      : wlan0\n"
            "\t\t[    0 byte] NL80211_ATTR_ACK                         : yes\n"
            "\tattrs\t[   10 byte]\n"
            "\tstream\t[   24 byte]\n");
  AttrStream().printToStream(empty, AttrScope::Bss);
  EXPECT_EQ(empty.str(), "\tAttributes:\n\tattrs\t[    0 byte]\n\tstream\t[    0 byte]\n");
  // A type past the table: its number stands for the name.
  EXPECT_EQ(AttrFmt::Format({AttrScope::Nl80211, m.put(300, Bytes(1234, 0))}),
            "\t\t[ 1234 byte] <attr type 300>                          : <...>\n");
  // A scope that names no table knows no attribute.
  EXPECT_EQ(AttrFmt::Format({static_cast<AttrScope>(1), m.put(NL80211_ATTR_WIPHY, bytesOf(1u))}),
            "\t\t[    4 byte] <attr type 1>                            : <...>\n");
}

#ifdef NY80211_NAME_TABLES_DIR
std::vector<std::pair<int, std::string>> readTable(std::string const& file) {
  std::ifstream table(std::string(NY80211_NAME_TABLES_DIR) + "/" + file);
  EXPECT_TRUE(table.is_open()) << file;
  std::vector<std::pair<int, std::string>> rows;
  for (std::string line; std::getline(table, line);) {
    if (line.empty() || line[0] == '#') continue;
    auto const tab = line.find('\t');
    rows.emplace_back(std::stoi(line.substr(0, tab)), line.substr(tab + 1));
  }
  return rows;
}

TEST(AttrTables, EqualTheTablesTheyCameFrom) {
  std::pair<AttrScope, char const*> const sources[] = {
      {AttrScope::Nl80211, "nl80211_attrs.tsv"},
      {AttrScope::Bss, "nl80211_bss_attrs.tsv"},
      {AttrScope::QcaWifiConfig, "qca_wlan_vendor_attr_config.tsv"},
  };
  for (auto const& [scope, file] : sources) {
    std::vector<std::pair<int, std::string>> actual;
    for (auto const& row : *AttrFmt::GetTable(scope)) actual.emplace_back(row.type, row.name);
    EXPECT_EQ(actual, readTable(file)) << file;
  }
  std::map<std::uint32_t, std::string> subcmds;
  for (auto const& [value, name] : readTable("qca_vendor_subcmds.tsv")) subcmds[value] = name;
  EXPECT_EQ(subcmds.size(), 170u);
  for (std::uint32_t value = 0; value < 300; ++value) {
    TestMessage m;
    AttrFmt fmt;
    fmt.QcaVendorSubCmd(m.put(NL80211_ATTR_VENDOR_SUBCMD, bytesOf(value)));
    auto const it = subcmds.find(value);
    EXPECT_EQ(fmt.out.str(), it != subcmds.end() ? it->second : "<unknown>") << value;
  }
}
#endif

}  // namespace
