// Commands from four threads at once on one Context's command socket while its
// loop receives nl80211 events (an interface made and deleted over and over by
// a fifth thread) and driver events (multicast on the link group by a peer):
// every reply reaches the thread that asked, every event the consumer.
// NY80211_STRESS_SECONDS sets the length (10 s unless set; through vm-run:
// `env NY80211_STRESS_SECONDS=60 <binary>`).
#include <atomic>

#include "KernelHelpers.h"
#include "LinkPeer.h"
#include "TraceCapture.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;
using Replies = std::vector<std::pair<int, std::uint32_t>>;

// The command and the index (attr) of each reply.
Replies exchange(CommandSocket& socket, GenlMessage&& command, int attr) {
  Replies got;
  socket.sendMessage(command, [&](nl_msg* reply) {
    GenlMessage const message(reply);
    got.emplace_back(message.commandID(), message.attributes().tryGetU32(attr).value_or(~0U));
    return NL_OK;
  });
  return got;
}

TEST(KernelStress, ConcurrentCommandsWhileEventsFlow) {
  char const* const length = std::getenv("NY80211_STRESS_SECONDS");
  auto const end = Clock::now() + std::chrono::seconds(length != nullptr ? std::stoi(length) : 10);
  run("iw phy phy0 interface add stress2 type managed && iw phy phy1 interface add stress3 type managed");
  std::vector<std::pair<std::string, std::uint32_t>> const askers{
      {"wlan0", 0}, {"wlan1", 1}, {"stress2", 0}, {"stress3", 1}};
  std::vector<std::vector<std::string>> faults(askers.size() + 1);
  std::vector<std::uint64_t> rounds(askers.size() + 1);  // the last, of the interface made and deleted
  TraceCapture trace;
  Poco::NotificationQueue queue;
  std::atomic<std::uint64_t> created{0}, deleted{0}, driver{0}, markers{0}, driverSent{0};
  std::thread consumer([&] {
    for (Poco::AutoPtr<Poco::Notification> event;;) {
      event = queue.waitDequeueNotification();
      if (auto const* e = dynamic_cast<Event::IfcCreated const*>(event.get())) created += e->info().name == "churn0";
      if (auto const* e = dynamic_cast<Event::IfcDeleted const*>(event.get())) deleted += e->info().name == "churn0";
      if (auto const* e = dynamic_cast<Event::CacStarted const*>(event.get())) {
        ++(e->frequency() == 5500 ? markers : driver);
      }
      if (dynamic_cast<Event::Nl80211Event*>(event.get()) == nullptr &&
          dynamic_cast<Event::WextEvent*>(event.get()) == nullptr) {
        return;  // not an event: the end
      }
    }
  });
  LinkPeer peer;
  {
    Context context;
    context.connectCommands();
    context.connectEventsNl80211(NyEvent::Publisher(queue), {"config"});
    context.connectEventsWext(NyEvent::Publisher(queue));
    context.startEventLoop();
    auto& socket = context.commands();
    auto const wiphys = exchange(socket, Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump"), NL80211_ATTR_WIPHY);
    std::vector<std::thread> threads;
    threads.reserve(askers.size() + 1);
    for (std::size_t i = 0; i <= askers.size(); ++i) {
      threads.emplace_back([&, i] {
        try {
          for (; Clock::now() < end && i == askers.size(); ++rounds[i]) {  // one event each
            exchange(socket,
                     command(NL80211_CMD_NEW_INTERFACE, "new churn0",
                             {{NL80211_ATTR_WIPHY, 0}, {NL80211_ATTR_IFTYPE, NL80211_IFTYPE_MONITOR}}, "churn0"),
                     0);
            exchange(
                socket,
                command(NL80211_CMD_DEL_INTERFACE, "del churn0", {{NL80211_ATTR_IFINDEX, if_nametoindex("churn0")}}),
                0);
          }
          for (; Clock::now() < end && i < askers.size(); ++rounds[i]) {
            auto const [name, wiphy] = askers[i];
            auto const ifindex = NetIfcID(name).index();
            std::pair<Replies, Replies> const checks[] = {
                {exchange(socket, command(NL80211_CMD_GET_INTERFACE, "get", {{NL80211_ATTR_IFINDEX, ifindex}}),
                          NL80211_ATTR_IFINDEX),
                 {{NL80211_CMD_NEW_INTERFACE, ifindex}}},
                {exchange(socket, command(NL80211_CMD_GET_WIPHY, "get", {{NL80211_ATTR_WIPHY, wiphy}}),
                          NL80211_ATTR_WIPHY),
                 {{NL80211_CMD_NEW_WIPHY, wiphy}}},
                {exchange(socket, Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump"), NL80211_ATTR_WIPHY), wiphys}};
            for (auto const& check : checks) {
              if (check.first != check.second)
                faults[i].push_back(fmt::format("{}: {}, not {}", name, check.first, check.second));
            }
          }
        } catch (std::exception const& e) {
          faults[i].push_back(e.what());
        }
      });
    }
    // Driver events, up to two thousand a second, with at most 64 of them not
    // yet consumed: the loop thread, which the emulated machine gives less time
    // than it would need for all, must not be flooded here.
    for (; Clock::now() < end; std::this_thread::sleep_for(500us)) {
      if (driverSent - driver < 64) {
        multicastCacStarted(peer, 5180);  // 5500: the marker
        ++driverSent;
      }
    }
    for (auto& thread : threads) thread.join();
    // The marker comes after every driver event; the last deletion's event
    // follows its acknowledgement.
    multicastCacStarted(peer, 5500);
    waitFor([&] { return markers > 0 && deleted >= rounds.back(); }, 30s);
  }
  queue.enqueueNotification(new Poco::Notification);
  consumer.join();
  run("iw dev stress2 del && iw dev stress3 del");
  std::cout << fmt::format("rounds of each thread {}; {} + {} interface events; {} driver events sent, {} received\n",
                           rounds, created.load(), deleted.load(), driverSent.load(), driver.load());
  for (std::size_t i = 0; i < faults.size(); ++i) {
    EXPECT_GT(rounds[i], 0U) << i;
    EXPECT_EQ(faults[i], std::vector<std::string>{});
  }
  // Nothing lost, and so no line about the event sockets.
  EXPECT_EQ(markers, 1U);
  EXPECT_EQ(created, rounds.back());
  EXPECT_EQ(deleted, rounds.back());
  EXPECT_EQ(driver, driverSent);
  auto errors = trace.lines();
  std::erase_if(errors, [](TraceLine const& line) { return line.level != trace::Level::Err; });
  EXPECT_EQ(errors, std::vector<TraceLine>{});
}

}  // namespace
