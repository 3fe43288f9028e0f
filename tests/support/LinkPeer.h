#pragma once
// What the event-socket tests need of rtnetlink: a network namespace of the
// test's own, so that the host's link changes stay out and the test's stay
// in, and a sender that multicasts link messages to RTNLGRP_LINK, which a
// root process may do and which real rtnetlink listeners receive like the
// kernel's own; links made, renamed and removed there.

#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <netlink/route/link/veth.h>
#include <netlink/socket.h>
#include <sched.h>
#include <unistd.h>

#include "TestMessage.h"
#include "WextMessage.h"
#include "ny80211/WextEvents.h"

namespace Ny80211::testing {

// Moves the calling thread into a new network namespace; false when not
// allowed (not root).
inline bool enterOwnNetworkNamespace() { return geteuid() == 0 && unshare(CLONE_NEWNET) == 0; }

class LinkPeer {
 public:
  LinkPeer() : socket_(nl_socket_alloc()) {
    if (socket_ == nullptr || nl_connect(socket_, NETLINK_ROUTE) != 0) {
      throw std::runtime_error("rtnetlink peer: connect failed");
    }
  }
  ~LinkPeer() { nl_socket_free(socket_); }
  LinkPeer(LinkPeer const&) = delete;
  LinkPeer& operator=(LinkPeer const&) = delete;

  // Sends msg as it is to the link group. Without NLM_F_REQUEST the kernel,
  // which also gets every message sent, leaves it alone.
  void multicast(nl_msg* msg) {
    sockaddr_nl group{};
    group.nl_family = AF_NETLINK;
    group.nl_groups = 1U << (RTNLGRP_LINK - 1);
    nlmsg_set_dst(msg, &group);
    if (int const sent = nl_send(socket_, msg); sent < 0) {
      throw std::runtime_error(std::string("rtnetlink peer: multicast failed: ") + nl_geterror(sent));
    }
  }

  // A veth pair created and removed through the kernel: real RTM_NEWLINK and
  // RTM_DELLINK messages on the link group.
  // The peer goes to the calling thread's namespace, which need not be the
  // process's.
  void addVethPair(char const* name, char const* peer) {
    check(rtnl_link_veth_add(socket_, name, peer, gettid()), "veth add");
  }
  void renameLink(unsigned index, char const* name) {
    rtnl_link* link = rtnl_link_alloc();
    rtnl_link* change = rtnl_link_alloc();
    rtnl_link_set_ifindex(link, static_cast<int>(index));
    rtnl_link_set_name(change, name);
    int const result = rtnl_link_change(socket_, link, change, 0);
    rtnl_link_put(link);
    rtnl_link_put(change);
    check(result, "link rename");
  }
  void deleteLink(char const* name) {
    rtnl_link* link = rtnl_link_alloc();
    rtnl_link_set_name(link, name);
    int const result = rtnl_link_delete(socket_, link);
    rtnl_link_put(link);
    check(result, "link delete");
  }

 private:
  static void check(int result, char const* what) {
    if (result < 0) {
      throw std::runtime_error(std::string("rtnetlink peer: ") + what + ": " + nl_geterror(result));
    }
  }
  nl_sock* socket_;
};

// Runs f on a thread of its own, in a network namespace of its own that holds
// the veth pair v0/v1, with v0's index; what f throws is thrown here. False
// when the namespace or the pair cannot be made (not root, no veth).
inline bool withVethPair(std::function<void(LinkPeer&, unsigned)> const& f) {
  bool made = false;
  std::exception_ptr failure;
  std::thread([&] {
    if (!enterOwnNetworkNamespace()) return;
    try {
      LinkPeer peer;
      peer.addVethPair("v0", "v1");
      made = true;
      f(peer, if_nametoindex("v0"));
    } catch (...) {
      if (made) failure = std::current_exception();
    }
  }).join();
  if (failure) std::rethrow_exception(failure);
  return made;
}

// A CAC-started event of wlan0: the driver event the tests send, as its
// arrival shows that everything multicast before it has been read.
inline void multicastCacStarted(LinkPeer& peer, std::uint16_t frequency) {
  WextFields fields;
  fields.athEvent = Event::CacStarted::athEvent;
  fields.payload = bytesOf(frequency);
  fields.ifName = "wlan0";
  WextMessage const message(fields);
  peer.multicast(message.msg);
}

}  // namespace Ny80211::testing
