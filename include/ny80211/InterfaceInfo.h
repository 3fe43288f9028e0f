#pragma once
// InterfaceInfo: one wireless interface (a netdev, or a wireless device
// without one) as an NL80211_CMD_NEW_INTERFACE message or an interface dump
// describes it.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "ny80211/AttrStream.h"
#include "ny80211/BssInfo.h"
#include "ny80211/Channel.h"
#include "ny80211/Export.h"
#include "ny80211/Identifiers.h"
#include "quenta_share/MacAddress.h"

namespace Ny80211 {

// NL80211_ATTR_MLD_ADDR as the kernels this library serves number it; older
// system headers (6.1) give another number (314).
inline constexpr int attrMldAddress = 351;

class NY80211_API InterfaceInfo {
 public:
  // IFINDEX, IFNAME, WIPHY, IFTYPE, WDEV, MAC, GENERATION and
  // WIPHY_TX_POWER_LEVEL are mandatory (AttrNotFound; a short payload throws
  // Error), read in that order, leaving the fields read before a failure
  // assigned. The SSID, the channel and the MLD address are assigned on every
  // read, empty when absent, so a re-read clears old values; a channel
  // frequency without a channel number throws Error.
  void readFrom(AttrStream const& attrs);

  // "[gen {}] {} '{}' / ID {:i} / wiphy ID {:i} / MAC {} ", then
  // "/ channel ({}) " and "/ SSID '{}' " when present,
  // "/ TX power {:.4} dBm" and, when present, "/ MLD {}".
  std::string toString() const;

  NetIfcID ifc;
  std::string name;
  WiPhyID wiphy;
  KernelEnum<nl80211_iftype> iftype = NL80211_IFTYPE_UNSPECIFIED;
  WDevID wdev;
  MacAddress mac;
  std::uint32_t generation = 0;
  std::optional<ChannelInfo> channel;
  std::uint32_t txPower = 0;  // mBm, signed
  std::optional<AttrSsid> ssid;
  std::optional<MacAddress> mldAddress;
};

namespace detail {

// "AP", "station", ...; "<unknown>" for types without a text.
NY80211_API std::string_view iftypeText(std::uint32_t type);

}  // namespace detail
}  // namespace Ny80211

template <>
struct fmt::formatter<Ny80211::InterfaceInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::InterfaceInfo> {};

template <>
struct fmt::formatter<nl80211_iftype>
    : Ny80211::detail::TextFormatter<nl80211_iftype, &Ny80211::detail::iftypeText> {};
