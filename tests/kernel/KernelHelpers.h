#pragma once
// What the kernel tests share: running a command of the VM (iw, hostapd,
// wpa_supplicant), reading what it prints, and waiting for a state of the
// kernel.

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/socket.h>
#include <poll.h>

namespace Ny80211::testing {

// Runs a shell command and returns its standard output; throws if it fails.
inline std::string run(std::string const& command) {
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  if (!pipe) throw std::runtime_error("cannot run " + command);
  std::string out;
  std::array<char, 4096> buffer{};
  while (auto n = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) out.append(buffer.data(), n);
  if (::pclose(pipe.release()) != 0) throw std::runtime_error(command + " failed:\n" + out);
  return out;
}

// Polls until ready() holds or the time is up; says which. The VM runs under
// emulation on a shared machine, so a limit is a bound for a fault, never an
// expected speed.
template <class Ready>
bool waitFor(Ready const& ready, std::chrono::seconds limit) {
  auto const end = std::chrono::steady_clock::now() + limit;
  while (!ready()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return true;
}

// Scans with `iw dev <interface> scan trigger <options>` and returns once the
// kernel has reported the end of that scan: true when it finished, false when
// it was aborted. Not `iw dev <interface> scan`: iw joins the scan group only
// after its trigger has returned, and waits for good for the end of a scan
// that ended before (a few channels take well under a second). Here the group
// is joined first, and an end counts only after this scan's start.
inline bool scan(std::string const& interface, std::string const& options,
                 std::chrono::seconds limit = std::chrono::seconds(120)) {
  std::unique_ptr<nl_sock, void (*)(nl_sock*)> socket(nl_socket_alloc(), nl_socket_free);
  if (!socket || genl_connect(socket.get()) < 0) throw std::runtime_error("no generic netlink socket");
  int const group = genl_ctrl_resolve_grp(socket.get(), "nl80211", "scan");
  if (group < 0 || nl_socket_add_membership(socket.get(), group) < 0) {
    throw std::runtime_error("cannot join nl80211's scan group");
  }
  nl_socket_disable_seq_check(socket.get());
  struct Scan {
    unsigned ifindex = 0;
    bool started = false;
    std::optional<bool> finished;
  } state{::if_nametoindex(interface.c_str()), false, std::nullopt};
  nl_socket_modify_cb(
      socket.get(), NL_CB_VALID, NL_CB_CUSTOM,
      [](nl_msg* message, void* arg) {
        auto& scan = *static_cast<Scan*>(arg);
        auto* header = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(message)));
        auto* ifindex = nla_find(genlmsg_attrdata(header, 0), genlmsg_attrlen(header, 0), NL80211_ATTR_IFINDEX);
        if (ifindex == nullptr || nla_get_u32(ifindex) != scan.ifindex) return static_cast<int>(NL_OK);
        if (header->cmd == NL80211_CMD_TRIGGER_SCAN) {
          scan.started = true;
        } else if (scan.started &&
                   (header->cmd == NL80211_CMD_NEW_SCAN_RESULTS || header->cmd == NL80211_CMD_SCAN_ABORTED)) {
          scan.finished = header->cmd == NL80211_CMD_NEW_SCAN_RESULTS;
        }
        return static_cast<int>(NL_OK);
      },
      &state);
  run("iw dev " + interface + " scan trigger " + options + " >/dev/null");
  auto const end = std::chrono::steady_clock::now() + limit;
  while (!state.finished) {
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      throw std::runtime_error("no end of the scan on " + interface + " within " + std::to_string(limit.count()) +
                               " s");
    }
    pollfd ready{nl_socket_get_fd(socket.get()), POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(left.count())) > 0 && nl_recvmsgs_default(socket.get()) < 0) {
      throw std::runtime_error("cannot read nl80211's scan group");
    }
  }
  return *state.finished;
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

// Network interfaces only: a wdev without one (the P2P device that
// wpa_supplicant makes) is left out, its lines with it.
inline std::vector<IwInterface> iwDev() {
  std::vector<IwInterface> interfaces;
  IwInterface* current = nullptr;
  unsigned phy = 0;
  std::istringstream lines(run("iw dev"));
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string key;
    words >> key;
    if (key.rfind("phy#", 0) == 0) {
      phy = static_cast<unsigned>(std::stoul(key.substr(4)));
      current = nullptr;
    } else if (key == "Interface") {
      current = &interfaces.emplace_back();
      current->wiphy = phy;
      words >> current->name;
    } else if (key == "Unnamed/non-netdev" || current == nullptr) {
      current = nullptr;
    } else if (key == "ifindex") {
      words >> current->ifindex;
    } else if (key == "wdev") {
      words >> std::hex >> current->wdev;
    } else if (key == "addr") {
      words >> current->addr;
    } else if (key == "type") {
      std::getline(words >> std::ws, current->type);
    }
  }
  return interfaces;
}

// Stops the daemon whose pid file (written by -B after the parent has
// returned) is pidFile, and returns once it has exited; says so on stderr if
// it does not.
inline void stopDaemon(std::string const& what, std::string const& pidFile) {
  // Gone, or a zombie that no one has reaped yet.
  auto const exited = [](std::string const& pid) {
    std::ifstream stat("/proc/" + pid + "/stat");
    std::string line;
    if (!std::getline(stat, line)) return true;
    auto const state = line.rfind(") ");
    return state != std::string::npos && line.compare(state + 2, 1, "Z") == 0;
  };
  std::string pid;
  waitFor([&] { return static_cast<bool>(std::ifstream(pidFile) >> pid); }, std::chrono::seconds(30));
  if (pid.empty() || std::system(("kill " + pid).c_str()) != 0 ||
      !waitFor([&] { return exited(pid); }, std::chrono::seconds(60))) {
    std::cerr << what << " (pid '" << pid << "') did not stop\n";
  }
}

// hostapd running an access point from a configuration text, until the
// object goes. The configuration names the interface; the access point is up
// when `iw dev` shows the interface with its SSID, which it has only once it
// beacons (not during a radar channel check, for one).
class Hostapd {
 public:
  Hostapd(std::string const& interface, std::string const& config,
          std::chrono::seconds upWithin = std::chrono::seconds(60))
      : interface_(interface) {
    auto const dir = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
    path_ = dir + "/hostapd-" + interface + ".conf";
    pidFile_ = dir + "/hostapd-" + interface + ".pid";
    std::ofstream(path_) << "interface=" << interface << "\ndriver=nl80211\n"
                         << "ctrl_interface=/run/hostapd\n"
                         << config;
    std::remove(pidFile_.c_str());
    run("hostapd -B -P " + pidFile_ + " " + path_ + " >/dev/null");
    if (upWithin.count() > 0) awaitBeacons(upWithin);
  }

  void awaitBeacons(std::chrono::seconds limit) const {
    if (!waitFor([&] { return run("iw dev " + interface_ + " info").find("\tssid ") != std::string::npos; }, limit)) {
      throw std::runtime_error("hostapd did not start an access point on " + interface_);
    }
  }

  // Returns once hostapd has exited: only then has it put the interface back
  // and removed its control socket and pid file, which the next hostapd on
  // the interface would otherwise lose.
  ~Hostapd() { stopDaemon("hostapd on " + interface_, pidFile_); }
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

// wpa_supplicant on a station interface from the network blocks of a
// configuration text, connected once the object is made, until it goes.
class WpaSupplicant {
 public:
  WpaSupplicant(std::string const& interface, std::string const& networks,
                std::chrono::seconds connectWithin = std::chrono::seconds(60))
      : interface_(interface) {
    auto const dir = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
    auto const path = dir + "/wpa_supplicant-" + interface + ".conf";
    pidFile_ = dir + "/wpa_supplicant-" + interface + ".pid";
    std::ofstream(path) << "ctrl_interface=/run/wpa_supplicant\n" << networks;
    std::remove(pidFile_.c_str());
    run("wpa_supplicant -B -i " + interface + " -c " + path + " -P " + pidFile_ + " >/dev/null");
    if (!waitFor([&] { return run("iw dev " + interface + " link").starts_with("Connected to "); }, connectWithin)) {
      stopDaemon("wpa_supplicant on " + interface, pidFile_);
      throw std::runtime_error("wpa_supplicant did not connect " + interface);
    }
  }

  // Returns once wpa_supplicant has exited, its control socket removed.
  ~WpaSupplicant() { stopDaemon("wpa_supplicant on " + interface_, pidFile_); }
  WpaSupplicant(WpaSupplicant const&) = delete;
  WpaSupplicant& operator=(WpaSupplicant const&) = delete;

  // Leaves the network (a deauthentication to the access point) and stays
  // away until told otherwise.
  void disconnect() const {
    auto const answer = run("wpa_cli -p /run/wpa_supplicant -i " + interface_ + " disconnect");
    if (answer.find("OK") == std::string::npos) {
      throw std::runtime_error("wpa_cli disconnect: " + answer);
    }
  }

 private:
  std::string interface_;
  std::string pidFile_;
};

}  // namespace Ny80211::testing
