// The event path against the real kernel: a Context joined to the config,
// scan, regulatory and mlme groups and to the link group, through a scripted
// run on two virtual radios (monitor interface, scans, regulatory changes,
// hostapd's access point with a channel switch, a third radio created through
// mac80211_hwsim's own family), cross-checked with `iw event` beside it.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/NotificationQueue.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/socket.h>

#include "KernelHelpers.h"
#include "TraceCapture.h"
#include "ny80211/Context.h"
#include "ny80211/Events.h"
#include "ny80211/WextEvents.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

std::string const vht80 =
    "ssid=ny80211-events\ncountry_code=DE\nhw_mode=a\nchannel=36\n"
    "ieee80211n=1\nieee80211ac=1\nht_capab=[HT40+]\nvht_oper_chwidth=1\n"
    "vht_oper_centr_freq_seg0_idx=42\n";

// Creates a radio through mac80211_hwsim's generic netlink family, with a
// regulatory hint from its "driver"; returns once the kernel has answered.
void createHwsimRadio(char const* alpha2) {
  constexpr int newRadio = 4;        // HWSIM_CMD_NEW_RADIO
  constexpr int regHintAlpha2 = 11;  // HWSIM_ATTR_REG_HINT_ALPHA2
  std::unique_ptr<nl_sock, void (*)(nl_sock*)> socket(nl_socket_alloc(), nl_socket_free);
  ASSERT_EQ(genl_connect(socket.get()), 0);
  int const family = genl_ctrl_resolve(socket.get(), "MAC80211_HWSIM");
  ASSERT_GT(family, 0);
  std::unique_ptr<nl_msg, void (*)(nl_msg*)> msg(nlmsg_alloc(), nlmsg_free);
  genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, 0, newRadio, 1);
  nla_put_string(msg.get(), regHintAlpha2, alpha2);
  ASSERT_GE(nl_send_auto(socket.get(), msg.get()), 0);
  // The answer carries the new radio's number where an error would be.
  nl_wait_for_ack(socket.get());
}

// What kind of notification an `iw event` line or a library log line is;
// empty for what the other side has no counterpart of.
std::string iwKind(std::string const& line) {
  for (auto const* kind : {"new interface", "del interface", "scan started", "scan finished", "scan aborted",
                           "regulatory domain change"}) {
    if (line.find(kind) != std::string::npos) return kind;
  }
  if (line.find(": channel switch freq=") != std::string::npos) return "channel switch";
  if (line.find(": stop ap") != std::string::npos) return "stop ap";
  if (line.find(": renamed to ") != std::string::npos) return "new wiphy";
  return {};
}

std::string libraryKind(TraceLine const& line) {
  auto const has = [&](char const* text) { return line.text.find(text) != std::string::npos; };
  if (line.provider != trace::Provider::Event) return {};
  if (has("NL80211_CMD_NEW_WIPHY") || line.text.rfind("wiphy created: ", 0) == 0) return "new wiphy";
  if (has("NL80211_CMD_REG_CHANGE") || line.text.rfind("regdomain ", 0) == 0) {
    return "regulatory domain change";
  }
  if (line.level != trace::Level::Info) return {};
  if (line.text.rfind("ifc created: ", 0) == 0) return "new interface";
  if (line.text.rfind("ifc deleted: ", 0) == 0) return "del interface";
  for (auto const* what : {"started", "finished", "aborted"}) {
    if (line.text.rfind(std::string("scan ") + what + " for ", 0) == 0) {
      return std::string("scan ") + what;
    }
  }
  if (has(" switched to channel: ")) return "channel switch";
  if (line.text.rfind("AP stopped ", 0) == 0) return "stop ap";
  return {};
}

class KernelEvents : public ::testing::Test {
 protected:
  void SetUp() override {
    run("iw event -t > /tmp/iw-event.txt 2>&1 & echo $! > /tmp/iw-event.pid");
    // iw joins its groups a while after it starts and misses what comes
    // before: a monitor interface, made again until iw shows it, tells when it
    // listens; a second one, which stays, marks where the run starts. (iw
    // names an interface as it is when it prints the line: one deleted by
    // then shows under a stale name.)
    ASSERT_TRUE(waitFor(
        [] {
          run("iw dev probe0 del 2>/dev/null; iw phy phy1 interface add probe0 type monitor");
          return waitFor([] { return iwLinesThrough("probe0 (phy #1): new") > 0; }, std::chrono::seconds(1));
        },
        std::chrono::seconds(60)));
    run("iw dev probe0 del && iw phy phy1 interface add start0 type monitor");
    ASSERT_TRUE(
        waitFor([&] { return (iwStart = iwLinesThrough("start0 (phy #1): new")) > 0; }, std::chrono::seconds(60)));
    context.connectCommands();
    context.connectEventsNl80211(publisher, {"config", "scan", "regulatory", "mlme"});
    context.connectEventsWext(publisher);
    context.startEventLoop();
  }

  void TearDown() override { run("kill $(cat /tmp/iw-event.pid) || true"); }

  // What iw has printed so far, through the first line that holds text; 0
  // while none does.
  static std::size_t iwLinesThrough(std::string const& text) {
    std::ifstream file("/tmp/iw-event.txt");
    std::size_t count = 0;
    for (std::string line; std::getline(file, line);) {
      ++count;
      if (line.find(text) != std::string::npos) return count;
    }
    return 0;
  }

  // Takes events off the queue, as the daemon's consumer thread does, until
  // one of type T satisfies accept; every event taken is kept in order.
  template <class T, class Accept>
  Poco::AutoPtr<T> await(Accept const& accept, std::chrono::seconds limit = std::chrono::seconds(60)) {
    auto const end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
      Poco::AutoPtr<Poco::Notification> event(queue.waitDequeueNotification(500));
      if (event.isNull()) continue;
      texts.push_back(textOf(*event));
      if (auto* typed = dynamic_cast<T*>(event.get()); typed != nullptr && accept(*typed)) {
        return Poco::AutoPtr<T>(typed, true);
      }
    }
    ADD_FAILURE() << "no " << typeid(T).name() << " within " << limit.count() << " s; saw:\n"
                  << fmt::format("{}", fmt::join(texts, "\n"));
    return {};
  }

  static std::string textOf(Poco::Notification const& event) {
    if (auto const* nl = dynamic_cast<Event::Nl80211Event const*>(&event)) return nl->toString();
    if (auto const* wext = dynamic_cast<Event::WextEvent const*>(&event)) return wext->toString();
    return "<not an event of the library>";
  }

  // The kinds of what iw printed from the run's start through the line that
  // holds last.
  std::vector<std::string> iwKinds(std::string const& last) const {
    std::ifstream file("/tmp/iw-event.txt");
    std::vector<std::string> kinds;
    std::size_t count = 0;
    for (std::string line; std::getline(file, line);) {
      if (++count <= iwStart) continue;
      if (auto kind = iwKind(line); !kind.empty()) kinds.push_back(kind);
      if (line.find(last) != std::string::npos) break;
    }
    return kinds;
  }

  TraceCapture trace;
  Poco::NotificationQueue queue;
  NyEvent::Publisher publisher{queue};
  Context context;
  std::vector<std::string> texts;
  std::size_t iwStart = 0;
};

TEST_F(KernelEvents, ScriptedRunInKernelOrder) {
  // A global regulatory change names no radio: only the error line.
  run("iw reg set DE");

  run("iw phy phy0 interface add mon0 type monitor");
  auto const created = await<Event::IfcCreated>([](auto const& e) { return e.info().name == "mon0"; });
  ASSERT_FALSE(created.isNull());
  auto const iw = iwDev();
  auto const mon0 = std::find_if(iw.begin(), iw.end(), [](auto const& i) { return i.name == "mon0"; });
  ASSERT_NE(mon0, iw.end());
  EXPECT_EQ(created->info().iftype, NL80211_IFTYPE_MONITOR);
  EXPECT_EQ(created->info().wiphy.index(), mon0->wiphy);
  EXPECT_EQ(created->info().ifc.index(), mon0->ifindex);
  EXPECT_EQ(created->info().wdev.id(), mon0->wdev);
  EXPECT_EQ(created->info().mac.ToString(), mon0->addr);
  EXPECT_FALSE(created->fourAddr());
  EXPECT_EQ(created->toString().rfind("ifc created: ", 0), 0U);
  run("iw dev mon0 del");
  auto const deleted = await<Event::IfcDeleted>([](auto const& e) { return e.info().name == "mon0"; });
  ASSERT_FALSE(deleted.isNull());
  EXPECT_EQ(deleted->info().wdev.id(), mon0->wdev);

  run("ip link set wlan1 up");
  run("iw dev wlan1 scan trigger freq 2412 5180");
  auto const started = await<Event::ScanStarted>([](auto const&) { return true; });
  ASSERT_FALSE(started.isNull());
  EXPECT_EQ(started->toString(), "scan started for VAP wlan1, scanned freqs [2412, 5180]");
  ASSERT_EQ(started->ssids().size(), 1U);  // the wildcard SSID
  EXPECT_TRUE(started->ssids()[0].empty());
  auto const finished = await<Event::ScanFinished>([](auto const&) { return true; });
  ASSERT_FALSE(finished.isNull());
  EXPECT_EQ(finished->toString(), "scan finished for VAP wlan1, scanned freqs [2412, 5180]");

  // A scan of every channel takes at least five seconds: long enough to
  // abort, if the abort follows the trigger at once (the kernel has sent the
  // start when the trigger returns), not after the event's way to the queue.
  run("iw dev wlan1 scan trigger && iw dev wlan1 scan abort");
  ASSERT_FALSE(await<Event::ScanStarted>([](auto const&) { return true; }).isNull());
  auto const aborted = await<Event::ScanAborted>([](auto const&) { return true; });
  ASSERT_FALSE(aborted.isNull());
  EXPECT_EQ(aborted->vap().name(), "wlan1");
  EXPECT_GT(aborted->freqs().size(), 20U);

  {
    Hostapd const ap("wlan0", vht80);
    ap.cli("chan_switch 5 5745 sec_channel_offset=1 center_freq1=5775 bandwidth=80 vht");
    auto const switched = await<Event::ChannelSwitched>([](auto const&) { return true; });
    ASSERT_FALSE(switched.isNull());
    EXPECT_EQ(switched->toString(),
              "VAP wlan0 switched to channel: primary 5745 MHz (#149) / center 5775 MHz (#155) / "
              "width 80 MHz");
    // The kernel reports an access point it stops itself, not one that
    // hostapd stops.
    run("ip link set wlan0 down");
    auto const stopped = await<Event::ApStopped>([](auto const&) { return true; });
    ASSERT_FALSE(stopped.isNull());
    NetIfcID const wlan0(std::string("wlan0"));
    EXPECT_EQ(stopped->toString(),
              fmt::format("AP stopped (phy 0 / ifc {} / wdev {})", wlan0.index(), stopped->wdev().id()));
    // With no interface in use the kernel goes back to the world domain and
    // at once to the user's DE again, before it takes the next command.
    ASSERT_FALSE(await<Event::RegDomainChanged>([](auto const& e) {
                   return e.initiator() == NL80211_REGDOM_SET_BY_CORE;
                 }).isNull());
  }

  // Its "driver" asks for FR while the user set DE: the kernel intersects.
  createHwsimRadio("FR");
  auto const radio = await<Event::IfcCreated>([](auto const& e) { return e.info().wiphy.index() == 2; });
  ASSERT_FALSE(radio.isNull());
  auto const regChange =
      await<Event::RegDomainChanged>([](auto const& e) { return e.initiator() == NL80211_REGDOM_SET_BY_DRIVER; });
  ASSERT_FALSE(regChange.isNull());
  EXPECT_EQ(regChange->toString(), "regdomain (type intersection) for phy 2 changed by driver");

  // A last monitor interface: what the kernel sent before it, both sides
  // have seen once they have seen it; what comes after is left out.
  run("iw phy phy1 interface add end0 type monitor");
  auto const end = await<Event::IfcCreated>([](auto const& e) { return e.info().name == "end0"; });
  ASSERT_FALSE(end.isNull());
  ASSERT_TRUE(waitFor([] { return iwLinesThrough("end0 (phy #1): new") > 0; }, std::chrono::seconds(60)));
  auto lines = trace.lines();
  auto const last = std::find_if(lines.begin(), lines.end(), [&](TraceLine const& line) {
    return line.level == trace::Level::Info && line.text == end->toString();
  });
  ASSERT_NE(last, lines.end());
  lines.erase(last + 1, lines.end());
  auto const theirs = iwKinds("end0 (phy #1): new");

  // Every event was logged once, before it was published, in the same order.
  std::vector<std::string> logged;
  for (auto const& line : lines) {
    if (line.provider == trace::Provider::Event && line.level == trace::Level::Info) {
      logged.push_back(line.text);
    }
  }
  EXPECT_EQ(logged, texts);

  // What the decoder makes of the two messages it can't read: the global
  // regulatory change names no radio, and the virtual radio's wiphy message
  // has no antenna masks.
  auto const errors = [&] {
    std::vector<std::string> texts;
    for (auto const& line : lines) {
      if (line.level == trace::Level::Err) texts.push_back(line.text);
    }
    return texts;
  }();
  EXPECT_EQ(errors, (std::vector<std::string>{
                        "Error processing nl80211 event NL80211_CMD_REG_CHANGE: attribute not found (type 1)",
                        "Error processing nl80211 event NL80211_CMD_REG_CHANGE: attribute not found (type 1)",
                        "Error processing nl80211 event NL80211_CMD_NEW_WIPHY: attribute not found (type 106)"}));
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front().text, errors.front());

  // The kernel's order, as iw saw it too.
  std::vector<std::string> ours;
  for (auto const& line : lines) {
    if (auto kind = libraryKind(line); !kind.empty()) ours.push_back(kind);
  }
  EXPECT_EQ(ours, theirs);
  for (auto const& line : lines) std::cout << line << '\n';
  std::cout << run("cat /tmp/iw-event.txt");
}

}  // namespace
