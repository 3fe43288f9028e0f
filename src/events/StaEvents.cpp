#include <fmt/format.h>

#include "AthPayload.h"
#include "ny80211/CodeTexts.h"
#include "ny80211/WextEvents.h"

namespace Ny80211::Event {

namespace {

// The 24-byte payload of the station events. Which code means what is each
// event's own choice.
struct Station {
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  MacAddress sta;
};

Station station(RtNetlinkMessage const& message) {
  detail::AthPayload<24> const payload(message);
  return {payload.at<std::uint32_t, 0>(), payload.at<std::uint32_t, 4>(), payload.macAt<8>()};
}

// "text (number)"
struct Code {
  std::string_view text;
  std::uint32_t number;
};
Code reasonCode(std::uint32_t code) { return {ieee80211_reason_to_string(code), code}; }
Code statusCode(std::uint32_t code) { return {ieee80211_status_to_string(code), code}; }

}  // namespace
}  // namespace Ny80211::Event

template <>
struct fmt::formatter<Ny80211::Event::Code> : fmt::formatter<fmt::string_view> {
  template <class Context>
  auto format(Ny80211::Event::Code const& code, Context& ctx) const {
    return fmt::format_to(ctx.out(), "{} ({})", code.text, code.number);
  }
};

namespace Ny80211::Event {

StaAuthConfirm::StaAuthConfirm(RtNetlinkMessage const& message) : AthWextEvent(message, athEvent) {
  auto const payload = station(message);
  sta_ = payload.sta;
  status_ = payload.first;
}
StaAuthConfirm::~StaAuthConfirm() = default;

std::string StaAuthConfirm::toString() const {
  if (status_ == 0) return fmt::format("{}: STA {} authenticated", ifName(), sta_);
  return fmt::format("{}: STA {} authentication result: {}", ifName(), sta_, statusCode(status_));
}

StaAssocConfirm::StaAssocConfirm(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent), status_(station(message).first) {}
StaAssocConfirm::~StaAssocConfirm() = default;

std::string StaAssocConfirm::toString() const {
  if (status_ == 0) return fmt::format("{}: STA (re)associated", ifName());
  return fmt::format("{}: STA (re)association result: {}", ifName(), statusCode(status_));
}

// The confirm carries its reason in the first code, the indication in the
// second: the driver fills them so.
StaDeauthConfirm::StaDeauthConfirm(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent) {
  auto const payload = station(message);
  sta_ = payload.sta;
  reason_ = payload.first;
}
StaDeauthConfirm::~StaDeauthConfirm() = default;

std::string StaDeauthConfirm::toString() const {
  return fmt::format("{}: STA {} deauthenticated, reason: {}", ifName(), sta_, reasonCode(reason_));
}

StaAuthIndication::StaAuthIndication(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent) {
  auto const payload = station(message);
  sta_ = payload.sta;
  status_ = payload.first;
}
StaAuthIndication::~StaAuthIndication() = default;

std::string StaAuthIndication::toString() const {
  auto text = fmt::format("{}: STA {} authentication indication", ifName(), sta_);
  if (status_ != 0) text += fmt::format(", status: {}", statusCode(status_));
  return text;
}

StaDeauthIndication::StaDeauthIndication(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent) {
  auto const payload = station(message);
  sta_ = payload.sta;
  reason_ = payload.second;
}
StaDeauthIndication::~StaDeauthIndication() = default;

std::string StaDeauthIndication::toString() const {
  return fmt::format("{}: STA {} deauthentication indication, reason: {}", ifName(), sta_,
                     reasonCode(reason_));
}

StaDisassocIndication::StaDisassocIndication(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent) {
  auto const payload = station(message);
  sta_ = payload.sta;
  reason_ = payload.second;
}
StaDisassocIndication::~StaDisassocIndication() = default;

std::string StaDisassocIndication::toString() const {
  return fmt::format("{}: STA {} disassociation indication, reason: {}", ifName(), sta_,
                     reasonCode(reason_));
}

StaDisassocConfirm::StaDisassocConfirm(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent) {
  auto const payload = station(message);
  sta_ = payload.sta;
  status_ = payload.first;
  reason_ = payload.second;
}
StaDisassocConfirm::~StaDisassocConfirm() = default;

std::string StaDisassocConfirm::toString() const {
  if (status_ == 0) {
    return fmt::format("{}: STA {} disassociated, reason: {}", ifName(), sta_, reasonCode(reason_));
  }
  return fmt::format("{}: STA {} disassociation result: {}, reason: {}", ifName(), sta_,
                     statusCode(status_), reasonCode(reason_));
}

StaAssocIndication::StaAssocIndication(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent), sta_(station(message).sta) {}
StaAssocIndication::~StaAssocIndication() = default;

std::string StaAssocIndication::toString() const {
  return fmt::format("{}: STA {} association indication", ifName(), sta_);
}

StaReassocIndication::StaReassocIndication(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent), sta_(station(message).sta) {}
StaReassocIndication::~StaReassocIndication() = default;

std::string StaReassocIndication::toString() const {
  return fmt::format("{}: STA {} reassociation indication", ifName(), sta_);
}

KeySetDoneIndication::KeySetDoneIndication(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent), sta_(station(message).sta) {}
KeySetDoneIndication::~KeySetDoneIndication() = default;

std::string KeySetDoneIndication::toString() const {
  return fmt::format("{}: STA {} key set done indication", ifName(), sta_);
}

StaAuthorized::StaAuthorized(RtNetlinkMessage const& message) : AthWextEvent(message, athEvent) {
  detail::AthPayload<16> const payload(message);
  sta_ = payload.macAt<0>();
  channel_ = payload.at<std::uint8_t, 6>();
  aid_ = payload.at<std::uint16_t, 8>();
  phyMode_ = static_cast<ieee80211_phymode>(payload.at<std::uint16_t, 10>());
  auto const chains = payload.at<std::uint8_t, 12>();
  rxChains_ = static_cast<std::uint8_t>(chains >> 4);
  txChains_ = static_cast<std::uint8_t>(chains & 0x0f);
  qam256_ = payload.at<std::uint8_t, 13>() != 0;
  vlan_ = payload.at<std::uint16_t, 14>();
}
StaAuthorized::~StaAuthorized() = default;

std::string StaAuthorized::toString() const {
  return fmt::format(
      "{}: STA {} authorized (channel {} / VLAN {} / AID {} / PHY mode {} / RX:TX chains {}:{}{})",
      ifName(), sta_, channel_, vlan_, aid_, phyMode_, rxChains_, txChains_,
      qam256_ ? " / 256-QAM" : "");
}

StaLeave::StaLeave(RtNetlinkMessage const& message) : AthWextEvent(message, athEvent) {
  detail::AthPayload<16> const payload(message);
  sta_ = payload.macAt<0>();
  channel_ = payload.at<std::uint8_t, 6>();
  aid_ = payload.at<std::uint16_t, 8>();
  reason_ = payload.at<std::uint32_t, 12>();
}
StaLeave::~StaLeave() = default;

std::string StaLeave::toString() const {
  return fmt::format("{}: STA {} left (channel {} / AID {}), reason: {}", ifName(), sta_, channel_,
                     aid_, reasonCode(reason_));
}

NeighborRequest::NeighborRequest(RtNetlinkMessage const& message)
    : AthWextEvent(message, athEvent) {
  detail::AthPayload<72> const payload(message);
  sta_ = payload.macAt<0>();
  block_ = payload.at<Block, 8>();
}
NeighborRequest::~NeighborRequest() = default;

std::string NeighborRequest::toString() const {
  return fmt::format("{}: STA {} requests neighbor report", ifName(), sta_);
}

}  // namespace Ny80211::Event
