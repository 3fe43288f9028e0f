#include "ny80211/RtNetlinkMessage.h"

#include <cstring>

#include <fmt/format.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include "netlink/AttrWalk.h"
#include "ny80211/Error.h"

namespace Ny80211 {

RtNetlinkMessage::RtNetlinkMessage(nl_msg* msg) noexcept {
  auto* header = nlmsg_hdr(msg);
  if (header->nlmsg_type != RTM_NEWLINK) return;
  // nlmsg_find_attr would start the attributes past the end of a message too
  // short for its family header; such a message carries nothing.
  if (!nlmsg_valid_hdr(header, sizeof(ifinfomsg))) return;
  // One walk for both; the first of each type counts, as with nlmsg_find_attr.
  detail::forEachValid(nlmsg_attrdata(header, sizeof(ifinfomsg)),
                       nlmsg_attrlen(header, sizeof(ifinfomsg)), [this](nlattr* attr) {
                         auto const type = detail::typeOf(attr);
                         if (type == IFLA_IFNAME && ifName_ == nullptr) ifName_ = attr;
                         if (type == IFLA_WIRELESS && wireless_ == nullptr) wireless_ = attr;
                         return ifName_ != nullptr && wireless_ != nullptr;
                       });
}

std::string RtNetlinkMessage::getIfName() const {
  if (ifName_ == nullptr) return {};
  // Up to the NUL, and never past the attribute when the NUL is missing.
  auto const* text = static_cast<char const*>(nla_data(ifName_));
  return std::string(text, strnlen(text, static_cast<std::size_t>(nla_len(ifName_))));
}

std::size_t RtNetlinkMessage::wextEventSize() const noexcept {
  return wireless_ != nullptr ? std::size_t{wireless_->nla_len} - NLA_HDRLEN : 0;
}

std::uint16_t const* RtNetlinkMessage::wextEvent(std::size_t minimum) const {
  if (wireless_ == nullptr) throw Error("not a wext event");
  if (wextEventSize() < minimum) {
    throw Error(fmt::format("wext event too short ({} < {})", wextEventSize(), minimum));
  }
  return reinterpret_cast<std::uint16_t const*>(reinterpret_cast<char const*>(wireless_) +
                                                NLA_HDRLEN);
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
