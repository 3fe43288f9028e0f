// The event sockets and the Context's loop on real rtnetlink sockets, in a network namespace of the test's own
// (root), fed the link messages that the kernel and a LinkPeer multicast to the link group. Under floods, the
// kernel's count of what it dropped tells its losses from the library's.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/NotificationQueue.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <netlink/msg.h>
#include <netlink/socket.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <unistd.h>

#include "LinkPeer.h"
#include "TraceCapture.h"
#include "WextMessage.h"
#include "ny80211/Context.h"
#include "ny80211/EventSocket.h"
#include "ny80211/WextEvents.h"

namespace Ny80211 {
namespace {

using namespace std::chrono_literals;
using testing::outcome;
using testing::TraceLine;
using P = trace::Provider;
using L = trace::Level;
TraceLine const overrun{P::Cmd, L::Err, "event receive failed (-5)"};

// Counts the events' own log lines and keeps the others.
struct Lines : testing::TraceCapture {
  void line(P provider, L level, std::string_view text) noexcept override {
    if (level != L::Info) return TraceCapture::line(provider, level, text);
    ++info;
  }
  std::atomic<std::uint64_t> info{0};
};

// A Context with its wext socket, a sender, and the consumer of its queue, which keeps the first hundred texts.
class EventLoop : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!isolated) GTEST_SKIP() << "needs root for a network namespace";
  }
  void start() {
    context.connectEventsWext(publisher);
    context.startEventLoop();
  }
  void send(nl_msg* msg) {
    peer.multicast(msg);
    ++sent;
  }
  void cac(std::uint16_t mhz) { send(testing::WextMessage({.athEvent = 45, .payload = testing::bytesOf(mhz)}).msg); }
  // n events, with at most window of them (0: no limit) neither consumed nor dropped.
  void flood(std::uint64_t n, std::uint64_t window = 0) {
    testing::WextMessage const event({.athEvent = 45, .payload = {0x3c, 0x14}});
    std::uint64_t dropped = window > 0 ? testing::linkListener().dropped : 0;
    for (std::uint64_t i = 0; i < n; ++i) {
      for (int spin = 1; window > 0 && sent - consume() - dropped >= window; ++spin) {
        if (spin == 100000) throw std::runtime_error("the loop stopped publishing");
        std::this_thread::sleep_for(20us);
        if (spin % 1024 == 0) dropped = testing::linkListener().dropped;
      }
      send(event.msg);
    }
  }
  // Waits until all that was sent has been read, then expects what the kernel queued to have been published and
  // logged, and what it dropped to have been announced: at least one overrun line, at most one per dropped event,
  // and no other line. Returns how many it dropped.
  std::uint64_t settle() {
    auto listener = testing::linkListener();
    for (int wait = 0; wait < 100000 && (listener.queuedBytes != 0 || consume() + listener.dropped < sent); ++wait) {
      std::this_thread::sleep_for(100us);
      listener = testing::linkListener();
    }
    auto const others = lines.lines();
    EXPECT_EQ(received + listener.dropped, sent);
    EXPECT_EQ(lines.info, received);
    EXPECT_EQ(others.empty(), listener.dropped == 0) << listener.dropped << " dropped";
    EXPECT_LE(others.size(), listener.dropped);
    EXPECT_EQ(others, std::vector<TraceLine>(others.size(), overrun));
    return listener.dropped;
  }
  // Takes the events off the queue, as a daemon's consumer does.
  std::uint64_t consume() {
    for (Poco::AutoPtr<Poco::Notification> event; (event = queue.dequeueNotification()).get() != nullptr;) {
      auto const* wext = dynamic_cast<Event::WextEvent const*>(event.get());
      if (wext != nullptr && ++received <= 100) texts.push_back(wext->toString());
    }
    return received;
  }

  bool const isolated = testing::enterOwnNetworkNamespace();  // first: the sockets below open in it
  testing::LinkPeer peer;
  Lines lines;
  Poco::NotificationQueue queue;
  NyEvent::Publisher publisher{queue};
  std::vector<std::string> texts;
  std::uint64_t sent = 0, received = 0;
  Context context;  // last: its loop stops before the rest goes
};

// Each thread of the process with the signals it blocks, as the kernel reports them.
std::map<std::string, std::uint64_t> threads() {
  std::map<std::string, std::uint64_t> blocked;
  for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("SigBlk:")) blocked[task.path().filename()] = std::stoull(line.substr(7), nullptr, 16);
    }
  }
  return blocked;
}

TEST_F(EventLoop, RunsOnAThreadOfItsOwnAndPublishesDriverEventsInOrder) {
  sigset_t all, usr2, original;
  sigfillset(&all);
  sigemptyset(&usr2);
  sigaddset(&usr2, SIGUSR2);
  pthread_sigmask(SIG_SETMASK, &all, &original);
  // What "all" means to the C library, which keeps a few signals of its own.
  std::uint64_t const allBlocked = threads().at(std::to_string(gettid()));
  pthread_sigmask(SIG_SETMASK, &usr2, nullptr);
  auto const before = threads();
  start();
  EXPECT_EQ(outcome([&] { return context.startEventLoop(), ""; }), "Error: event loop already running");
  // The loop thread blocks every signal; the caller keeps its mask.
  auto during = threads();
  for (auto const& [tid, blocked] : before) EXPECT_EQ(std::exchange(during[tid], allBlocked), blocked) << tid;
  EXPECT_EQ(during.size(), before.size() + 1);
  for (auto const& [tid, blocked] : during) EXPECT_EQ(blocked & allBlocked, allBlocked) << tid;

  // The kernel's own link messages come first and leave no trace. The
  // largest payload, a neighbour-report request's, fits the receive.
  peer.addVethPair("ny0", "ny1");
  testing::WextFields request{.athEvent = 50, .payload = testing::hex("021122334455"), .ifName = "wlan1"};
  request.payload.resize(72);
  send(testing::WextMessage(request).msg);
  std::vector<std::string> expected{"wlan1: STA 02:11:22:33:44:55 requests neighbor report"};
  for (std::uint16_t mhz : {5180, 5320, 5200, 5300}) {
    cac(mhz);
    expected.push_back(fmt::format("ath0: CAC timer started on {} MHz (channel {})", mhz, (mhz - 5000) / 5));
  }
  EXPECT_EQ(settle(), 0U);
  EXPECT_EQ(texts, expected);

  context.stopEventLoop();
  EXPECT_EQ(threads(), before);
  pthread_sigmask(SIG_SETMASK, &original, nullptr);
  EXPECT_EQ(outcome([&] { return context.stopEventLoop(), ""; }), "Error: can't stop event loop");
  Nl80211EventSocket unconnected;
  EXPECT_EQ(outcome([&] { return std::to_string(unconnected.subscribeEventGroup("scan")); }), "Error: not connected");
  EXPECT_EQ(outcome([&] { return std::to_string(unconnected.unsubscribeEventGroup(3)); }), "Error: not connected");
  // The event sockets ended with the loop. A new one fills before the loop
  // reads it: the kernel drops, and the overrun is announced.
  EXPECT_EQ(outcome([&] { return context.startEventLoop(), ""; }), "Error: no event socket connected");
  context.connectEventsWext(publisher);
  flood(3000);
  context.startEventLoop();
  EXPECT_GT(settle(), 0U);
}

// A flood as fast as the sender can, then a long run over which the process keeps its size: a leak of one small
// block per event would grow it by megabytes; two of the allocator's 128 KiB trim steps are allowed. Sanitizers keep
// freed memory aside: under them only their leak check counts. Last, a message flagged multipart, after which libnl
// reads on for the rest of the series: the loop thread must not wait in that read, or it could not stop.
TEST_F(EventLoop, FloodsAndASoakLoseNothingUnannouncedAndLeaveTheLoopStoppable) {
  auto const resident = [] {
    std::uint64_t size = 0, pages = 0;
    std::ifstream("/proc/self/statm") >> size >> pages;
    return pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  };
  start();
  flood(20000);
  settle();
  flood(10000, 256);
  settle();
  [[maybe_unused]] auto const early = resident();  // the sanitizers hold freed memory back
  flood(60000, 256);
  settle();
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LE(resident(), early + 256 * 1024UL);
  EXPECT_LE(early, resident() + 256 * 1024UL);
#endif
  testing::WextMessage const multipart({.athEvent = 45, .payload = {0x3c, 0x14}});
  nlmsg_hdr(multipart.msg)->nlmsg_flags |= NLM_F_MULTI;
  send(multipart.msg);
  settle();
  std::atomic<bool> stopped{false};
  std::thread stopper([&] { context.stopEventLoop(), stopped = true; });
  for (int wait = 0; !stopped && wait < 10000; ++wait) std::this_thread::sleep_for(1ms);
  EXPECT_TRUE(stopped) << "the loop thread waits in a receive";
  testing::WextMessage const done({.type = NLMSG_DONE});  // the end of the series lets it go
  if (!stopped) peer.multicast(done.msg);
  stopper.join();
}

// The kernel may flag an overrun only after the reader has emptied the queue, and drops every later message for the
// socket until a receive finds it empty; epoll reports EPOLLERR alone then, until the error is taken. A full queue
// stands in for the empty one, which only floods' races leave. An error the kernel sends is thrown on its read and
// on every later one, rather than going on with a gap.
TEST_F(EventLoop, ReceiverReadsOnEpollInTakesAnOverrunAloneAndKeepsAKernelError) {
  TEVPoll::EpollFD epoll;
  NlSockPtr socket(nl_socket_alloc());
  ASSERT_EQ(nl_connect(socket.get(), NETLINK_ROUTE), 0);
  ASSERT_EQ(nl_socket_add_memberships(socket.get(), RTNLGRP_LINK, 0), 0);
  pollfd readable{nl_socket_get_fd(socket.get()), POLLIN, 0};
  int published = 0;
  EpollEventReceiver receiver(std::move(socket), epoll, [&](nl_msg*) { return ++published, NL_OK; });
  flood(4000);  // far more than the receive buffer holds
  receiver.onReadable(EPOLLERR);
  EXPECT_EQ(published, 0);
  ASSERT_EQ(poll(&readable, 1, 0), 1);
  EXPECT_EQ(readable.revents, POLLIN);
  while (poll(&readable, 1, 0) == 1) receiver.onReadable(EPOLLIN | EPOLLERR);
  EXPECT_GT(published, 0);

  nl_msg* error = nlmsg_alloc_simple(NLMSG_ERROR, 0);
  *static_cast<nlmsgerr*>(nlmsg_reserve(error, sizeof(nlmsgerr), NLMSG_ALIGNTO)) = {
      -EINVAL, nlmsghdr{sizeof(nlmsghdr), RTM_NEWLINK, 0, 0, 0}};
  send(error);
  nlmsg_free(error);
  cac(5180);
  published = 0;
  std::string const text = "Netlink error: Invalid argument (-22)";
  EXPECT_EQ(outcome([&] { return receiver.onReadable(EPOLLIN), ""; }), "Error: " + text);
  EXPECT_EQ(outcome([&] { return receiver.onReadable(EPOLLIN), ""; }), "Error: " + text);
  EXPECT_EQ(published, 1);
  TraceLine const failed{P::Cmd, L::Err, "error from event socket: " + text};
  EXPECT_EQ(lines.lines(), (std::vector<TraceLine>{overrun, failed, failed}));
}

}  // namespace
}  // namespace Ny80211
