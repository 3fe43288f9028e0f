#include "ny80211/RtNetlinkMessage.h"

#include <cstring>

#include <fmt/format.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include "ny80211/Error.h"

namespace Ny80211 {

RtNetlinkMessage::RtNetlinkMessage(nl_msg* msg) noexcept {
  auto* header = nlmsg_hdr(msg);
  if (header->nlmsg_type != RTM_NEWLINK) return;
  // nlmsg_find_attr would start the attributes past the end of a message too
  // short for its family header; such a message carries nothing.
  if (!nlmsg_valid_hdr(header, sizeof(ifinfomsg))) return;
  ifName_ = nlmsg_find_attr(header, sizeof(ifinfomsg), IFLA_IFNAME);
  wireless_ = nlmsg_find_attr(header, sizeof(ifinfomsg), IFLA_WIRELESS);
}

std::string RtNetlinkMessage::getIfName() const {
  if (ifName_ == nullptr) return {};
  // Up to the NUL, and never past the attribute when the NUL is missing.
  auto const* text = static_cast<char const*>(nla_data(ifName_));
  return std::string(text, strnlen(text, static_cast<std::size_t>(nla_len(ifName_))));
}

std::size_t RtNetlinkMessage::wextEventSize() const noexcept {
  return wireless_ != nullptr ? static_cast<std::size_t>(nla_len(wireless_)) : 0;
}

std::uint16_t const* RtNetlinkMessage::wextEvent(std::size_t minimum) const {
  if (wireless_ == nullptr) throw Error("not a wext event");
  if (wextEventSize() < minimum) {
    throw Error(fmt::format("wext event too short ({} < {})", wextEventSize(), minimum));
  }
  return static_cast<std::uint16_t const*>(nla_data(wireless_));
}

std::uint16_t const* RtNetlinkMessage::getWextEvent() const { return wextEvent(0); }

std::uint16_t RtNetlinkMessage::wextEventID() const {
  std::uint16_t id = 0;
  std::memcpy(&id, wextEvent(wextHeaderSize) + 1, sizeof id);
  return id;
}

std::uint16_t const* RtNetlinkMessage::getWextEventData() const {
  return wextEvent(customHeaderSize) + 4;
}

}  // namespace Ny80211
