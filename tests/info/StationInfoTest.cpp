#include <tuple>

#include "Records.h"
#include "ny80211/StationInfo.h"
#include "ny80211/SurveyInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// Replies about lo.
Attrs survey(Attrs const& info) {
  return attrs(NL80211_ATTR_IFINDEX, "01000000", NL80211_ATTR_SURVEY_INFO, body(info));
}
Attrs station(Attrs const& info) {
  return attrs(NL80211_ATTR_IFINDEX, "01000000", NL80211_ATTR_MAC, "020000000100", NL80211_ATTR_STA_INFO, body(info));
}
StationInfo readStation(Attrs const& info) {
  StationInfo record;
  return record.readFrom(TestMessage().put(station(info)).stream()), record;
}
// A station's text, then its table row without the blanks around the bars.
std::string textAndRow(Attrs const& info) {
  auto const record = readStation(info);
  std::string row;
  for (char c : record.toTableRow()) {
    if (c == '|') {
      while (!row.empty() && row.back() == ' ') row.pop_back();
    }
    if (c != '\n' && !(c == ' ' && (row.empty() || row.back() == '|'))) row += c;
  }
  return record.toString() + " " + row;
}

// A bitrate as nl80211_put_sta_rate nests it: the total in 100 kbps when known, the 16-bit copy while it fits.
Attrs rate(std::uint32_t total, Attrs const& rest) {
  Attrs head;
  if (total > 0) head = attrs(NL80211_RATE_INFO_BITRATE32, bytesOf(total));
  if (total > 0 && total < 0x10000) head = head + attrs(NL80211_RATE_INFO_BITRATE, bytesOf<std::uint16_t>(total));
  return head + rest;
}
Attrs vht(int width) { return attrs(width, "", NL80211_RATE_INFO_VHT_MCS, "09", NL80211_RATE_INFO_VHT_NSS, "02"); }
Attrs he(char const* gi) {
  return attrs(NL80211_RATE_INFO_HE_MCS, "0b", NL80211_RATE_INFO_HE_NSS, "02", NL80211_RATE_INFO_HE_GI, gi);
}

// What nl80211_send_station fills of the fields read, in its order: the 32-bit byte counters cut, the chains'
// signals one u8 a chain typed by its number (chain 1 off), the flags as mask and set.
Attrs fullInfo() {
  auto const tx = rate(8667, vht(NL80211_RATE_INFO_80_MHZ_WIDTH) + attrs(NL80211_RATE_INFO_SHORT_GI, ""));
  return attrs(NL80211_STA_INFO_CONNECTED_TIME, "100e0000", NL80211_STA_INFO_INACTIVE_TIME, "78000000",
               NL80211_STA_INFO_RX_BYTES, "10000000", NL80211_STA_INFO_TX_BYTES, "07000000",
               NL80211_STA_INFO_RX_BYTES64, "1000000001000000", NL80211_STA_INFO_TX_BYTES64, "0700000002000000",
               NL80211_STA_INFO_SIGNAL, "e5", NL80211_STA_INFO_SIGNAL_AVG, "e4", NL80211_STA_INFO_CHAIN_SIGNAL,
               "05000000e5000000 05000200e2000000", NL80211_STA_INFO_CHAIN_SIGNAL_AVG,
               "05000000e4000000 05000200e1000000", NL80211_STA_INFO_TX_BITRATE, body(tx), NL80211_STA_INFO_RX_BITRATE,
               body(rate(540, {})), NL80211_STA_INFO_RX_PACKETS, "64000000", NL80211_STA_INFO_TX_PACKETS, "c8000000",
               NL80211_STA_INFO_TX_RETRIES, "03000000", NL80211_STA_INFO_TX_FAILED, "01000000",
               NL80211_STA_INFO_EXPECTED_THROUGHPUT, "801a0600", NL80211_STA_INFO_BEACON_LOSS, "02000000",
               NL80211_STA_INFO_STA_FLAGS, "ba000000 aa000000", NL80211_STA_INFO_RX_DROP_MISC, "0500000000000000");
}

TEST(StationInfo, PrintsWhatIsSentInTextAndTableRow) {
  auto const full = readStation(fullInfo());
  EXPECT_EQ(
      full.toString(),
      "station 02:00:00:00:01:00 on netifc lo / signal -27 dBm [-27, -30] / average signal -28 dBm [-28, -31] / TX "
      "rate (866700 kbps VHT MCS 9 NSS 2 / 80 MHz / short GI) / RX rate (54000 kbps) / expected throughput 400000 "
      "kbps / inactive 120 ms / connected 3600 s / RX bytes 4294967312 / TX bytes 8589934599 / RX packets 100 / "
      "TX packets 200 / TX retries 3 / TX failed 1 / RX drops 5 / beacon loss 2 / flags [authorized] [WMM] "
      "[authenticated] [associated] (mask 0xba)");
  auto const row = full.toTableRow(), divider = StationInfo::getTableDivider();
  EXPECT_EQ(row,
            "| 02:00:00:00:01:00 |    -27 |    -28 |    866700 |     54000 |       120 |      3600 |   4294967312 |   "
            "8589934599 | authz WMM auth assoc                   |\n");
  ASSERT_EQ(row.size(), divider.size() + 1);
  for (std::size_t i = 0; i < divider.size(); ++i) EXPECT_EQ(row[i] == '|', divider[i] == '+') << "at " << i;
  // Without a total the chains' signals print alone; without the 64-bit byte counters the 32-bit ones count.
  EXPECT_EQ(
      textAndRow(attrs(NL80211_STA_INFO_CHAIN_SIGNAL, "05000000e5000000", NL80211_STA_INFO_RX_BYTES, "10000000")),
      "station 02:00:00:00:01:00 on netifc lo / signal [-27] / RX bytes 16 |02:00:00:00:01:00|-|-|-|-|-|-|16|-|-|");
}

TEST(StationInfo, RatesPrintTheirKind) {
  std::pair<Attrs, std::string> const rows[] = {
      {attrs(NL80211_RATE_INFO_BITRATE, "3c00"), "6000 kbps"},
      {attrs(NL80211_RATE_INFO_BITRATE, "1c02", NL80211_RATE_INFO_BITRATE32, "70110100"), "7000000 kbps"},
      {rate(15, attrs(NL80211_RATE_INFO_5_MHZ_WIDTH, "")), "1500 kbps / 5 MHz"},
      {rate(3000,
            attrs(NL80211_RATE_INFO_40_MHZ_WIDTH, "", NL80211_RATE_INFO_MCS, "0f", NL80211_RATE_INFO_SHORT_GI, "")),
       "300000 kbps HT MCS 15 / 40 MHz / short GI"},
      {rate(15600, vht(NL80211_RATE_INFO_160_MHZ_WIDTH)), "1560000 kbps VHT MCS 9 NSS 2 / 160 MHz"},
      {rate(11343, attrs(NL80211_RATE_INFO_80_MHZ_WIDTH, "") + he("01")),
       "1134300 kbps HE MCS 11 NSS 2 / 80 MHz / GI 1.6 us"},
      {rate(2294, he("02")), "229400 kbps HE MCS 11 NSS 2 / 20 MHz / GI 3.2 us"},
      {rate(2294, he("07")), "229400 kbps HE MCS 11 NSS 2 / 20 MHz / GI <unknown>"},
      {rate(57647, attrs(NL80211_RATE_INFO_320_MHZ_WIDTH, "", NL80211_RATE_INFO_EHT_MCS, "0d",
                         NL80211_RATE_INFO_EHT_NSS, "02", NL80211_RATE_INFO_EHT_GI, "00")),
       "5764700 kbps EHT MCS 13 NSS 2 / 320 MHz / GI 0.8 us"},
      {rate(0, vht(NL80211_RATE_INFO_80_MHZ_WIDTH)), "<unknown> kbps VHT MCS 9 NSS 2 / 80 MHz"},
  };
  for (auto const& [rate, text] : rows) {
    EXPECT_EQ(read<StationInfo>(station(attrs(NL80211_STA_INFO_TX_BITRATE, body(rate)))),
              "station 02:00:00:00:01:00 on netifc lo / TX rate (" + text + ")");
  }
}

TEST(StationInfo, FlagsCountOnlyWhereTheMaskReportsThem) {
  // Mask and set; the text and the table cell.
  std::pair<char const*, std::string> const rows[] = {
      {"fe000000 fe000000",
       "[authorized] [short preamble] [WMM] [MFP] [authenticated] [TDLS peer] [associated] (mask "
       "0xfe) |authz shortpre WMM MFP auth TDLS assoc|"},
      {"02000000 22000000", "[authorized] (mask 0x2) |authz|"},  // authenticated unreported
      {"22000000 00000000", "none (mask 0x22) |none|"},
      {"03100000 03100000", "[flag 0] [authorized] [flag 12] (mask 0x1003) |authz|"},
  };
  for (auto const& [update, expected] : rows) {
    EXPECT_EQ(edit(textAndRow(attrs(NL80211_STA_INFO_STA_FLAGS, update)), "|02:00:00:00:01:00|-|-|-|-|-|-|-|-", ""),
              "station 02:00:00:00:01:00 on netifc lo / flags " + expected);
  }
}

TEST(SurveyInfo, PrintsWhatIsSentWithTheBusyRatio) {
  // What nl80211_send_survey fills for the channel in use, in its order.
  auto const info =
      attrs(NL80211_SURVEY_INFO_FREQUENCY, "3c140000", NL80211_SURVEY_INFO_NOISE, "a1", NL80211_SURVEY_INFO_IN_USE, "",
            NL80211_SURVEY_INFO_TIME, "e803000000000000", NL80211_SURVEY_INFO_TIME_BUSY, "fa00000000000000",
            NL80211_SURVEY_INFO_TIME_EXT_BUSY, "0a00000000000000", NL80211_SURVEY_INFO_TIME_RX, "c800000000000000",
            NL80211_SURVEY_INFO_TIME_TX, "1e00000000000000", NL80211_SURVEY_INFO_TIME_SCAN, "0500000000000000",
            NL80211_SURVEY_INFO_TIME_BSS_RX, "9600000000000000");
  std::string const full =
      "survey netifc lo / 5180 MHz (# 36) [in use] / noise -95 dBm / active 1000 ms / busy 250 ms (25.0%) / extension "
      "busy 10 ms / RX 200 ms / TX 30 ms / scan 5 ms / BSS RX 150 ms";
  // The attribute, its payloads (none: left out); a part of the full text and what it becomes.
  std::tuple<int, std::vector<char const*>, char const*, char const*> const rows[] = {
      {-1, {}, "", ""},
      {NL80211_SURVEY_INFO_IN_USE, {}, " [in use]", ""},
      {NL80211_SURVEY_INFO_NOISE, {}, " / noise -95 dBm", ""},
      {NL80211_SURVEY_INFO_TIME, {}, " / active 1000 ms / busy 250 ms (25.0%)", " / busy 250 ms"},
      {NL80211_SURVEY_INFO_TIME, {"0000000000000000"}, "1000 ms / busy 250 ms (25.0%)", "0 ms / busy 250 ms"},
      {NL80211_SURVEY_INFO_TIME, {"b80b000000000000"}, "1000 ms / busy 250 ms (25.0%)", "3000 ms / busy 250 ms (8.3%)"},
      {NL80211_SURVEY_INFO_TIME_BUSY, {}, " / busy 250 ms (25.0%)", ""},
  };
  for (auto const& [type, payloads, from, to] : rows) {
    EXPECT_EQ(read<SurveyInfo>(survey(replaced(info, type, payloads))), edit(full, from, to));
  }
}

// A read into the record: its outcome, the record left as it was, and what tryReadFrom makes of the message: empty
// only when an attribute is missing.
template <class Record>
void expectFailure(Record& record, Attrs const& attrs, std::string const& expected) {
  SCOPED_TRACE(expected);
  auto const before = record.toString();
  TestMessage m;
  m.put(attrs);
  EXPECT_EQ(outcome([&] { return record.readFrom(m.stream()), record.toString(); }), expected);
  EXPECT_EQ(record.toString(), before);
  EXPECT_EQ(outcome([&] { return std::string(Record::tryReadFrom(m.stream()) ? "read" : "empty"); }),
            expected.starts_with("AttrNotFound") ? "empty" : expected);
}

TEST(StationInfo, AGoodReadReplacesEveryFieldAndAFailedOneNone) {
  auto s = readStation(fullInfo());
  s.readFrom(TestMessage()
                 .put(replaced(station(attrs(NL80211_STA_INFO_SIGNAL, "c4")), NL80211_ATTR_MAC, {"020000000200"}))
                 .stream());
  EXPECT_EQ(s.toString(), "station 02:00:00:00:02:00 on netifc lo / signal -60 dBm");
  for (auto const& [type, _] : station({})) expectFailure(s, replaced(station({}), type, {}), notFound(type));
  auto const with = [](int type, char const* payload) { return station(replaced(fullInfo(), type, {payload})); };
  expectFailure(s, replaced(station({}), NL80211_ATTR_MAC, {"0200000001"}), tooSmall(NL80211_ATTR_MAC, 5, 6));
  expectFailure(s, with(NL80211_STA_INFO_INACTIVE_TIME, "7800"), tooSmall(NL80211_STA_INFO_INACTIVE_TIME, 2, 4));
  expectFailure(s, with(NL80211_STA_INFO_STA_FLAGS, "ba000000"), tooSmall(NL80211_STA_INFO_STA_FLAGS, 4, 8));
  expectFailure(s, with(NL80211_STA_INFO_CHAIN_SIGNAL, "04000000"), tooSmall(0, 0, 1));  // an empty chain
  expectFailure(s, with(NL80211_STA_INFO_TX_BITRATE, "0500010036000000"), tooSmall(NL80211_RATE_INFO_BITRATE, 1, 2));

  SurveyInfo v;
  v.readFrom(TestMessage().put(survey(attrs(NL80211_SURVEY_INFO_FREQUENCY, "6c090000"))).stream());
  EXPECT_EQ(v.toString(), "survey netifc lo / 2412 MHz (#  1)");
  for (auto const& [type, _] : survey({})) expectFailure(v, replaced(survey({}), type, {}), notFound(type));
  auto const info = attrs(NL80211_SURVEY_INFO_FREQUENCY, "3c140000", NL80211_SURVEY_INFO_NOISE, "a1",
                          NL80211_SURVEY_INFO_TIME, "e803000000000000");
  expectFailure(v, survey(replaced(info, NL80211_SURVEY_INFO_FREQUENCY, {})), notFound(NL80211_SURVEY_INFO_FREQUENCY));
  expectFailure(v, survey(replaced(info, NL80211_SURVEY_INFO_FREQUENCY, {"1414"})),
                tooSmall(NL80211_SURVEY_INFO_FREQUENCY, 2, 4));
  expectFailure(v, survey(replaced(info, NL80211_SURVEY_INFO_NOISE, {""})), tooSmall(NL80211_SURVEY_INFO_NOISE, 0, 1));
  expectFailure(v, survey(replaced(info, NL80211_SURVEY_INFO_TIME, {"e8030000"})),
                tooSmall(NL80211_SURVEY_INFO_TIME, 4, 8));
}

TEST(StationInfo, CommandsForStationsAndSurveyNameTheInterface) {
  MacAddress const mac(MacAddress::Bytes{2, 0, 0, 0, 1, 0});
  NetIfcID const lo(1u), undefined;
  EXPECT_EQ(fmt::format("{} / {} / {}", Cmd::getStation(lo, mac).debugInfoString(),
                        Cmd::dumpStations(lo).debugInfoString(), Cmd::dumpSurvey(lo).debugInfoString()),
            "get station 02:00:00:00:01:00 on netifc lo / dump stations on netifc lo / dump survey on netifc lo");
  EXPECT_EQ(outcome([&] { return Cmd::getStation(undefined, mac), std::string(); }), "Error: ifc ID undefined");
  EXPECT_EQ(outcome([&] { return Cmd::dumpStations(undefined), std::string(); }), "Error: ifc ID undefined");
  EXPECT_EQ(outcome([&] { return Cmd::dumpSurvey(undefined), std::string(); }), "Error: ifc ID undefined");
}

}  // namespace
