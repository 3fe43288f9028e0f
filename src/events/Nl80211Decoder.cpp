#include <cstdint>
#include <optional>

#include <Poco/AutoPtr.h>
#include <fmt/format.h>
#include <netlink/handlers.h>

#include "events/Decoders.h"
#include "ny80211/Error.h"
#include "ny80211/Events.h"
#include "ny80211/GenlMessage.h"
#include "trace/Trace.h"

namespace Ny80211::detail {

namespace {

// The event for the command, or null for a command no event stands for.
Poco::AutoPtr<Event::Nl80211Event> makeEvent(GenlMessage const& message, std::uint8_t command) {
  switch (command) {
    case NL80211_CMD_TRIGGER_SCAN:
      return new Event::ScanStarted(message);
    case NL80211_CMD_NEW_SCAN_RESULTS:
      return new Event::ScanFinished(message);
    case NL80211_CMD_SCAN_ABORTED:
      return new Event::ScanAborted(message);
    case NL80211_CMD_REG_CHANGE:
      return new Event::RegDomainChanged(message);
    case NL80211_CMD_CH_SWITCH_NOTIFY:
      return new Event::ChannelSwitched(message);
    case NL80211_CMD_NEW_INTERFACE:
      return new Event::IfcCreated(message);
    case NL80211_CMD_DEL_INTERFACE:
      return new Event::IfcDeleted(message);
    case NL80211_CMD_STOP_AP:
      return new Event::ApStopped(message);
    case NL80211_CMD_NEW_WIPHY:
      return new Event::WiPhyCreated(message);
    default:
      return nullptr;
  }
}

}  // namespace

int Nl80211EventDecoder::operator()(nl_msg* msg) const noexcept {
  std::optional<GenlMessage> message;
  std::uint8_t command = 0;
  try {
    message.emplace(msg);
    command = message->commandID();
  } catch (Error const& e) {
    trace::cmdErr("error processing nl80211 event (ID {}): {}", 0, e.what());
    return NL_OK;
  }

  Poco::AutoPtr<Event::Nl80211Event> event;
  try {
    event = makeEvent(*message, command);
  } catch (Error const& e) {
    trace::eventErr("Error processing nl80211 event {}: {}", cmd_fmt(command), e.what());
    return NL_OK;
  }
  if (event.isNull()) return NL_OK;

  // Logged before it is published, so that the log shows events in the
  // order consumers get them.
  if (trace::enabled(trace::Provider::Event, trace::Level::Info)) {
    trace::eventInfo("{}", event->toString());
  }
  publisher_.Publish(Poco::AutoPtr<Poco::Notification>(event));
  return NL_OK;
}

}  // namespace Ny80211::detail
