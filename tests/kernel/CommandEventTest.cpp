// Two virtual radios: the wiphys as nl80211 sends them and iw lists them, the kernel's refusals, then the
// event path through a scripted run, `iw event` beside it, while four threads send commands on its socket.
#include <atomic>

#include <netlink/attr.h>

#include "KernelHelpers.h"
#include "TraceCapture.h"
#include "ny80211/WextEvents.h"
#include "ny80211/WiPhyInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// Each kind of notification as iw says it and, each in a pair, as the library does.
std::vector<std::pair<std::string, std::string>> const kinds{
    {"new interface", "ifc created: "},
    {"del interface", "ifc deleted: "},
    {"scan started", "scan started for "},
    {"scan finished", "scan finished for "},
    {"scan aborted", "scan aborted for "},
    {"regulatory domain change", "NL80211_CMD_REG_CHANGE"},
    {"regulatory domain change", "regdomain "},
    {": channel switch freq=", " switched to channel: "},
    {": stop ap", "AP stopped "},
    {": renamed to ", "NL80211_CMD_NEW_WIPHY"},
};

std::vector<std::string> kindsOf(std::vector<std::string> const& lines, bool iw) {
  std::vector<std::string> found;
  for (auto const& line : lines) {
    auto const kind = std::find_if(kinds.begin(), kinds.end(), [&](auto const& k) {
      return line.find(iw ? k.first : k.second) != std::string::npos;
    });
    if (kind != kinds.end()) found.push_back(kind->first);
  }
  return found;
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

// Every reply read as far as it goes: the virtual radios have no antenna
// masks, so the reader fails on the first it requires (missing, where the
// reply is a whole wiphy).
std::vector<WiPhyInfo> wiphys(CommandSocket& socket, GenlMessage&& command, std::string const& missing) {
  std::vector<WiPhyInfo> infos;
  socket.sendMessage(command, [&](nl_msg* reply) {
    GenlMessage const message(reply);
    auto& info = infos.emplace_back();
    EXPECT_EQ(message.commandID(), NL80211_CMD_NEW_WIPHY);
    try {
      info.readFrom(message.attributes());
      ADD_FAILURE() << "read without antenna masks: " << info.toString();
    } catch (AttrNotFound const& e) {
      EXPECT_EQ(missing.empty() ? e.what() : missing, e.what());
    }
    // The old, unsplit dump puts one wiphy per message into a buffer of fixed
    // size: one that no longer fits after another comes without bands.
    auto const* bands = message.attributes().tryFind(NL80211_ATTR_WIPHY_BANDS);
    EXPECT_TRUE(missing.empty() || !info.bands.bands.empty() || (bands != nullptr && nla_len(bands) == 0)) << info.name;
    return NL_OK;
  });
  return infos;
}

TEST(KernelCommands, WiphysByNameIndexAndDumpAsIwListsThem) {
  CommandSocket socket;
  EXPECT_FALSE(socket.isConnected());
  socket.connect();  // resolves the family
  ASSERT_TRUE(socket.isConnected());
  EXPECT_EQ(fmt::format("{}", WiPhyID(std::string("phy1"))), "wiphy phy1 (ID 1)");
  std::vector<std::string> names;  // of "Wiphy phy0", ...
  for (auto const& record : iwRecords("iw list", "Wiphy ", ':')) names.push_back(record.head.substr(6));
  for (auto const& name : names) {
    WiPhyID const phy(name);
    Nl80211Command get(NL80211_CMD_GET_WIPHY, fmt::format("get {}", phy));
    phy.writeTo(get.attributes());
    auto const infos = wiphys(socket, std::move(get), "attribute not found (type 106)");
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_EQ(infos[0].name, name);
    EXPECT_EQ(infos[0].id.index(), phy.index());
    EXPECT_FALSE(infos[0].bands.bands.empty());
  }
  // The dump's order is the kernel's own; one wiphy at least comes whole.
  std::vector<std::string> dumped;
  int whole = 0;
  for (auto const& info :
       wiphys(socket, Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump"), "attribute not found (type 106)")) {
    dumped.push_back(info.name);
    whole += info.bands.bands.empty() ? 0 : 1;
  }
  std::sort(dumped.begin(), dumped.end());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(dumped, names);
  EXPECT_GE(names.size(), 2U);
  EXPECT_GE(whole, 1);
  // The parts of a split dump are no whole records.
  auto split = Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump split");
  split.attributes().addFlag(NL80211_ATTR_SPLIT_WIPHY_DUMP, true);
  EXPECT_GT(wiphys(socket, std::move(split), "").size(), names.size());
}

// Each refusal reaches the caller with the kernel's words, logged once as a
// warning, and leaves the socket good for the next command.
TEST(KernelCommands, RefusalsCarryTheKernelsWords) {
  CommandSocket socket;
  socket.connect();
  std::pair<Nl80211Command, char const*> rows[] = {
      {command(NL80211_CMD_GET_INTERFACE, "get ifindex 9999", {{NL80211_ATTR_IFINDEX, 9999}}),
       "Netlink error: No such device (-19)"},
      {command(NL80211_CMD_NEW_INTERFACE, "new interface without name",
               {{NL80211_ATTR_WIPHY, 0}, {NL80211_ATTR_IFTYPE, NL80211_IFTYPE_MONITOR}}),
       "Netlink error: Invalid argument (-22)"},
      {command(NL80211_CMD_NEW_INTERFACE, "new interface of type 99",
               {{NL80211_ATTR_WIPHY, 0}, {NL80211_ATTR_IFTYPE, 99}}, "bad0"),
       "Netlink error: Numerical result out of range (-34) [integer out of range]"},
      {Cmd::getStation(NetIfcID(std::string("wlan0")), MacAddress({2, 0, 0, 0, 0x99, 0})),
       "Netlink error: No such file or directory (-2)"}};
  for (auto& [refused, error] : rows) {
    SCOPED_TRACE(refused.debugInfoString());
    TraceCapture capture;
    EXPECT_THROW(
        try { socket.sendMessage(refused, [](nl_msg*) { return NL_OK; }); } catch (CmdFailure const& e) {
          EXPECT_EQ(e.what(), std::string(error) + "; failed command: " + refused.debugInfoString());
          throw;
        },
        CmdFailure);
    ASSERT_EQ(capture.lines().size(), 1U);
    EXPECT_EQ(capture.lines()[0].level, trace::Level::Warn);
    EXPECT_EQ(getInterface(socket, "wlan0").size(), 1U);  // the socket still good
  }
}

class KernelEvents : public ::testing::Test {
 protected:
  void SetUp() override {
    // iw joins its groups late: an interface made again until iw shows it tells
    // when it listens, a second that stays marks where the run starts.
    run("iw event -t > /tmp/iw-event.txt 2>&1 & echo $! > /tmp/iw-event.pid");
    ASSERT_TRUE(waitFor([] {
      run("iw dev probe0 del 2>/dev/null; iw phy phy1 interface add probe0 type monitor");
      return waitFor([] { return !iwThrough("probe0 (phy #1): new").empty(); }, 1s);
    }));
    run("iw dev probe0 del && iw phy phy1 interface add start0 type monitor");
    ASSERT_TRUE(waitFor([&] { return (iwStart = iwThrough("start0 (phy #1): new").size()) > 0; }));
    context.connectCommands();
    context.connectEventsNl80211(NyEvent::Publisher(queue), {"config", "scan", "regulatory", "mlme"});
    context.connectEventsWext(NyEvent::Publisher(queue));
    context.startEventLoop();
    for (std::uint32_t t = 0; t < 4; ++t) askers.emplace_back([this, t] { ask(t % 2, faults[t], rounds[t]); });
  }
  void TearDown() override {
    stop = true;
    for (auto& asker : askers) asker.join();
    for (int t = 0; t < 4; ++t)
      EXPECT_TRUE(rounds[t] > 0 && faults[t].empty()) << rounds[t] << fmt::format(" {}", faults[t]);
    run("kill $(cat /tmp/iw-event.pid) || true");
  }

  // wlan<phy>'s interface and the wiphy dump (a third radio comes on the way)
  // until the run ends, each reply the thread's own.
  void ask(std::uint32_t phy, std::vector<std::string>& faults, std::uint64_t& rounds) {
    struct Wiphy {
      explicit Wiphy(AttrStream const& attrs) : index(attrs.getU32(NL80211_ATTR_WIPHY)) {}
      std::uint32_t index;
    };
    auto const ifindex = NetIfcID("wlan" + std::to_string(phy)).index();
    for (auto& socket = context.commands(); !stop; ++rounds) {
      try {
        auto const got = replies<InterfaceInfo>(
            socket, command(NL80211_CMD_GET_INTERFACE, "get", {{NL80211_ATTR_IFINDEX, ifindex}}));
        auto const all = replies<Wiphy>(socket, Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump"));
        // The kernel resumes a dump by position and puts a new radio first in its list: a dump across the
        // third radio's arrival may send one wiphy twice. Every wiphy must still be one of this machine's.
        std::set<std::uint32_t> indices;
        for (auto const& wiphy : all) indices.insert(wiphy.index);
        if (got.size() != 1 || got[0].ifc.index() != ifindex || indices.count(0) + indices.count(1) != 2 ||
            *indices.rbegin() > 2) {
          faults.push_back(fmt::format("{} replies for {}, {} wiphys", got.size(), ifindex, all.size()));
        }
      } catch (std::exception const& e) {
        faults.push_back(e.what());
      }
    }
  }

  // Takes events off the queue, as a daemon does, until one of type T
  // satisfies accept; the text of each is kept.
  template <class T>
  Poco::AutoPtr<T> await(std::function<bool(T const&)> const& accept = [](T const&) { return true; }) {
    for (auto const end = Clock::now() + 60s; Clock::now() < end;) {
      Poco::AutoPtr<Poco::Notification> event(queue.waitDequeueNotification(500));
      auto const* nl = dynamic_cast<Event::Nl80211Event const*>(event.get());
      auto const* wext = dynamic_cast<Event::WextEvent const*>(event.get());
      if (nl != nullptr || wext != nullptr) texts.push_back(nl != nullptr ? nl->toString() : wext->toString());
      if (auto* typed = dynamic_cast<T*>(event.get()); typed != nullptr && accept(*typed)) return {typed, true};
    }
    throw std::runtime_error(fmt::format("no {} within 60 s after:\n{}", typeid(T).name(), fmt::join(texts, "\n")));
  }

  TraceCapture trace;
  Poco::NotificationQueue queue;
  Context context;
  std::vector<std::string> texts;
  std::size_t iwStart = 0;
  std::atomic<bool> stop{false};
  std::vector<std::thread> askers;
  std::vector<std::string> faults[4];
  std::uint64_t rounds[4] = {};
};

TEST_F(KernelEvents, ScriptedRunInKernelOrder) {
  run("iw reg set DE");  // a global change, which names no radio: an error line
  auto& socket = context.commands();
  auto made = replies<InterfaceInfo>(
      socket, command(NL80211_CMD_NEW_INTERFACE, "new monitor mon0",
                      {{NL80211_ATTR_WIPHY, 0}, {NL80211_ATTR_IFTYPE, NL80211_IFTYPE_MONITOR}}, "mon0"));
  auto const created = await<Event::IfcCreated>([](auto const& e) { return e.info().name == "mon0"; });
  expectAsIwPrints("iw dev mon0 info", interfaceView, [&] { return made; });
  EXPECT_EQ(created->info().toString(), made.at(0).toString());
  EXPECT_FALSE(created->fourAddr());
  NetIfcID const mon0(std::string("mon0"));
  EXPECT_EQ(mon0.index(), made.at(0).ifc.index());
  Nl80211Command remove(NL80211_CMD_DEL_INTERFACE, fmt::format("delete {}", mon0));
  mon0.writeTo(remove.attributes());
  EXPECT_EQ(replies<InterfaceInfo>(socket, remove).size(), 0U);
  EXPECT_EQ(remove.debugInfoString(), "[ACK] delete netifc mon0");
  EXPECT_EQ(await<Event::IfcDeleted>([](auto const& e) { return e.info().name == "mon0"; })->info().wdev.id(),
            created->info().wdev.id());
  EXPECT_THROW(NetIfcID(std::string("mon0")), Error);

  run("ip link set wlan1 up && iw dev wlan1 scan trigger freq 2412 5180");
  auto const started = await<Event::ScanStarted>();
  EXPECT_EQ(started->toString(), "scan started for VAP wlan1, scanned freqs [2412, 5180]");
  EXPECT_EQ(started->ssids(), std::vector<std::vector<std::byte>>(1));  // the wildcard SSID
  EXPECT_EQ(await<Event::ScanFinished>()->toString(), "scan finished for VAP wlan1, scanned freqs [2412, 5180]");
  // A scan of every channel takes seconds: an abort right after the trigger stops it.
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
    std::string debug;
    auto const channel = [&] { return getInterface(socket, "wlan0", &debug).at(0).channel.value().toString(); };
    EXPECT_EQ(channel(), "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 MHz");
    EXPECT_EQ(debug, "[ACK] get netifc wlan0");  // answered once, then acknowledged
    run("hostapd_cli -p /run/hostapd -i wlan0 chan_switch 5 5745 sec_channel_offset=1 center_freq1=5775 bandwidth=80 "
        "vht | grep -q OK");
    EXPECT_EQ(await<Event::ChannelSwitched>()->toString(),
              "VAP wlan0 switched to channel: primary 5745 MHz (#149) / center 5775 MHz (#155) / width 80 MHz");
    EXPECT_EQ(channel(), "primary 5745 MHz (#149) / center 5775 MHz (#155) / width 80 MHz");
    expectAsIwPrints("iw dev wlan0 info", interfaceView, [&] { return getInterface(socket, "wlan0"); });
    // The kernel reports an access point it stops itself, not one hostapd stops.
    run("ip link set wlan0 down");
    auto const stopped = await<Event::ApStopped>();
    EXPECT_EQ(stopped->toString(), fmt::format("AP stopped (phy 0 / ifc {} / wdev {})",
                                               NetIfcID(std::string("wlan0")).index(), stopped->wdev().id()));
    // No interface in use: the kernel goes back to the world domain, then to DE.
    await<Event::RegDomainChanged>([](auto const& e) { return e.initiator() == NL80211_REGDOM_SET_BY_CORE; });
  }

  // A radio whose "driver" asks for FR while the user set DE: an intersection.
  // HWSIM_CMD_NEW_RADIO (4) with HWSIM_ATTR_REG_HINT_ALPHA2 (11).
  std::unique_ptr<nl_sock, void (*)(nl_sock*)> hwsim(nl_socket_alloc(), nl_socket_free);
  std::unique_ptr<nl_msg, void (*)(nl_msg*)> msg(nlmsg_alloc(), nlmsg_free);
  ASSERT_EQ(genl_connect(hwsim.get()), 0);
  genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, genl_ctrl_resolve(hwsim.get(), "MAC80211_HWSIM"), 0, 0, 4, 1);
  nla_put_string(msg.get(), 11, "FR");
  ASSERT_GE(nl_send_auto(hwsim.get(), msg.get()), 0);
  await<Event::IfcCreated>([](auto const& e) { return e.info().wiphy.index() == 2; });
  EXPECT_EQ(await<Event::RegDomainChanged>([](auto const& e) {
              return e.initiator() == NL80211_REGDOM_SET_BY_DRIVER;
            })->toString(),
            "regdomain (type intersection) for phy 2 changed by driver");

  // What came before a last interface both sides have seen once they see it.
  run("iw phy phy1 interface add end0 type monitor");
  auto const end = await<Event::IfcCreated>([](auto const& e) { return e.info().name == "end0"; })->toString();
  std::vector<std::string> iw;
  ASSERT_TRUE(waitFor([&] { return !(iw = iwThrough("end0 (phy #1): new")).empty(); }));
  auto lines = trace.lines();
  auto const last = std::find_if(lines.begin(), lines.end(), [&](TraceLine const& line) { return line.text == end; });
  ASSERT_NE(last, lines.end());
  lines.erase(last + 1, lines.end());
  std::map<trace::Level, std::vector<std::string>> logged;
  std::vector<std::string> events;  // the event side's lines
  for (auto const& line : lines) {
    logged[line.level].push_back(line.text);
    if (line.provider == trace::Provider::Event) events.push_back(line.text);
  }
  // Every event logged once, before it was published, in the same order; the
  // decoder's errors, first: a global regulatory change names no radio, the
  // virtual radio's wiphy has no antenna masks.
  EXPECT_EQ(logged[trace::Level::Info], texts);
  EXPECT_EQ(logged[trace::Level::Err],
            (std::vector<std::string>{
                "Error processing nl80211 event NL80211_CMD_REG_CHANGE: attribute not found (type 1)",
                "Error processing nl80211 event NL80211_CMD_REG_CHANGE: attribute not found (type 1)",
                "Error processing nl80211 event NL80211_CMD_NEW_WIPHY: attribute not found (type 106)"}));
  EXPECT_EQ(lines.front().text, logged[trace::Level::Err].front());
  // The kernel's order, as iw saw it too.
  EXPECT_EQ(kindsOf(events, false), kindsOf({iw.begin() + static_cast<std::ptrdiff_t>(iwStart), iw.end()}, true))
      << run("cat /tmp/iw-event.txt");
}

}  // namespace
