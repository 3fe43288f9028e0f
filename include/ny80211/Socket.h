#pragma once
// The channel to the kernel's nl80211 family: a generic netlink socket with
// the resolved family, and the command exchange on top of it.

#include <functional>
#include <memory>

#include <pthread.h>

#include "ny80211/Export.h"

struct nl_sock;
struct nl_cb;
struct nl_msg;
struct nlmsgerr;
struct sockaddr_nl;

namespace Ny80211 {

class GenlMessage;

// Owns a libnl socket: nl_socket_free.
struct NY80211_API NlSockDeleter {
  void operator()(nl_sock* socket) const noexcept;
};
using NlSockPtr = std::unique_ptr<nl_sock, NlSockDeleter>;

// Four function objects bound to libnl's error, finish, acknowledgement and
// valid-message callbacks.
class NY80211_API CallbackSet {
 public:
  using ErrorHandler = std::function<int(sockaddr_nl*, nlmsgerr*)>;
  using MessageHandler = std::function<int(nl_msg*)>;

  // noSequenceCheck switches libnl's sequence check off (multicast events).
  // Throws Error "callback allocation failed" or "message callback setup failed".
  CallbackSet(ErrorHandler onError, MessageHandler onFinish, MessageHandler onAck,
              MessageHandler onValid, bool noSequenceCheck);
  ~CallbackSet();
  CallbackSet(CallbackSet const&) = delete;
  CallbackSet& operator=(CallbackSet const&) = delete;

  int handleValid(nl_msg* msg);
  int handleAck(nl_msg* msg);
  int handleFinish(nl_msg* msg);
  // Lets no exception out: one terminates the process.
  int handleError(sockaddr_nl* address, nlmsgerr* err) noexcept;

  nl_cb* callbacks() const noexcept { return callbacks_; }

 private:
  ErrorHandler onError_;
  MessageHandler onFinish_;
  MessageHandler onAck_;
  MessageHandler onValid_;
  nl_cb* callbacks_ = nullptr;
};

// A generic netlink socket with the family number of "nl80211".
class NY80211_API Nl80211Socket {
 public:
  Nl80211Socket();
  Nl80211Socket(Nl80211Socket const&) = delete;
  Nl80211Socket& operator=(Nl80211Socket const&) = delete;
  // Moving takes the socket, its callbacks and the family; the source is left
  // unconnected.
  Nl80211Socket(Nl80211Socket&& other) noexcept;
  Nl80211Socket& operator=(Nl80211Socket&& other) noexcept;
  virtual ~Nl80211Socket();

  // Opens the socket and resolves the family; throws Error ("already
  // connected", "protocol nl80211 not found", ...). A failed connect leaves
  // the object as it was.
  void connectSocket();
  bool isConnected() const noexcept { return callbacks_ != nullptr; }

 protected:
  nl_sock* socket() const noexcept { return socket_; }
  int familyID() const noexcept { return familyID_; }
  // Hands the libnl socket over to a new owner (an event receiver). The
  // callbacks and the family stay: the object still counts as connected.
  nl_sock* releaseSocket() noexcept;

 private:
  // Tests adopt a socket connected to a user-space peer through this.
  friend struct SocketTestAccess;

  nl_sock* socket_ = nullptr;
  int familyID_ = 0;
  nl_cb* callbacks_ = nullptr;
};

// Sends one command at a time and receives its replies until the kernel
// acknowledges it, ends the dump, or reports an error.
class NY80211_API CommandSocket : public Nl80211Socket {
 public:
  CommandSocket() = default;
  // The lock is the object's own: neither copied nor moved.
  CommandSocket(CommandSocket const&) = delete;
  CommandSocket& operator=(CommandSocket const&) = delete;
  ~CommandSocket() override;

  void connect();

  // Runs onValid for each reply (each dump entry) on the calling thread, with
  // the socket's lock held; its result goes to libnl (NL_OK, NL_SKIP,
  // NL_STOP). Throws CmdFailure (kernel error), DumpInterrupted, Error
  // (transport; "command socket not connected" before connect()) or
  // std::system_error (lock). Exchanges of one socket never overlap; onValid
  // must not send on the same socket. After any failure the next exchange
  // works: late replies of a failed one are dropped.
  void sendMessage(GenlMessage& message, std::function<int(nl_msg*)> const& onValid);

 private:
  pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
};

}  // namespace Ny80211
