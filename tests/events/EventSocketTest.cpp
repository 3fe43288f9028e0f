#include <cstdint>
#include <string>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/NotificationQueue.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/epoll.h>

#include "LinkPeer.h"
#include "TraceCapture.h"
#include "ny80211/EventSocket.h"
#include "ny80211/WextEvents.h"

namespace Ny80211 {
namespace {

using testing::LinkPeer;
using testing::multicastCacStarted;
using ::testing::ThrowsMessage;
using testing::TraceCapture;
using testing::TraceLine;
using P = trace::Provider;
using L = trace::Level;

// Runs the epoll loop by hand until n events have been published.
void waitForEvents(TEVPoll::EpollFD& epoll, Poco::NotificationQueue const& queue, int n) {
  while (queue.size() < n) epoll.Wait();
}

class EventSocketTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::enterOwnNetworkNamespace()) GTEST_SKIP() << "needs root for a network namespace";
  }
  Poco::NotificationQueue queue;
  NyEvent::Publisher publisher{queue};
  TEVPoll::EpollFD epoll;
};

TEST(Nl80211EventSocket, GroupsNeedAConnectedSocket) {
  Nl80211EventSocket socket;
  EXPECT_FALSE(socket.isConnected());
  EXPECT_THAT([&] { socket.subscribeEventGroup("scan"); }, ThrowsMessage<Error>("not connected"));
  EXPECT_THAT([&] { socket.unsubscribeEventGroup(3); }, ThrowsMessage<Error>("not connected"));
}

TEST_F(EventSocketTest, WextSocketPublishesAthEventsAndIgnoresRealLinkMessagesSilently) {
  TraceCapture trace;
  WextEventSocket socket;
  socket.connect(epoll, publisher);
  EXPECT_TRUE(socket.isConnected());

  LinkPeer peer;
  peer.addVethPair("ny0", "ny1");
  peer.deleteLink("ny0");
  // The largest payload: a neighbour-report request with its 64-byte block.
  testing::WextFields request;
  request.athEvent = Event::NeighborRequest::athEvent;
  request.ifName = "wlan1";
  request.payload = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0, 0};
  for (int i = 0; i < 64; ++i) request.payload.push_back(static_cast<std::uint8_t>(i));
  peer.multicast(testing::WextMessage(request).msg);
  multicastCacStarted(peer, 5260);
  waitForEvents(epoll, queue, 2);

  Poco::AutoPtr<Poco::Notification> event(queue.dequeueNotification());
  auto const* neighbor = dynamic_cast<Event::NeighborRequest const*>(event.get());
  ASSERT_NE(neighbor, nullptr);
  EXPECT_EQ(neighbor->block()[63], std::byte{63});
  event = queue.dequeueNotification();
  auto const* cac = dynamic_cast<Event::CacStarted const*>(event.get());
  ASSERT_NE(cac, nullptr);
  EXPECT_EQ(cac->frequency(), 5260U);
  // The veth pair's messages came first on the same socket and left no trace.
  EXPECT_EQ(trace.lines(),
            (std::vector<TraceLine>{{P::Event, L::Info, "wlan1: STA 02:11:22:33:44:55 requests neighbor report"},
                                    {P::Event, L::Info, "wlan0: CAC timer started on 5260 MHz (channel 52)"}}));
}

TEST_F(EventSocketTest, ReceiverReadsOnlyOnEpollIn) {
  NlSockPtr listener(nl_socket_alloc());
  ASSERT_EQ(nl_connect(listener.get(), NETLINK_ROUTE), 0);
  ASSERT_EQ(nl_socket_add_memberships(listener.get(), RTNLGRP_LINK, 0), 0);
  int published = 0;
  EpollEventReceiver receiver(std::move(listener), epoll, [&](nl_msg*) {
    ++published;
    return NL_OK;
  });
  LinkPeer peer;
  multicastCacStarted(peer, 5500);

  receiver.onReadable(EPOLLERR);
  EXPECT_EQ(published, 0);
  receiver.onReadable(EPOLLIN | EPOLLERR);
  EXPECT_EQ(published, 1);
}

TEST_F(EventSocketTest, KernelErrorMessageIsThrownOnEveryLaterRead) {
  TraceCapture trace;
  WextEventSocket socket;
  socket.connect(epoll, publisher);
  LinkPeer peer;

  nl_msg* error = nlmsg_alloc_simple(NLMSG_ERROR, 0);
  auto* body = static_cast<nlmsgerr*>(nlmsg_reserve(error, sizeof(nlmsgerr), NLMSG_ALIGNTO));
  body->error = -EINVAL;
  body->msg = nlmsghdr{sizeof(nlmsghdr), RTM_NEWLINK, 0, 0, 0};
  peer.multicast(error);
  nlmsg_free(error);

  std::string const text = "Netlink error: Invalid argument (-22)";
  for (int read = 0; read < 2; ++read) {
    if (read == 1) multicastCacStarted(peer, 5180);
    try {
      epoll.Wait();
      ADD_FAILURE() << "no exception on read " << read;
    } catch (Error const& e) {
      EXPECT_EQ(e.what(), text);
    }
  }
  EXPECT_EQ(trace.lines(),
            (std::vector<TraceLine>{{P::Cmd, L::Err, "error from event socket: " + text},
                                    {P::Event, L::Info, "wlan0: CAC timer started on 5180 MHz (channel 36)"},
                                    {P::Cmd, L::Err, "error from event socket: " + text}}));
}

TEST_F(EventSocketTest, OverflowedReceiveIsLoggedAndTheSocketGoesOn) {
  TraceCapture trace;
  WextEventSocket socket;
  socket.connect(epoll, publisher);
  LinkPeer peer;
  // Far more than the 256 KiB receive buffer holds: the kernel drops some
  // and the next receive reports it.
  for (int i = 0; i < 4000; ++i) multicastCacStarted(peer, 5180);
  while (trace.lines().empty() || trace.lines().back().level != L::Err) epoll.Wait();
  EXPECT_EQ(trace.lines().back(), (TraceLine{P::Cmd, L::Err, "event receive failed (-5)"}));

  int const before = queue.size();
  multicastCacStarted(peer, 5180);
  waitForEvents(epoll, queue, before + 1);
}

}  // namespace
}  // namespace Ny80211
