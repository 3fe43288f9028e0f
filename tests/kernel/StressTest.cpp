// Commands from several threads at once on one Context's command socket,
// against the real nl80211 of a kernel with two virtual radios, while the
// Context's loop receives nl80211 events (an interface created and deleted
// over and over by another thread) and driver events (multicast on the link
// group by a peer): every reply reaches the thread that asked, every event
// the consumer. NY80211_STRESS_SECONDS sets the length (10 s unless set;
// through vm-run: `env NY80211_STRESS_SECONDS=60 <binary>`).
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/NotificationQueue.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "KernelHelpers.h"
#include "LinkPeer.h"
#include "TraceCapture.h"
#include "ny80211/Context.h"
#include "ny80211/Events.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/WextEvents.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
constexpr std::uint16_t driverFrequency = 5180, markerFrequency = 5500;

// Counts what a daemon's consumer thread takes off the queue.
struct Counts {
  std::atomic<std::uint64_t> created{0}, deleted{0}, driver{0}, markers{0};
};

void consume(Poco::NotificationQueue& queue, Counts& counts) {
  for (;;) {
    Poco::AutoPtr<Poco::Notification> event(queue.waitDequeueNotification());
    if (auto const* e = dynamic_cast<Event::IfcCreated const*>(event.get())) {
      counts.created += e->info().name == "churn0";
    } else if (auto const* e = dynamic_cast<Event::IfcDeleted const*>(event.get())) {
      counts.deleted += e->info().name == "churn0";
    } else if (auto const* e = dynamic_cast<Event::CacStarted const*>(event.get())) {
      ++(e->frequency() == markerFrequency ? counts.markers : counts.driver);
    } else if (dynamic_cast<Event::Nl80211Event const*>(event.get()) == nullptr &&
               dynamic_cast<Event::WextEvent const*>(event.get()) == nullptr) {
      return;  // not an event: the end
    }
  }
}

// One sender thread: its own interface, and the radio it is on.
struct Asker {
  std::string ifname;
  std::uint32_t wiphy;
  std::uint64_t commands = 0, replies = 0;
  std::vector<std::string> faults{};
};

// Sends the command and checks each reply with check, which returns what is
// wrong with it or nothing; returns the number of replies.
template <class Check>
std::size_t exchange(CommandSocket& socket, Nl80211Command& command, Asker& asker, Check const& check) {
  std::size_t replies = 0;
  socket.sendMessage(command, [&](nl_msg* reply) {
    ++replies;
    try {
      GenlMessage const message(reply);
      if (auto fault = check(message); !fault.empty()) asker.faults.push_back(fault);
    } catch (std::exception const& e) {
      asker.faults.push_back(fmt::format("{}: {}", command.debugInfoString(), e.what()));
    }
    return NL_OK;
  });
  ++asker.commands;
  asker.replies += replies;
  return replies;
}

void ask(CommandSocket& socket, Asker& asker) {
  NetIfcID const ifc(asker.ifname);
  Nl80211Command get(NL80211_CMD_GET_INTERFACE, fmt::format("get {}", ifc));
  ifc.writeTo(get.attributes());
  auto const one = [&](std::size_t n, char const* what) {
    if (n != 1) asker.faults.push_back(fmt::format("{} replies to {} of {}", n, what, asker.ifname));
  };
  one(exchange(socket, get, asker,
               [&](GenlMessage const& m) -> std::string {
                 auto const name = m.attributes().getString(NL80211_ATTR_IFNAME);
                 if (m.commandID() == NL80211_CMD_NEW_INTERFACE && name == asker.ifname &&
                     m.attributes().getU32(NL80211_ATTR_IFINDEX) == ifc.index()) {
                   return {};
                 }
                 return fmt::format("{} got {} for {}", asker.ifname, cmd_fmt(m.commandID()), name);
               }),
      "get interface");

  WiPhyID const phy(std::string(fmt::format("phy{}", asker.wiphy)));
  Nl80211Command wiphy(NL80211_CMD_GET_WIPHY, fmt::format("get {}", phy));
  phy.writeTo(wiphy.attributes());
  auto const isWiphy = [&](GenlMessage const& m, std::set<std::uint32_t> const& expected) -> std::string {
    auto const index = m.attributes().getU32(NL80211_ATTR_WIPHY);
    if (m.commandID() == NL80211_CMD_NEW_WIPHY && expected.count(index) != 0) return {};
    return fmt::format("{} got {} of wiphy {}", asker.ifname, cmd_fmt(m.commandID()), index);
  };
  one(exchange(socket, wiphy, asker, [&](auto const& m) { return isWiphy(m, {asker.wiphy}); }), "get wiphy");

  auto dump = Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump wiphys");
  if (exchange(socket, dump, asker, [&](auto const& m) { return isWiphy(m, {0, 1}); }) < 2) {
    asker.faults.push_back(asker.ifname + ": a wiphy dump without both radios");
  }
}

// A monitor interface on phy0, created and deleted: one event each.
void churn(CommandSocket& socket) {
  Nl80211Command create(NL80211_CMD_NEW_INTERFACE, "new monitor churn0");
  WiPhyID(std::string("phy0")).writeTo(create.attributes());
  create.attributes().addString(NL80211_ATTR_IFNAME, "churn0");
  create.attributes().addU32(NL80211_ATTR_IFTYPE, NL80211_IFTYPE_MONITOR);
  socket.sendMessage(create, [](nl_msg*) { return NL_OK; });
  Nl80211Command remove(NL80211_CMD_DEL_INTERFACE, "delete churn0");
  NetIfcID(std::string("churn0")).writeTo(remove.attributes());
  socket.sendMessage(remove, [](nl_msg*) { return NL_OK; });
}

TEST(KernelStress, ConcurrentCommandsWhileEventsFlow) {
  char const* const length = std::getenv("NY80211_STRESS_SECONDS");
  auto const seconds = std::chrono::seconds(length != nullptr ? std::stoi(length) : 10);
  run("iw phy phy0 interface add stress2 type managed");
  run("iw phy phy1 interface add stress3 type managed");
  std::vector<Asker> askers{{"wlan0", 0}, {"wlan1", 1}, {"stress2", 0}, {"stress3", 1}};

  TraceCapture trace;
  Poco::NotificationQueue queue;
  Counts counts;
  std::thread consumer([&] { consume(queue, counts); });
  LinkPeer peer;
  std::uint64_t cycles = 0, driverSent = 0;
  std::vector<std::string> churnFaults;
  {
    Context context;
    context.connectCommands();
    context.connectEventsNl80211(NyEvent::Publisher(queue), {"config"});
    context.connectEventsWext(NyEvent::Publisher(queue));
    context.startEventLoop();

    auto const end = Clock::now() + seconds;
    std::vector<std::thread> threads;
    threads.reserve(askers.size());
    for (auto& asker : askers) {
      threads.emplace_back([&] {
        try {
          while (Clock::now() < end) ask(context.commands(), asker);
        } catch (std::exception const& e) {
          asker.faults.push_back(e.what());
        }
      });
    }
    threads.emplace_back([&] {
      try {
        for (; Clock::now() < end; ++cycles) churn(context.commands());
      } catch (std::exception const& e) {
        churnFaults.push_back(e.what());
      }
    });
    // Driver events, up to two thousand a second, with at most 64 of them
    // not yet consumed: the loop thread, which the emulated machine gives
    // less time than it would need for all, must not be flooded here.
    while (Clock::now() < end) {
      if (driverSent - counts.driver < 64) {
        multicastCacStarted(peer, driverFrequency);
        ++driverSent;
      }
      std::this_thread::sleep_for(500us);
    }
    for (auto& thread : threads) thread.join();

    // The marker comes after every driver event; the last deletion's event
    // follows its acknowledgement.
    multicastCacStarted(peer, markerFrequency);
    for (int wait = 0; wait < 3000 && (counts.markers == 0 || counts.deleted < cycles); ++wait) {
      std::this_thread::sleep_for(10ms);
    }
  }
  queue.enqueueNotification(new Poco::Notification);
  consumer.join();
  run("iw dev stress2 del");
  run("iw dev stress3 del");

  for (auto const& asker : askers) {
    EXPECT_GT(asker.commands, 0U) << asker.ifname;
    EXPECT_EQ(asker.faults, std::vector<std::string>{}) << asker.ifname;
    std::cout << fmt::format("{}: {} commands, {} replies checked\n", asker.ifname, asker.commands, asker.replies);
  }
  std::cout << fmt::format(
      "{} interfaces created and deleted: {} + {} events; {} driver events "
      "sent, {} received\n",
      cycles, counts.created.load(), counts.deleted.load(), driverSent, counts.driver.load());
  EXPECT_EQ(churnFaults, std::vector<std::string>{});
  // Nothing lost, and so no line about the event sockets.
  EXPECT_EQ(counts.markers, 1U);
  EXPECT_EQ(counts.created, cycles);
  EXPECT_EQ(counts.deleted, cycles);
  EXPECT_EQ(counts.driver, driverSent);
  std::vector<TraceLine> errors;
  for (auto const& line : trace.lines()) {
    if (line.level == trace::Level::Err) errors.push_back(line);
  }
  EXPECT_EQ(errors, std::vector<TraceLine>{});
}

}  // namespace
