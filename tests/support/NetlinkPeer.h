#pragma once
// A user-space netlink peer that plays the kernel for the command socket: a NETLINK_USERSOCK
// socket that answers each request's port and sequence number with replies built through libnl.

#include <cerrno>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>

#include <netlink/socket.h>
#include <sys/socket.h>
#include <unistd.h>

#include "TestMessage.h"
#include "ny80211/Socket.h"

namespace Ny80211 {

// Lets a test hand the command socket a libnl socket connected to a peer.
struct SocketTestAccess {
  static void adopt(Nl80211Socket& target, nl_sock* socket, int familyID) {
    target.socket_ = socket;
    target.familyID_ = familyID;
    target.callbacks_ = nl_cb_alloc(NL_CB_DEFAULT);
    nl_socket_set_cb(socket, target.callbacks_);
  }
};

namespace testing {

// A request as the peer received it, from the sender's netlink port.
struct Request {
  Bytes bytes;
  std::uint32_t port = 0;
  nlmsghdr const& header() const { return *reinterpret_cast<nlmsghdr const*>(bytes.data()); }
};

// A message of the type answering the request: the payload (a generic netlink header, an error), then attrs.
inline Bytes answer(Request const& request, int type, int flags, Bytes payload,
                    std::function<void(nl_msg*)> const& attrs = {}) {
  auto* msg = nlmsg_alloc_simple(type, flags);
  nlmsg_hdr(msg)->nlmsg_seq = request.header().nlmsg_seq;
  nlmsg_hdr(msg)->nlmsg_pid = request.port;
  nlmsg_append(msg, payload.data(), payload.size(), NLMSG_ALIGNTO);
  if (attrs) attrs(msg);
  auto const* begin = reinterpret_cast<std::uint8_t const*>(nlmsg_hdr(msg));
  Bytes bytes(begin, begin + nlmsg_hdr(msg)->nlmsg_len);
  nlmsg_free(msg);
  return bytes;
}

inline Bytes done(Request const& request) { return answer(request, NLMSG_DONE, NLM_F_MULTI, Bytes(4)); }

// NLMSG_ERROR quoting the request (error 0: an acknowledgement), its header alone if capped; an
// extended message goes in an attribute NLMSGERR_ATTR_MSG, an empty one without payload.
inline Bytes error(Request const& request, int errorNumber, std::optional<std::string> const& extendedMessage = {},
                   bool capped = false) {
  auto const text = extendedMessage.value_or("");
  int const flags = (extendedMessage ? NLM_F_ACK_TLVS : 0) | (capped ? NLM_F_CAPPED : 0);
  Bytes body = bytesOf(errorNumber);
  body.insert(body.end(), request.bytes.begin(),
              request.bytes.begin() + static_cast<std::ptrdiff_t>(capped ? NLMSG_HDRLEN : request.bytes.size()));
  return answer(request, NLMSG_ERROR, flags, body, [&](nl_msg* msg) {
    if (extendedMessage) nla_put(msg, NLMSGERR_ATTR_MSG, static_cast<int>(text.size() + !text.empty()), text.c_str());
  });
}

// The peer: answer(request) returns the datagrams to send back, in order.
class NetlinkPeer {
 public:
  NetlinkPeer() : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK)) {
    sockaddr_nl address{AF_NETLINK, 0, 0, 0};
    socklen_t length = sizeof address;
    if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error(std::string("peer socket: ") + std::strerror(errno));
    }
    port_ = address.nl_pid;
  }
  // A netlink socket cannot be shut down: a datagram to itself ends the serving.
  ~NetlinkPeer() {
    if (thread_.joinable()) sendTo(port_, Bytes(4)), thread_.join();
    ::close(fd_);
  }
  NetlinkPeer(NetlinkPeer const&) = delete;
  NetlinkPeer& operator=(NetlinkPeer const&) = delete;

  // Serves requests on a thread of its own until the peer is destroyed.
  void serve(std::function<std::vector<Bytes>(Request const&)> answer) {
    thread_ = std::thread([this, answer = std::move(answer)] {
      Bytes buffer(65536);
      sockaddr_nl from{};
      for (socklen_t length = sizeof from;; length = sizeof from) {
        auto const got = ::recvfrom(fd_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
        if (got <= 0 || from.nl_pid == port_) return;
        Request const request{Bytes(buffer.begin(), buffer.begin() + got), from.nl_pid};
        for (auto const& reply : answer(request)) sendTo(request.port, reply);
      }
    });
  }

  // A client socket, connected and addressed to this peer, ready to adopt.
  nl_sock* clientSocket() const {
    auto* socket = nl_socket_alloc();
    nl_connect(socket, NETLINK_USERSOCK);
    nl_socket_set_peer_port(socket, port_);
    return socket;
  }

 private:
  void sendTo(std::uint32_t port, Bytes const& bytes) const {
    sockaddr_nl to{AF_NETLINK, 0, port, 0};
    ::sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
  }

  int fd_ = -1;
  std::uint32_t port_ = 0;
  std::thread thread_;
};

}  // namespace testing
}  // namespace Ny80211
