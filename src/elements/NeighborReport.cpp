#include "ny80211/NeighborReport.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Ny80211::Elem {

std::string BssidCapabilities::toString() const {
  std::string text;
  if (spectrumManagement) text += "[Spectrum Management] ";
  if (qos) text += "[QoS] ";
  if (apsd) text += "[APSD] ";
  if (radioMeasurement) text += "[Radio Measurement] ";
  return text;
}

BssidCapabilities BssidInfo::capabilities() const {
  return BssidCapabilities{bit(4), bit(5), bit(6), bit(7)};
}

std::string BssidInfo::toString() const {
  static constexpr std::string_view reachable[] = {"<?>", "no", "unknown", "yes"};
  return fmt::format(
      "  Reachable      : {}\n  Security       : {}\n  Key Scope      : {}\n"
      "  Capabilities   : {}\n  Mobility Domain: {}\n  HT AP          : {}\n"
      "  VHT AP         : {}\n  FTM            : {}\n",
      reachable[reachability()], security(), keyScope(), capabilities(), mobilityDomain(),
      highThroughput(), veryHighThroughput(), ftm());
}

std::string BssidInfo::toStringHex() const {
  return fmt::format("0x{:02x}{:02x}{:02x}{:02x}", octets_[3], octets_[2], octets_[1], octets_[0]);
}

NeighborReport::NeighborReport(Header const& header, nycpp::span<const std::byte> const& bytes)
    : Element(bytes, header, Id, MinLength(13)),
      bssid_(this->bytes().subspan(2, MacAddress::Size)),
      bssidInfo_({octet(8), octet(9), octet(10), octet(11)}),
      operatingClass_(octet(12)),
      channelNumber_(octet(13)),
      phyType_(static_cast<PhyType>(octet(14))) {
  // Each subelement needs its ID and length octets to be listed; its body
  // is not checked. The step is at least 2, so the walk ends.
  auto const area = this->bytes().subspan(15);
  for (std::size_t at = 0; at + 1 < area.size();
       at += std::size_t{static_cast<std::uint8_t>(area[at + 1])} + 2) {
    subElements_.push_back(static_cast<SubElementID>(area[at]));
  }
}

void NeighborReport::accept(ElementVisitor& visitor) const { visitor.visit(*this); }

std::string NeighborReport::toString() const {
  fmt::memory_buffer subs;
  for (auto const id : subElements_) fmt::format_to(std::back_inserter(subs), "\n    {},", id);
  if (!subElements_.empty()) fmt::format_to(std::back_inserter(subs), "\n  ");
  return fmt::format(
      "Neighbor Report Element:\n  BSSID          : {}\n{}  Operating class: {}\n"
      "  Primary channel: {}\n  PHY type       : {}\n  Sub-Elements   : [{}]\n",
      bssid_, bssidInfo_, operatingClass_, channelNumber_, phyType_, fmt::to_string(subs));
}

namespace {
constexpr std::string_view rowFormat =
    "| {:^6}| {:18}| {:34}| {:11}| {:^6}| {:^6}| {:10}| {:15}|\n";
}  // namespace

std::string NeighborReport::toTableRow(bool selected, std::string const& ssid) const {
  // Numbers, not names, in the narrow last column.
  std::vector<std::uint8_t> ids(subElements_.size());
  std::transform(subElements_.begin(), subElements_.end(), ids.begin(),
                 [](SubElementID id) { return static_cast<std::uint8_t>(id); });
  return fmt::format(rowFormat, selected ? 'X' : ' ', bssid_, ssid, bssidInfo_.toStringHex(),
                     operatingClass_, channelNumber_, phyType_,
                     fmt::format("{}", fmt::join(ids, ", ")));
}

std::string NeighborReport::getTableHeader() {
  auto const divider = getTableDivider();
  return fmt::format("{}\n", divider) +
         fmt::format(rowFormat, "", "", "", "", "Op.", "Prim.", "", "") +
         fmt::format(rowFormat, "Sel.?", "BSSID", "SSID", "BSSID Info", "Class", "Chan.",
                     "PHY Type", "Sub-Elems") +
         fmt::format("{}\n", divider);
}

std::string NeighborReport::getTableDivider() {
  return fmt::format("+-{:-<6}+-{:-<18}+-{:-<34}+-{:-<11}+-{:-<6}+-{:-<6}+-{:-<10}+-{:-<15}+", "",
                     "", "", "", "", "", "", "");
}

}  // namespace Ny80211::Elem

namespace Ny80211::detail {

std::string_view phyTypeText(Elem::PhyType type) {
  // Indexed by the PHY type number; gaps have no name.
  static constexpr std::string_view names[] = {"",       "",    "DSSS", "",     "OFDM",
                                               "HRDSSS", "ERP", "HT",   "DMG",  "VHT",
                                               "TVHT",   "S1G", "CDMG", "CMMG", "HE"};
  auto const n = static_cast<std::size_t>(type);
  if (n < std::size(names) && !names[n].empty()) return names[n];
  return "<unknown>";
}

std::string subElementText(Elem::NeighborReport::SubElementID id) {
  struct Name {
    std::uint8_t id;
    std::string_view text;
  };
  static constexpr Name names[] = {
      {1, "TSF Information"},
      {2, "Condensed Country String"},
      {3, "BSS Transition Candidate Preference"},
      {4, "BSS Termination Duration"},
      {5, "Bearing"},
      {6, "Wide Bandwidth Channel"},
      {39, "Measurement Report"},
      {45, "HT Capabilities"},
      {61, "HT Operation"},
      {62, "Secondary Channel Offset"},
      {66, "Measurement Pilot Transmission"},
      {70, "RM Enabled Capabilities"},
      {71, "Multiple BSSID"},
      {191, "VHT Capabilities"},
      {192, "VHT Operation"},
      {193, "HE Capabilities"},
      {194, "HE Operation"},
      {195, "BSS Load"},
      {196, "HE BSS Load"},
      {197, "SSID"},
      {221, "Vendor Specific"},
  };
  auto const n = static_cast<std::uint8_t>(id);
  for (auto const& name : names) {
    if (name.id == n) return std::string(name.text);
  }
  return fmt::format("<ID {}>", n);
}

}  // namespace Ny80211::detail
