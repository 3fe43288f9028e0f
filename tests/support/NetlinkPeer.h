#pragma once
// A user-space netlink peer that plays the kernel for the command socket: a
// NETLINK_USERSOCK socket that reads each request and answers the request's
// port and sequence number with replies built through libnl.

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/netlink.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

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

using Bytes = std::vector<unsigned char>;

// A request as the peer received it.
struct Request {
  Bytes bytes;
  std::uint32_t port = 0;  // the sender's netlink port
  nlmsghdr const& header() const { return *reinterpret_cast<nlmsghdr const*>(bytes.data()); }
  std::uint32_t seq() const { return header().nlmsg_seq; }
};

inline Bytes bytesOf(nl_msg* msg) {
  auto const* header = nlmsg_hdr(msg);
  auto const* begin = reinterpret_cast<unsigned char const*>(header);
  Bytes bytes(begin, begin + header->nlmsg_len);
  nlmsg_free(msg);
  return bytes;
}

// A generic netlink reply to the request; attrs writes its attributes.
inline Bytes genlReply(Request const& request, std::uint8_t command, int flags,
                       std::function<void(nl_msg*)> const& attrs = {}) {
  auto* msg = nlmsg_alloc();
  genlmsg_put(msg, request.port, request.seq(), request.header().nlmsg_type, 0, flags, command, 0);
  if (attrs) attrs(msg);
  return bytesOf(msg);
}

inline Bytes done(Request const& request) {
  auto* msg = nlmsg_alloc_simple(NLMSG_DONE, NLM_F_MULTI);
  int zero = 0;
  nlmsg_append(msg, &zero, sizeof zero, NLMSG_ALIGNTO);
  nlmsg_hdr(msg)->nlmsg_seq = request.seq();
  nlmsg_hdr(msg)->nlmsg_pid = request.port;
  return bytesOf(msg);
}

// NLMSG_ERROR quoting the request: error 0 is an acknowledgement. With an
// extended message it carries NLM_F_ACK_TLVS, and with capped the quoted
// request is its header alone (NLM_F_CAPPED).
inline Bytes error(Request const& request, int errorNumber,
                   std::optional<std::string> const& extendedMessage = std::nullopt, bool capped = false) {
  int flags = 0;
  if (extendedMessage) flags |= NLM_F_ACK_TLVS;
  if (capped) flags |= NLM_F_CAPPED;
  auto* msg = nlmsg_alloc_simple(NLMSG_ERROR, flags);
  nlmsg_hdr(msg)->nlmsg_seq = request.seq();
  nlmsg_hdr(msg)->nlmsg_pid = request.port;
  nlmsgerr err{};
  err.error = errorNumber;
  std::memcpy(&err.msg, &request.header(), sizeof err.msg);
  nlmsg_append(msg, &err, sizeof err, NLMSG_ALIGNTO);
  if (!capped) {
    auto const& quoted = request.bytes;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): nlmsg_append only reads it
    nlmsg_append(msg, const_cast<unsigned char*>(quoted.data()) + NLMSG_HDRLEN, quoted.size() - NLMSG_HDRLEN,
                 NLMSG_ALIGNTO);
  }
  if (extendedMessage) nla_put_string(msg, NLMSGERR_ATTR_MSG, extendedMessage->c_str());
  return bytesOf(msg);
}

// The peer: answer(request) returns the datagrams to send back, in order.
class NetlinkPeer {
 public:
  using Answer = std::function<std::vector<Bytes>(Request const&)>;

  NetlinkPeer() : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK)) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("peer socket: " + std::string(std::strerror(errno)));
    }
    socklen_t length = sizeof address;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = address.nl_pid;
    if (::pipe2(stop_, O_CLOEXEC) != 0) throw std::runtime_error("peer stop pipe");
  }
  ~NetlinkPeer() {
    if (thread_.joinable()) {
      ::close(stop_[1]);  // netlink sockets cannot be shut down: a pipe wakes the peer
      thread_.join();
    } else {
      ::close(stop_[1]);
    }
    ::close(stop_[0]);
    ::close(fd_);
  }
  NetlinkPeer(NetlinkPeer const&) = delete;
  NetlinkPeer& operator=(NetlinkPeer const&) = delete;

  std::uint32_t port() const { return port_; }

  // Serves requests on a thread of its own until the peer is destroyed.
  void serve(Answer answer) {
    thread_ = std::thread([this, answer = std::move(answer)] {
      while (auto request = receive()) {
        for (auto const& reply : answer(*request)) sendTo(request->port, reply);
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

  void sendTo(std::uint32_t port, Bytes const& bytes) const {
    sockaddr_nl to{};
    to.nl_family = AF_NETLINK;
    to.nl_pid = port;
    ::sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
  }

 private:
  std::optional<Request> receive() const {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    while (::poll(fds, 2, -1) < 0) {
      if (errno != EINTR) return std::nullopt;
    }
    if (fds[1].revents != 0) return std::nullopt;
    Bytes buffer(65536);
    sockaddr_nl from{};
    socklen_t length = sizeof from;
    auto const got = ::recvfrom(fd_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    if (got <= 0) return std::nullopt;
    buffer.resize(static_cast<std::size_t>(got));
    return Request{std::move(buffer), from.nl_pid};
  }

  int fd_ = -1;
  int stop_[2]{-1, -1};
  std::uint32_t port_ = 0;
  std::thread thread_;
};

}  // namespace testing
}  // namespace Ny80211
