#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include "TEVPoll/EpollFD.h"
#include "TEVPoll/EventFD.h"

namespace {

using namespace std::chrono_literals;

struct Pipe {
  int fds[2]{-1, -1};
  Pipe() { EXPECT_EQ(::pipe(fds), 0); }
  ~Pipe() {
    ::close(fds[0]);
    ::close(fds[1]);
  }
  Pipe(Pipe const&) = delete;
  Pipe& operator=(Pipe const&) = delete;
  int readEnd() const { return fds[0]; }
  void put() const { ASSERT_EQ(::write(fds[1], "x", 1), 1); }
};

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the signal handler's
std::atomic<int> signalsSeen{0};
void countSignal(int) { ++signalsSeen; }

// Neither time nor signals end the wait: only a trigger from another thread does.
TEST(Epoll, TriggerFromAnotherThreadWakesTheWaiterWhichRunsTheCallback) {
  struct sigaction action {
  }, previous{};
  action.sa_handler = countSignal;  // no SA_RESTART: epoll_wait fails with EINTR
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &previous), 0);
  TEVPoll::EpollFD epoll;
  std::atomic<int> calls{0};
  void* seenUser = nullptr;
  int marker = 0;
  TEVPoll::EventFD wake(
      epoll,
      [&](void* user, std::uint32_t events) {
        seenUser = user;
        EXPECT_TRUE(events & 1u);  // EPOLLIN
        ++calls;
      },
      &marker);
  std::atomic<bool> returned{false};
  std::thread waiter([&] {
    epoll.Wait();
    returned = true;
  });
  for (int i = 0; i < 5; ++i) {
    std::this_thread::sleep_for(10ms);
    ::pthread_kill(waiter.native_handle(), SIGUSR1);
  }
  while (signalsSeen < 5) std::this_thread::sleep_for(1ms);
  std::this_thread::sleep_for(10ms);
  EXPECT_FALSE(returned);
  wake.Trigger();
  waiter.join();
  ::sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(seenUser, &marker);
}

// The association and the wake-up are both moved: they keep their registration.
TEST(Epoll, ReadyDescriptorsRunOnlyWhileReadIsEnabled) {
  TEVPoll::EpollFD epoll;
  Pipe pipe;
  int calls = 0, wakes = 0;
  TEVPoll::EpollAssociation original(
      epoll, pipe.readEnd(), [&](void*, std::uint32_t) { ++calls; }, nullptr);
  TEVPoll::EpollAssociation association(std::move(original));
  EXPECT_EQ(association.GetFD(), pipe.readEnd());
  EXPECT_EQ(original.GetFD(), -1);  // NOLINT(bugprone-use-after-move)
  TEVPoll::EventFD first(
      epoll, [&](void*, std::uint32_t) { ++wakes; }, nullptr);
  TEVPoll::EventFD wake(std::move(first));
  pipe.put();
  wake.Trigger();
  wake.Trigger();  // two triggers are one wake-up: the counter is drained
  epoll.Wait();    // only the wake-up is reported: read is not enabled yet
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(wakes, 1);

  association.EnableRead(true);
  epoll.Wait();
  EXPECT_EQ(calls, 1);

  association.EnableRead(false);
  wake.Trigger();
  epoll.Wait();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(wakes, 2);
}

// Each callback destroys both associations; whichever runs first, the other
// must not run, and nothing freed may be touched (ASan watches).
TEST(Epoll, CallbackThatDestroysItsOwnAndAnotherAssociation) {
  TEVPoll::EpollFD epoll;
  Pipe first, second;
  std::unique_ptr<TEVPoll::EpollAssociation> a, b;
  int calls = 0;
  auto destroyBoth = [&](void*, std::uint32_t) {
    ++calls;
    a.reset();
    b.reset();
  };
  a = std::make_unique<TEVPoll::EpollAssociation>(epoll, first.readEnd(), destroyBoth, nullptr);
  b = std::make_unique<TEVPoll::EpollAssociation>(epoll, second.readEnd(), destroyBoth, nullptr);
  a->EnableRead(true);
  b->EnableRead(true);
  first.put();
  second.put();
  epoll.Wait();
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(a);
  EXPECT_FALSE(b);
}

TEST(Epoll, BadDescriptorThrowsAndAssociationMayOutliveItsEpoll) {
  auto epoll = std::make_unique<TEVPoll::EpollFD>();
  EXPECT_THROW(TEVPoll::EpollAssociation(
                   *epoll, -1, [](void*, std::uint32_t) {}, nullptr),
               std::system_error);
  Pipe pipe;
  TEVPoll::EpollAssociation association(
      *epoll, pipe.readEnd(), [](void*, std::uint32_t) {}, nullptr);
  epoll.reset();
  // Destroying the association afterwards must not use the closed descriptor.
}

}  // namespace
