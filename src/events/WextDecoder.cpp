#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>

#include <Poco/AutoPtr.h>
#include <netlink/handlers.h>

#include "AthPayload.h"
#include "Decoders.h"
#include "ny80211/RtNetlinkMessage.h"
#include "ny80211/WextEvents.h"
#include "trace/Trace.h"

namespace Ny80211::detail {

namespace {

using Factory = Poco::AutoPtr<Event::AthWextEvent> (*)(RtNetlinkMessage const&);

template <class T>
Poco::AutoPtr<Event::AthWextEvent> make(RtNetlinkMessage const& message) {
  return Poco::AutoPtr<Event::AthWextEvent>(new T(message));
}

// Indexed by ath event number; numbers without a class stay empty.
template <class... Events>
constexpr auto factoryTable() {
  constexpr std::size_t size = std::max({std::size_t{Events::athEvent}...}) + 1;
  std::array<Factory, size> table{};
  ((table[Events::athEvent] = &make<Events>), ...);
  return table;
}

constexpr auto factories = factoryTable<
    Event::CacReset, Event::StaAuthConfirm, Event::StaAssocConfirm, Event::StaDeauthConfirm,
    Event::StaAuthIndication, Event::StaDeauthIndication, Event::StaDisassocIndication,
    Event::StaAssocIndication, Event::StaReassocIndication, Event::KeySetDoneIndication,
    Event::StaAuthorized, Event::StaLeave, Event::CacExpired, Event::StaDisassocConfirm,
    Event::RadarDetected, Event::CacStarted, Event::CacCompleted, Event::NolStarted,
    Event::NolFinished, Event::NeighborRequest, Event::PreCacStarted, Event::PreCacCompleted>();

}  // namespace

int WextEventDecoder::operator()(nl_msg* msg) const noexcept {
  RtNetlinkMessage const message(msg);
  std::uint16_t ath = 0;
  try {
    if (!message.isWextEvent()) return NL_OK;
    if (message.wextEventID() != Event::AthWextEvent::customEventID) return NL_OK;
    ath = athEventOf(message);
  } catch (std::exception const& e) {
    trace::cmdErr("error processing wext event: {}", e.what());
    return NL_OK;
  }
  if (ath >= factories.size() || factories[ath] == nullptr) return NL_OK;

  try {
    Poco::AutoPtr<Event::AthWextEvent> const event(factories[ath](message));
    // The text is built only for a listener.
    if (trace::enabled(trace::Provider::Event, trace::Level::Info)) {
      trace::eventInfo("{}", event->toString());
    }
    publisher_.Publish(event);
  } catch (std::exception const& e) {
    trace::eventErr("Error processing WEXT event with ath ID {}: {}", ath, e.what());
  }
  return NL_OK;
}

}  // namespace Ny80211::detail
