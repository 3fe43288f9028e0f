// Stations and the channel survey against the real nl80211: hostapd runs a
// WPA2 access point on wlan0 (VHT80 on channel 36), wpa_supplicant connects
// wlan1 (and, in one test, wlan2), and what the library reads from the
// kernel's station and survey replies is held against what iw prints.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "KernelHelpers.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"
#include "ny80211/StationInfo.h"
#include "ny80211/SurveyInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::string const accessPoint =
    "ssid=ny80211-sta\nhw_mode=a\nchannel=36\ncountry_code=DE\nieee80211n=1\nieee80211ac=1\n"
    "ht_capab=[HT40+]\nvht_oper_chwidth=1\nvht_oper_centr_freq_seg0_idx=42\n"
    "wpa=2\nwpa_key_mgmt=WPA-PSK\nrsn_pairwise=CCMP\nwpa_passphrase=ny80211-secret\n";
std::string const network =
    "network={\n\tssid=\"ny80211-sta\"\n\tpsk=\"ny80211-secret\"\n\tkey_mgmt=WPA-PSK\n"
    "\tscan_freq=5180\n}\n";

// One record of iw's output: the line that opens it, then its "key: value"
// lines, each value without the blanks around it.
struct IwRecord {
  std::string head;
  std::map<std::string, std::string> values;
};

std::string trimmed(std::string_view text) {
  auto const first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
}

std::vector<IwRecord> iwRecords(std::string const& command) {
  std::vector<IwRecord> records;
  std::istringstream lines(run(command));
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) continue;
    if (line[0] != '\t') {
      records.push_back({line, {}});
    } else if (auto const colon = line.find(':'); colon != std::string::npos && !records.empty()) {
      records.back().values[trimmed(line.substr(0, colon))] = trimmed(line.substr(colon + 1));
    }
  }
  return records;
}

std::string addressOf(std::string const& interface) {
  for (auto const& ifc : iwDev()) {
    if (ifc.name == interface) return ifc.addr;
  }
  throw std::runtime_error("no interface " + interface);
}

// How a value may change between two reads.
enum class Moves {
  Not,     // but with a frame between them (a bitrate)
  Grows,   // a counter
  Resets,  // grows with the time, back to 0 with each frame (the inactive time)
};

// A field of a record: its key in iw's output, and the library's value as
// iw prints it (empty when the library read none).
template <class Record>
struct Field {
  char const* key;
  Moves moves;
  std::optional<std::string> (*text)(Record const&);
};

template <class T>
std::optional<std::string> withUnit(std::optional<T> const& value, std::string_view unit) {
  if (!value) return std::nullopt;
  return fmt::format("{}{}", *value, unit);
}

std::optional<std::string> signal(std::optional<std::int8_t> const& dbm, std::vector<std::int8_t> const& chains) {
  if (!dbm) return std::nullopt;
  return fmt::format("{} {}dBm", *dbm, chains.empty() ? "" : fmt::format("[{}] ", fmt::join(chains, ", ")));
}

// What iw 5.19's parse_bitrate() makes of the same attributes.
std::optional<std::string> bitrate(std::optional<AttrRateInfo> const& rate) {
  if (!rate) return std::nullopt;
  std::string text = rate->kbps && *rate->kbps >= 100
                         ? fmt::format("{}.{} MBit/s", *rate->kbps / 1000, *rate->kbps / 100 % 10)
                         : "(unknown)";
  static std::map<RateMode, char const*> const generation{
      {RateMode::Vht, "VHT"}, {RateMode::He, "HE"}, {RateMode::Eht, "EHT"}};
  if (rate->mode == RateMode::Ht) text += fmt::format(" MCS {}", rate->mcs);
  if (rate->mode == RateMode::Vht) text += fmt::format(" VHT-MCS {}", rate->mcs);
  if (rate->widthMhz >= 40) text += fmt::format(" {}MHz", rate->widthMhz);
  if (rate->shortGi) text += " short GI";
  if (rate->mode == RateMode::Vht && rate->nss != 0) text += fmt::format(" VHT-NSS {}", rate->nss);
  if (rate->mode == RateMode::He || rate->mode == RateMode::Eht) {
    auto const name = generation.at(rate->mode);
    text += fmt::format(" {}-MCS {}", name, rate->mcs);
    if (rate->nss != 0) text += fmt::format(" {}-NSS {}", name, rate->nss);
    if (rate->gi) text += fmt::format(" {}-GI {}", name, *rate->gi);
  }
  return text;
}

// iw prints a flag only where the mask reports it.
template <nl80211_sta_flags flag>
std::optional<std::string> flagText(StationInfo const& station, char const* yes, char const* no) {
  if (!station.flags) return std::nullopt;
  auto const set = station.flags->get(flag);
  if (!set) return std::nullopt;
  return *set ? yes : no;
}

std::string stationHead(StationInfo const& station) {
  return fmt::format("Station {} (on {:n})", station.mac, station.ifc);
}

Field<StationInfo> const stationFields[] = {
    {"inactive time", Moves::Resets, [](StationInfo const& s) { return withUnit(s.inactiveMs, " ms"); }},
    {"rx bytes", Moves::Grows, [](StationInfo const& s) { return withUnit(s.rxBytes, ""); }},
    {"rx packets", Moves::Grows, [](StationInfo const& s) { return withUnit(s.rxPackets, ""); }},
    {"tx bytes", Moves::Grows, [](StationInfo const& s) { return withUnit(s.txBytes, ""); }},
    {"tx packets", Moves::Grows, [](StationInfo const& s) { return withUnit(s.txPackets, ""); }},
    {"tx retries", Moves::Grows, [](StationInfo const& s) { return withUnit(s.txRetries, ""); }},
    {"tx failed", Moves::Grows, [](StationInfo const& s) { return withUnit(s.txFailed, ""); }},
    {"beacon loss", Moves::Grows, [](StationInfo const& s) { return withUnit(s.beaconLoss, ""); }},
    {"rx drop misc", Moves::Grows, [](StationInfo const& s) { return withUnit(s.rxDropMisc, ""); }},
    {"signal", Moves::Not, [](StationInfo const& s) { return signal(s.signal, s.chainSignal); }},
    {"signal avg", Moves::Not, [](StationInfo const& s) { return signal(s.signalAvg, s.chainSignalAvg); }},
    {"tx bitrate", Moves::Not, [](StationInfo const& s) { return bitrate(s.txBitrate); }},
    {"rx bitrate", Moves::Not, [](StationInfo const& s) { return bitrate(s.rxBitrate); }},
    {"expected throughput", Moves::Not,
     [](StationInfo const& s) -> std::optional<std::string> {
       if (!s.expectedThroughputKbps) return std::nullopt;
       // iw's own arithmetic, its "%u.%u" included.
       std::uint32_t const thr = *s.expectedThroughputKbps * 1000 / 1024;
       return fmt::format("{}.{}Mbps", thr / 1000, thr % 1000);
     }},
    {"authorized", Moves::Not,
     [](StationInfo const& s) { return flagText<NL80211_STA_FLAG_AUTHORIZED>(s, "yes", "no"); }},
    {"authenticated", Moves::Not,
     [](StationInfo const& s) { return flagText<NL80211_STA_FLAG_AUTHENTICATED>(s, "yes", "no"); }},
    {"associated", Moves::Not,
     [](StationInfo const& s) { return flagText<NL80211_STA_FLAG_ASSOCIATED>(s, "yes", "no"); }},
    {"preamble", Moves::Not,
     [](StationInfo const& s) { return flagText<NL80211_STA_FLAG_SHORT_PREAMBLE>(s, "short", "long"); }},
    {"WMM/WME", Moves::Not, [](StationInfo const& s) { return flagText<NL80211_STA_FLAG_WME>(s, "yes", "no"); }},
    {"MFP", Moves::Not, [](StationInfo const& s) { return flagText<NL80211_STA_FLAG_MFP>(s, "yes", "no"); }},
    {"TDLS peer", Moves::Not,
     [](StationInfo const& s) { return flagText<NL80211_STA_FLAG_TDLS_PEER>(s, "yes", "no"); }},
    {"connected time", Moves::Grows, [](StationInfo const& s) { return withUnit(s.connectedSeconds, " seconds"); }},
};

std::string surveyHead(SurveyInfo const& survey) { return fmt::format("Survey data from {:n}", survey.ifc); }

Field<SurveyInfo> const surveyFields[] = {
    {"frequency", Moves::Not,
     [](SurveyInfo const& s) -> std::optional<std::string> {
       return fmt::format("{} MHz{}", s.frequency, s.inUse ? " [in use]" : "");
     }},
    {"noise", Moves::Not, [](SurveyInfo const& s) { return withUnit(s.noise, " dBm"); }},
    {"channel active time", Moves::Grows, [](SurveyInfo const& s) { return withUnit(s.activeMs, " ms"); }},
    {"channel busy time", Moves::Grows, [](SurveyInfo const& s) { return withUnit(s.busyMs, " ms"); }},
    {"extension channel busy time", Moves::Grows, [](SurveyInfo const& s) { return withUnit(s.extBusyMs, " ms"); }},
    {"channel receive time", Moves::Grows, [](SurveyInfo const& s) { return withUnit(s.rxMs, " ms"); }},
    {"channel transmit time", Moves::Grows, [](SurveyInfo const& s) { return withUnit(s.txMs, " ms"); }},
};

// The number a value starts with, and the unit after it.
std::pair<std::uint64_t, std::string> split(std::string const& value) {
  std::size_t end = 0;
  auto const number = std::stoull(value, &end);
  return {number, value.substr(end)};
}

// Reads iw, then the library, then iw again: a counter must lie between iw's
// two values, a value that does not move must equal both. A frame between the
// reads may change a bitrate, so a round in which iw's two reads differ in
// such a value is repeated (20 rounds at most). Returns the keys that all
// three reads had.
template <class Record, std::size_t N>
std::set<std::string> expectAsIwPrints(std::string const& command, std::function<std::vector<Record>()> const& read,
                                       std::string (*head)(Record const&), Field<Record> const (&fields)[N]) {
  std::vector<IwRecord> before, after;
  std::vector<Record> library;
  Clock::duration toLibraryEnd{}, fromLibraryStart{};
  auto const valueOf = [](IwRecord const& record, char const* key) -> std::optional<std::string> {
    auto const found = record.values.find(key);
    if (found == record.values.end()) return std::nullopt;
    return found->second;
  };
  auto const steady = [&] {
    if (before.size() != after.size()) return false;
    for (std::size_t i = 0; i < before.size(); ++i) {
      if (before[i].head != after[i].head) return false;
      for (auto const& field : fields) {
        if (field.moves == Moves::Not && valueOf(before[i], field.key) != valueOf(after[i], field.key)) {
          return false;
        }
      }
    }
    return true;
  };
  for (int round = 0; round < 20 && (round == 0 || !steady()); ++round) {
    auto const start = Clock::now();
    before = iwRecords(command);
    auto const libraryStart = Clock::now();
    library = read();
    auto const libraryEnd = Clock::now();
    after = iwRecords(command);
    toLibraryEnd = libraryEnd - start;
    fromLibraryStart = Clock::now() - libraryStart;
  }
  EXPECT_TRUE(steady()) << command << ": iw's values kept changing between two reads";

  std::vector<std::string> iwHeads, libraryHeads;
  for (auto const& record : before) iwHeads.push_back(record.head);
  for (auto const& record : library) libraryHeads.push_back(head(record));
  EXPECT_EQ(libraryHeads, iwHeads) << command;
  if (libraryHeads != iwHeads) return {};

  // A frame may reset the inactive time between two reads, so no read bounds
  // the next from below; from above, the time between them does. The kernel
  // counts it in jiffies, which in the emulated VM lag the clock by more than
  // a tick whenever the timer interrupt comes late: a second's slack covers
  // that, and still tells a value read from another attribute or unit.
  auto const slack = 1000ull;
  auto const ms = [](Clock::duration d) {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(d).count());
  };
  std::set<std::string> compared;
  for (std::size_t i = 0; i < library.size(); ++i) {
    for (auto const& field : fields) {
      SCOPED_TRACE(fmt::format("{}: {} / {}", command, iwHeads[i], field.key));
      auto const mine = field.text(library[i]);
      auto const was = valueOf(before[i], field.key);
      auto const now = valueOf(after[i], field.key);
      EXPECT_EQ(mine.has_value(), was.has_value()) << mine.value_or("(none)");
      if (!mine || !was || !now) continue;
      compared.insert(field.key);
      if (field.moves == Moves::Not) {
        EXPECT_EQ(*mine, *was);
        continue;
      }
      auto const [value, unit] = split(*mine);
      auto const [first, firstUnit] = split(*was);
      auto const [last, lastUnit] = split(*now);
      EXPECT_EQ(unit, firstUnit);
      if (field.moves == Moves::Grows) {
        EXPECT_LE(first, value);
        EXPECT_LE(value, last);
      } else {
        EXPECT_LE(value, first + ms(toLibraryEnd) + slack);
        EXPECT_LE(last, value + ms(fromLibraryStart) + slack);
      }
    }
  }
  return compared;
}

class KernelStations : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    run("iw reg set DE");
    ap = std::make_unique<Hostapd>("wlan0", accessPoint);
    station = std::make_unique<WpaSupplicant>("wlan1", network);
    // The four-way handshake ends after the association that iw's link
    // shows; both ends authorize the other only then.
    auto const authorized = [] {
      return run("iw dev wlan0 station dump").find("\tauthorized:\tyes") != std::string::npos &&
             run("iw dev wlan1 station dump").find("\tauthorized:\tyes") != std::string::npos;
    };
    if (!waitFor(authorized, 60s)) throw std::runtime_error("the four-way handshake did not end");
  }
  static void TearDownTestSuite() {
    station.reset();
    ap.reset();
  }

  void SetUp() override { socket.connect(); }

  template <class Record>
  std::vector<Record> replies(GenlMessage&& command) {
    std::vector<Record> records;
    socket.sendMessage(command, [&](nl_msg* reply) {
      records.emplace_back().readFrom(GenlMessage(reply).attributes());
      return NL_OK;
    });
    return records;
  }

  std::vector<std::string> macsInDump() {
    std::vector<std::string> macs;
    for (auto const& s : replies<StationInfo>(Cmd::dumpStations(wlan0))) {
      macs.push_back(fmt::format("{}", s.mac));
    }
    std::sort(macs.begin(), macs.end());
    return macs;
  }

  // The stations example prints a row for each station (macs, sorted), then
  // a line for each channel of the survey.
  static void expectExampleRows(std::vector<std::string> const& macs) {
#ifdef NY80211_STATIONS_EXAMPLE
    auto const out = run(fmt::format("{} wlan0", NY80211_STATIONS_EXAMPLE));
    std::vector<std::string> rows;
    int surveyLines = 0;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("| ")) rows.push_back(trimmed(line.substr(2, line.find(" |") - 2)));
      if (line.starts_with("survey netifc wlan0 / ")) ++surveyLines;
    }
    ASSERT_FALSE(rows.empty()) << out;
    EXPECT_EQ(rows.front(), "Station") << out;
    rows.erase(rows.begin());
    std::sort(rows.begin(), rows.end());
    EXPECT_EQ(rows, macs) << out;
    EXPECT_EQ(surveyLines, std::ssize(iwRecords("iw dev wlan0 survey dump"))) << out;
#else
    static_cast<void>(macs);
#endif
  }

  // The suite's, set up once (SetUpTestSuite).
  // NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
  static inline std::unique_ptr<Hostapd> ap;
  static inline std::unique_ptr<WpaSupplicant> station;
  // NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
  NetIfcID const wlan0{std::string("wlan0")};
  CommandSocket socket;
};

// Each end of the link, the access point's view of its station and the
// station's view of its access point, by dump and by get. Every field that
// the library reads must be there to compare but the expected throughput
// (only once rate control has statistics, which a quiet link may not give
// yet) and, on the access point, the beacon loss (a station's count).
TEST_F(KernelStations, StationReadsAsIwPrintsIt) {
  struct View {
    std::string interface, peer;
    std::set<std::string> optional;
  };
  for (auto const& view : {View{"wlan0", "wlan1", {"beacon loss", "expected throughput"}},
                           View{"wlan1", "wlan0", {"expected throughput"}}}) {
    SCOPED_TRACE(view.interface);
    NetIfcID const ifc(view.interface);
    auto const peer = addressOf(view.peer);
    auto const dumped = expectAsIwPrints<StationInfo>(
        "iw dev " + view.interface + " station dump", [&] { return replies<StationInfo>(Cmd::dumpStations(ifc)); },
        stationHead, stationFields);
    auto const stations = replies<StationInfo>(Cmd::dumpStations(ifc));
    ASSERT_EQ(stations.size(), 1u);
    EXPECT_EQ(fmt::format("{}", stations[0].mac), peer);
    auto const got = expectAsIwPrints<StationInfo>(
        "iw dev " + view.interface + " station get " + peer,
        [&] { return replies<StationInfo>(Cmd::getStation(ifc, stations[0].mac)); }, stationHead, stationFields);
    for (auto const& field : stationFields) {
      if (view.optional.count(field.key) != 0) continue;
      EXPECT_EQ(dumped.count(field.key), 1u) << field.key;
      EXPECT_EQ(got.count(field.key), 1u) << field.key;
    }
  }
}

// A second station comes and goes, in the dump and in the example's table.
TEST_F(KernelStations, SecondStationComesAndGoes) {
  auto const first = addressOf("wlan1");
  auto const second = addressOf("wlan2");
  ASSERT_EQ(macsInDump(), std::vector<std::string>{first});
  expectExampleRows({first});

  WpaSupplicant const late("wlan2", network);
  auto const both = std::vector<std::string>{first, second};
  ASSERT_EQ(macsInDump(), both);
  expectExampleRows(both);
  std::optional<MacAddress> mac;
  for (auto const& s : replies<StationInfo>(Cmd::dumpStations(wlan0))) {
    if (fmt::format("{}", s.mac) == second) mac = s.mac;
  }
  ASSERT_TRUE(mac);
  ASSERT_EQ(replies<StationInfo>(Cmd::getStation(wlan0, *mac)).size(), 1u);

  late.disconnect();
  ASSERT_TRUE(waitFor([&] { return run("iw dev wlan0 station dump").find(second) == std::string::npos; }, 60s))
      << "the access point kept " << second;
  EXPECT_EQ(macsInDump(), std::vector<std::string>{first});
  expectExampleRows({first});
  EXPECT_NE(run("iw dev wlan0 station get " + second + " 2>&1 || true").find("No such file or directory (-2)"),
            std::string::npos);
  try {
    replies<StationInfo>(Cmd::getStation(wlan0, *mac));
    ADD_FAILURE() << "a station that left was found";
  } catch (CmdFailure const& e) {
    EXPECT_EQ(std::string(e.what()),
              fmt::format("Netlink error: No such file or directory (-2); failed command: get station {} "
                          "on netifc wlan0",
                          second));
  }
}

// hwsim reports the noise and the active and busy times of each channel its
// radio has been on, never which one is in use.
TEST_F(KernelStations, SurveyReadsAsIwPrintsIt) {
  auto const compared = expectAsIwPrints<SurveyInfo>(
      "iw dev wlan0 survey dump", [&] { return replies<SurveyInfo>(Cmd::dumpSurvey(wlan0)); }, surveyHead,
      surveyFields);
  EXPECT_EQ(compared, (std::set<std::string>{"frequency", "noise", "channel active time", "channel busy time"}));
  auto const survey = replies<SurveyInfo>(Cmd::dumpSurvey(wlan0));
  EXPECT_TRUE(std::any_of(survey.begin(), survey.end(), [](SurveyInfo const& s) { return s.frequency == 5180u; }));
  for (auto const& channel : survey) {
    EXPECT_EQ(channel.noise, -92) << channel.toString();
    EXPECT_TRUE(channel.activeMs && channel.busyMs) << channel.toString();
  }
}

}  // namespace
