// Fuzz target: the nl80211 event decoder, the handler the nl80211 event socket
// installs as its valid-message callback, on one generic netlink message
// (either mode). It must return NL_OK, throw nothing and publish at most one
// event; each event's text is logged, so the sink formats it.

#include <cstddef>
#include <cstdint>

#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <netlink/handlers.h>

#include "FuzzInput.h"
#include "NyEvent/Publisher.h"
#include "events/Decoders.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace Ny80211;
  fuzz::logSink();
  fuzz::Input input(data, size);
  auto const message = fuzz::genlInput(input);
  if (!message) return 0;

  Poco::NotificationQueue queue;
  detail::Nl80211EventDecoder const decoder{NyEvent::Publisher(queue)};
  if (decoder(message.get()) != NL_OK) fuzz::fail("the decoder did not return NL_OK");
  if (queue.size() > 1) fuzz::fail("more than one event from one message");
  Poco::AutoPtr<Poco::Notification> const event(queue.dequeueNotification());
  return 0;
}
