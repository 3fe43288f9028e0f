#include "ny80211/InterfaceInfo.h"

#include <iterator>
#include <vector>

#include <fmt/format.h>

namespace Ny80211 {

void InterfaceInfo::readFrom(AttrStream const& attrs) {
  ifc = NetIfcID(attrs.getU32(NL80211_ATTR_IFINDEX));
  name = attrs.getString(NL80211_ATTR_IFNAME);
  wiphy = WiPhyID(attrs.getU32(NL80211_ATTR_WIPHY));
  iftype = KernelEnum<nl80211_iftype>::fromRaw(attrs.getU32(NL80211_ATTR_IFTYPE));
  wdev = WDevID(attrs.getU64(NL80211_ATTR_WDEV));
  mac = attrs.getMac(NL80211_ATTR_MAC);
  generation = attrs.getU32(NL80211_ATTR_GENERATION);
  txPower = attrs.getU32(NL80211_ATTR_WIPHY_TX_POWER_LEVEL);
  ssid.reset();
  if (auto const* bytes = attrs.tryFind(NL80211_ATTR_SSID)) ssid = AttrSsid(getBytes(bytes));
  channel = ChannelInfo::tryReadFrom(attrs);
  mldAddress.reset();
  if (auto const* address = attrs.tryFind(attrMldAddress)) mldAddress = getMac(address);
}

std::string InterfaceInfo::toString() const {
  fmt::memory_buffer out;
  auto const to = std::back_inserter(out);
  fmt::format_to(to, "[gen {}] {} '{}' / ID {:i} / wiphy ID {:i} / MAC {} ", generation, iftype,
                 name, ifc, wiphy, mac);
  if (channel) fmt::format_to(to, "/ channel ({}) ", *channel);
  if (ssid) fmt::format_to(to, "/ SSID '{}' ", ssid->toEscapedString());
  // mBm to dBm only here; the record keeps what nl80211 sent.
  auto const dBm = static_cast<float>(static_cast<std::int32_t>(txPower)) / 100.0f;
  // No blank after "dBm": the MLD text follows it directly.
  fmt::format_to(to, "/ TX power {:.4} dBm", dBm);
  if (mldAddress) fmt::format_to(to, "/ MLD {}", *mldAddress);
  return fmt::to_string(out);
}

namespace detail {

std::string_view iftypeText(std::uint32_t type) {
  switch (type) {
    case NL80211_IFTYPE_UNSPECIFIED:
      return "unspecified";
    case NL80211_IFTYPE_ADHOC:
      return "ad-hoc";
    case NL80211_IFTYPE_STATION:
      return "station";
    case NL80211_IFTYPE_AP:
      return "AP";
    case NL80211_IFTYPE_AP_VLAN:
      return "AP VLAN";
    case NL80211_IFTYPE_WDS:
      return "WDS";
    case NL80211_IFTYPE_MONITOR:
      return "monitor";
    case NL80211_IFTYPE_MESH_POINT:
      return "mesh point";
    case NL80211_IFTYPE_P2P_CLIENT:
      return "P2P client";
    case NL80211_IFTYPE_P2P_GO:
      return "P2P group owner";
    case NL80211_IFTYPE_P2P_DEVICE:
      return "P2P device";
    case NL80211_IFTYPE_OCB:
      return "OCB";
    case NL80211_IFTYPE_NAN:
      // nl80211's note on the type rather than a name; log readers expect it.
      return "not a netdev";
    default:
      return "<unknown>";
  }
}

}  // namespace detail
}  // namespace Ny80211
