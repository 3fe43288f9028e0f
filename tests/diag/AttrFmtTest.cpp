#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "ny80211/AttrFmt.h"

namespace {

using namespace Ny80211;
using Bytes = std::vector<std::uint8_t>;

// Types of enum qca_wlan_vendor_attr_config, which no system header has.
constexpr int qcaConfTxRate = 5;
constexpr int qcaGenericCommand = 17;
constexpr int qcaGenericData = 19;
constexpr int qcaPeerMac = 35;
constexpr int qcaLatencyLevel = 55;
constexpr int qcaChannelWidth = 63;

template <class T>
Bytes bytesOf(T value) {
  Bytes bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

Bytes text(std::string const& s) { return Bytes(s.begin(), s.end()); }

// A generic netlink message to write attributes into. Given a size, its
// buffer has exactly that many bytes, so AddressSanitizer sees any read
// past the last attribute.
struct Message {
  nl_msg* msg;
  explicit Message(std::size_t size = 0, bool genl = true)
      : msg(size != 0 ? nlmsg_alloc_size(size) : nlmsg_alloc()) {
    if (genl) genlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, 1, 0);
  }
  ~Message() { nlmsg_free(msg); }
  Message(Message const&) = delete;
  Message& operator=(Message const&) = delete;

  static Message fitting(std::size_t payload) {
    return Message(NLMSG_HDRLEN + GENL_HDRLEN + nla_total_size(static_cast<int>(payload)));
  }
  // Attributes alone, to be put as the payload of a nest.
  static Message nestBody() { return Message(0, false); }
  nlattr* put(int type, Bytes const& payload) {
    auto* attr = nla_reserve(msg, type, static_cast<int>(payload.size()));
    if (!payload.empty()) std::memcpy(nla_data(attr), payload.data(), payload.size());
    return attr;
  }
  nlattr* nest(int type, Message const& inner) {
    nla_put_nested(msg, type, inner.msg);
    return stream().find(type);
  }
  AttrStream stream() const {
    auto* genl = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
    return AttrStream(msg, genlmsg_attrdata(genl, 0),
                      static_cast<unsigned long>(genlmsg_attrlen(genl, 0)));
  }
};

// The value of a one-line rendering: what follows the name.
std::string valueOf(std::string const& line) {
  auto const start = line.find(" : ") + 3;
  return line.substr(start, line.size() - start - 1);
}

TEST(AttrFmt, DecodersRenderValuesAndRejectWrongSizes) {
  struct Case {
    AttrScope scope;
    int type;
    Bytes payload;
    std::string value;
  };
  auto const nl = AttrScope::Nl80211, bss = AttrScope::Bss, qca = AttrScope::QcaWifiConfig;
  Case const cases[] = {
      {nl, NL80211_ATTR_IFINDEX, bytesOf(7u), "7"},
      {nl, NL80211_ATTR_IFINDEX, Bytes{1, 2, 3}, "<invalid>"},
      {nl, NL80211_ATTR_WIPHY, bytesOf(0xffffffffu), "4294967295"},
      {nl, NL80211_ATTR_KEY_IDX, Bytes{255}, "255"},
      {nl, NL80211_ATTR_MAX_SCAN_IE_LEN, bytesOf<std::uint16_t>(65535), "65535"},
      {nl, NL80211_ATTR_WIPHY_TX_POWER_LEVEL, bytesOf(-2000), "-2000"},
      {nl, NL80211_ATTR_WIPHY_RTS_THRESHOLD, bytesOf(0xffffffffu), "disabled"},
      {nl, NL80211_ATTR_WIPHY_FRAG_THRESHOLD, bytesOf(2346u), "2346"},
      {nl, NL80211_ATTR_VENDOR_ID, bytesOf(0x001374u), "0x1374"},
      {nl, NL80211_ATTR_COOKIE, bytesOf<std::uint64_t>(0xdeadbeef01), "0xdeadbeef01"},
      {nl, NL80211_ATTR_ACK, Bytes{}, "yes"},
      {nl, NL80211_ATTR_ACK, Bytes{1}, "<invalid>"},
      {nl, NL80211_ATTR_IFNAME, text(std::string("ab\0cd", 5)), "ab"},
      {nl, NL80211_ATTR_WIPHY_NAME, Bytes{}, "<invalid>"},
      {nl, NL80211_ATTR_SSID, text(std::string("a\\b\0\xff~", 6)), "a\\x5cb\\x00\\xff~"},
      {nl, NL80211_ATTR_SSID, Bytes{}, "<invalid>"},
      {nl, NL80211_ATTR_FRAME, Bytes{0xde, 0xad, 0x00, 0x0f}, "[hex dead000f]"},
      {nl, NL80211_ATTR_MAC, Bytes{2, 0, 0, 0xab, 1, 0x0a}, "02:00:00:ab:01:0a"},
      {nl, NL80211_ATTR_IE, Bytes{0xdd}, "<...>"},
      {nl, NL80211_ATTR_UNSPEC, Bytes{}, "<>"},
      {bss, NL80211_BSS_CAPABILITY, bytesOf<std::uint16_t>(0x0431), "0b10000110001"},
      {bss, NL80211_BSS_TSF, bytesOf(~std::uint64_t{0}), "18446744073709551615"},
      {bss, NL80211_BSS_SIGNAL_MBM, bytesOf(-6500), "-6500"},
      {qca, qcaConfTxRate, bytesOf(54u), "54"},
      {qca, qcaLatencyLevel, bytesOf<std::uint16_t>(2), "2"},
      {qca, qcaPeerMac, Bytes{0, 3, 0x7f, 1, 2, 3}, "00:03:7f:01:02:03"},
      {qca, qcaGenericCommand, bytesOf(5u), "<unknown>"},
      {qca, qcaGenericData, Bytes{1, 2}, "<...>"},
  };
  for (auto const& c : cases) {
    Message m;
    auto const line = AttrFmt::Format({c.scope, m.put(c.type, c.payload)});
    EXPECT_EQ(valueOf(line), c.value)
        << "scope " << static_cast<int>(c.scope) << " type " << c.type;
  }
}

TEST(AttrFmt, LineHeadAlignsSizeAndName) {
  Message m;
  // A type past the table: its number stands for the name.
  EXPECT_EQ(AttrFmt::Format({AttrScope::Nl80211, m.put(300, Bytes(1234, 0))}),
            "\t\t[ 1234 byte] <attr type 300>                          : <...>\n");
  EXPECT_EQ(AttrFmt::Format({AttrScope::Bss, m.put(0, Bytes{})}),
            "\t\t[    0 byte] <attr type 0>                            : <>\n");
  // A scope that names no table knows no attribute.
  EXPECT_EQ(AttrFmt::Format({static_cast<AttrScope>(1), m.put(NL80211_ATTR_WIPHY, bytesOf(1u))}),
            "\t\t[    4 byte] <attr type 1>                            : <...>\n");

  // Each nesting level puts four blanks before the name.
  AttrFmt fmt;
  fmt.indent = 2;
  fmt.FormatAttr(m.put(NL80211_BSS_FREQUENCY, bytesOf(2412u)), AttrFmt::GetTable(AttrScope::Bss));
  EXPECT_EQ(fmt.out.str(),
            "\t\t[    4 byte]        NL80211_BSS_FREQUENCY                    : 2412");
}

TEST(AttrFmt, BssIsRenderedNestedOneLevelDeeper) {
  auto bss = Message::nestBody();
  bss.put(NL80211_BSS_BSSID, Bytes{2, 0, 0, 0, 1, 0});
  bss.put(NL80211_BSS_FREQUENCY, bytesOf(5180u));
  bss.put(42, Bytes{1});
  Message m;
  m.put(NL80211_ATTR_IFINDEX, bytesOf(3u));
  m.nest(NL80211_ATTR_BSS, bss);
  EXPECT_EQ(AttrFmt::Format({AttrScope::Nl80211, m.stream()}),
            "\t\t[    4 byte] NL80211_ATTR_IFINDEX                     : 3\n"
            "\t\t[   28 byte] NL80211_ATTR_BSS                         : nested =>\n"
            "\t\t[    6 byte]    NL80211_BSS_BSSID                        : 02:00:00:00:01:00\n"
            "\t\t[    4 byte]    NL80211_BSS_FREQUENCY                    : 5180\n"
            "\t\t[    1 byte]    <attr type 42>                           : <...>\n"
            "\n");
}

TEST(AttrFmt, VendorDataFollowsTheSubcommandBeforeIt) {
  auto config = Message::nestBody();
  config.put(qcaGenericCommand, bytesOf(9u));
  config.put(qcaChannelWidth, Bytes{2});
  Message m;
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
  EXPECT_EQ(fmt.genericCommand.value, 9u);
  EXPECT_EQ(fmt.indent, 0u);
  // Each Format starts afresh: no subcommand carries over.
  EXPECT_EQ(
      valueOf(AttrFmt::Format({AttrScope::Nl80211, m.stream().find(NL80211_ATTR_VENDOR_DATA)})),
      "<...>(missing subcmd)");
}

TEST(AttrFmt, VendorDataByKindOfSubcommand) {
  struct Case {
    Bytes subcmd, data;
    std::string subcmdValue, dataValue;
  };
  Case const cases[] = {
      {bytesOf(196u), Bytes{0xab, 1}, "QCA_NL80211_VENDOR_SUBCMD_MBSSID_TX_VDEV_STATUS",
       "[hex ab01]"},
      {bytesOf(1u), Bytes{1}, "QCA_NL80211_VENDOR_SUBCMD_TEST", "<...>(unmapped subcmd)"},
      {bytesOf(2u), Bytes{}, "<unknown>", "<>(unmapped subcmd)"},  // a gap of the enumeration
      {Bytes{74}, Bytes{1}, "<invalid>", "<...>(missing subcmd)"},
      // The first four bytes are the number, whatever follows.
      {bytesOf<std::uint64_t>(75), Bytes{}, "QCA_NL80211_VENDOR_SUBCMD_GET_WIFI_CONFIGURATION",
       "nested =>\n"},
  };
  for (auto const& c : cases) {
    Message m;
    AttrFmt fmt;
    fmt.QcaVendorSubCmd(m.put(NL80211_ATTR_VENDOR_SUBCMD, c.subcmd));
    EXPECT_EQ(fmt.out.str(), c.subcmdValue);
    fmt.out.str("");
    fmt.QcaVendorData(m.put(NL80211_ATTR_VENDOR_DATA, c.data));
    EXPECT_EQ(fmt.out.str(), c.dataValue) << c.subcmdValue;
  }
}

// Payloads too short for their decoder, each the last bytes of its buffer:
// a read past the attribute is a read past the allocation.
TEST(AttrFmt, ShortPayloadsAreNotReadPast) {
  struct Case {
    AttrScope scope;
    int type;
    Bytes payload;
    std::string value;
  };
  Case const cases[] = {
      {AttrScope::Nl80211, NL80211_ATTR_COOKIE, bytesOf(1u), "<invalid>"},
      {AttrScope::Nl80211, NL80211_ATTR_MAC, bytesOf(1u), "<invalid>"},
      {AttrScope::Nl80211, NL80211_ATTR_IFNAME, text("wlan"), "wlan"},  // unterminated
      {AttrScope::Nl80211, NL80211_ATTR_VENDOR_SUBCMD, Bytes{}, "<invalid>"},
      {AttrScope::Nl80211, NL80211_ATTR_FRAME, Bytes{}, "[hex ]"},
      {AttrScope::QcaWifiConfig, qcaGenericCommand, Bytes{}, "<invalid>"},
      // Nested headers that claim more than the nest holds, or less than themselves.
      {AttrScope::Nl80211, NL80211_ATTR_BSS, Bytes{200, 0, 1, 0}, "nested =>\n"},
      {AttrScope::Nl80211, NL80211_ATTR_BSS, Bytes{3, 0, 1, 0}, "nested =>\n"},
  };
  for (auto const& c : cases) {
    auto m = Message::fitting(c.payload.size());
    auto const* attr = m.put(c.type, c.payload);
    ASSERT_NE(attr, nullptr) << c.type;
    EXPECT_EQ(valueOf(AttrFmt::Format({c.scope, attr})), c.value) << c.type;
  }
}

TEST(AttrFmt, TruncatedNestShowsItsWholeAttributesOnly) {
  auto bss = Message::nestBody();
  bss.put(NL80211_BSS_FREQUENCY, bytesOf(2412u));
  bss.put(NL80211_BSS_TSF, bytesOf<std::uint64_t>(1));
  Message m;
  auto* attr = m.nest(NL80211_ATTR_BSS, bss);
  // Cut the nest inside its second attribute.
  attr->nla_len = static_cast<std::uint16_t>(NLA_HDRLEN + 8 + 6);
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

TEST(AttrFmt, GetFmtInfoTakesTheFirstRowOfTheType) {
  EXPECT_EQ(AttrFmt::GetFmtInfo(1, nullptr), nullptr);
  EXPECT_EQ(AttrFmt::GetFmtInfo(0, AttrFmt::GetTable(AttrScope::Bss)), nullptr);
  std::vector<attr_fmt_info> const twice{{4, "FIRST", nullptr}, {4, "SECOND", &AttrFmt::Bool}};
  EXPECT_EQ(AttrFmt::GetFmtInfo(4, &twice)->name, "FIRST");
}

TEST(AttrStreamPrint, ListsAttributesThenPayloadAndStreamSizes) {
  Message m;
  m.put(NL80211_ATTR_IFINDEX, bytesOf(7u));
  m.put(NL80211_ATTR_IFNAME, text(std::string("wlan0\0", 6)));
  m.put(NL80211_ATTR_ACK, Bytes{});
  std::ostringstream os;
  m.stream().printToStream(os, AttrScope::Nl80211);
  EXPECT_EQ(os.str(),
            "\tAttributes:\n"
            "\t\t[    4 byte] NL80211_ATTR_IFINDEX                     : 7\n"
            "\t\t[    6 byte] NL80211_ATTR_IFNAME                      : wlan0\n"
            "\t\t[    0 byte] NL80211_ATTR_ACK                         : yes\n"
            "\tattrs\t[   10 byte]\n"
            "\tstream\t[   24 byte]\n");

  std::ostringstream empty;
  AttrStream().printToStream(empty, AttrScope::Bss);
  EXPECT_EQ(empty.str(), "\tAttributes:\n\tattrs\t[    0 byte]\n\tstream\t[    0 byte]\n");
}

}  // namespace
