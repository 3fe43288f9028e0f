#pragma once
// What the event-socket tests need of rtnetlink: a network namespace of the
// test's own, so that the host's link changes stay out and the test's stay in;
// a sender that multicasts link messages to RTNLGRP_LINK, which real listeners
// receive like the kernel's own; and what the kernel holds for a listener.

#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <netlink/route/link/veth.h>
#include <netlink/socket.h>
#include <sched.h>
#include <unistd.h>

#include "TestMessage.h"

namespace Ny80211::testing {

// Moves the calling thread into a new network namespace; false when not allowed (not root).
inline bool enterOwnNetworkNamespace() { return geteuid() == 0 && unshare(CLONE_NEWNET) == 0; }

class LinkPeer {
 public:
  LinkPeer() : socket_(nl_socket_alloc()) {
    if (socket_ == nullptr || nl_connect(socket_, NETLINK_ROUTE) != 0) fail("connect", -NLE_FAILURE);
  }
  ~LinkPeer() { nl_socket_free(socket_); }
  LinkPeer(LinkPeer const&) = delete;
  LinkPeer& operator=(LinkPeer const&) = delete;

  // Sends msg as it is to the link group. Without NLM_F_REQUEST the kernel, which gets it too, leaves it alone.
  void multicast(nl_msg* msg) {
    sockaddr_nl group{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 1U << (RTNLGRP_LINK - 1)};
    nlmsg_set_dst(msg, &group);
    if (int const sent = nl_send(socket_, msg); sent < 0) fail("multicast", sent);
  }

  // A veth pair made through the kernel, which tells the link group. The peer
  // goes to the calling thread's namespace, which need not be the process's.
  void addVethPair(char const* name, char const* peer) {
    if (int const result = rtnl_link_veth_add(socket_, name, peer, gettid()); result < 0) fail("veth add", result);
  }

 private:
  [[noreturn]] static void fail(char const* what, int error) {
    throw std::runtime_error(std::string("rtnetlink peer: ") + what + " failed: " + nl_geterror(error));
  }
  nl_sock* socket_;
};

// The kernel's account of the calling thread's namespace's one rtnetlink
// socket with a port of its own in the link group: an event socket.
struct LinkListener {
  std::uint64_t queuedBytes = 0;
  std::uint64_t dropped = 0;
};
inline LinkListener linkListener() {
  std::ifstream table("/proc/thread-self/net/netlink");
  std::string sk;
  std::getline(table, sk);  // sk Eth Pid Groups Rmem Wmem Dump Locks Drops Inode
  std::vector<LinkListener> found;
  for (int protocol = -1; table >> sk >> protocol;) {
    LinkListener l;
    std::uint64_t port = 0, groups = 0, unused = 0;
    table >> port >> std::hex >> groups >> std::dec >> l.queuedBytes >> unused >> unused >> unused >> l.dropped >>
        unused;
    if (protocol == NETLINK_ROUTE && port != 0 && (groups & (1U << (RTNLGRP_LINK - 1))) != 0) found.push_back(l);
  }
  if (found.size() != 1) throw std::runtime_error(std::to_string(found.size()) + " link listeners");
  return found[0];
}

}  // namespace Ny80211::testing
