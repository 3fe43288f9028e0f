#include <algorithm>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/StationInfo.h"
#include "ny80211/SurveyInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

Bytes u32(std::uint32_t value) { return bytesOf(value); }
Bytes u64(std::uint64_t value) { return bytesOf(value); }
Attrs operator+(Attrs a, Attrs const& b) { return a.insert(a.end(), b.begin(), b.end()), a; }

// The payload of a nest of these attributes.
Bytes body(Attrs const& attrs) {
  auto nest = TestMessage::nestBody();
  auto const* msg = nlmsg_hdr(nest.put(attrs).msg);
  auto const* head = static_cast<std::uint8_t const*>(nlmsg_data(msg));
  return Bytes(head, head + nlmsg_datalen(msg));
}

// A bitrate as nl80211_put_sta_rate nests it: the total in 100 kbps when
// known (the 16-bit copy only while it fits), then width flag and MCS.
Attrs rate(std::uint32_t total, Attrs const& rest) {
  Attrs attrs;
  if (total > 0) attrs.emplace_back(NL80211_RATE_INFO_BITRATE32, u32(total));
  if (total > 0 && total < 0x10000) {
    attrs.emplace_back(NL80211_RATE_INFO_BITRATE, bytesOf<std::uint16_t>(total));
  }
  return attrs + rest;
}
Attrs vht(int width) { return {{width, {}}, {NL80211_RATE_INFO_VHT_MCS, {9}}, {NL80211_RATE_INFO_VHT_NSS, {2}}}; }
Attrs he(std::uint8_t gi) {
  return {{NL80211_RATE_INFO_HE_MCS, {11}},
          {NL80211_RATE_INFO_HE_NSS, {2}},
          {NL80211_RATE_INFO_HE_GI, {gi}},
          {NL80211_RATE_INFO_HE_DCM, {0}}};
}

// What nl80211_send_station fills of the fields read, in its order.
Attrs fullInfo() {
  auto const tx = vht(NL80211_RATE_INFO_80_MHZ_WIDTH) + Attrs{{NL80211_RATE_INFO_SHORT_GI, {}}};
  return {{NL80211_STA_INFO_CONNECTED_TIME, u32(3600)},
          {NL80211_STA_INFO_INACTIVE_TIME, u32(120)},
          {NL80211_STA_INFO_RX_BYTES, u32(16)},
          {NL80211_STA_INFO_TX_BYTES, u32(7)},  // cut to 32 bits
          {NL80211_STA_INFO_RX_BYTES64, u64(0x100000010)},
          {NL80211_STA_INFO_TX_BYTES64, u64(0x200000007)},
          {NL80211_STA_INFO_SIGNAL, hex("e5")},
          {NL80211_STA_INFO_SIGNAL_AVG, hex("e4")},
          // One u8 a chain, typed by its number: chains 0 and 2, chain 1 off.
          {NL80211_STA_INFO_CHAIN_SIGNAL, hex("05000000e5000000 05000200e2000000")},
          {NL80211_STA_INFO_CHAIN_SIGNAL_AVG, hex("05000000e4000000 05000200e1000000")},
          {NL80211_STA_INFO_TX_BITRATE, body(rate(8667, tx))},
          {NL80211_STA_INFO_RX_BITRATE, body(rate(540, {}))},
          {NL80211_STA_INFO_RX_PACKETS, u32(100)},
          {NL80211_STA_INFO_TX_PACKETS, u32(200)},
          {NL80211_STA_INFO_TX_RETRIES, u32(3)},
          {NL80211_STA_INFO_TX_FAILED, u32(1)},
          {NL80211_STA_INFO_EXPECTED_THROUGHPUT, u32(400000)},
          {NL80211_STA_INFO_BEACON_LOSS, u32(2)},
          {NL80211_STA_INFO_STA_FLAGS, hex("ba000000 aa000000")},  // mask, set
          {NL80211_STA_INFO_RX_DROP_MISC, u64(5)}};
}
Attrs station(Attrs const& info = fullInfo()) {
  return {{NL80211_ATTR_IFINDEX, u32(1)},
          {NL80211_ATTR_MAC, hex("020000000100")},
          {NL80211_ATTR_GENERATION, u32(4)},
          {NL80211_ATTR_STA_INFO, body(info)}};
}
StationInfo read(Attrs const& attrs) {
  StationInfo info;
  return info.readFrom(TestMessage().put(attrs).stream()), info;
}

// The trimmed cells of a table line: 1 station, 2 signal, 3 average signal, 4 TX
// kbps, 5 RX kbps, 6 inactive, 7 connected, 8 RX bytes, 9 TX bytes, 10 flags.
std::vector<std::string> cells(std::string const& line) {
  std::vector<std::string> out;
  for (std::size_t from = 0, bar = 0; bar != std::string::npos; from = bar + 1) {
    bar = line.find('|', from);
    auto const cell = line.substr(from, bar == std::string::npos ? bar : bar - from);
    auto const first = cell.find_first_not_of(" \n"), last = cell.find_last_not_of(" \n");
    out.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
  }
  return out;
}

TEST(StationInfo, AFullStationPrintsEveryFieldInARowUnderTheHeader) {
  auto const info = read(station());
  EXPECT_EQ(info.toString(),
            "station 02:00:00:00:01:00 on netifc lo / signal -27 dBm [-27, -30] / average signal -28 "
            "dBm [-28, -31] / TX rate (866700 kbps VHT MCS 9 NSS 2 / 80 MHz / short GI) / RX rate "
            "(54000 kbps) / expected throughput 400000 kbps / inactive 120 ms / connected 3600 s / RX "
            "bytes 4294967312 / TX bytes 8589934599 / RX packets 100 / TX packets 200 / TX retries 3 "
            "/ TX failed 1 / RX drops 5 / beacon loss 2 / flags [authorized] [WMM] [authenticated] "
            "[associated] (mask 0xba)");
  auto const row = info.toTableRow();
  EXPECT_EQ(row,
            "| 02:00:00:00:01:00 |    -27 |    -28 |    866700 |     54000 |       120 |      "
            "3600 |   4294967312 |   8589934599 | authz WMM auth assoc                   |\n");
  auto const divider = StationInfo::getTableDivider();
  ASSERT_EQ(row.size(), divider.size() + 1);
  for (std::size_t i = 0; i < divider.size(); ++i) {
    EXPECT_EQ(row[i] == '|', divider[i] == '+') << "at " << i;
  }
}

// The types left out; a part of the full text and what it becomes (""); the
// table cell that changes (0: none) and its new value.
struct Absent {
  std::vector<int> types;
  char const *part, *becomes;
  std::size_t column;
  char const* cell;
};
void PrintTo(Absent const& r, std::ostream* os) { *os << "'" << r.part << "'"; }
class StationField : public ::testing::TestWithParam<Absent> {};

TEST_P(StationField, LeftOutTakesItsTextAndCell) {
  auto const& r = GetParam();
  auto info = fullInfo();
  for (int type : r.types) info = replaced(info, type, {});
  auto const full = read(station());
  auto text = full.toString();
  auto const at = text.find(r.part);
  ASSERT_NE(at, std::string::npos) << "'" << r.part << "' in " << text;
  auto row = cells(full.toTableRow());
  if (r.column != 0) row.at(r.column) = r.cell;
  auto const partial = read(station(info));
  EXPECT_EQ(partial.toString(), text.replace(at, std::string(r.part).size(), r.becomes));
  EXPECT_EQ(cells(partial.toTableRow()), row);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, StationField,
    ::testing::Values(
        Absent{{NL80211_STA_INFO_SIGNAL, NL80211_STA_INFO_CHAIN_SIGNAL}, " / signal -27 dBm [-27, -30]", "", 2, "-"},
        Absent{{NL80211_STA_INFO_CHAIN_SIGNAL}, " [-27, -30]", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_SIGNAL_AVG, NL80211_STA_INFO_CHAIN_SIGNAL_AVG},
               " / average signal -28 dBm [-28, -31]",
               "",
               3,
               "-"},
        Absent{{NL80211_STA_INFO_CHAIN_SIGNAL_AVG}, " [-28, -31]", "", 0, nullptr},
        Absent{
            {NL80211_STA_INFO_TX_BITRATE}, " / TX rate (866700 kbps VHT MCS 9 NSS 2 / 80 MHz / short GI)", "", 4, "-"},
        Absent{{NL80211_STA_INFO_RX_BITRATE}, " / RX rate (54000 kbps)", "", 5, "-"},
        Absent{{NL80211_STA_INFO_EXPECTED_THROUGHPUT}, " / expected throughput 400000 kbps", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_INACTIVE_TIME}, " / inactive 120 ms", "", 6, "-"},
        Absent{{NL80211_STA_INFO_CONNECTED_TIME}, " / connected 3600 s", "", 7, "-"},
        Absent{{NL80211_STA_INFO_RX_BYTES}, "", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_RX_BYTES64}, "RX bytes 4294967312", "RX bytes 16", 8, "16"},
        Absent{{NL80211_STA_INFO_TX_BYTES64}, "TX bytes 8589934599", "TX bytes 7", 9, "7"},
        Absent{{NL80211_STA_INFO_RX_BYTES, NL80211_STA_INFO_RX_BYTES64}, " / RX bytes 4294967312", "", 8, "-"},
        Absent{{NL80211_STA_INFO_TX_BYTES, NL80211_STA_INFO_TX_BYTES64}, " / TX bytes 8589934599", "", 9, "-"},
        Absent{{NL80211_STA_INFO_RX_PACKETS}, " / RX packets 100", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_TX_PACKETS}, " / TX packets 200", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_TX_RETRIES}, " / TX retries 3", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_TX_FAILED}, " / TX failed 1", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_RX_DROP_MISC}, " / RX drops 5", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_BEACON_LOSS}, " / beacon loss 2", "", 0, nullptr},
        Absent{{NL80211_STA_INFO_STA_FLAGS},
               " / flags [authorized] [WMM] [authenticated] [associated] (mask 0xba)",
               "",
               10,
               "-"}),
    [](auto const& info) { return fmt::format("Without{}", fmt::join(info.param.types, "_")); });

std::string notFound(int type) { return fmt::format("AttrNotFound: attribute not found (type {})", type); }
std::string tooSmall(int type, int size, int needed) {
  return fmt::format("Error: attribute (type {}) payload too small for data type ({} < {})", type, size, needed);
}
Attrs fullWith(int type, char const* payload) { return station(replaced(fullInfo(), type, {payload})); }

TEST(StationInfo, AFailedReadLeavesTheRecordAndAGoodOneReplacesEveryField) {
  auto info = read(station());
  auto const other = replaced(station({{NL80211_STA_INFO_SIGNAL, hex("c4")}}), NL80211_ATTR_MAC, {"020000000200"});
  info.readFrom(TestMessage().put(other).stream());
  auto const before = info.toString();
  EXPECT_EQ(before, "station 02:00:00:00:02:00 on netifc lo / signal -60 dBm");
  auto const row = cells(info.toTableRow());
  EXPECT_EQ(std::count(row.begin(), row.end(), "-"), 8);
  std::pair<Attrs, std::string> const rows[] = {
      {replaced(station(), NL80211_ATTR_MAC, {}), notFound(NL80211_ATTR_MAC)},
      {replaced(station(), NL80211_ATTR_IFINDEX, {}), notFound(NL80211_ATTR_IFINDEX)},
      {replaced(station(), NL80211_ATTR_STA_INFO, {}), notFound(NL80211_ATTR_STA_INFO)},
      {replaced(station(), NL80211_ATTR_MAC, {"0200000001"}), tooSmall(NL80211_ATTR_MAC, 5, 6)},
      {fullWith(NL80211_STA_INFO_INACTIVE_TIME, "7800"), tooSmall(NL80211_STA_INFO_INACTIVE_TIME, 2, 4)},
      {fullWith(NL80211_STA_INFO_STA_FLAGS, "ba000000"), tooSmall(NL80211_STA_INFO_STA_FLAGS, 4, 8)},
      {fullWith(NL80211_STA_INFO_CHAIN_SIGNAL, "04000000"), tooSmall(0, 0, 1)},  // an empty chain
      {fullWith(NL80211_STA_INFO_TX_BITRATE, "0500010036000000"), tooSmall(NL80211_RATE_INFO_BITRATE, 1, 2)},
  };
  for (auto const& row : rows) {
    // Not a structured binding, which clang 14 cannot capture.
    auto const& attrs = row.first;
    auto const& read = row.second;
    SCOPED_TRACE(read);
    TestMessage m;
    EXPECT_EQ(outcome([&] { return info.readFrom(m.put(attrs).stream()), info.toString(); }), read);
    EXPECT_EQ(info.toString(), before);
    EXPECT_EQ(outcome([&] { return std::string(StationInfo::tryReadFrom(m.stream()) ? "read" : "empty"); }),
              read.starts_with("AttrNotFound") ? "empty" : read);
  }
}

struct RateCase {
  char const* name;
  Attrs attrs;
  char const* text;
};
class StationRate : public ::testing::TestWithParam<RateCase> {};

TEST_P(StationRate, PrintsItsKind) {
  auto const info = read(station({{NL80211_STA_INFO_TX_BITRATE, body(GetParam().attrs)}}));
  ASSERT_TRUE(info.txBitrate);
  EXPECT_EQ(fmt::format("{}", *info.txBitrate), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, StationRate,
    ::testing::Values(RateCase{"Legacy16BitOnly", {{NL80211_RATE_INFO_BITRATE, hex("3c00")}}, "6000 kbps"},
                      RateCase{"Bitrate32Preferred",
                               {{NL80211_RATE_INFO_BITRATE, hex("1c02")}, {NL80211_RATE_INFO_BITRATE32, u32(70000)}},
                               "7000000 kbps"},
                      RateCase{"Legacy5Mhz", rate(15, {{NL80211_RATE_INFO_5_MHZ_WIDTH, {}}}), "1500 kbps / 5 MHz"},
                      RateCase{"Ht40ShortGi",
                               rate(3000, {{NL80211_RATE_INFO_40_MHZ_WIDTH, {}},
                                           {NL80211_RATE_INFO_MCS, {15}},
                                           {NL80211_RATE_INFO_SHORT_GI, {}}}),
                               "300000 kbps HT MCS 15 / 40 MHz / short GI"},
                      RateCase{"Vht160", rate(15600, vht(NL80211_RATE_INFO_160_MHZ_WIDTH)),
                               "1560000 kbps VHT MCS 9 NSS 2 / 160 MHz"},
                      RateCase{"He80Gi16", rate(11343, Attrs{{NL80211_RATE_INFO_80_MHZ_WIDTH, {}}} + he(1)),
                               "1134300 kbps HE MCS 11 NSS 2 / 80 MHz / GI 1.6 us"},
                      RateCase{"He20Gi32", rate(2294, he(2)), "229400 kbps HE MCS 11 NSS 2 / 20 MHz / GI 3.2 us"},
                      RateCase{"HeUnknownGi", rate(2294, he(7)), "229400 kbps HE MCS 11 NSS 2 / 20 MHz / GI <unknown>"},
                      RateCase{"Eht320",
                               rate(57647, {{NL80211_RATE_INFO_320_MHZ_WIDTH, {}},
                                            {NL80211_RATE_INFO_EHT_MCS, {13}},
                                            {NL80211_RATE_INFO_EHT_NSS, {2}},
                                            {NL80211_RATE_INFO_EHT_GI, {0}}}),
                               "5764700 kbps EHT MCS 13 NSS 2 / 320 MHz / GI 0.8 us"},
                      RateCase{"VhtWithoutTotal", rate(0, vht(NL80211_RATE_INFO_80_MHZ_WIDTH)),
                               "<unknown> kbps VHT MCS 9 NSS 2 / 80 MHz"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(StationInfo, FlagsCountOnlyWhereTheMaskReportsThem) {
  // Mask and set; the text; get() of flags 1 (authorized) to 7 (associated),
  // '1' set, '0' clear, '-' unreported; the table cell.
  struct Row {
    char const *update, *text, *get, *cell;
  } const rows[] = {
      {"ba000000 aa000000", "[authorized] [WMM] [authenticated] [associated] (mask 0xba)", "1-101-1",
       "authz WMM auth assoc"},
      {"fe000000 fe000000",
       "[authorized] [short preamble] [WMM] [MFP] [authenticated] [TDLS peer] [associated] (mask 0xfe)", "1111111",
       "authz shortpre WMM MFP auth TDLS assoc"},
      {"02000000 22000000", "[authorized] (mask 0x2)", "1------", "authz"},  // authenticated unreported
      {"22000000 00000000", "none (mask 0x22)", "0---0--", "none"},
      {"03100000 03100000", "[flag 0] [authorized] [flag 12] (mask 0x1003)", "1------", "authz"},
  };
  for (auto const& r : rows) {
    SCOPED_TRACE(r.update);
    auto const info = read(station({{NL80211_STA_INFO_STA_FLAGS, hex(r.update)}}));
    ASSERT_TRUE(info.flags);
    EXPECT_EQ(info.flags->toString(), r.text);
    std::string get;
    for (int flag = 1; flag <= 7; ++flag) {
      auto const value = info.flags->get(static_cast<nl80211_sta_flags>(flag));
      get += !value ? '-' : *value ? '1' : '0';
    }
    EXPECT_EQ(get, r.get);
    EXPECT_EQ(cells(info.toTableRow()).at(10), r.cell);
  }
}

TEST(StationInfo, CommandsForStationsAndSurveyCarryTheInterface) {
  // The command, "dump" when it is one, each attribute as type=payload, the debug text.
  auto const describe = [](Nl80211Command const& command) {
    auto text = fmt::format("{}{}", cmd_fmt(command.commandID()),
                            nlmsg_hdr(command.toNlMsg())->nlmsg_flags & NLM_F_DUMP ? " dump" : "");
    command.attributes().forEachAttr([&](nlattr const* a) {
      auto const* data = static_cast<std::uint8_t const*>(nla_data(a));
      text += fmt::format(" {}={:02x}", nla_type(a), fmt::join(data, data + nla_len(a), ""));
    });
    return text + " / " + command.debugInfoString();
  };
  MacAddress const mac(MacAddress::Bytes{2, 0, 0, 0, 1, 0});
  NetIfcID const lo(1u), undefined;
  EXPECT_EQ(describe(Cmd::getStation(lo, mac)),
            "NL80211_CMD_GET_STATION 3=01000000 6=020000000100 / get station 02:00:00:00:01:00 on netifc lo");
  EXPECT_EQ(describe(Cmd::dumpStations(lo)), "NL80211_CMD_GET_STATION dump 3=01000000 / dump stations on netifc lo");
  EXPECT_EQ(describe(Cmd::dumpSurvey(lo)), "NL80211_CMD_GET_SURVEY dump 3=01000000 / dump survey on netifc lo");
  for (auto const& make : std::vector<std::function<Nl80211Command()>>{[&] { return Cmd::getStation(undefined, mac); },
                                                                       [&] { return Cmd::dumpStations(undefined); },
                                                                       [&] { return Cmd::dumpSurvey(undefined); }}) {
    EXPECT_EQ(outcome([&] { return make(), std::string(); }), "Error: ifc ID undefined");
  }
}

}  // namespace
