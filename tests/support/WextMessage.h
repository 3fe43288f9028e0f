#pragma once
// A real rtnetlink link message as the chip driver makes the kernel send it:
// RTM_NEWLINK, an ifinfomsg, IFLA_IFNAME, and IFLA_WIRELESS holding one
// wireless-extension event as a 64-bit kernel lays out iw_event with a
// pointer-free iw_point: 0 total length | 2 command (0x8C02) | 4 pad |
// 8 payload length | 10 ath event number (iw_point flags) | 12 pad | 16 payload.
// WextFields' knobs lie about lengths, leave parts out or cut the message
// short. The buffer holds exactly the message, so AddressSanitizer sees any
// read past it. Needs libnl only.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

namespace Ny80211::testing {

// Set with designated initializers, in this order: {.athEvent = 44, .payload = {0x8c, 0x14}, .ifName = "wifi1"}.
struct WextFields {
  std::uint16_t athEvent = 0;
  std::vector<std::uint8_t> payload{};
  std::optional<std::string> ifName = "ath0";    // none: no IFLA_IFNAME
  std::uint16_t wextCommand = 0x8C02;            // IWEVCUSTOM
  std::optional<std::uint16_t> payloadLength{};  // the one the event claims; the payload's size when unset
  std::optional<std::size_t> wirelessSize{};     // IFLA_WIRELESS's payload cut (or zero-padded) to this
  bool wireless = true;                          // false: an ordinary link message without IFLA_WIRELESS
  std::uint16_t type = RTM_NEWLINK;
  std::optional<std::size_t> linkSize{};  // the message cut to this after its netlink header
};

class WextMessage {  // owns msg
 public:
  explicit WextMessage(WextFields const& fields) : msg(build(fields)) {}
  ~WextMessage() { nlmsg_free(msg); }
  WextMessage(WextMessage const&) = delete;
  WextMessage& operator=(WextMessage const&) = delete;

  // The IFLA_WIRELESS payload alone.
  static std::vector<std::uint8_t> iwEvent(WextFields const& fields) {
    std::vector<std::uint8_t> event(16 + fields.payload.size());
    auto const length = fields.payloadLength.value_or(static_cast<std::uint16_t>(fields.payload.size()));
    std::uint16_t const words[] = {
        static_cast<std::uint16_t>(event.size()), fields.wextCommand, 0, 0, length, fields.athEvent};
    std::memcpy(event.data(), words, sizeof words);
    std::copy(fields.payload.begin(), fields.payload.end(), event.begin() + 16);
    if (fields.wirelessSize) event.resize(*fields.wirelessSize);
    return event;
  }

  nl_msg* msg;

 private:
  static nl_msg* build(WextFields const& fields) {
    auto const event = iwEvent(fields);
    nl_msg* msg = nlmsg_alloc();
    nlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, fields.type, 0, 0);
    ifinfomsg info{};  // AF_UNSPEC
    info.ifi_index = 7;
    nlmsg_append(msg, &info, sizeof info, NLMSG_ALIGNTO);
    if (fields.ifName) nla_put_string(msg, IFLA_IFNAME, fields.ifName->c_str());
    if (fields.wireless) nla_put(msg, IFLA_WIRELESS, static_cast<int>(event.size()), event.data());
    // An exact copy, of the first bytes only when cut, so that nothing past
    // the message is there to be read.
    auto* header = nlmsg_hdr(msg);
    if (fields.linkSize)
      header->nlmsg_len = std::min(header->nlmsg_len, static_cast<std::uint32_t>(NLMSG_HDRLEN + *fields.linkSize));
    nl_msg* exact = nlmsg_convert(header);
    nlmsg_free(msg);
    return exact;
  }
};

}  // namespace Ny80211::testing
