#pragma once
// The Neighbor Report element (ID 52): one neighbour AP with its BSSID
// Information, operating class, channel, PHY type and the IDs of its
// subelements, with a description and a table row for listing neighbours.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "ny80211/Channel.h"
#include "ny80211/Element.h"
#include "ny80211/Export.h"
#include "nycpp/span.h"
#include "quenta_common/ChannelNumber.h"
#include "quenta_share/MacAddress.h"

namespace Ny80211::Elem {

// The Capabilities subfield of the BSSID Information (bits 4-7).
class NY80211_API BssidCapabilities {
 public:
  // "[Spectrum Management] [QoS] [APSD] [Radio Measurement] ", each word only
  // when its flag is set; empty when none is.
  std::string toString() const;

  bool spectrumManagement = false;
  bool qos = false;
  bool apsd = false;
  bool radioMeasurement = false;
};

// The 32-bit BSSID Information field, kept as its four octets in wire order.
class NY80211_API BssidInfo {
 public:
  BssidInfo() = default;
  explicit BssidInfo(std::array<std::uint8_t, 4> const& octets) : octets_(octets) {}

  std::array<std::uint8_t, 4> const& octets() const { return octets_; }
  // 1 not reachable, 2 unknown, 3 reachable; 0 is reserved.
  std::uint8_t reachability() const { return octets_[0] & 0x03; }
  bool security() const { return bit(2); }
  bool keyScope() const { return bit(3); }
  BssidCapabilities capabilities() const;
  bool mobilityDomain() const { return bit(10); }
  bool highThroughput() const { return bit(11); }
  bool veryHighThroughput() const { return bit(12); }
  bool ftm() const { return bit(13); }

  // One "  Name : value\n" line per field above.
  std::string toString() const;
  // "0x0000388f": the field as a 32-bit number.
  std::string toStringHex() const;

 private:
  bool bit(unsigned n) const { return (octets_[n / 8] >> (n % 8)) & 1u; }

  std::array<std::uint8_t, 4> octets_{};
};

// 802.11 PHY type numbers; other values are kept as they are.
enum class PhyType : std::uint8_t {
  DSSS = 2,
  OFDM = 4,
  HRDSSS = 5,
  ERP = 6,
  HT = 7,
  DMG = 8,
  VHT = 9,
  TVHT = 10,
  S1G = 11,
  CDMG = 12,
  CMMG = 13,
  HE = 14,
};

class NY80211_API NeighborReport final : public Element {
 public:
  static constexpr ElementID Id{52};

  // 195 to 197 are this system's own numbers.
  enum class SubElementID : std::uint8_t {
    TsfInformation = 1,
    CondensedCountryString = 2,
    BssTransitionCandidatePreference = 3,
    BssTerminationDuration = 4,
    Bearing = 5,
    WideBandwidthChannel = 6,
    MeasurementReport = 39,
    HtCapabilities = 45,
    HtOperation = 61,
    SecondaryChannelOffset = 62,
    MeasurementPilotTransmission = 66,
    RmEnabledCapabilities = 70,
    MultipleBssid = 71,
    VhtCapabilities = 191,
    VhtOperation = 192,
    HeCapabilities = 193,
    HeOperation = 194,
    BssLoad = 195,
    HeBssLoad = 196,
    Ssid = 197,
    VendorSpecific = 221,
  };

  // Subelements are listed by ID only; one whose body runs past the end of
  // the element is still listed.
  NeighborReport(Header const& header, nycpp::span<const std::byte> const& bytes);
  void accept(ElementVisitor& visitor) const override;

  MacAddress const& bssid() const { return bssid_; }
  BssidInfo const& bssidInfo() const { return bssidInfo_; }
  std::uint8_t operatingClass() const { return operatingClass_; }
  quenta_common::ChannelNumber channelNumber() const { return channelNumber_; }  // primary
  PhyType phyType() const { return phyType_; }
  std::vector<SubElementID> const& subElements() const { return subElements_; }

  // "Neighbor Report Element:\n" and one indented line per field.
  std::string toString() const;
  // One row of the neighbour table; X marks the selected neighbour. Cells are
  // minimum widths: a longer SSID widens its row.
  std::string toTableRow(bool selected, std::string const& ssid) const;
  // Divider, two header rows, divider; each line ends in a newline.
  static std::string getTableHeader();
  // No newline at the end.
  static std::string getTableDivider();

 private:
  MacAddress bssid_;
  BssidInfo bssidInfo_;
  std::uint8_t operatingClass_ = 0;
  quenta_common::ChannelNumber channelNumber_;
  PhyType phyType_{};
  std::vector<SubElementID> subElements_;
};

}  // namespace Ny80211::Elem

namespace Ny80211::detail {
// "HE", ...; "<unknown>" for numbers without a name.
NY80211_API std::string_view phyTypeText(Elem::PhyType type);
// "TSF Information", ...; "<ID 7>" for IDs without a name.
NY80211_API std::string subElementText(Elem::NeighborReport::SubElementID id);
}  // namespace Ny80211::detail

template <>
struct fmt::formatter<Ny80211::Elem::BssidCapabilities>
    : Ny80211::detail::ToStringFormatter<Ny80211::Elem::BssidCapabilities> {};

template <>
struct fmt::formatter<Ny80211::Elem::BssidInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::Elem::BssidInfo> {};

template <>
struct fmt::formatter<Ny80211::Elem::PhyType>
    : Ny80211::detail::TextFormatter<Ny80211::Elem::PhyType, &Ny80211::detail::phyTypeText> {};

template <>
struct fmt::formatter<Ny80211::Elem::NeighborReport::SubElementID>
    : Ny80211::detail::TextFormatter<Ny80211::Elem::NeighborReport::SubElementID,
                                     &Ny80211::detail::subElementText> {};
