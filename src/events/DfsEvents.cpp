#include <array>

#include <fmt/format.h>

#include "AthPayload.h"
#include "ny80211/WextEvents.h"

namespace Ny80211::Event {

DfsEventBase::DfsEventBase(RtNetlinkMessage const& message, std::uint16_t athEvent)
    : AthWextEvent(message, athEvent),
      frequency_(detail::AthPayload<2>(message).at<std::uint16_t, 0>()) {}
DfsEventBase::~DfsEventBase() = default;

std::string DfsEventBase::text(std::string_view phrase) const {
  return fmt::format("{}: {} on {} MHz (channel {})", ifName(), phrase, frequency_,
                     frequency_.GetChannelNumber());
}

CacReset::~CacReset() = default;
RadarDetected::~RadarDetected() = default;
CacStarted::~CacStarted() = default;
CacCompleted::~CacCompleted() = default;
NolStarted::~NolStarted() = default;
NolFinished::~NolFinished() = default;
PreCacStarted::~PreCacStarted() = default;
PreCacCompleted::~PreCacCompleted() = default;

CacExpired::CacExpired(RtNetlinkMessage const& message) : AthWextEvent(message, athEvent) {
  auto name = detail::AthPayload<16>(message).at<std::array<char, 16>, 0>();
  // The driver's name buffer need not end in a NUL; the last byte is its place.
  name.back() = '\0';
  cacIfName_ = name.data();
}
CacExpired::~CacExpired() = default;

std::string CacExpired::toString() const {
  return fmt::format("CAC expired for ifc {}", cacIfName_);
}

}  // namespace Ny80211::Event
