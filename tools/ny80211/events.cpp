// events [GROUP...]: every event the library delivers from the nl80211
// groups and the driver's wireless-extension events, one line each as it
// comes, until SIGINT or SIGTERM. The lines go to standard output; what the
// tool says about itself goes to standard error.
#include "ny80211/Events.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <fmt/ranges.h>
#include <linux/nl80211.h>
#include <pthread.h>

#include "EventPrinter.h"
#include "NyEvent/Publisher.h"
#include "Tool.h"
#include "ny80211/Context.h"
#include "ny80211/WextEvents.h"

namespace Tool {
namespace {

constexpr std::array<std::string_view, 7> knownGroups{
    NL80211_MULTICAST_GROUP_CONFIG,   NL80211_MULTICAST_GROUP_SCAN,   NL80211_MULTICAST_GROUP_REG,
    NL80211_MULTICAST_GROUP_MLME,     NL80211_MULTICAST_GROUP_VENDOR, NL80211_MULTICAST_GROUP_NAN,
    NL80211_MULTICAST_GROUP_TESTMODE,
};

// Blocks SIGINT and SIGTERM in this thread and the threads it starts, so
// that they reach only sigwait; the old mask comes back at the end.
class StopSignals {
 public:
  StopSignals() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set_, &old_);
  }
  ~StopSignals() { pthread_sigmask(SIG_SETMASK, &old_, nullptr); }
  StopSignals(StopSignals const&) = delete;
  StopSignals& operator=(StopSignals const&) = delete;

  void wait() const {
    int signal = 0;
    while (sigwait(&set_, &signal) != 0) {
    }
  }

 private:
  sigset_t set_{};
  sigset_t old_{};
};

}  // namespace

void events(Args args, Io& io) {
  std::vector<std::string> groups(args.begin(), args.end());
  if (groups.empty()) groups = {"config", "scan", "regulatory", "mlme"};
  for (auto const& group : groups) {
    if (std::find(knownGroups.begin(), knownGroups.end(), group) == knownGroups.end()) {
      throw UsageError(
          fmt::format("unknown group '{}' (one of {})", group, fmt::join(knownGroups, ", ")));
    }
  }

  // Before any thread starts, so that each inherits the mask.
  StopSignals const stop;
  // The queue outlives the context whose loop publishes on it.
  Poco::NotificationQueue queue;
  NyEvent::Publisher const publisher(queue);
  Ny80211::Context context;
  context.connectEventsNl80211(publisher, groups);
  context.connectEventsWext(publisher);
  context.startEventLoop();

  std::size_t seen = 0;
  std::thread consumer([&queue, &seen, &io] { seen = Example::printEvents(queue, io.out); });
  fmt::print(io.err,
             "ny80211 events: listening to nl80211 groups {} and wireless-extension events "
             "(SIGINT or SIGTERM stops)\n",
             fmt::join(groups, " "));
  io.err.flush();
  stop.wait();

  // The loop publishes nothing once it is joined, so the end marker comes
  // after the last event.
  context.stopEventLoop();
  queue.enqueueNotification(new Example::EndOfEvents);
  consumer.join();
  fmt::print(io.err, "ny80211 events: stopped; events seen: {}\n", seen);
}

}  // namespace Tool
