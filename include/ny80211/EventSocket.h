#pragma once
// The two event sockets: nl80211 multicast groups over generic netlink, and
// wireless-extension events over rtnetlink's link group. Once connected, each
// hands its socket to an EpollEventReceiver, which reads it whenever the
// caller's epoll instance reports it readable and runs a decoder that
// publishes the events on the caller's event bus.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "NyEvent/Publisher.h"
#include "TEVPoll/EpollFD.h"
#include "ny80211/Error.h"
#include "ny80211/Export.h"
#include "ny80211/Socket.h"

struct nl_sock;
struct nl_cb;
struct nl_msg;

namespace Ny80211 {

// Owns a socket and its callbacks and reads it from an epoll instance. Not
// movable: the callbacks hold its address.
class NY80211_API EpollEventReceiver {
 public:
  using Handler = std::function<int(nl_msg*)>;

  // Registers the socket's descriptor for reading; handler gets each valid
  // message (sequence numbers unchecked: multicast carries none).
  EpollEventReceiver(NlSockPtr socket, TEVPoll::EpollFD& epoll, Handler handler);
  ~EpollEventReceiver();
  EpollEventReceiver(EpollEventReceiver const&) = delete;
  EpollEventReceiver& operator=(EpollEventReceiver const&) = delete;

  // The epoll callback: on EPOLLIN, receives what is pending. An error
  // message from the kernel is kept and thrown, now and on every later
  // read; a failed receive is logged.
  void onReadable(std::uint32_t events);

 private:
  NlSockPtr socket_;
  std::unique_ptr<CallbackSet> callbacks_;
  std::unique_ptr<Error> pendingError_;
  std::unique_ptr<TEVPoll::EpollAssociation> association_;
};

class NY80211_API Nl80211EventSocket : public Nl80211Socket {
 public:
  Nl80211EventSocket();
  Nl80211EventSocket(Nl80211EventSocket&&) noexcept;
  Nl80211EventSocket& operator=(Nl80211EventSocket&&) noexcept;
  Nl80211EventSocket(Nl80211EventSocket const&) = delete;
  Nl80211EventSocket& operator=(Nl80211EventSocket const&) = delete;
  ~Nl80211EventSocket() override;

  // Joins an nl80211 multicast group by name ("scan", "mlme", ...) and
  // returns its number. Error "not connected", or libnl's text.
  int subscribeEventGroup(std::string const& group);
  int unsubscribeEventGroup(int group);

  // Connects, joins the groups in order and starts receiving on epoll;
  // events go to publisher. Joins no group of its own accord.
  void connect(TEVPoll::EpollFD& epoll, NyEvent::Publisher publisher,
               std::vector<std::string> groups);

 private:
  std::unique_ptr<EpollEventReceiver> receiver_;
};

class NY80211_API WextEventSocket {
 public:
  WextEventSocket();
  WextEventSocket(WextEventSocket&&) noexcept;
  WextEventSocket& operator=(WextEventSocket&&) noexcept;
  WextEventSocket(WextEventSocket const&) = delete;
  WextEventSocket& operator=(WextEventSocket const&) = delete;
  ~WextEventSocket();

  // An rtnetlink socket joined to RTNLGRP_LINK. Error naming the failed step.
  void connectSocket();
  bool isConnected() const noexcept { return callbacks_ != nullptr; }

  // connectSocket, then receives on epoll; events go to publisher. A second
  // connect replaces the first.
  void connect(TEVPoll::EpollFD& epoll, NyEvent::Publisher publisher);

 private:
  NlSockPtr socket_;
  nl_cb* callbacks_ = nullptr;
  std::unique_ptr<EpollEventReceiver> receiver_;
};

}  // namespace Ny80211
