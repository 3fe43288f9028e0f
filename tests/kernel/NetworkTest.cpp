// Records of a live network against the real nl80211, beside what iw prints:
// hostapd runs five access points (2.4 GHz HT20 and HT40, 5 GHz VHT80 and
// VHT160, 6 GHz HE80) on wlan0-4, wpa_supplicant connects wlan5 and wlan6 to
// the WPA2 one, wlan7 scans; the ny80211 tool and the examples print the same.
#include "KernelHelpers.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// Interface, SSID, the rest of hostapd's configuration. DE's rules allow an
// access point on 6 GHz without a prior scan.
std::vector<std::array<std::string, 3>> const accessPoints{
    // 36-64 takes in radar channels: beacons only after a minute's check.
    {"wlan0", "ny80211-vht160",
     "hw_mode=a\nchannel=36\nieee80211h=1\nieee80211n=1\nieee80211ac=1\nht_capab=[HT40+]\nvht_capab=[VHT160]\n"
     "vht_oper_chwidth=2\nvht_oper_centr_freq_seg0_idx=50\n"},
    // Before the HT20 network: 40 MHz only where no other overlaps at the start.
    {"wlan1", "ny80211-ht40", "hw_mode=g\nchannel=6\nieee80211n=1\nht_capab=[HT40+]\n"},
    {"wlan2", "ny80211-ht20", "hw_mode=g\nchannel=1\nieee80211n=1\n"},
    {"wlan3", "ny80211-vht80",
     "hw_mode=a\nchannel=36\nieee80211n=1\nieee80211ac=1\nht_capab=[HT40+]\nvht_oper_chwidth=1\n"
     "vht_oper_centr_freq_seg0_idx=42\nwpa=2\nwpa_key_mgmt=WPA-PSK\nrsn_pairwise=CCMP\nwpa_passphrase=ny80211-pass\n"},
    {"wlan4", "ny80211-he6",
     "hw_mode=a\nop_class=133\nchannel=37\nieee80211ax=1\nhe_oper_chwidth=1\nhe_oper_centr_freq_seg0_idx=39\n"
     "wpa=2\nwpa_key_mgmt=SAE\nrsn_pairwise=CCMP\nieee80211w=2\nsae_password=ny80211-test\n"}};
std::string const tool = NY80211_TOOL, examples = NY80211_EXAMPLES;

std::optional<std::string> signal(std::optional<std::int8_t> const& dbm, std::vector<std::int8_t> const& chains) {
  return text(dbm, chains.empty() ? "{} dBm" : fmt::format("{{}} [{}] dBm", fmt::join(chains, ", ")).c_str());
}

// What iw 5.19's parse_bitrate() makes of the same attributes.
std::optional<std::string> bitrate(std::optional<AttrRateInfo> const& r) {
  if (!r) return std::nullopt;
  bool const ht = r->mode == RateMode::Ht, vht = r->mode == RateMode::Vht,
             he = !ht && !vht && r->mode != RateMode::Legacy;
  auto const name = std::array{"", "", "VHT", "HE", "EHT"}.at(static_cast<int>(r->mode));
  auto text =
      r->kbps && *r->kbps >= 100 ? fmt::format("{}.{} MBit/s", *r->kbps / 1000, *r->kbps / 100 % 10) : "(unknown)";
  if (ht || vht) text += fmt::format(" {}MCS {}", vht ? "VHT-" : "", r->mcs);
  if (r->widthMhz >= 40) text += fmt::format(" {}MHz", r->widthMhz);
  if (r->shortGi) text += " short GI";
  if (vht && r->nss != 0) text += fmt::format(" VHT-NSS {}", r->nss);
  if (he) text += fmt::format(" {}-MCS {}", name, r->mcs);
  if (he && r->nss != 0) text += fmt::format(" {}-NSS {}", name, r->nss);
  if (he && r->gi) text += fmt::format(" {}-GI {}", name, *r->gi);
  return text;
}

// iw prints a flag only where the mask reports it.
template <nl80211_sta_flags bit, bool preamble = false>
std::optional<std::string> flag(StationInfo const& s) {
  auto const set = s.flags ? s.flags->get(bit) : std::nullopt;
  if (!set) return std::nullopt;
  return preamble ? (*set ? "short" : "long") : (*set ? "yes" : "no");
}

// How many lines of a program's output hold all parts.
std::size_t linesWith(std::string const& out, std::vector<std::string> const& parts) {
  std::istringstream lines(out);
  std::size_t n = 0;
  for (std::string line; std::getline(lines, line);) {
    n += std::all_of(parts.begin(), parts.end(), [&](auto const& p) { return line.find(p) != std::string::npos; });
  }
  return n;
}

using Station = StationInfo const&;
IwView<StationInfo> const stationView{
    "Station ",
    ':',
    [](Station s) { return fmt::format("Station {} (on {:n})", s.mac, s.ifc); },
    {{"inactive time", Moves::Resets, [](Station s) { return text(s.inactiveMs, "{} ms"); }},
     {"rx bytes", Moves::Grows, [](Station s) { return text(s.rxBytes); }},
     {"rx packets", Moves::Grows, [](Station s) { return text(s.rxPackets); }},
     {"tx bytes", Moves::Grows, [](Station s) { return text(s.txBytes); }},
     {"tx packets", Moves::Grows, [](Station s) { return text(s.txPackets); }},
     {"tx retries", Moves::Grows, [](Station s) { return text(s.txRetries); }},
     {"tx failed", Moves::Grows, [](Station s) { return text(s.txFailed); }},
     {"beacon loss", Moves::Grows, [](Station s) { return text(s.beaconLoss); }},
     {"rx drop misc", Moves::Grows, [](Station s) { return text(s.rxDropMisc); }},
     {"signal", Moves::Not, [](Station s) { return signal(s.signal, s.chainSignal); }},
     {"signal avg", Moves::Not, [](Station s) { return signal(s.signalAvg, s.chainSignalAvg); }},
     {"tx bitrate", Moves::Not, [](Station s) { return bitrate(s.txBitrate); }},
     {"rx bitrate", Moves::Not, [](Station s) { return bitrate(s.rxBitrate); }},
     {"expected throughput", Moves::Not,
      [](Station s) {  // iw's own arithmetic, its "%u.%u" included
        auto const thr = s.expectedThroughputKbps.value_or(0) * 1000 / 1024;
        return s.expectedThroughputKbps ? text(fmt::format("{}.{}Mbps", thr / 1000, thr % 1000)) : std::nullopt;
      }},
     {"authorized", Moves::Not, flag<NL80211_STA_FLAG_AUTHORIZED>},
     {"authenticated", Moves::Not, flag<NL80211_STA_FLAG_AUTHENTICATED>},
     {"associated", Moves::Not, flag<NL80211_STA_FLAG_ASSOCIATED>},
     {"preamble", Moves::Not, flag<NL80211_STA_FLAG_SHORT_PREAMBLE, true>},
     {"WMM/WME", Moves::Not, flag<NL80211_STA_FLAG_WME>},
     {"MFP", Moves::Not, flag<NL80211_STA_FLAG_MFP>},
     {"TDLS peer", Moves::Not, flag<NL80211_STA_FLAG_TDLS_PEER>},
     {"connected time", Moves::Grows, [](Station s) { return text(s.connectedSeconds, "{} seconds"); }}}};

using Survey = SurveyInfo const&;
IwView<SurveyInfo> const surveyView{
    "Survey data from ",
    ':',
    [](Survey s) { return fmt::format("Survey data from {:n}", s.ifc); },
    {{"frequency", Moves::Not, [](Survey s) { return text(s.frequency, s.inUse ? "{} MHz [in use]" : "{} MHz"); }},
     {"noise", Moves::Not, [](Survey s) { return text(s.noise, "{} dBm"); }},
     {"channel active time", Moves::Grows, [](Survey s) { return text(s.activeMs, "{} ms"); }},
     {"channel busy time", Moves::Grows, [](Survey s) { return text(s.busyMs, "{} ms"); }},
     {"extension channel busy time", Moves::Grows, [](Survey s) { return text(s.extBusyMs, "{} ms"); }},
     {"channel receive time", Moves::Grows, [](Survey s) { return text(s.rxMs, "{} ms"); }},
     {"channel transmit time", Moves::Grows, [](Survey s) { return text(s.txMs, "{} ms"); }}}};

// The HT operation element's channel, where there is one.
using Scan = Cmd::ScanInfo const&;
IwView<Cmd::ScanInfo> const scanView{
    "BSS ",
    ':',
    [](Scan r) { return fmt::format("BSS {}(on {:n})", r.bss.bssid, r.ifc); },
    {{"freq", Moves::Not, [](Scan r) { return text(r.bss.frequency); }},
     {"signal", Moves::Not, [](Scan r) { return text(r.bss.signalMbm / 100.0, "{:.2f} dBm"); }},
     {"SSID", Moves::Not, [](Scan r) { return text(r.bss.ssid.toEscapedString()); }},
     {"* primary channel", Moves::Not,
      [](Scan r) { return r.bss.channelType != 0 ? text(r.bss.channel.value().primary.number) : std::nullopt; }},
     {"* secondary channel offset", Moves::Not, [](Scan r) {
        auto const offsets = std::array{"", "no secondary", "below", "above"};
        return r.bss.channelType != 0 ? text(offsets.at(r.bss.channelType)) : std::nullopt;
      }}}};

class KernelNetwork : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    run("iw reg set DE && ip link set wlan7 up");
    for (auto const& [ifc, ssid, config] : accessPoints) {
      daemons.push_back(
          std::make_unique<Daemon>("hostapd", ifc, "ssid=" + ssid + "\ncountry_code=DE\nieee80211d=1\n" + config));
      if (ifc != "wlan0") daemons.back()->awaitUp();  // wlan0's radar check goes on meanwhile
    }
    for (auto const* station : {"wlan5", "wlan6"}) {
      daemons.push_back(std::make_unique<Daemon>(
          "wpa_supplicant", station, "network={\nssid=\"ny80211-vht80\"\npsk=\"ny80211-pass\"\nscan_freq=5180\n}\n"));
      daemons.back()->awaitUp();
    }
    // The four-way handshakes end after the associations iw's link shows.
    auto const authorized =
        "for i in wlan3 wlan5 wlan6; do iw dev $i station dump; done | grep -c 'authorized:.yes'; true";
    if (!waitFor([&] { return run(authorized) == "4\n"; })) throw std::runtime_error("no four-way handshakes");
  }
  static void TearDownTestSuite() { daemons.clear(); }
  void SetUp() override { socket.connect(); }

  static inline std::vector<std::unique_ptr<Daemon>> daemons;  // NOLINT(*-non-const-global-variables): the suite's
  CommandSocket socket;
};

// Each end of each link, by dump and by get. Every field that the library
// reads must be there to compare but the expected throughput (only once rate
// control has statistics, which a quiet link may not give yet) and, on the
// access point, the beacon loss (a station's count).
TEST_F(KernelNetwork, StationsAndSurveyReadAsIwPrintsThem) {
  for (std::string const name : {"wlan3", "wlan5", "wlan6"}) {
    NetIfcID const ifc(name);
    auto const read = [&] { return replies<StationInfo>(socket, Cmd::dumpStations(ifc)); };
    std::vector compared{expectAsIwPrints("iw dev " + name + " station dump", read, stationView)};
    for (auto const& station : read()) {
      auto const get = [&] { return replies<StationInfo>(socket, Cmd::getStation(ifc, station.mac)); };
      compared.push_back(
          expectAsIwPrints(fmt::format("iw dev {} station get {}", name, station.mac), get, stationView));
    }
    EXPECT_EQ(compared.size(), name == "wlan3" ? 3U : 2U);
    for (auto const& keys : compared) {
      for (auto const& field : stationView.fields) {
        auto const key = std::string(field.key);
        EXPECT_TRUE(keys.count(key) == 1 || key == "expected throughput" || (key == "beacon loss" && name == "wlan3"))
            << key;
      }
    }
  }
  // hwsim reports the noise and the active and busy times of each channel its
  // radio has been on, never which one is in use.
  auto const survey = [&] { return replies<SurveyInfo>(socket, Cmd::dumpSurvey(NetIfcID(std::string("wlan3")))); };
  EXPECT_EQ(expectAsIwPrints("iw dev wlan3 survey dump", survey, surveyView),
            (std::set<std::string>{"frequency", "noise", "channel active time", "channel busy time"}));
  auto const channels = survey();
  EXPECT_TRUE(std::any_of(channels.begin(), channels.end(), [](Survey s) { return s.frequency == 5180U; }));
  for (auto const& channel : channels) EXPECT_EQ(channel.noise, -92) << channel.toString();
}

// The scan results, each with the channel of its access point, every
// interface, then what the tool and the examples print of them.
TEST_F(KernelNetwork, ScanResultsAndInterfacesReadAsIwAndTheProgramsPrintThem) {
  daemons.front()->awaitUp(180s);
  // The kernel forgets a BSS it has not seen for 30 s, and a scan, a few tens
  // of milliseconds a channel, may miss one: scans, each to its end as the
  // library reports it, until every access point was seen in the last 10 s.
  Poco::NotificationQueue queue;
  Context scans;
  scans.connectEventsNl80211(NyEvent::Publisher(queue), {"scan"});
  scans.startEventLoop();
  auto const fresh = [] {
    auto const bsss = iwRecords("iw dev wlan7 scan dump", "BSS ", ':');
    return std::all_of(accessPoints.begin(), accessPoints.end(), [&](auto const& ap) {
      return std::any_of(bsss.begin(), bsss.end(), [&](IwRecord const& bss) {
        return bss.values.at("SSID") == ap[1] && std::stoi(bss.values.at("last seen")) <= 10000;
      });
    });
  };
  for (auto const end = Clock::now() + 180s; !fresh();) {
    ASSERT_LT(Clock::now(), end) << "scans did not find every access point within 180 s";
    run("iw dev wlan7 scan trigger freq 2412 2437 5180 6135 >/dev/null");
    for (Poco::AutoPtr<Poco::Notification> event; dynamic_cast<Event::ScanFinished*>(event.get()) == nullptr &&
                                                  dynamic_cast<Event::ScanAborted*>(event.get()) == nullptr;) {
      event = queue.waitDequeueNotification(120000);
      ASSERT_FALSE(event.isNull()) << "no end of the scan";
    }
  }
  NetIfcID const wlan7(std::string("wlan7"));
  auto const scanDump = [&] {
    auto dump = Nl80211Command::dump(NL80211_CMD_GET_SCAN, fmt::format("dump scan {}", wlan7));
    wlan7.writeTo(dump.attributes());
    return replies<Cmd::ScanInfo>(socket, dump);
  };
  expectAsIwPrints("iw dev wlan7 scan dump", scanDump, scanView);
  auto const results = scanDump();
  std::vector<std::vector<std::string>> bss, dev, phy, stations{{"| Station "}}, survey;
  for (auto const& r : results) {
    auto const ap = std::find_if(accessPoints.begin(), accessPoints.end(),
                                 [&](auto const& a) { return a[1] == r.bss.ssid.toEscapedString(); });
    ASSERT_NE(ap, accessPoints.end());
    EXPECT_EQ(r.bss.channel.value().toString(), getInterface(socket, ap->at(0)).at(0).channel.value().toString());
    bss.push_back({fmt::format("{}", r.bss.bssid), r.bss.ssid.toEscapedString(), r.bss.channel->toString()});
  }
  EXPECT_EQ(bss.size(), accessPoints.size());
  std::vector<std::string> ours, iw;  // in the kernel's order
  for (auto const& record : iwRecords("iw dev", "\tInterface ", ' ')) iw.push_back(record.head);
  for (auto const& info : replies<InterfaceInfo>(socket, Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump"))) {
    ours.push_back("Interface " + info.name);
    expectAsIwPrints(
        "iw dev " + info.name + " info", [&] { return getInterface(socket, info.name); }, interfaceView);
    dev.push_back({info.toString()});
  }
  EXPECT_EQ(ours, iw);

  // What each record's line holds in a program's output, where the lines
  // begin with a prefix.
  for (auto const& record : iwRecords("iw list", "Wiphy ", ':')) {
    auto const name = record.head.substr(6);  // the virtual radios have no antenna masks
    phy.push_back(
        {fmt::format("wiphy '{}' / ID {}: NL80211_ATTR_WIPHY_ANTENNA_RX missing (attribute not found "
                     "(type 106))",
                     name, name.substr(3))});
  }
  for (auto const& s : replies<StationInfo>(socket, Cmd::dumpStations(NetIfcID(std::string("wlan3"))))) {
    stations.push_back({fmt::format("| {} |", s.mac)});
  }
  for (auto const& s : replies<SurveyInfo>(socket, Cmd::dumpSurvey(NetIfcID(std::string("wlan3"))))) {
    survey.push_back(
        {fmt::format("survey {} / {} MHz (#", s.ifc, s.frequency), fmt::format(" / noise {} dBm", *s.noise)});
  }
  std::vector<std::tuple<std::string, std::string, std::vector<std::vector<std::string>>>> outputs{
      {tool + " dev", "", dev},
      {tool + " phy", "", phy},
      {tool + " scan wlan7", "", bss},
      {tool + " stations wlan3", "| ", stations},
      {tool + " survey wlan3", "", survey}};
  if (!examples.empty()) {
    outputs.insert(outputs.end(), {{examples + "/scan_results wlan7", "", bss},
                                   {examples + "/stations wlan3", "| ", stations},
                                   {examples + "/stations wlan3", "survey netifc ", survey}});
  }
  for (auto const& output : outputs) {
    auto const out = run(std::get<0>(output));
    EXPECT_EQ(linesWith(out, {std::get<1>(output)}), std::get<2>(output).size()) << std::get<0>(output) << ":\n" << out;
    for (auto const& parts : std::get<2>(output))
      EXPECT_EQ(linesWith(out, parts), 1U) << fmt::format("{}", fmt::join(parts, " + "));
  }
}

// Live events until SIGINT, which ends the tool as it should; the kernel's
// refusals of driver parameters exit with 1 and its words.
TEST_F(KernelNetwork, ToolEventsAndRefusals) {
  run("(" + tool +
      " events >/tmp/ev.out 2>/tmp/ev.err & echo $! >/tmp/ev.pid; wait $!; echo $? >/tmp/ev.status) "
      ">/dev/null 2>&1 &");
  auto const file = [](char const* name) { return run(fmt::format("cat /tmp/ev.{} 2>/dev/null; true", name)); };
  ASSERT_TRUE(waitFor([&] { return file("err").find("listening") != std::string::npos; }));
  run("iw phy phy7 interface add mon0 type monitor && iw dev mon0 del");
  ASSERT_TRUE(waitFor([&] { return file("out").find("ifc deleted: ") != std::string::npos; }));
  run("kill -INT $(cat /tmp/ev.pid)");
  ASSERT_TRUE(waitFor([&] { return !file("status").empty(); }));
  EXPECT_EQ(file("status"), "0\n");
  auto const out = file("out");
  EXPECT_EQ(linesWith(out, {"ifc created: ", "'mon0'", "wiphy ID 7"}), 1U) << out;
  EXPECT_EQ(linesWith(out, {"ifc deleted: ", "'mon0'", "wiphy ID 7"}), 1U) << out;
  EXPECT_NE(file("err").find(
                fmt::format("ny80211 events: stopped; events seen: {}\n", std::count(out.begin(), out.end(), '\n'))),
            std::string::npos);

  std::pair<std::string, std::string> const refusals[] = {
      {"param set phy0 txchainmask 3", "set txchainmask 3 on phy0"},
      {"param get wlan5 get_turbo", "get get_turbo on wlan5"},
      {"param set wlan5 addlocalpeer 1 2 0x3", "set addlocalpeer 1 2 3 on wlan5"}};
  for (auto const& [args, failed] : refusals) {
    int status = -1;
    EXPECT_EQ(run(tool + " " + args + " 2>/tmp/param.err", &status), "") << args;
    EXPECT_EQ(status, 1) << args;
    EXPECT_EQ(run("cat /tmp/param.err"),
              "ny80211 param: Netlink error: Operation not supported (-95); failed command: " + failed + "\n");
  }
}

}  // namespace
