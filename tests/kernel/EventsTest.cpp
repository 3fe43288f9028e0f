// The event path against the real kernel: a Context joined to the config,
// scan, regulatory and mlme groups and to the link group, through a scripted
// run (a monitor interface, scans, regulatory changes, hostapd's access point
// switching channel, a third radio made through mac80211_hwsim's family),
// with `iw event` beside it.
#include "KernelHelpers.h"
#include "TraceCapture.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// A radio made through mac80211_hwsim's family, with a regulatory hint from
// its "driver"; returns once the kernel has answered.
void createHwsimRadio(char const* alpha2) {
  std::unique_ptr<nl_sock, void (*)(nl_sock*)> socket(nl_socket_alloc(), nl_socket_free);
  std::unique_ptr<nl_msg, void (*)(nl_msg*)> msg(nlmsg_alloc(), nlmsg_free);
  ASSERT_EQ(genl_connect(socket.get()), 0);
  int const family = genl_ctrl_resolve(socket.get(), "MAC80211_HWSIM");
  genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, 0, 4 /* HWSIM_CMD_NEW_RADIO */, 1);
  nla_put_string(msg.get(), 11 /* HWSIM_ATTR_REG_HINT_ALPHA2 */, alpha2);
  ASSERT_GE(nl_send_auto(socket.get(), msg.get()), 0);
  nl_wait_for_ack(socket.get());  // its answer, the radio's number, stands where an error would
}

// The kinds of notification both sides print: how iw and the library say it.
struct Kind {
  char const* name;
  char const* iw;
  std::vector<std::string> library;
};
std::vector<Kind> const kinds{
    {"new interface", "new interface", {"ifc created: "}},
    {"del interface", "del interface", {"ifc deleted: "}},
    {"scan started", "scan started", {"scan started for "}},
    {"scan finished", "scan finished", {"scan finished for "}},
    {"scan aborted", "scan aborted", {"scan aborted for "}},
    {"regulatory change", "regulatory domain change", {"NL80211_CMD_REG_CHANGE", "regdomain "}},
    {"channel switch", ": channel switch freq=", {" switched to channel: "}},
    {"stop ap", ": stop ap", {"AP stopped "}},
    {"new wiphy", ": renamed to ", {"NL80211_CMD_NEW_WIPHY", "wiphy created: "}},
};

std::string kindOf(std::string const& line, bool iw) {
  for (auto const& kind : kinds) {
    auto const in = [&](std::string const& text) { return line.find(text) != std::string::npos; };
    if (iw ? in(kind.iw) : std::any_of(kind.library.begin(), kind.library.end(), in)) return kind.name;
  }
  return {};
}

// iw's lines so far, through the first that holds text.
std::vector<std::string> iwThrough(std::string const& text) {
  std::vector<std::string> lines;
  std::ifstream file("/tmp/iw-event.txt");
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
    if (line.find(text) != std::string::npos) return lines;
  }
  return {};
}

class KernelEvents : public ::testing::Test {
 protected:
  void SetUp() override {
    run("iw event -t > /tmp/iw-event.txt 2>&1 & echo $! > /tmp/iw-event.pid");
    // iw joins its groups a while after it starts and misses what comes
    // before: a monitor interface, made again until iw shows it, tells when
    // it listens; a second one, which stays, marks where the run starts. (iw
    // names an interface as it is when it prints the line: one deleted by
    // then shows under a stale name.)
    ASSERT_TRUE(waitFor([] {
      run("iw dev probe0 del 2>/dev/null; iw phy phy1 interface add probe0 type monitor");
      return waitFor([] { return !iwThrough("probe0 (phy #1): new").empty(); }, 1s);
    }));
    run("iw dev probe0 del && iw phy phy1 interface add start0 type monitor");
    ASSERT_TRUE(waitFor([&] { return (iwStart = iwThrough("start0 (phy #1): new").size()) > 0; }));
    context.connectCommands();
    context.connectEventsNl80211(publisher, {"config", "scan", "regulatory", "mlme"});
    context.connectEventsWext(publisher);
    context.startEventLoop();
  }
  void TearDown() override { run("kill $(cat /tmp/iw-event.pid) || true"); }

  // Takes events off the queue, as a daemon's consumer thread does, until one
  // of type T satisfies accept; the text of every event taken is kept.
  template <class T>
  Poco::AutoPtr<T> await(std::function<bool(T const&)> const& accept = [](T const&) { return true; }) {
    for (auto const end = Clock::now() + 60s; Clock::now() < end;) {
      Poco::AutoPtr<Poco::Notification> event(queue.waitDequeueNotification(500));
      auto const* nl = dynamic_cast<Event::Nl80211Event const*>(event.get());
      auto const* wext = dynamic_cast<Event::WextEvent const*>(event.get());
      if (nl != nullptr || wext != nullptr) texts.push_back(nl != nullptr ? nl->toString() : wext->toString());
      if (auto* typed = dynamic_cast<T*>(event.get()); typed != nullptr && accept(*typed)) return {typed, true};
    }
    ADD_FAILURE() << "no " << typeid(T).name() << " within 60 s; saw:\n" << fmt::format("{}", fmt::join(texts, "\n"));
    throw std::runtime_error("no event");
  }

  TraceCapture trace;
  Poco::NotificationQueue queue;
  NyEvent::Publisher publisher{queue};
  Context context;
  std::vector<std::string> texts;
  std::size_t iwStart = 0;
};

TEST_F(KernelEvents, ScriptedRunInKernelOrder) {
  run("iw reg set DE");  // a global change, which names no radio: only an error line
  run("iw phy phy0 interface add mon0 type monitor");
  auto const created = await<Event::IfcCreated>([](auto const& e) { return e.info().name == "mon0"; });
  expectAsIwPrints(
      "iw dev mon0 info", [&] { return std::vector{created->info()}; }, interfaceView);
  EXPECT_FALSE(created->fourAddr());
  EXPECT_TRUE(created->toString().starts_with("ifc created: ")) << created->toString();
  run("iw dev mon0 del");
  auto const deleted = await<Event::IfcDeleted>([](auto const& e) { return e.info().name == "mon0"; });
  EXPECT_EQ(deleted->info().wdev.id(), created->info().wdev.id());

  run("ip link set wlan1 up && iw dev wlan1 scan trigger freq 2412 5180");
  auto const started = await<Event::ScanStarted>();
  EXPECT_EQ(started->toString(), "scan started for VAP wlan1, scanned freqs [2412, 5180]");
  EXPECT_EQ(started->ssids(), std::vector<std::vector<std::byte>>(1));  // the wildcard SSID
  EXPECT_EQ(await<Event::ScanFinished>()->toString(), "scan finished for VAP wlan1, scanned freqs [2412, 5180]");
  // A scan of every channel takes at least five seconds: long enough to
  // abort, if the abort follows the trigger at once (the kernel has sent the
  // start when the trigger returns), not after the event's way to the queue.
  run("iw dev wlan1 scan trigger && iw dev wlan1 scan abort");
  await<Event::ScanStarted>();
  auto const aborted = await<Event::ScanAborted>();
  EXPECT_EQ(aborted->vap().name(), "wlan1");
  EXPECT_GT(aborted->freqs().size(), 20U);

  {
    Daemon const ap("hostapd", "wlan0",
                    "ssid=ny80211-events\ncountry_code=DE\nhw_mode=a\nchannel=36\nieee80211n=1\nieee80211ac=1\n"
                    "ht_capab=[HT40+]\nvht_oper_chwidth=1\nvht_oper_centr_freq_seg0_idx=42\n");
    ap.awaitUp();
    auto const channel = [&] { return getInterface(context.commands(), "wlan0").at(0).channel.value().toString(); };
    EXPECT_EQ(channel(), "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 MHz");
    EXPECT_NE(run("hostapd_cli -p /run/hostapd -i wlan0 chan_switch 5 5745 sec_channel_offset=1 center_freq1=5775 "
                  "bandwidth=80 vht")
                  .find("OK"),
              std::string::npos);
    EXPECT_EQ(await<Event::ChannelSwitched>()->toString(),
              "VAP wlan0 switched to channel: primary 5745 MHz (#149) / center 5775 MHz (#155) / width 80 MHz");
    EXPECT_EQ(channel(), "primary 5745 MHz (#149) / center 5775 MHz (#155) / width 80 MHz");
    expectAsIwPrints(
        "iw dev wlan0 info", [&] { return getInterface(context.commands(), "wlan0"); }, interfaceView);
    // The kernel reports an access point it stops itself, not one that
    // hostapd stops.
    run("ip link set wlan0 down");
    auto const stopped = await<Event::ApStopped>();
    EXPECT_EQ(stopped->toString(), fmt::format("AP stopped (phy 0 / ifc {} / wdev {})",
                                               NetIfcID(std::string("wlan0")).index(), stopped->wdev().id()));
    // With no interface in use the kernel goes back to the world domain and
    // at once to the user's DE again, before it takes the next command.
    await<Event::RegDomainChanged>([](auto const& e) { return e.initiator() == NL80211_REGDOM_SET_BY_CORE; });
  }

  // Its "driver" asks for FR while the user set DE: the kernel intersects.
  createHwsimRadio("FR");
  await<Event::IfcCreated>([](auto const& e) { return e.info().wiphy.index() == 2; });
  EXPECT_EQ(await<Event::RegDomainChanged>([](auto const& e) {
              return e.initiator() == NL80211_REGDOM_SET_BY_DRIVER;
            })->toString(),
            "regdomain (type intersection) for phy 2 changed by driver");

  // A last monitor interface: what the kernel sent before it, both sides
  // have seen once they have seen it; what comes after is left out.
  run("iw phy phy1 interface add end0 type monitor");
  auto const end = await<Event::IfcCreated>([](auto const& e) { return e.info().name == "end0"; });
  std::vector<std::string> iw;
  ASSERT_TRUE(waitFor([&] { return !(iw = iwThrough("end0 (phy #1): new")).empty(); }));
  auto lines = trace.lines();
  auto const last = std::find_if(lines.begin(), lines.end(), [&](TraceLine const& line) {
    return line.level == trace::Level::Info && line.text == end->toString();
  });
  ASSERT_NE(last, lines.end());
  lines.erase(last + 1, lines.end());

  // Every event was logged once, before it was published, in the same order;
  // the decoder's errors are the two messages it can't read: the global
  // regulatory change names no radio, the virtual radio's wiphy message has
  // no antenna masks.
  std::map<trace::Level, std::vector<std::string>> logged;
  for (auto const& line : lines) logged[line.level].push_back(line.text);
  EXPECT_EQ(logged[trace::Level::Info], texts);
  EXPECT_EQ(logged[trace::Level::Err],
            (std::vector<std::string>{
                "Error processing nl80211 event NL80211_CMD_REG_CHANGE: attribute not found (type 1)",
                "Error processing nl80211 event NL80211_CMD_REG_CHANGE: attribute not found (type 1)",
                "Error processing nl80211 event NL80211_CMD_NEW_WIPHY: attribute not found (type 106)"}));
  EXPECT_EQ(lines.front().text, logged[trace::Level::Err].front());

  // The kernel's order, as iw saw it too.
  std::vector<std::string> ours, theirs;
  for (auto const& line : lines) {
    if (auto kind = kindOf(line.text, false); !kind.empty() && line.provider == trace::Provider::Event) {
      ours.push_back(kind);
    }
  }
  for (auto const& line : std::vector(iw.begin() + static_cast<std::ptrdiff_t>(iwStart), iw.end())) {
    if (auto kind = kindOf(line, true); !kind.empty()) theirs.push_back(kind);
  }
  EXPECT_EQ(ours, theirs) << run("cat /tmp/iw-event.txt");
}

}  // namespace
