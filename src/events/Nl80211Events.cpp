#include <fmt/format.h>
#include <fmt/ranges.h>
#include <netlink/attr.h>

#include "ny80211/CodeTexts.h"
#include "ny80211/Error.h"
#include "ny80211/Events.h"
#include "ny80211/GenlMessage.h"

namespace Ny80211::Event {

Nl80211Event::Nl80211Event(GenlMessage const& message, std::uint8_t expectedCommand) {
  auto const command = message.commandID();
  if (command != expectedCommand) {
    throw Error(fmt::format("unexpected nl80211 event ID {}", static_cast<unsigned>(command)));
  }
}

Nl80211Event::~Nl80211Event() = default;

WiPhyCreated::WiPhyCreated(GenlMessage const& message)
    : Nl80211Event(message, NL80211_CMD_NEW_WIPHY) {
  info_.readFrom(message.attributes());
}

WiPhyCreated::~WiPhyCreated() = default;

std::string WiPhyCreated::toString() const {
  return fmt::format("wiphy created: {}", info_.toString());
}

IfcCreated::IfcCreated(GenlMessage const& message)
    : Nl80211Event(message, NL80211_CMD_NEW_INTERFACE) {
  auto const& attrs = message.attributes();
  info_.readFrom(attrs);
  if (auto const fourAddr = attrs.tryGetU8(NL80211_ATTR_4ADDR)) fourAddr_ = *fourAddr != 0;
}

IfcCreated::~IfcCreated() = default;

std::string IfcCreated::toString() const {
  return fmt::format("ifc created: {}", info_.toString());
}

IfcDeleted::IfcDeleted(GenlMessage const& message)
    : Nl80211Event(message, NL80211_CMD_DEL_INTERFACE) {
  info_.readFrom(message.attributes());
}

IfcDeleted::~IfcDeleted() = default;

std::string IfcDeleted::toString() const {
  return fmt::format("ifc deleted: {}", info_.toString());
}

ApStopped::ApStopped(GenlMessage const& message) : Nl80211Event(message, NL80211_CMD_STOP_AP) {
  auto const& attrs = message.attributes();
  phy_ = WiPhyID(attrs.getU32(NL80211_ATTR_WIPHY));
  ifc_ = NetIfcID(attrs.getU32(NL80211_ATTR_IFINDEX));
  wdev_ = WDevID(attrs.getU64(NL80211_ATTR_WDEV));
}

ApStopped::~ApStopped() = default;

std::string ApStopped::toString() const {
  return fmt::format("AP stopped (phy {:i} / ifc {:i} / wdev {:i})", phy_, ifc_, wdev_);
}

RegDomainChanged::RegDomainChanged(GenlMessage const& message)
    : Nl80211Event(message, NL80211_CMD_REG_CHANGE) {
  auto const& attrs = message.attributes();
  phy_ = WiPhyID(attrs.getU32(NL80211_ATTR_WIPHY));
  // nl80211 sends both as u8; a newer kernel's value is kept and prints
  // "<unknown>".
  initiator_ = KernelEnum<nl80211_reg_initiator>::fromRaw(attrs.getU8(NL80211_ATTR_REG_INITIATOR));
  type_ = KernelEnum<nl80211_reg_type>::fromRaw(attrs.getU8(NL80211_ATTR_REG_TYPE));
}

RegDomainChanged::~RegDomainChanged() = default;

std::string RegDomainChanged::toString() const {
  return fmt::format("regdomain (type {}) for phy {:i} changed by {}", type_, phy_, initiator_);
}

ChannelSwitched::ChannelSwitched(GenlMessage const& message)
    : Nl80211Event(message, NL80211_CMD_CH_SWITCH_NOTIFY) {
  auto const& attrs = message.attributes();
  vap_ = VapID(attrs.getU32(NL80211_ATTR_IFINDEX));
  channel_.readFrom(attrs);
}

ChannelSwitched::~ChannelSwitched() = default;

std::string ChannelSwitched::toString() const {
  return fmt::format("{:p} switched to channel: {}", vap_, channel_);
}

ScanEventBase::ScanEventBase(GenlMessage const& message, std::uint8_t command)
    : Nl80211Event(message, command) {
  auto const& attrs = message.attributes();
  vap_ = VapID(attrs.getU32(NL80211_ATTR_IFINDEX));
  // Both lists are nests of bare values; the entries' own types are positions.
  AttrStream const freqs(attrs.find(NL80211_ATTR_SCAN_FREQUENCIES));
  freqs_.reserve(freqs.size());
  freqs.forEachAttr([this](nlattr const* freq) { freqs_.emplace_back(getU32(freq)); });
  AttrStream const ssids(attrs.find(NL80211_ATTR_SCAN_SSIDS));
  ssids_.reserve(ssids.size());
  ssids.forEachAttr([this](nlattr const* ssid) {
    auto const bytes = getBytes(ssid);
    ssids_.emplace_back(bytes.begin(), bytes.end());
  });
}

ScanEventBase::~ScanEventBase() = default;

std::string ScanEventBase::text(std::string_view what) const {
  return fmt::format("scan {} for {:p}, scanned freqs [{}]", what, vap_, fmt::join(freqs_, ", "));
}

ScanStarted::~ScanStarted() = default;
ScanFinished::~ScanFinished() = default;
ScanAborted::~ScanAborted() = default;

}  // namespace Ny80211::Event
