#pragma once
// The kernel tests' commands of the VM (iw, hostapd, wpa_supplicant) and the
// library's records held against what iw prints.
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <thread>

#include <Poco/NotificationQueue.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <sys/wait.h>

#include "ny80211/BssInfo.h"
#include "ny80211/Context.h"
#include "ny80211/Error.h"
#include "ny80211/Events.h"
#include "ny80211/StationInfo.h"
#include "ny80211/SurveyInfo.h"

namespace Ny80211::testing {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A shell command's output; its exit status to status where given, else any but 0 throws.
inline std::string run(std::string const& command, int* status = nullptr) {
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  std::string out;
  for (int c = 0; pipe && (c = std::fgetc(pipe.get())) != EOF;) out += static_cast<char>(c);
  int const raw = pipe ? ::pclose(pipe.release()) : -1;
  int const code = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  if (status == nullptr && code != 0) throw std::runtime_error(command + " failed:\n" + out);
  if (status != nullptr) *status = code;
  return out;
}

// Polls until ready(); false past the limit, a bound for a fault, not a speed.
template <class Ready>
bool waitFor(Ready const& ready, std::chrono::seconds limit = 60s) {
  for (auto const end = Clock::now() + limit; !ready(); std::this_thread::sleep_for(100ms)) {
    if (Clock::now() > end) return false;
  }
  return true;
}

// hostapd or wpa_supplicant on an interface until the object goes; no P2P
// device, which would be one more wdev for iw and the dumps.
class Daemon {
 public:
  Daemon(std::string const& program, std::string const& ifc, std::string const& config)
      : pid_("/tmp/" + program + "-" + ifc + ".pid") {
    bool const ap = program == "hostapd";
    std::ofstream(pid_ + ".conf") << (ap ? "driver=nl80211\nctrl_interface=/run/hostapd\ninterface=" + ifc + "\n"
                                         : "ctrl_interface=/run/wpa_supplicant\np2p_disabled=1\n")
                                  << config;
    run(fmt::format("rm -f {0}; {1} -B -P {0} {2} {0}.conf >/dev/null", pid_, program, ap ? "" : "-i " + ifc + " -c"));
    // Up: an access point once it beacons (not during a radar check), a station once linked.
    up_ = "iw dev " + ifc + (ap ? " info | grep -q '\tssid '" : " link | grep -q '^Connected'");
  }
  // Returns once the daemon is gone or a zombie: its control socket removed for the next one.
  ~Daemon() {
    int status = 1;
    try {
      run(fmt::format("for i in $(seq 300); do [ -s {0} ] && break; sleep 0.1; done; p=$(cat {0}); kill $p && for i in "
                      "$(seq 600); do grep -qv ') Z' /proc/$p/stat 2>/dev/null || exit 0; sleep 0.1; done; exit 1",
                      pid_),
          &status);
    } catch (std::exception const&) {  // told below
    }
    if (status != 0) std::cerr << pid_ << ": the daemon did not stop\n";
  }
  Daemon(Daemon const&) = delete;
  Daemon& operator=(Daemon const&) = delete;
  void awaitUp(std::chrono::seconds limit = 60s) const {
    if (!waitFor([&] { return run(up_ + " && echo up || true") == "up\n"; }, limit)) throw std::runtime_error(up_);
  }

 private:
  std::string pid_, up_;
};

// Every reply of a command, read as a Record.
template <class Record, class Command>
std::vector<Record> replies(CommandSocket& socket, Command&& command) {
  std::vector<Record> records;
  socket.sendMessage(command, [&](nl_msg* reply) {
    if constexpr (std::is_constructible_v<Record, AttrStream const&>) {
      records.emplace_back(GenlMessage(reply).attributes());
    } else {
      records.emplace_back().readFrom(GenlMessage(reply).attributes());
    }
    return NL_OK;
  });
  return records;
}

// A command with u32 attributes and, where given, an interface name.
inline Nl80211Command command(std::uint8_t id, std::string const& debug, std::map<int, std::uint32_t> const& u32s,
                              char const* name = nullptr) {
  Nl80211Command made(id, debug);
  for (auto const& [type, value] : u32s) made.attributes().addU32(type, value);
  if (name != nullptr) made.attributes().addString(NL80211_ATTR_IFNAME, name);
  return made;
}

// An interface by its index; the command's debug text, after, to debug.
inline std::vector<InterfaceInfo> getInterface(CommandSocket& socket, std::string const& name,
                                               std::string* debug = nullptr) {
  NetIfcID const ifc(name);
  Nl80211Command get(NL80211_CMD_GET_INTERFACE, fmt::format("get {}", ifc));
  ifc.writeTo(get.attributes());
  auto infos = replies<InterfaceInfo>(socket, get);
  if (debug != nullptr) *debug = get.debugInfoString();
  return infos;
}

// A record of iw's output: its first line and its values by key.
struct IwRecord {
  std::string head;
  std::map<std::string, std::string> values;
  std::optional<std::string> operator[](std::string const& key) const {
    return values.count(key) != 0 ? std::optional(values.at(key)) : std::nullopt;
  }
};

// A record opens with a line that begins with head (tabs included); deeper
// lines below are its values, the key before the first separator.
inline std::vector<IwRecord> iwRecords(std::string const& command, std::string const& head, char separator) {
  auto const depth = head.find_first_not_of('\t');
  auto const trim = [](std::string const& text) {
    auto const first = text.find_first_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
  };
  std::vector<IwRecord> records;
  bool open = false;
  std::istringstream lines(run(command));
  for (std::string line; std::getline(lines, line);) {
    auto const indent = line.find_first_not_of('\t'), at = line.find(separator, indent);
    if (line.starts_with(head)) records.push_back({line.substr(depth), {}});
    open = line.starts_with(head) || (open && indent > depth);
    if (open && indent > depth && at != std::string::npos) {
      records.back().values.emplace(trim(line.substr(0, at)), trim(line.substr(at + 1)));
    }
  }
  return records;
}

// A record as iw prints it: its first line's start and the key separator (a
// blank in `iw dev`); that line and each field as iw would print the library's
// record (none where it read none), a counter marked.
template <class Record>
struct IwView {
  struct Field {
    char const* key;
    bool counter;
    std::optional<std::string> (*text)(Record const&);
  };
  std::string head;
  char separator = ':';
  std::string (*headOf)(Record const&);
  std::vector<Field> fields;
};

template <class T>
std::optional<std::string> text(T const& value, std::string const& pattern = "{}") {
  return fmt::format(fmt::runtime(pattern), value);
}
template <class T>
std::optional<std::string> text(std::optional<T> const& value, std::string const& pattern = "{}") {
  return value ? text(*value, pattern) : std::nullopt;
}

// Reads iw, the library, iw again: the library's records must be iw's, in its
// order, each value as iw printed it before or after (a frame between may
// change a signal), a counter between the two. Returns the keys all three had.
template <class Record, class Read>
std::set<std::string> expectAsIwPrints(std::string const& command, IwView<Record> const& view, Read const& read) {
  SCOPED_TRACE(command);
  auto const before = iwRecords(command, view.head, view.separator);
  auto const library = read();
  auto const after = iwRecords(command, view.head, view.separator);
  std::vector<std::string> heads, iwHeads, iwHeadsAfter;
  for (auto const& record : library) heads.push_back(view.headOf(record));
  for (auto const& record : before) iwHeads.push_back(record.head);
  for (auto const& record : after) iwHeadsAfter.push_back(record.head);
  EXPECT_EQ(heads, iwHeads);
  EXPECT_EQ(iwHeadsAfter, iwHeads);
  std::set<std::string> compared;
  for (std::size_t i = 0; i < library.size() && heads == iwHeads && iwHeads == iwHeadsAfter; ++i) {
    for (auto const& field : view.fields) {
      auto const mine = field.text(library[i]), was = before[i][field.key], now = after[i][field.key];
      EXPECT_EQ(mine.has_value(), was.has_value()) << heads[i] << " / " << field.key << ": " << mine.value_or("-");
      if (!mine || !was || !now) continue;
      compared.insert(field.key);
      std::size_t at = 0, atWas = 0;
      auto const value = field.counter ? std::stoll(*mine, &at) : 0,
                 first = field.counter ? std::stoll(*was, &atWas) : 0;
      EXPECT_TRUE(field.counter ? first <= value && value <= std::stoll(*now) && mine->substr(at) == was->substr(atWas)
                                : *mine == *was || *mine == *now)
          << heads[i] << " / " << field.key << ": " << *mine << " where iw has " << *was << ", then " << *now;
    }
  }
  return compared;
}

// An interface as `iw dev <name> info` prints it.
inline std::string iwChannel(ChannelInfo const& c) {
  constexpr std::array widths{"20 MHz (no HT)", "20 MHz", "40 MHz", "80 MHz", "80+80 MHz", "160 MHz"};
  return fmt::format("{} ({} MHz), width: {}, center1: {} MHz{}", c.primary.number, c.primary.frequency,
                     widths.at(c.width.raw()), c.center1.frequency,
                     c.center2 ? fmt::format(", center2: {} MHz", c.center2->frequency) : "");
}
using Ifc = InterfaceInfo const&;
inline IwView<InterfaceInfo> const interfaceView{
    "Interface ",
    ' ',
    [](Ifc i) { return "Interface " + i.name; },
    {{"ifindex", false, [](Ifc i) { return text(i.ifc, "{:i}"); }},
     {"wdev", false, [](Ifc i) { return text(i.wdev.id(), "{:#x}"); }},
     {"addr", false, [](Ifc i) { return text(i.mac); }},
     {"wiphy", false, [](Ifc i) { return text(i.wiphy, "{:i}"); }},
     {"type", false,
      [](Ifc i) { return text(i.iftype == NL80211_IFTYPE_STATION ? "managed" : fmt::format("{}", i.iftype)); }},
     {"ssid", false, [](Ifc i) { return i.ssid ? text(i.ssid->toEscapedString()) : std::nullopt; }},
     {"channel", false, [](Ifc i) { return i.channel ? text(iwChannel(*i.channel)) : std::nullopt; }},
     {"txpower", false, [](Ifc i) { return text(static_cast<std::int32_t>(i.txPower) / 100.0, "{:.2f} dBm"); }}}};

}  // namespace Ny80211::testing
