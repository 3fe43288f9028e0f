#include <csignal>
#include <cstdint>
#include <fstream>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/NotificationQueue.h>
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include "LinkPeer.h"
#include "ny80211/Context.h"
#include "ny80211/WextEvents.h"

namespace Ny80211 {
namespace {

using testing::LinkPeer;
using testing::multicastCacStarted;
using ::testing::ThrowsMessage;

// Takes n events off the queue on a thread of its own, as a daemon's
// consumer does, and returns their frequencies.
std::vector<unsigned> consume(Poco::NotificationQueue& queue, int n) {
  std::vector<unsigned> frequencies;
  std::thread consumer([&] {
    for (int i = 0; i < n; ++i) {
      Poco::AutoPtr<Poco::Notification> event(queue.waitDequeueNotification(10000));
      if (event.isNull()) return;
      auto const* cac = dynamic_cast<Event::CacStarted const*>(event.get());
      frequencies.push_back(cac != nullptr ? cac->frequency().Get() : 0);
    }
  });
  consumer.join();
  return frequencies;
}

std::set<std::string> threadIDs() {
  std::set<std::string> ids;
  DIR* dir = opendir("/proc/self/task");
  while (dirent const* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ids.insert(entry->d_name);
  }
  closedir(dir);
  return ids;
}

// A thread's blocked signals as the kernel reports them.
std::uint64_t blockedSignals(std::string const& tid) {
  std::ifstream status("/proc/self/task/" + tid + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("SigBlk:", 0) == 0) return std::stoull(line.substr(7), nullptr, 16);
  }
  throw std::runtime_error("no SigBlk for thread " + tid);
}

class ContextTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::enterOwnNetworkNamespace()) GTEST_SKIP() << "needs root for a network namespace";
  }
  Poco::NotificationQueue queue;
  NyEvent::Publisher publisher{queue};
};

TEST(Context, StartAndStopNeedWhatTheyStartOrStop) {
  Context context;
  EXPECT_THAT([&] { context.startEventLoop(); }, ThrowsMessage<Error>("no event socket connected"));
  EXPECT_THAT([&] { context.stopEventLoop(); }, ThrowsMessage<Error>("can't stop event loop"));
  EXPECT_THAT([&] { context.stopEventLoop(); }, ThrowsMessage<Error>("can't stop event loop"));
}

TEST_F(ContextTest, RunsPublishesInOrderAndStops) {
  Context context;
  context.connectEventsWext(publisher);
  context.startEventLoop();
  EXPECT_THAT([&] { context.startEventLoop(); }, ThrowsMessage<Error>("event loop already running"));

  // The running loop was left alone: events still arrive, in order.
  LinkPeer peer;
  std::vector<unsigned> sent;
  for (unsigned i = 0; i < 40; ++i) {
    sent.push_back(5180 + 20 * (i % 8));
    multicastCacStarted(peer, static_cast<std::uint16_t>(sent.back()));
  }
  EXPECT_EQ(consume(queue, 40), sent);

  context.stopEventLoop();
  EXPECT_THAT([&] { context.stopEventLoop(); }, ThrowsMessage<Error>("can't stop event loop"));
  // The event sockets ended with the loop.
  EXPECT_THAT([&] { context.startEventLoop(); }, ThrowsMessage<Error>("no event socket connected"));
  context.connectEventsWext(publisher);
  context.startEventLoop();
  multicastCacStarted(peer, 5500);
  EXPECT_EQ(consume(queue, 1), std::vector<unsigned>{5500});
}

TEST_F(ContextTest, DestructionStopsARunningLoop) {
  auto context = std::make_unique<Context>();
  context->connectEventsWext(publisher);
  std::set<std::string> const before = threadIDs();
  context->startEventLoop();
  EXPECT_EQ(threadIDs().size(), before.size() + 1);
  context.reset();
  EXPECT_EQ(threadIDs(), before);
}

TEST_F(ContextTest, LoopThreadBlocksAllSignalsAndTheCallersMaskStays) {
  sigset_t all;
  sigset_t original;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &original);
  std::string const self = std::to_string(gettid());
  // What "all" means to the C library, which keeps a few signals of its own.
  std::uint64_t const allBlocked = blockedSignals(self);

  sigset_t usr2;
  sigemptyset(&usr2);
  sigaddset(&usr2, SIGUSR2);
  pthread_sigmask(SIG_SETMASK, &usr2, nullptr);
  std::uint64_t const callerMask = blockedSignals(self);
  ASSERT_NE(callerMask, allBlocked);

  Context context;
  context.connectEventsWext(publisher);
  std::set<std::string> const before = threadIDs();
  context.startEventLoop();
  EXPECT_EQ(blockedSignals(self), callerMask);
  for (auto const& tid : threadIDs()) {
    if (before.count(tid) == 0) {
      EXPECT_EQ(blockedSignals(tid) & allBlocked, allBlocked) << "loop thread " << tid;
    }
  }
  context.stopEventLoop();
  pthread_sigmask(SIG_SETMASK, &original, nullptr);
}

}  // namespace
}  // namespace Ny80211
