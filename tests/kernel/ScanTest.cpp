// Scan results and interface records against the real nl80211: hostapd runs
// five access points on virtual radios (2.4 GHz HT20 and HT40, 5 GHz VHT80
// and VHT160, 6 GHz HE80), the sixth radio scans, and what the library reads
// from the kernel's replies is held against what iw prints on the same run.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "KernelHelpers.h"
#include "ny80211/BssInfo.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/InterfaceInfo.h"
#include "ny80211/Socket.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;
using namespace std::chrono_literals;

// Germany: its rules allow an access point on 6 GHz without a prior scan.
std::string const common = "country_code=DE\nieee80211d=1\n";
std::string const sae = "wpa=2\nwpa_key_mgmt=SAE\nrsn_pairwise=CCMP\nieee80211w=2\nsae_password=ny80211-test\n";

struct AccessPoint {
  std::string interface;
  std::string ssid;
  std::string config;
  std::chrono::seconds upWithin;
};

std::vector<AccessPoint> const accessPoints{
    // 36-64 takes in radar channels: beacons only after a minute's check.
    {"wlan3", "ny80211-vht160",
     "hw_mode=a\nchannel=36\nieee80211h=1\nieee80211n=1\nieee80211ac=1\nht_capab=[HT40+]\n"
     "vht_capab=[VHT160]\nvht_oper_chwidth=2\nvht_oper_centr_freq_seg0_idx=50\n",
     0s},
    // Before the HT20 network: 40 MHz only where no other network overlaps at
    // the start.
    {"wlan1", "ny80211-ht40", "hw_mode=g\nchannel=6\nieee80211n=1\nht_capab=[HT40+]\n", 60s},
    {"wlan0", "ny80211-ht20", "hw_mode=g\nchannel=1\nieee80211n=1\n", 60s},
    {"wlan2", "ny80211-vht80",
     "hw_mode=a\nchannel=36\nieee80211n=1\nieee80211ac=1\nht_capab=[HT40+]\nvht_oper_chwidth=1\n"
     "vht_oper_centr_freq_seg0_idx=42\n",
     60s},
    {"wlan4", "ny80211-he6",
     "hw_mode=a\nop_class=133\nchannel=37\nieee80211ax=1\nhe_oper_chwidth=1\n"
     "he_oper_centr_freq_seg0_idx=39\n" +
         sae,
     60s},
};
std::string const station = "wlan5";
char const* const scanFrequencies = "2412 2437 5180 6135";

// One BSS as `iw dev ... scan dump` prints it.
struct IwBss {
  std::string freq, signal, ssid;
  std::optional<int> htPrimary;
  std::string htSecondary, htStaWidth;
  std::optional<int> vhtWidth, vhtSegment1, vhtSegment2;
  std::optional<int> seenMsAgo;
};

std::string after(std::string const& line, std::string const& key) {
  auto const at = line.find(key);
  return at == std::string::npos ? std::string() : line.substr(at + key.size());
}

std::map<std::string, IwBss> iwScanDump(std::string const& ifc) {
  std::map<std::string, IwBss> found;
  IwBss* bss = nullptr;
  std::istringstream lines(run("iw dev " + ifc + " scan dump"));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("BSS ", 0) == 0) {
      bss = &found[line.substr(4, 17)];
    } else if (bss == nullptr) {
      continue;
    } else if (auto v = after(line, "\tfreq: "); !v.empty()) {
      bss->freq = v;
    } else if (auto v = after(line, "\tlast seen: "); v.ends_with(" ms ago")) {
      bss->seenMsAgo = std::stoi(v);
    } else if (auto v = after(line, "\tsignal: "); !v.empty()) {
      bss->signal = v;
    } else if (auto v = after(line, "\tSSID: "); !v.empty()) {
      bss->ssid = v;
    } else if (auto v = after(line, "* primary channel: "); !v.empty()) {
      bss->htPrimary = std::stoi(v);
    } else if (auto v = after(line, "* secondary channel offset: "); !v.empty()) {
      bss->htSecondary = v;
    } else if (auto v = after(line, "* STA channel width: "); !v.empty()) {
      bss->htStaWidth = v;
    } else if (auto v = after(line, "* channel width: "); !v.empty()) {
      bss->vhtWidth = std::stoi(v);
    } else if (auto v = after(line, "* center freq segment 1: "); !v.empty()) {
      bss->vhtSegment1 = std::stoi(v);
    } else if (auto v = after(line, "* center freq segment 2: "); !v.empty()) {
      bss->vhtSegment2 = std::stoi(v);
    }
  }
  return found;
}

// `iw dev <ifc> info`, key by key ("ifindex" → "3", "channel" → "36 (5180
// MHz), width: 80 MHz, center1: 5210 MHz", ...).
std::map<std::string, std::string> iwInfo(std::string const& ifc) {
  std::map<std::string, std::string> info;
  std::istringstream lines(run("iw dev " + ifc + " info"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string key, value;
    words >> key;
    std::getline(words >> std::ws, value);
    info[key] = value;
  }
  return info;
}

// The width as iw names it.
std::string iwWidth(ChannelInfo const& channel) {
  static std::pair<nl80211_chan_width, char const*> const names[] = {
      {NL80211_CHAN_WIDTH_20_NOHT, "20 MHz (no HT)"},
      {NL80211_CHAN_WIDTH_20, "20 MHz"},
      {NL80211_CHAN_WIDTH_40, "40 MHz"},
      {NL80211_CHAN_WIDTH_80, "80 MHz"},
      {NL80211_CHAN_WIDTH_80P80, "80+80 MHz"},
      {NL80211_CHAN_WIDTH_160, "160 MHz"},
  };
  for (auto const& [width, name] : names) {
    if (channel.width == width) return name;
  }
  return fmt::format("width {}", channel.width);
}

// A channel in `iw dev` terms.
std::string iwChannel(ChannelInfo const& channel) {
  auto text = fmt::format("{} ({} MHz), width: {}, center1: {} MHz", channel.primary.number, channel.primary.frequency,
                          iwWidth(channel), channel.center1.frequency);
  if (channel.center2) text += fmt::format(", center2: {} MHz", channel.center2->frequency);
  return text;
}

class KernelScan : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    run("iw reg set DE");
    for (auto const& ap : accessPoints) {
      running.push_back(
          std::make_unique<Hostapd>(ap.interface, "ssid=" + ap.ssid + "\n" + common + ap.config, ap.upWithin));
    }
    running.front()->awaitBeacons(180s);
    run("ip link set " + station + " up");
  }
  static void TearDownTestSuite() { running.clear(); }

  // The kernel forgets a BSS it has not seen for 30 s, and a scan, a few tens
  // of milliseconds per channel, may miss one: each test starts with every
  // access point seen in the last 10 s, scanning until so, and then has 20 s
  // for its reads.
  static void scanUntilFresh() {
    auto const fresh = [] {
      auto const table = iwScanDump(station);
      return std::all_of(accessPoints.begin(), accessPoints.end(), [&](AccessPoint const& ap) {
        return std::any_of(table.begin(), table.end(), [&](auto const& entry) {
          return entry.second.ssid == ap.ssid && entry.second.seenMsAgo.value_or(30000) <= 10000;
        });
      });
    };
    auto const end = std::chrono::steady_clock::now() + 180s;
    while (!fresh()) {
      if (std::chrono::steady_clock::now() > end) {
        throw std::runtime_error("scans did not find every access point within 180 s");
      }
      scan(station, fmt::format("freq {}", scanFrequencies));
    }
  }

  void SetUp() override {
    scanUntilFresh();
    socket.connect();
  }

  std::vector<Cmd::ScanInfo> scanDump() {
    auto dump = Nl80211Command::dump(NL80211_CMD_GET_SCAN, fmt::format("dump scan {}", station));
    NetIfcID(station).writeTo(dump.attributes());
    std::vector<Cmd::ScanInfo> results;
    socket.sendMessage(dump, [&](nl_msg* reply) {
      results.emplace_back(GenlMessage(reply).attributes());
      return NL_OK;
    });
    return results;
  }

  // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): SetUpTestSuite's
  static inline std::vector<std::unique_ptr<Hostapd>> running;
  CommandSocket socket;
};

TEST_F(KernelScan, EveryBssReadsAsIwPrintsIt) {
  auto const iw = iwScanDump(station);
  auto const results = scanDump();
  ASSERT_EQ(results.size(), accessPoints.size());
  ASSERT_EQ(iw.size(), accessPoints.size());
  for (auto const& result : results) {
    auto const& bss = result.bss;
    auto const bssid = fmt::format("{}", bss.bssid);
    SCOPED_TRACE(bssid + " " + bss.getRawSSID());
    EXPECT_EQ(result.ifc.index(), NetIfcID(station).index());
    ASSERT_EQ(iw.count(bssid), 1u);
    auto const& seen = iw.at(bssid);
    EXPECT_EQ(fmt::format("{}", bss.frequency), seen.freq);
    EXPECT_EQ(fmt::format("{:.2f} dBm", bss.signalMbm / 100.0), seen.signal);
    EXPECT_EQ(bss.getRawSSID(), seen.ssid);
    EXPECT_EQ(bss.ssid.toEscapedString(), seen.ssid);

    ASSERT_TRUE(bss.channel);
    auto const& channel = *bss.channel;
    EXPECT_EQ(channel.primary.frequency, bss.frequency);
    if (seen.htPrimary) {
      EXPECT_EQ(channel.primary.number, *seen.htPrimary);
      int const offset = seen.htSecondary == "above" ? 3 : seen.htSecondary == "below" ? 2 : 1;
      EXPECT_EQ(bss.channelType, static_cast<std::uint32_t>(offset)) << seen.htSecondary;
    }
    if (seen.htPrimary && (!seen.vhtWidth || seen.vhtWidth == 0)) {
      EXPECT_EQ(channel.width, seen.htStaWidth == "any" ? NL80211_CHAN_WIDTH_40 : NL80211_CHAN_WIDTH_20);
    } else if (seen.vhtWidth == 1 && seen.vhtSegment2 == 0) {
      EXPECT_EQ(channel.width, NL80211_CHAN_WIDTH_80);
      EXPECT_EQ(channel.center1.number, *seen.vhtSegment1);
    } else if (seen.vhtWidth == 1) {
      // 160 MHz as 802.11ac-2016 signals it: the second segment is the centre.
      EXPECT_EQ(channel.width, NL80211_CHAN_WIDTH_160);
      EXPECT_EQ(channel.center1.number, *seen.vhtSegment2);
      EXPECT_EQ(std::abs(*seen.vhtSegment2 - *seen.vhtSegment1), 8);
    }
  }
}

// The channel each BSS announces is the one its access point runs on.
TEST_F(KernelScan, DerivedChannelIsTheAccessPointsOwn) {
  std::map<std::string, std::string> announced;
  for (auto const& result : scanDump()) {
    ASSERT_TRUE(result.bss.channel) << result.bss.getRawSSID();
    announced[result.bss.getRawSSID()] = iwChannel(*result.bss.channel);
  }
  for (auto const& ap : accessPoints) {
    EXPECT_EQ(announced[ap.ssid], iwInfo(ap.interface)["channel"]) << ap.ssid;
  }
}

TEST_F(KernelScan, AccessPointInterfaceReadsAsIwDevShowsIt) {
  for (auto const& ap : accessPoints) {
    SCOPED_TRACE(ap.interface);
    NetIfcID const ifc(ap.interface);
    Nl80211Command get(NL80211_CMD_GET_INTERFACE, fmt::format("get {}", ifc));
    ifc.writeTo(get.attributes());
    std::vector<InterfaceInfo> replies;
    socket.sendMessage(get, [&](nl_msg* reply) {
      replies.emplace_back().readFrom(GenlMessage(reply).attributes());
      return NL_OK;
    });
    ASSERT_EQ(replies.size(), 1u);
    auto const& info = replies.front();
    auto iw = iwInfo(ap.interface);
    EXPECT_EQ(info.name, ap.interface);
    EXPECT_EQ(fmt::format("{}", info.iftype), iw["type"]);
    EXPECT_EQ(fmt::format("{:i}", info.ifc), iw["ifindex"]);
    EXPECT_EQ(fmt::format("{:i}", info.wiphy), iw["wiphy"]);
    EXPECT_EQ(fmt::format("{:#x}", info.wdev.id()), iw["wdev"]);
    EXPECT_EQ(fmt::format("{}", info.mac), iw["addr"]);
    ASSERT_TRUE(info.ssid);
    EXPECT_EQ(info.ssid->toEscapedString(), iw["ssid"]);
    ASSERT_TRUE(info.channel);
    EXPECT_EQ(iwChannel(*info.channel), iw["channel"]);
    EXPECT_EQ(fmt::format("{:.2f} dBm", info.txPower / 100.0), iw["txpower"]);
    EXPECT_NE(info.toString().find(fmt::format("/ SSID '{}' / TX power ", ap.ssid)), std::string::npos)
        << info.toString();
  }
}

#ifdef NY80211_SCAN_EXAMPLE
TEST_F(KernelScan, ExamplePrintsEveryBss) {
  auto const out = run(fmt::format("{} {}", NY80211_SCAN_EXAMPLE, station));
  for (auto const& ap : accessPoints) {
    EXPECT_NE(out.find(ap.ssid), std::string::npos) << out;
  }
  for (auto const& [bssid, bss] : iwScanDump(station)) {
    EXPECT_NE(out.find(bssid), std::string::npos) << out;
  }
}
#endif

}  // namespace
