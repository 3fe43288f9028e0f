// Fuzz target: the wireless-extension event decoder, the handler the wext
// event socket installs, with the rtnetlink view it reads through.
//   framed: [0] attributes... — an RTM_NEWLINK message with its ifinfomsg
//   raw:    [1] message... — any rtnetlink message, headers included
// The view must not throw where it promises not to, and everything it points
// to must lie inside the message. The decoder must return NL_OK, publish at
// most one event, and write no log line for a message that carries no
// wireless-extension event.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <netlink/handlers.h>

#include "FuzzInput.h"
#include "NyEvent/Publisher.h"
#include "events/Decoders.h"
#include "ny80211/Error.h"
#include "ny80211/RtNetlinkMessage.h"

namespace {

using namespace Ny80211;

// Copies what the accessors point to, so that AddressSanitizer checks it.
void readView(RtNetlinkMessage const& view) {
  auto const name = view.getIfName();
  if (!view.isWextEvent()) return;
  std::vector<std::uint8_t> event(view.wextEventSize());
  try {
    if (!event.empty()) std::memcpy(event.data(), view.getWextEvent(), event.size());
    std::uint16_t words[4];
    std::memcpy(words, view.getWextEventData(), sizeof words);
    static_cast<void>(view.wextEventID());
  } catch (Error const&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  auto& log = fuzz::logSink();
  fuzz::Input input(data, size);
  auto const message =
      fuzz::isRaw(input) ? fuzz::rawMessage(input.rest()) : fuzz::linkMessage(input.rest());
  if (!message) return 0;

  RtNetlinkMessage const view(message.get());
  readView(view);

  Poco::NotificationQueue queue;
  detail::WextEventDecoder const decoder{NyEvent::Publisher(queue)};
  auto const linesBefore = log.lines();
  if (decoder(message.get()) != NL_OK) fuzz::fail("the decoder did not return NL_OK");
  if (!view.isWextEvent() && log.lines() != linesBefore) {
    fuzz::fail("a log line for a message without a wireless-extension event");
  }
  if (queue.size() > 1) fuzz::fail("more than one event from one message");
  Poco::AutoPtr<Poco::Notification> const event(queue.dequeueNotification());
  return 0;
}
