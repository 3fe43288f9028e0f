#include <cstdint>
#include <exception>
#include <memory>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <linux/netlink.h>
#include <netlink/errno.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>

#include "netlink/NlCallbacks.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Socket.h"
#include "trace/Trace.h"

namespace Ny80211 {

namespace {

constexpr int receiveBufferSize = 256 * 1024;

class Lock {
 public:
  explicit Lock(pthread_mutex_t& mutex) : mutex_(mutex) {
    if (int const error = pthread_mutex_lock(&mutex_); error != 0) {
      throw std::system_error(error, std::generic_category(), "command socket lock");
    }
  }
  ~Lock() { pthread_mutex_unlock(&mutex_); }
  Lock(Lock const&) = delete;
  Lock& operator=(Lock const&) = delete;

 private:
  pthread_mutex_t& mutex_;
};

// Replies of this exchange pass; a late reply of an earlier exchange (one
// that failed while its replies were still due) is dropped, so that it can
// neither end this exchange nor leave the socket behind; anything else is a
// mismatch. libnl's own check counts exchanges and never catches up after a
// failure.
int checkSequence(nl_msg* msg, void* arg) {
  auto const expected = *static_cast<std::uint32_t const*>(arg);
  auto const received = nlmsg_hdr(msg)->nlmsg_seq;
  if (received == expected) return NL_OK;
  // Sequence numbers only grow (modulo 2^32).
  if (static_cast<std::int32_t>(expected - received) > 0) return NL_SKIP;
  return -NLE_SEQ_MISMATCH;
}

}  // namespace

Nl80211Socket::Nl80211Socket() = default;

Nl80211Socket::~Nl80211Socket() {
  if (callbacks_ != nullptr) nl_cb_put(callbacks_);
  if (socket_ != nullptr) nl_socket_free(socket_);
}

Nl80211Socket::Nl80211Socket(Nl80211Socket&& other) noexcept
    : socket_(std::exchange(other.socket_, nullptr)),
      familyID_(std::exchange(other.familyID_, 0)),
      callbacks_(std::exchange(other.callbacks_, nullptr)) {}

Nl80211Socket& Nl80211Socket::operator=(Nl80211Socket&& other) noexcept {
  if (this != &other) {
    if (callbacks_ != nullptr) nl_cb_put(callbacks_);
    if (socket_ != nullptr) nl_socket_free(socket_);
    socket_ = std::exchange(other.socket_, nullptr);
    familyID_ = std::exchange(other.familyID_, 0);
    callbacks_ = std::exchange(other.callbacks_, nullptr);
  }
  return *this;
}

void NlSockDeleter::operator()(nl_sock* socket) const noexcept { nl_socket_free(socket); }

nl_sock* Nl80211Socket::releaseSocket() noexcept { return std::exchange(socket_, nullptr); }

void Nl80211Socket::connectSocket() {
  if (familyID_ != 0) throw Error("already connected");
  NlSockPtr socket(nl_socket_alloc());
  if (!socket) throw Error("netlink socket allocation failed");
  if (genl_connect(socket.get()) != 0) throw Error("genl connection failed");
  if (nl_socket_set_buffer_size(socket.get(), receiveBufferSize, 0) != 0) {
    throw Error("failed to set socket buffer size");
  }
  // Ask the kernel for its extended acknowledgements, so that a rejected
  // command says why; a kernel without them just sends none.
  int const on = 1;
  setsockopt(nl_socket_get_fd(socket.get()), SOL_NETLINK, NETLINK_EXT_ACK, &on, sizeof on);
  detail::NlCbPtr callbacks(nl_cb_alloc(NL_CB_DEFAULT));
  if (!callbacks) throw Error("callback allocation failed");
  nl_socket_set_cb(socket.get(), callbacks.get());
  int const family = genl_ctrl_resolve(socket.get(), "nl80211");
  if (family < 0) throw Error("protocol nl80211 not found");

  if (callbacks_ != nullptr) nl_cb_put(callbacks_);
  if (socket_ != nullptr) nl_socket_free(socket_);
  socket_ = socket.release();
  callbacks_ = callbacks.release();
  familyID_ = family;
}

// The lock is statically initialised and, like the C code it mirrors, never
// destroyed.
CommandSocket::~CommandSocket() = default;

void CommandSocket::connect() { connectSocket(); }

void CommandSocket::sendMessage(GenlMessage& message, std::function<int(nl_msg*)> const& onValid) {
  Lock const lock(lock_);
  if (socket() == nullptr) throw Error("command socket not connected");
  if (message.toNlMsg() == nullptr) throw Error("message to send is empty");
  message.setGenlFamilyID(Badge<CommandSocket>(), familyID());
  // A fresh sequence number on every send, so that a command can be sent
  // again: libnl only numbers a message whose number is still unset.
  nlmsg_hdr(message.toNlMsg())->nlmsg_seq = NL_AUTO_SEQ;

  if (int const sent = nl_send_auto(socket(), message.toNlMsg()); sent < 0) {
    throw Error(fmt::format("message send failed: {} ({}); command: {}", nl_geterror(sent), sent,
                            message.debugInfoString()));
  }

  bool pending = true;
  std::unique_ptr<CmdFailure> failure;
  // An exception of onValid must not unwind through libnl (it would leak the
  // receive buffer); it is kept, the rest of the exchange is drained so that
  // the socket stays usable, and then it is rethrown.
  std::exception_ptr callerException;
  CallbackSet callbacks(
      [&](sockaddr_nl*, nlmsgerr* err) -> int {
        failure = std::make_unique<CmdFailure>(to_string(err));
        pending = false;
        return NL_STOP;
      },
      [&](nl_msg*) -> int {
        pending = false;
        return NL_STOP;
      },
      [&](nl_msg*) -> int {
        message.setAckReceived(Badge<CommandSocket>());
        pending = false;
        return NL_STOP;
      },
      [&](nl_msg* reply) -> int {
        if (callerException) return NL_OK;
        try {
          return onValid(reply);
        } catch (...) {
          callerException = std::current_exception();
          return NL_OK;
        }
      },
      false);
  // Not const: libnl hands it to checkSequence as a void*.
  std::uint32_t sequence = nlmsg_hdr(message.toNlMsg())->nlmsg_seq;
  int const set =
      nl_cb_set(callbacks.callbacks(), NL_CB_SEQ_CHECK, NL_CB_CUSTOM, checkSequence, &sequence);
  if (set != 0) {
    throw Error("message callback setup failed");
  }

  while (pending) {
    int const received = nl_recvmsgs(socket(), callbacks.callbacks());
    if (failure) break;
    if (received == -NLE_DUMP_INTR) {
      throw DumpInterrupted(
          fmt::format("{}; command: {}", nl_geterror(received), message.debugInfoString()));
    }
    if (received < 0) {
      throw Error(fmt::format("message receive failed: {} ({}); command: {}", nl_geterror(received),
                              received, message.debugInfoString()));
    }
  }
  if (callerException) std::rethrow_exception(callerException);
  if (failure) {
    failure->append(fmt::format("; failed command: {}", message.debugInfoString()));
    trace::cmdWarn("{}\n", failure->what());
    throw CmdFailure(*failure);
  }
}

}  // namespace Ny80211
