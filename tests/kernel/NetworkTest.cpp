// A live network: access points on wlan0-4, wlan5 and wlan6 their stations, wlan7 scanning. The records
// beside what iw prints, the tool's and the examples' output beside the records.
#include "KernelHelpers.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// Interface, SSID, hostapd's configuration. DE allows 6 GHz without a prior
// scan; 36-64 has radar channels (a minute's check); HT40 before the HT20 one.
std::vector<std::array<std::string, 3>> const accessPoints{
    {"wlan0", "ny80211-vht160",
     "hw_mode=a\nchannel=36\nieee80211h=1\nieee80211n=1\nieee80211ac=1\nht_capab=[HT40+]\nvht_capab=[VHT160]\n"
     "vht_oper_chwidth=2\nvht_oper_centr_freq_seg0_idx=50\n"},
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
  return text(dbm, chains.empty() ? "{} dBm" : fmt::format("{{}} [{}] dBm", fmt::join(chains, ", ")));
}

// How many of a program's output lines begin with start and hold all parts.
std::size_t linesWith(std::string const& out, std::string const& start, std::vector<std::string> const& parts = {}) {
  std::istringstream lines(out);
  std::size_t n = 0;
  for (std::string line; std::getline(lines, line);) {
    n += line.starts_with(start) &&
         std::all_of(parts.begin(), parts.end(), [&](auto const& p) { return line.find(p) != std::string::npos; });
  }
  return n;
}

// iw prints a flag only where the mask reports it.
template <nl80211_sta_flags bit, bool preamble = false>
std::optional<std::string> flag(StationInfo const& s) {
  auto const set = s.flags ? s.flags->get(bit) : std::nullopt;
  return set ? text(preamble ? (*set ? "short" : "long") : (*set ? "yes" : "no")) : std::nullopt;
}

using Station = StationInfo const&;
IwView<StationInfo> const stationView{
    "Station ",
    ':',
    [](Station s) { return fmt::format("Station {} (on {:n})", s.mac, s.ifc); },
    {{"rx bytes", true, [](Station s) { return text(s.rxBytes); }},
     {"rx packets", true, [](Station s) { return text(s.rxPackets); }},
     {"tx bytes", true, [](Station s) { return text(s.txBytes); }},
     {"tx packets", true, [](Station s) { return text(s.txPackets); }},
     {"tx retries", true, [](Station s) { return text(s.txRetries); }},
     {"tx failed", true, [](Station s) { return text(s.txFailed); }},
     {"beacon loss", true, [](Station s) { return text(s.beaconLoss); }},
     {"rx drop misc", true, [](Station s) { return text(s.rxDropMisc); }},
     {"connected time", true, [](Station s) { return text(s.connectedSeconds, "{} seconds"); }},
     {"signal", false, [](Station s) { return signal(s.signal, s.chainSignal); }},
     {"signal avg", false, [](Station s) { return signal(s.signalAvg, s.chainSignalAvg); }},
     {"expected throughput", false,  // iw's own arithmetic, its "%u.%u" included
      [](Station s) {
        auto const thr = s.expectedThroughputKbps.value_or(0) * 1000 / 1024;
        return s.expectedThroughputKbps ? text(fmt::format("{}.{}Mbps", thr / 1000, thr % 1000)) : std::nullopt;
      }},
     {"authorized", false, flag<NL80211_STA_FLAG_AUTHORIZED>},
     {"authenticated", false, flag<NL80211_STA_FLAG_AUTHENTICATED>},
     {"associated", false, flag<NL80211_STA_FLAG_ASSOCIATED>},
     {"preamble", false, flag<NL80211_STA_FLAG_SHORT_PREAMBLE, true>},
     {"WMM/WME", false, flag<NL80211_STA_FLAG_WME>},
     {"MFP", false, flag<NL80211_STA_FLAG_MFP>},
     {"TDLS peer", false, flag<NL80211_STA_FLAG_TDLS_PEER>}}};

using Survey = SurveyInfo const&;
IwView<SurveyInfo> const surveyView{
    "Survey data from ",
    ':',
    [](Survey s) { return fmt::format("Survey data from {:n}", s.ifc); },
    {{"frequency", false, [](Survey s) { return text(s.frequency, s.inUse ? "{} MHz [in use]" : "{} MHz"); }},
     {"noise", false, [](Survey s) { return text(s.noise, "{} dBm"); }},
     {"channel active time", true, [](Survey s) { return text(s.activeMs, "{} ms"); }},
     {"channel busy time", true, [](Survey s) { return text(s.busyMs, "{} ms"); }},
     {"extension channel busy time", true, [](Survey s) { return text(s.extBusyMs, "{} ms"); }},
     {"channel receive time", true, [](Survey s) { return text(s.rxMs, "{} ms"); }},
     {"channel transmit time", true, [](Survey s) { return text(s.txMs, "{} ms"); }}}};

// The primary channel and its offset where an HT operation element gives them.
using Scan = Cmd::ScanInfo const&;
IwView<Cmd::ScanInfo> const scanView{
    "BSS ",
    ':',
    [](Scan r) { return fmt::format("BSS {}(on {:n})", r.bss.bssid, r.ifc); },
    {{"freq", false, [](Scan r) { return text(r.bss.frequency); }},
     {"signal", false, [](Scan r) { return text(r.bss.signalMbm / 100.0, "{:.2f} dBm"); }},
     {"SSID", false, [](Scan r) { return text(r.bss.ssid.toEscapedString()); }},
     {"* primary channel", false,
      [](Scan r) { return r.bss.channelType != 0 ? text(r.bss.channel->primary.number) : std::nullopt; }},
     {"* secondary channel offset", false, [](Scan r) {
        auto const offsets = std::array{"", "no secondary", "below", "above"};
        return r.bss.channelType != 0 ? text(offsets.at(r.bss.channelType)) : std::nullopt;
      }}}};

class KernelNetwork : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    run("iw reg set DE && ip link set wlan7 up");
    for (auto const& [ifc, ssid, config] : accessPoints) {
      daemons.push_back(std::make_unique<Daemon>(
          "hostapd", ifc, fmt::format("ssid={}\ncountry_code=DE\nieee80211d=1\n{}", ssid, config)));
      if (ifc != "wlan0") daemons.back()->awaitUp();  // wlan0 checks for radar meanwhile
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

// Both ends of each link by dump and get, every field compared but the expected
// throughput (once rate control has statistics) and, on the access point, the
// beacon loss; the survey, which hwsim gives noise and active and busy times.
TEST_F(KernelNetwork, StationsAndSurveyReadAsIwPrintsThem) {
  for (std::string const name : {"wlan3", "wlan5", "wlan6"}) {
    NetIfcID const ifc(name);
    auto const dump = [&] { return replies<StationInfo>(socket, Cmd::dumpStations(ifc)); };
    std::vector compared{expectAsIwPrints("iw dev " + name + " station dump", stationView, dump)};
    for (auto const& station : dump()) {
      compared.push_back(expectAsIwPrints(fmt::format("iw dev {} station get {}", name, station.mac), stationView, [&] {
        return replies<StationInfo>(socket, Cmd::getStation(ifc, station.mac));
      }));
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
  auto const survey = [&] { return replies<SurveyInfo>(socket, Cmd::dumpSurvey(NetIfcID(std::string("wlan3")))); };
  EXPECT_EQ(expectAsIwPrints("iw dev wlan3 survey dump", surveyView, survey),
            (std::set<std::string>{"frequency", "noise", "channel active time", "channel busy time"}));
  auto const channels = survey();
  EXPECT_TRUE(std::any_of(channels.begin(), channels.end(), [](Survey s) { return s.frequency == 5180U; }));
  for (auto const& channel : channels) EXPECT_EQ(channel.noise, -92) << channel.toString();
}

// The scan results, each with its access point's channel, every interface, and
// what the tool and the examples print of them.
TEST_F(KernelNetwork, ScanResultsAndInterfacesAsIwAndTheProgramsPrintThem) {
  daemons.front()->awaitUp(180s);
  // The kernel forgets a BSS unseen for 30 s, a scan may miss one: scans (to
  // their end as the library reports it) until all were seen in the last 10 s.
  Poco::NotificationQueue queue;
  Context scans;
  scans.connectEventsNl80211(NyEvent::Publisher(queue), {"scan"});
  scans.startEventLoop();
  auto const fresh = [] {
    auto const bsss = iwRecords("iw dev wlan7 scan dump", "BSS ", ':');
    return std::all_of(accessPoints.begin(), accessPoints.end(), [&](auto const& ap) {
      return std::any_of(bsss.begin(), bsss.end(), [&](IwRecord const& bss) {
        return bss["SSID"] == ap[1] && std::stoi(bss["last seen"].value_or("")) <= 10000;
      });
    });
  };
  for (auto const end = Clock::now() + 180s; !fresh();) {
    ASSERT_LT(Clock::now(), end) << "scans did not find every access point";
    run("iw dev wlan7 scan trigger freq 2412 2437 5180 6135 >/dev/null");
    for (Poco::AutoPtr<Poco::Notification> event; dynamic_cast<Event::ScanFinished*>(event.get()) == nullptr &&
                                                  dynamic_cast<Event::ScanAborted*>(event.get()) == nullptr;) {
      ASSERT_FALSE((event = queue.waitDequeueNotification(120000)).isNull()) << "no end of the scan";
    }
  }
  NetIfcID const wlan7(std::string("wlan7"));
  auto const scanDump = [&] {
    auto dump = Nl80211Command::dump(NL80211_CMD_GET_SCAN, fmt::format("dump scan {}", wlan7));
    wlan7.writeTo(dump.attributes());
    return replies<Cmd::ScanInfo>(socket, dump);
  };
  expectAsIwPrints("iw dev wlan7 scan dump", scanView, scanDump);
  // What each record's line holds in a program's output.
  std::vector<std::vector<std::string>> bss, dev, phy, stations{{"| Station "}}, survey;
  for (auto const& r : scanDump()) {
    auto const ssid = r.bss.ssid.toEscapedString();
    auto const ap = std::find_if(accessPoints.begin(), accessPoints.end(), [&](auto const& a) { return a[1] == ssid; });
    ASSERT_NE(ap, accessPoints.end());
    EXPECT_EQ(r.bss.channel.value().toString(), getInterface(socket, ap->at(0)).at(0).channel.value().toString());
    bss.push_back({fmt::format("{}", r.bss.bssid), ssid, r.bss.channel->toString()});
  }
  std::vector<std::string> ours, iw;  // in the kernel's order
  for (auto const& record : iwRecords("iw dev", "\tInterface ", ' ')) iw.push_back(record.head);
  for (auto const& info : replies<InterfaceInfo>(socket, Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump"))) {
    ours.push_back("Interface " + info.name);
    expectAsIwPrints("iw dev " + info.name + " info", interfaceView, [&] { return getInterface(socket, info.name); });
    dev.push_back({info.toString()});
  }
  EXPECT_EQ(ours, iw);
  for (auto const& record : iwRecords("iw list", "Wiphy ", ':')) {  // the virtual radios have no antenna masks
    phy.push_back(
        {fmt::format("wiphy '{}' / ID {}: NL80211_ATTR_WIPHY_ANTENNA_RX missing (attribute not found (type 106))",
                     record.head.substr(6), record.head.substr(9))});
  }
  for (auto const& s : replies<StationInfo>(socket, Cmd::dumpStations(NetIfcID(std::string("wlan3"))))) {
    stations.push_back({fmt::format("| {} |", s.mac)});
  }
  for (auto const& s : replies<SurveyInfo>(socket, Cmd::dumpSurvey(NetIfcID(std::string("wlan3"))))) {
    survey.push_back(
        {fmt::format("survey {} / {} MHz (#", s.ifc, s.frequency), fmt::format(" / noise {} dBm", *s.noise)});
  }
  // A program, the start of its record lines, what each holds.
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
  for (auto const& [program, start, records] : outputs) {
    auto const out = run(program);
    EXPECT_EQ(linesWith(out, start), records.size()) << program << ":\n" << out;
    for (auto const& parts : records)
      EXPECT_EQ(linesWith(out, "", parts), 1U) << program << ": " << fmt::format("{}", parts);
  }
}

// The kernel's refusals of driver parameters: the tool exits with 1 and its words.
TEST_F(KernelNetwork, ToolReportsRefusedParameters) {
  std::pair<std::string, std::string> const refusals[] = {
      {"param set phy0 txchainmask 3", "set txchainmask 3 on phy0"},
      {"param get wlan5 get_turbo", "get get_turbo on wlan5"},
      {"param set wlan5 addlocalpeer 1 2 0x3", "set addlocalpeer 1 2 3 on wlan5"}};
  for (auto const& [args, failed] : refusals) {
    int status = -1;
    EXPECT_EQ(run(fmt::format("{} {} 2>/tmp/param.err", tool, args), &status), "") << args;
    EXPECT_EQ(status, 1) << args;
    EXPECT_EQ(run("cat /tmp/param.err"),
              "ny80211 param: Netlink error: Operation not supported (-95); failed command: " + failed + "\n");
  }
}

}  // namespace
