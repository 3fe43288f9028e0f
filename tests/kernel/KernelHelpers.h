#pragma once
// What the kernel tests share: running a command of the VM (iw, hostapd) and
// reading what it prints.

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Ny80211::testing {

// Runs a shell command and returns its standard output; throws if it fails.
inline std::string run(std::string const& command) {
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  if (!pipe) throw std::runtime_error("cannot run " + command);
  std::string out;
  std::array<char, 4096> buffer;
  while (auto n = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) out.append(buffer.data(), n);
  if (::pclose(pipe.release()) != 0) throw std::runtime_error(command + " failed:\n" + out);
  return out;
}

// One interface as `iw dev` prints it.
struct IwInterface {
  unsigned wiphy = 0;
  std::string name;
  unsigned ifindex = 0;
  unsigned long long wdev = 0;
  std::string addr;
  std::string type;
  auto operator<=>(IwInterface const&) const = default;
};

inline std::vector<IwInterface> iwDev() {
  std::vector<IwInterface> interfaces;
  unsigned phy = 0;
  std::istringstream lines(run("iw dev"));
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string key;
    words >> key;
    if (key.rfind("phy#", 0) == 0) {
      phy = static_cast<unsigned>(std::stoul(key.substr(4)));
    } else if (key == "Interface") {
      interfaces.push_back({});
      interfaces.back().wiphy = phy;
      words >> interfaces.back().name;
    } else if (interfaces.empty()) {
      continue;
    } else if (key == "ifindex") {
      words >> interfaces.back().ifindex;
    } else if (key == "wdev") {
      words >> std::hex >> interfaces.back().wdev;
    } else if (key == "addr") {
      words >> interfaces.back().addr;
    } else if (key == "type") {
      std::getline(words >> std::ws, interfaces.back().type);
    }
  }
  return interfaces;
}

// hostapd running an access point from a configuration text, until the
// object goes. The configuration names the interface; the access point is up
// when `iw dev` shows the interface with its SSID, which it has only once it
// beacons (not during a radar channel check, for one).
class Hostapd {
 public:
  Hostapd(std::string const& interface, std::string const& config,
          std::chrono::seconds upWithin = std::chrono::seconds(10))
      : interface_(interface) {
    auto const dir = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
    path_ = dir + "/hostapd-" + interface + ".conf";
    pidFile_ = dir + "/hostapd-" + interface + ".pid";
    std::ofstream(path_) << "interface=" << interface << "\ndriver=nl80211\n"
                         << "ctrl_interface=/run/hostapd\n" << config;
    run("hostapd -B -P " + pidFile_ + " " + path_ + " >/dev/null");
    if (upWithin.count() > 0) awaitBeacons(upWithin);
  }

  void awaitBeacons(std::chrono::seconds limit) const {
    auto const end = std::chrono::steady_clock::now() + limit;
    while (run("iw dev " + interface_ + " info").find("\tssid ") == std::string::npos) {
      if (std::chrono::steady_clock::now() > end) {
        throw std::runtime_error("hostapd did not start an access point on " + interface_);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }

  ~Hostapd() {
    std::system(("kill $(cat " + pidFile_ + ") 2>/dev/null; while iw dev " + interface_ +
                 " info | grep -q 'type AP'; do sleep 0.1; done")
                    .c_str());
  }
  Hostapd(Hostapd const&) = delete;
  Hostapd& operator=(Hostapd const&) = delete;

  // hostapd_cli's command for this interface; throws unless it answers OK.
  void cli(std::string const& command) const {
    auto const answer = run("hostapd_cli -p /run/hostapd -i " + interface_ + " " + command);
    if (answer.find("OK") == std::string::npos) {
      throw std::runtime_error("hostapd_cli " + command + ": " + answer);
    }
  }

 private:
  std::string interface_;
  std::string path_;
  std::string pidFile_;
};

}  // namespace Ny80211::testing
