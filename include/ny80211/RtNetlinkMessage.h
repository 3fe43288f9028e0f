#pragma once
// A read-only view of one rtnetlink link message: the interface it names and
// the wireless-extension event it carries (IFLA_WIRELESS), if any.

#include <cstddef>
#include <cstdint>
#include <string>

#include "ny80211/Export.h"

struct nl_msg;
struct nlattr;

namespace Ny80211 {

class NY80211_API RtNetlinkMessage {
 public:
  // Looks up IFLA_IFNAME and IFLA_WIRELESS of an RTM_NEWLINK message (after
  // its ifinfomsg); any other message, and a link message too short for its
  // ifinfomsg, carries neither. Does not own msg, which must outlive the
  // view; reads no byte past its nlmsg_len. Never throws.
  explicit RtNetlinkMessage(nl_msg* msg) noexcept;

  // The interface name (at most the attribute's bytes, up to a NUL), empty
  // when absent.
  std::string getIfName() const;
  bool isWextEvent() const noexcept { return wireless_ != nullptr; }
  // The wireless attribute's payload (an iw_event as the 64-bit kernel lays
  // it out); Error "not a wext event" when absent.
  std::uint16_t const* getWextEvent() const;
  // Its length in bytes; 0 when absent.
  std::size_t wextEventSize() const noexcept;
  // The wireless-extension command (the second 16-bit word); Error "wext
  // event too short ({} < {})" below the event's length and command.
  std::uint16_t wextEventID() const;
  // The payload from byte 8 on (after length, command and alignment): a
  // custom event's payload length and flags (the ath event number), then,
  // from byte 16 of the event, its payload. Error "wext event too short ({}
  // < {})" when the attribute holds fewer than those 16 bytes.
  std::uint16_t const* getWextEventData() const;

  static constexpr std::size_t wextHeaderSize = 4;     // length, command
  static constexpr std::size_t customHeaderSize = 16;  // up to a custom event's payload

 private:
  std::uint16_t const* wextEvent(std::size_t minimum) const;

  nlattr const* ifName_ = nullptr;
  nlattr const* wireless_ = nullptr;
};

}  // namespace Ny80211
