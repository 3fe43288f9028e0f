#include "ny80211/WextEvents.h"

#include <cstring>

#include <fmt/format.h>

#include "AthPayload.h"
#include "ny80211/Error.h"
#include "ny80211/RtNetlinkMessage.h"

namespace Ny80211 {

namespace detail {

namespace {

// The custom event's iw_point, from byte 8 of the wireless payload.
struct CustomHeader {
  std::uint16_t payloadLength;
  std::uint16_t athEvent;
};

CustomHeader customHeader(RtNetlinkMessage const& message) {
  CustomHeader header{};
  std::memcpy(&header, message.getWextEventData(), sizeof header);
  return header;
}

}  // namespace

std::uint16_t athEventOf(RtNetlinkMessage const& message) { return customHeader(message).athEvent; }

void copyAthPayload(RtNetlinkMessage const& message, std::byte* to, std::size_t size) {
  auto const received = customHeader(message).payloadLength;
  if (received != size) {
    throw Error(fmt::format("ath event payload size mismatch ({} != {})", size, received));
  }
  // The length is the driver's word; the attribute is what arrived.
  auto const needed = RtNetlinkMessage::customHeaderSize + size;
  if (message.wextEventSize() < needed) {
    throw Error(fmt::format("wext event too short ({} < {})", message.wextEventSize(), needed));
  }
  auto const* event = reinterpret_cast<std::byte const*>(message.getWextEvent());
  std::memcpy(to, event + RtNetlinkMessage::customHeaderSize, size);
}

}  // namespace detail

namespace Event {

namespace {

// Checked before the base reads the interface name.
RtNetlinkMessage const& customEvent(RtNetlinkMessage const& message) {
  auto const id = message.wextEventID();
  if (id != AthWextEvent::customEventID) {
    throw Error(
        fmt::format("unexpected wext event ID ({} != {})", id, AthWextEvent::customEventID));
  }
  return message;
}

}  // namespace

WextEvent::WextEvent(RtNetlinkMessage const& message) : ifName_(message.getIfName()) {}
WextEvent::~WextEvent() = default;

AthWextEvent::AthWextEvent(RtNetlinkMessage const& message, std::uint16_t expectedAthEvent)
    : WextEvent(customEvent(message)) {
  auto const received = detail::athEventOf(message);
  if (received != expectedAthEvent) {
    throw Error(fmt::format("unexpected ath event ID ({} != {})", received, expectedAthEvent));
  }
}
AthWextEvent::~AthWextEvent() = default;

}  // namespace Event
}  // namespace Ny80211
