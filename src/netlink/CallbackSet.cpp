#include <exception>

#include <netlink/handlers.h>

#include "ny80211/Error.h"
#include "ny80211/Socket.h"

namespace Ny80211 {

namespace {

int errorTrampoline(sockaddr_nl* address, nlmsgerr* err, void* arg) {
  return static_cast<CallbackSet*>(arg)->handleError(address, err);
}
int finishTrampoline(nl_msg* msg, void* arg) {
  return static_cast<CallbackSet*>(arg)->handleFinish(msg);
}
int ackTrampoline(nl_msg* msg, void* arg) { return static_cast<CallbackSet*>(arg)->handleAck(msg); }
int validTrampoline(nl_msg* msg, void* arg) {
  return static_cast<CallbackSet*>(arg)->handleValid(msg);
}
int acceptAnySequence(nl_msg*, void*) { return NL_OK; }

}  // namespace

CallbackSet::CallbackSet(ErrorHandler onError, MessageHandler onFinish, MessageHandler onAck,
                         MessageHandler onValid, bool noSequenceCheck)
    : onError_(std::move(onError)),
      onFinish_(std::move(onFinish)),
      onAck_(std::move(onAck)),
      onValid_(std::move(onValid)),
      callbacks_(nl_cb_alloc(NL_CB_DEFAULT)) {
  if (callbacks_ == nullptr) throw Error("callback allocation failed");
  int result = nl_cb_err(callbacks_, NL_CB_CUSTOM, errorTrampoline, this);
  result |= nl_cb_set(callbacks_, NL_CB_FINISH, NL_CB_CUSTOM, finishTrampoline, this);
  result |= nl_cb_set(callbacks_, NL_CB_ACK, NL_CB_CUSTOM, ackTrampoline, this);
  result |= nl_cb_set(callbacks_, NL_CB_VALID, NL_CB_CUSTOM, validTrampoline, this);
  if (noSequenceCheck) {
    result |= nl_cb_set(callbacks_, NL_CB_SEQ_CHECK, NL_CB_CUSTOM, acceptAnySequence, nullptr);
  }
  if (result != 0) {
    nl_cb_put(callbacks_);
    throw Error("message callback setup failed");
  }
}

CallbackSet::~CallbackSet() { nl_cb_put(callbacks_); }

int CallbackSet::handleValid(nl_msg* msg) { return onValid_(msg); }
int CallbackSet::handleAck(nl_msg* msg) { return onAck_(msg); }
int CallbackSet::handleFinish(nl_msg* msg) { return onFinish_(msg); }
int CallbackSet::handleError(sockaddr_nl* address, nlmsgerr* err) noexcept {
  return onError_(address, err);
}

}  // namespace Ny80211
