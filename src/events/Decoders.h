#pragma once
// The valid-message handlers of the two event sockets: each decodes one
// message into an event, logs its text and publishes it. A message that
// fails to decode is logged and dropped; an unknown one is dropped silently.
// Both always return NL_OK so that the rest of a receive is processed.

#include "NyEvent/Publisher.h"

struct nl_msg;

namespace Ny80211::detail {

class Nl80211EventDecoder {
 public:
  explicit Nl80211EventDecoder(NyEvent::Publisher publisher) : publisher_(publisher) {}
  int operator()(nl_msg* msg) const noexcept;

 private:
  NyEvent::Publisher publisher_;
};

class WextEventDecoder {
 public:
  explicit WextEventDecoder(NyEvent::Publisher publisher) : publisher_(publisher) {}
  int operator()(nl_msg* msg) const noexcept;

 private:
  NyEvent::Publisher publisher_;
};

}  // namespace Ny80211::detail
