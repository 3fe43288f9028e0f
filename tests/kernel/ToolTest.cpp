// The ny80211 tool against the real nl80211 of three virtual radios, each
// subcommand beside what iw shows of the same thing: interfaces, radios, the
// scan table, stations and survey of a WPA2 access point with a station,
// live events while iw adds and removes an interface, and a driver parameter
// that the virtual radio refuses.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "KernelHelpers.h"

namespace {

using namespace Ny80211::testing;

std::string const tool = NY80211_TOOL;

std::string const accessPoint =
    "ssid=ny80211-tool\nhw_mode=a\nchannel=36\ncountry_code=DE\nieee80211n=1\nieee80211ac=1\n"
    "ht_capab=[HT40+]\nvht_oper_chwidth=1\nvht_oper_centr_freq_seg0_idx=42\n"
    "wpa=2\nwpa_key_mgmt=WPA-PSK\nrsn_pairwise=CCMP\nwpa_passphrase=ny80211-pass\n";
std::string const network =
    "network={\n ssid=\"ny80211-tool\"\n psk=\"ny80211-pass\"\n key_mgmt=WPA-PSK\n"
    " scan_freq=5180\n}\n";

std::string tmp(std::string const& name) {
  return std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") + "/" + name;
}

std::string slurp(std::string const& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> linesOf(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The tool as a process of its own, its output in files.
class Process {
 public:
  explicit Process(std::vector<std::string> const& args) {
    // Copies, which posix_spawn's char* arguments may point into.
    std::vector<std::string> words{tool};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&files, 2, err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (posix_spawn(&pid_, tool.c_str(), &files, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&files);
  }
  ~Process() {
    if (pid_ > 0 && !waited_) {
      ::kill(pid_, SIGKILL);
      wait();
    }
  }
  Process(Process const&) = delete;
  Process& operator=(Process const&) = delete;

  void signal(int number) const { ::kill(pid_, number); }
  // The raw status of waitpid.
  int wait() {
    int status = -1;
    if (pid_ > 0 && ::waitpid(pid_, &status, 0) == pid_) waited_ = true;
    return status;
  }
  std::string out() const { return slurp(out_); }
  std::string err() const { return slurp(err_); }

 private:
  std::string out_ = tmp("ny80211-tool.out");
  std::string err_ = tmp("ny80211-tool.err");
  pid_t pid_ = -1;
  bool waited_ = false;
};

struct Result {
  int status;  // the exit status; -1 when the process did not exit by itself
  std::string out;
  std::string err;
};

Result ny80211(std::vector<std::string> const& args) {
  Process process(args);
  int const raw = process.wait();
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, process.out(), process.err()};
}

bool hasLineWith(std::string const& text, std::vector<std::string> const& parts) {
  auto const lines = linesOf(text);
  return std::any_of(lines.begin(), lines.end(), [&](std::string const& line) {
    return std::all_of(parts.begin(), parts.end(),
                       [&](std::string const& p) { return line.find(p) != std::string::npos; });
  });
}

// What follows key in each line of iw's output that begins with it (after
// the indent), up to the next blank or the line end.
std::set<std::string> iwValues(std::string const& output, std::string const& key) {
  std::set<std::string> values;
  for (auto const& line : linesOf(output)) {
    auto const at = line.find_first_not_of('\t');
    if (at == std::string::npos || line.compare(at, key.size(), key) != 0) continue;
    auto const start = at + key.size();
    values.insert(line.substr(start, line.find_first_of(" \t", start) - start));
  }
  return values;
}

TEST(KernelTool, DevShowsEveryInterfaceIwShows) {
  auto const result = ny80211({"dev"});
  ASSERT_EQ(result.status, 0) << result.err;
  auto const interfaces = iwDev();
  ASSERT_EQ(interfaces.size(), 3u);
  EXPECT_EQ(linesOf(result.out).size(), interfaces.size()) << result.out;
  for (auto const& ifc : interfaces) {
    EXPECT_TRUE(hasLineWith(
        result.out, {fmt::format("'{}' / ID {} / wiphy ID {} / MAC {}", ifc.name, ifc.ifindex, ifc.wiphy, ifc.addr)}))
        << result.out;
  }
}

TEST(KernelTool, PhyNamesEachRadioAndTheAttributeItLacks) {
  auto const result = ny80211({"phy"});
  ASSERT_EQ(result.status, 0) << result.err;
  auto const list = run("iw list");
  auto const names = iwValues(list, "Wiphy ");
  auto const indices = iwValues(list, "wiphy index: ");
  ASSERT_EQ(names, (std::set<std::string>{"phy0", "phy1", "phy2"}));
  ASSERT_EQ(indices, (std::set<std::string>{"0", "1", "2"}));
  EXPECT_EQ(linesOf(result.out).size(), 3u) << result.out;
  // The virtual radios have no antenna masks, which the record requires.
  for (auto const* index : {"0", "1", "2"}) {
    EXPECT_TRUE(hasLineWith(result.out, {fmt::format("wiphy 'phy{}' / ID {}: ", index, index),
                                         "NL80211_ATTR_WIPHY_ANTENNA_RX missing "
                                         "(attribute not found (type 106))"}))
        << result.out;
  }
}

// One access point on wlan0 with a station on wlan1: the station's scan
// results, the access point's station table and survey.
TEST(KernelTool, ScanStationsAndSurveyShowWhatIwShows) {
  Hostapd const ap("wlan0", accessPoint);
  WpaSupplicant const station("wlan1", network);

  auto const scan = ny80211({"scan", "wlan1"});
  ASSERT_EQ(scan.status, 0) << scan.err;
  auto const iwScan = run("iw dev wlan1 scan dump");
  auto const bssids = iwValues(iwScan, "BSS ");
  ASSERT_FALSE(bssids.empty()) << iwScan;
  EXPECT_EQ(linesOf(scan.out).size(), bssids.size()) << scan.out;
  for (auto const& bssid : bssids) {
    EXPECT_TRUE(hasLineWith(scan.out, {bssid.substr(0, 17)})) << scan.out;  // less "(on wlan1)"
  }
  EXPECT_EQ(iwValues(iwScan, "SSID: "), std::set<std::string>{"ny80211-tool"});
  EXPECT_TRUE(hasLineWith(scan.out, {"ny80211-tool",
                                     "primary 5180 MHz (# 36) / center 5210 MHz "
                                     "(# 42) / width 80 MHz"}))
      << scan.out;

  auto const stations = ny80211({"stations", "wlan0"});
  ASSERT_EQ(stations.status, 0) << stations.err;
  auto const iwStations = iwValues(run("iw dev wlan0 station dump"), "Station ");
  ASSERT_EQ(iwStations.size(), 1u);
  auto const interfaces = iwDev();
  auto const wlan1 =
      std::find_if(interfaces.begin(), interfaces.end(), [](IwInterface const& ifc) { return ifc.name == "wlan1"; });
  ASSERT_NE(wlan1, interfaces.end());
  EXPECT_EQ(*iwStations.begin(), wlan1->addr);
  EXPECT_TRUE(hasLineWith(stations.out, {wlan1->addr})) << stations.out;

  auto const survey = ny80211({"survey", "wlan0"});
  ASSERT_EQ(survey.status, 0) << survey.err;
  // Per channel iw prints "frequency: 5180 MHz [in use]", then "noise: -92 dBm".
  auto const iwSurvey = run("iw dev wlan0 survey dump");
  std::map<std::string, std::vector<std::string>> channels;  // what each line must hold
  std::string frequency;
  for (auto const& line : linesOf(iwSurvey)) {
    std::istringstream words(line);
    std::string key, value;
    words >> key >> value;
    if (key == "frequency:") {
      frequency = value;
      channels[frequency] = {fmt::format("survey netifc wlan0 / {} MHz (#", value)};
    } else if (key == "noise:") {
      channels[frequency].push_back(fmt::format(" / noise {} dBm", value));
    }
  }
  ASSERT_FALSE(channels.empty()) << iwSurvey;
  EXPECT_EQ(linesOf(survey.out).size(), channels.size()) << survey.out;
  for (auto const& [mhz, parts] : channels) EXPECT_TRUE(hasLineWith(survey.out, parts)) << survey.out;
  auto const inUse = [](std::string const& text) { return text.find("[in use]") != std::string::npos; };
  EXPECT_EQ(inUse(survey.out), inUse(iwSurvey)) << iwSurvey;
}

TEST(KernelTool, EventsPrintsAnInterfaceAddedAndRemovedUntilSigint) {
  Process events({"events"});
  ASSERT_TRUE(waitFor([&] { return events.err().find("listening") != std::string::npos; }, std::chrono::seconds(60)))
      << events.err();
  run("iw phy phy2 interface add mon0 type monitor");
  run("iw dev mon0 del");
  ASSERT_TRUE(waitFor([&] { return events.out().find("ifc deleted:") != std::string::npos; }, std::chrono::seconds(60)))
      << events.out();
  events.signal(SIGINT);
  int const raw = events.wait();
  ASSERT_TRUE(WIFEXITED(raw)) << "ended by signal " << WTERMSIG(raw);
  EXPECT_EQ(WEXITSTATUS(raw), 0);
  auto const out = events.out();
  EXPECT_TRUE(hasLineWith(out, {"ifc created: ", "'mon0'", "wiphy ID 2"})) << out;
  EXPECT_TRUE(hasLineWith(out, {"ifc deleted: ", "'mon0'", "wiphy ID 2"})) << out;
  EXPECT_NE(events.err().find(fmt::format("ny80211 events: stopped; events seen: {}\n", linesOf(out).size())),
            std::string::npos)
      << events.err();
}

// The kernel's refusals exit with 1 and its text; a name the tables lack
// exits with 2, the process not ended by the library.
TEST(KernelTool, RefusalsAndUnknownNames) {
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string err;
  };
  Case const cases[] = {
      {{"param", "set", "phy0", "txchainmask", "3"},
       1,
       "ny80211 param: Netlink error: Operation not supported (-95); failed command: set "
       "txchainmask 3 on phy0\n"},
      {{"param", "get", "wlan1", "get_turbo"},
       1,
       "ny80211 param: Netlink error: Operation not supported (-95); failed command: get "
       "get_turbo on wlan1\n"},
      {{"param", "set", "wlan1", "addlocalpeer", "1", "2", "0x3"},
       1,
       "ny80211 param: Netlink error: Operation not supported (-95); failed command: set "
       "addlocalpeer 1 2 3 on wlan1\n"},
      {{"param", "get", "phy0", "foo"}, 2, "ny80211 param: unknown parameter 'foo'\n"},
      {{"param", "set", "phy0", "txchainmask", "1", "2"}, 2, "ny80211 param: 'txchainmask' takes 1 value, not 2\n"},
  };
  for (auto const& c : cases) {
    auto const result = ny80211(c.args);
    EXPECT_EQ(result.status, c.status) << fmt::format("{}", fmt::join(c.args, " "));
    EXPECT_EQ(result.err, c.err);
    EXPECT_EQ(result.out, "");
  }
}

}  // namespace
