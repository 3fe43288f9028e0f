// event_monitor [NAME [AP]]: a daemon that prints every event the library
// delivers, nl80211 (config, scan, regulatory and MLME groups) and the
// driver's wireless-extension events, one line each as it comes. SIGUSR1
// prints the scan table of interface NAME (default wlan0), SIGUSR2 the
// station table and channel survey of interface AP (default wlan0); SIGTERM
// or SIGINT stops it, and it prints how many events it saw.
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <thread>

#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <fmt/format.h>
#include <pthread.h>

#include "EventPrinter.h"
#include "NyEvent/Publisher.h"
#include "ScanTable.h"
#include "StationTable.h"
#include "ny80211/Context.h"
#include "ny80211/Events.h"
#include "ny80211/Identifiers.h"
#include "ny80211/WextEvents.h"

namespace {

// Prints what table makes of interface name, or says why it could not.
template <class Table>
void printTable(Ny80211::Context& context, char const* what, std::string const& name,
                Table const& table) {
  try {
    // Looked up now, not at start: the interface may have come back since
    // with another index.
    Ny80211::NetIfcID const interface(name);
    auto const text = table(context.commands(), interface);
    fmt::print("{}", text);
    std::fflush(stdout);
  } catch (std::exception const& e) {
    // A failed command is no reason to stop listening.
    std::fprintf(stderr, "event_monitor: %s of %s: %s\n", what, name.c_str(), e.what());
  }
}

// Runs step, or says which step failed.
bool connect(char const* what, std::function<void()> const& step) {
  try {
    step();
    return true;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "event_monitor: cannot connect %s: %s\n", what, e.what());
    return false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string const name = argc > 1 ? argv[1] : "wlan0";
  std::string const ap = argc > 2 ? argv[2] : "wlan0";

  // Blocked before any thread starts, so that every thread inherits the mask
  // and the signals reach only the sigwait below.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  sigaddset(&signals, SIGUSR2);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  // The queue outlives the context whose loop publishes on it.
  Poco::NotificationQueue queue;
  NyEvent::Publisher const publisher(queue);
  Ny80211::Context context;
  bool const connected =
      connect("the command socket", [&] { context.connectCommands(); }) &&
      connect("the nl80211 events",
              [&] {
                context.connectEventsNl80211(publisher, {"config", "scan", "regulatory", "mlme"});
              }) &&
      connect("the wireless-extension events", [&] { context.connectEventsWext(publisher); }) &&
      connect("the event loop", [&] { context.startEventLoop(); });
  if (!connected) return 1;

  std::size_t seen = 0;
  std::thread consumer([&queue, &seen] { seen = Example::printEvents(queue, std::cout); });
  fmt::print(
      "event_monitor: listening (SIGUSR1: scan table of {}, SIGUSR2: stations and survey of {}, "
      "SIGTERM: stop)\n",
      name, ap);
  std::fflush(stdout);

  for (;;) {
    int signal = 0;
    if (sigwait(&signals, &signal) != 0) continue;
    if (signal == SIGUSR1) {
      printTable(context, "scan table", name, [&name](auto& socket, auto const& interface) {
        return fmt::format("scan table of {}:\n{}", name, Example::scanTable(socket, interface));
      });
    } else if (signal == SIGUSR2) {
      printTable(context, "stations and survey", ap, Example::stationsAndSurvey);
    } else {
      break;
    }
  }

  // The loop publishes nothing once it is joined, so the end marker comes
  // after the last event.
  context.stopEventLoop();
  queue.enqueueNotification(new Example::EndOfEvents);
  consumer.join();
  fmt::print("event_monitor: stopped; events seen: {}\n", seen);
  return 0;
}
