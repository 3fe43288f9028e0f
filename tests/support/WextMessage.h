#pragma once
// A real rtnetlink link message as the chip driver makes the kernel send it:
// RTM_NEWLINK, an ifinfomsg, IFLA_IFNAME, and IFLA_WIRELESS holding one
// wireless-extension event as a 64-bit kernel lays out iw_event with a
// pointer-free iw_point:
//
//   0 total length | 2 command (0x8C02) | 4 pad | 8 payload length |
//   10 ath event number (iw_point flags) | 12 pad | 16 payload
//
// The knobs of WextFields lie about lengths, leave parts out or cut the
// message short. The buffer holds exactly the message (rounded up to 4
// bytes), so AddressSanitizer sees any read past it. Needs libnl only.

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
#include <sys/socket.h>

namespace Ny80211::testing {

// Set with designated initializers, in this order:
// WextMessage({.athEvent = 44, .payload = {0x8c, 0x14}, .ifName = "wifi1"}).
struct WextFields {
  std::uint16_t athEvent = 0;
  std::vector<std::uint8_t> payload{};
  // Without a name the message has no IFLA_IFNAME.
  std::optional<std::string> ifName = "ath0";
  std::uint16_t wextCommand = 0x8C02;  // IWEVCUSTOM
  // The payload length the event claims; the payload's size when unset.
  std::optional<std::uint16_t> payloadLength{};
  // The IFLA_WIRELESS payload cut to (or zero-padded to) this many bytes.
  std::optional<std::size_t> wirelessSize{};
  // False: an ordinary link message without IFLA_WIRELESS.
  bool wireless = true;
  std::uint16_t type = RTM_NEWLINK;
  // The message cut to this many bytes after its netlink header (no longer
  // than it is).
  std::optional<std::size_t> linkSize{};
  int ifIndex = 7;
};

// Owns msg.
class WextMessage {
 public:
  explicit WextMessage(WextFields const& fields) : msg(build(fields)) {}
  ~WextMessage() { nlmsg_free(msg); }
  WextMessage(WextMessage const&) = delete;
  WextMessage& operator=(WextMessage const&) = delete;

  // The IFLA_WIRELESS payload alone.
  static std::vector<std::uint8_t> iwEvent(WextFields const& fields) {
    constexpr std::size_t header = 16;
    std::vector<std::uint8_t> event(header + fields.payload.size());
    auto const put16 = [&](std::size_t offset, std::uint16_t value) {
      std::memcpy(event.data() + offset, &value, sizeof value);
    };
    put16(0, static_cast<std::uint16_t>(event.size()));
    put16(2, fields.wextCommand);
    put16(8, fields.payloadLength.value_or(static_cast<std::uint16_t>(fields.payload.size())));
    put16(10, fields.athEvent);
    std::copy(fields.payload.begin(), fields.payload.end(), event.begin() + header);
    if (fields.wirelessSize) event.resize(*fields.wirelessSize);
    return event;
  }

  nl_msg* msg;

 private:
  static nl_msg* build(WextFields const& fields) {
    auto const event = iwEvent(fields);
    auto const nameSize = fields.ifName ? static_cast<int>(fields.ifName->size() + 1) : 0;
    std::size_t size = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(ifinfomsg));
    if (fields.ifName) size += static_cast<std::size_t>(nla_total_size(nameSize));
    if (fields.wireless) {
      size += static_cast<std::size_t>(nla_total_size(static_cast<int>(event.size())));
    }

    nl_msg* msg = nlmsg_alloc_size(size);
    nlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, fields.type, 0, 0);
    ifinfomsg info{};
    info.ifi_family = AF_UNSPEC;
    info.ifi_index = fields.ifIndex;
    nlmsg_append(msg, &info, sizeof info, NLMSG_ALIGNTO);
    if (fields.ifName) nla_put_string(msg, IFLA_IFNAME, fields.ifName->c_str());
    if (fields.wireless) nla_put(msg, IFLA_WIRELESS, static_cast<int>(event.size()), event.data());
    if (!fields.linkSize) return msg;

    // A copy of the first bytes only, so that nothing behind the cut is there
    // to be read.
    auto* header = nlmsg_hdr(msg);
    header->nlmsg_len = std::min(header->nlmsg_len, static_cast<std::uint32_t>(NLMSG_HDRLEN + *fields.linkSize));
    nl_msg* cut = nlmsg_convert(header);
    nlmsg_free(msg);
    return cut;
  }
};

}  // namespace Ny80211::testing
