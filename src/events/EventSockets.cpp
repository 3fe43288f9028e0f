#include <cstdint>
#include <memory>
#include <utility>

#include <linux/rtnetlink.h>
#include <netlink/errno.h>
#include <netlink/genl/ctrl.h>
#include <netlink/handlers.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include "events/Decoders.h"
#include "netlink/NlCallbacks.h"
#include "ny80211/EventSocket.h"
#include "trace/Trace.h"

namespace Ny80211 {

namespace {

constexpr int wextReceiveBufferSize = 256 * 1024;

// The kernel may flag an overrun only after the reader has emptied the queue:
// epoll then reports EPOLLERR alone, and the kernel drops every later message
// for the socket until a receive finds the queue empty. Announces the
// overrun as a failed receive would, takes it (epoll would report it
// forever), and lets a receive that reads nothing find the queue empty.
void takeOverrunWithoutData(nl_sock* socket) {
  int const fd = nl_socket_get_fd(socket);
  int error = 0;
  socklen_t size = sizeof error;
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error == 0) return;
  trace::cmdErr("event receive failed ({})", -nl_syserr2nlerr(error));
  char none = 0;
  recv(fd, &none, 0, MSG_PEEK | MSG_DONTWAIT);
}

}  // namespace

EpollEventReceiver::EpollEventReceiver(NlSockPtr socket, TEVPoll::EpollFD& epoll, Handler handler)
    : socket_(std::move(socket)),
      callbacks_(std::make_unique<CallbackSet>(
          [this](sockaddr_nl*, nlmsgerr* err) -> int {
            pendingError_ = std::make_unique<Error>(to_string(err));
            return NL_STOP;
          },
          [](nl_msg*) -> int { return NL_STOP; }, [](nl_msg*) -> int { return NL_STOP; },
          std::move(handler), true)) {
  // Read only when epoll says so, and never wait there: libnl reads on by
  // itself after a message flagged multipart, and a loop thread waiting in
  // that read would neither stop nor serve its other descriptors.
  if (int const result = nl_socket_set_nonblocking(socket_.get()); result < 0) {
    throw Error(nl_geterror(result));
  }
  association_ = std::make_unique<TEVPoll::EpollAssociation>(
      epoll, nl_socket_get_fd(socket_.get()),
      [this](void*, std::uint32_t events) { onReadable(events); }, nullptr);
  association_->EnableRead(true);
}

// Members go in reverse order: the epoll registration first, then the
// callbacks, then the socket.
EpollEventReceiver::~EpollEventReceiver() = default;

void EpollEventReceiver::onReadable(std::uint32_t events) {
  if ((events & EPOLLIN) == 0) {
    if ((events & EPOLLERR) != 0) takeOverrunWithoutData(socket_.get());
    return;
  }
  int const result = nl_recvmsgs(socket_.get(), callbacks_->callbacks());
  if (pendingError_) {
    // Kept, not cleared: an event socket the kernel reported an error on
    // keeps failing rather than carrying on with a gap.
    trace::cmdErr("error from event socket: {}", pendingError_->what());
    throw Error(*pendingError_);
  }
  // Nothing more queued is no failure: libnl read on past the last message.
  if (result < 0 && result != -NLE_AGAIN) trace::cmdErr("event receive failed ({})", result);
}

Nl80211EventSocket::Nl80211EventSocket() = default;
Nl80211EventSocket::Nl80211EventSocket(Nl80211EventSocket&&) noexcept = default;
Nl80211EventSocket& Nl80211EventSocket::operator=(Nl80211EventSocket&&) noexcept = default;
Nl80211EventSocket::~Nl80211EventSocket() = default;

int Nl80211EventSocket::subscribeEventGroup(std::string const& group) {
  if (!isConnected()) throw Error("not connected");
  if (socket() == nullptr) {
    throw Error(fmt::format("can't join '{}': socket already receiving", group));
  }
  int const number = genl_ctrl_resolve_grp(socket(), "nl80211", group.c_str());
  if (number < 0) throw Error(nl_geterror(number));
  // Deliberately libnl's text for the group number, not for the result.
  if (nl_socket_add_membership(socket(), number) < 0) throw Error(nl_geterror(number));
  return number;
}

int Nl80211EventSocket::unsubscribeEventGroup(int group) {
  if (!isConnected()) throw Error("not connected");
  if (socket() == nullptr) {
    throw Error(fmt::format("can't leave {}: socket already receiving", group));
  }
  int const result = nl_socket_drop_membership(socket(), group);
  if (result < 0) throw Error(nl_geterror(group));
  return result;
}

void Nl80211EventSocket::connect(TEVPoll::EpollFD& epoll, NyEvent::Publisher publisher,
                                 // NOLINTNEXTLINE(performance-unnecessary-value-param): exported
                                 std::vector<std::string> groups) {
  // Built aside, so that a failure leaves this socket as it was.
  if (isConnected()) throw Error("already connected");
  Nl80211EventSocket fresh;
  fresh.connectSocket();
  for (auto const& group : groups) fresh.subscribeEventGroup(group);
  fresh.receiver_ = std::make_unique<EpollEventReceiver>(NlSockPtr(fresh.releaseSocket()), epoll,
                                                         detail::Nl80211EventDecoder(publisher));
  *this = std::move(fresh);
}

WextEventSocket::WextEventSocket() = default;

WextEventSocket::WextEventSocket(WextEventSocket&& other) noexcept
    : socket_(std::move(other.socket_)),
      callbacks_(std::exchange(other.callbacks_, nullptr)),
      receiver_(std::move(other.receiver_)) {}

WextEventSocket& WextEventSocket::operator=(WextEventSocket&& other) noexcept {
  if (this != &other) {
    receiver_ = std::move(other.receiver_);
    if (callbacks_ != nullptr) nl_cb_put(callbacks_);
    callbacks_ = std::exchange(other.callbacks_, nullptr);
    socket_ = std::move(other.socket_);
  }
  return *this;
}

WextEventSocket::~WextEventSocket() {
  receiver_.reset();
  if (callbacks_ != nullptr) nl_cb_put(callbacks_);
}

void WextEventSocket::connectSocket() {
  NlSockPtr socket(nl_socket_alloc());
  if (!socket) throw Error("netlink socket allocation failed");
  if (nl_connect(socket.get(), NETLINK_ROUTE) != 0) throw Error("rtnetlink connection failed");
  if (nl_socket_set_buffer_size(socket.get(), wextReceiveBufferSize, 0) != 0) {
    throw Error("failed to set socket buffer size");
  }
  detail::NlCbPtr callbacks(nl_cb_alloc(NL_CB_DEFAULT));
  if (!callbacks) throw Error("callback allocation failed");
  nl_socket_set_cb(socket.get(), callbacks.get());
  if (nl_socket_add_memberships(socket.get(), RTNLGRP_LINK, 0) != 0) {
    throw Error("failed to subscribe to RTNLGRP_LINK");
  }
  socket_ = std::move(socket);
  if (callbacks_ != nullptr) nl_cb_put(callbacks_);
  callbacks_ = callbacks.release();
}

void WextEventSocket::connect(TEVPoll::EpollFD& epoll, NyEvent::Publisher publisher) {
  connectSocket();
  receiver_ = std::make_unique<EpollEventReceiver>(std::move(socket_), epoll,
                                                   detail::WextEventDecoder(publisher));
}

}  // namespace Ny80211
