#pragma once
// StationInfo: one station of an interface as an NL80211_CMD_NEW_STATION
// reply describes it (a station get, or one entry of a station dump), with
// its bitrates (AttrRateInfo) and flags (AttrStaFlags). The builders of the
// two commands that ask for them are in namespace Cmd.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Channel.h"
#include "ny80211/Export.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "quenta_share/MacAddress.h"

namespace Ny80211 {

// The modulation family of a bitrate, from the MCS attribute it carries.
enum class RateMode : std::uint8_t { Legacy, Ht, Vht, He, Eht };

// One bitrate (NL80211_STA_INFO_TX_BITRATE or _RX_BITRATE, nested
// nl80211_rate_info attributes).
class NY80211_API AttrRateInfo {
 public:
  AttrRateInfo() = default;
  explicit AttrRateInfo(AttrStream const& rate) { readFrom(rate); }

  // Every attribute is optional; Error for a short one. The mode is that of
  // the newest MCS attribute present (EHT, HE, VHT, HT), else legacy.
  void readFrom(AttrStream const& attrs);

  // "{kbps} kbps" ("<unknown> kbps" without a total), then for HT and newer
  // " {mode} MCS {}", " NSS {}" (not HT), " / {} MHz" (also for a legacy
  // rate of another width than 20 MHz), " / short GI" (HT, VHT) or
  // " / GI 0.8 us" (HE, EHT when sent; " / GI <unknown>" for a code without
  // a text).
  std::string toString() const;

  // BITRATE32, else BITRATE, sent in 100 kbps; absent when the kernel could
  // not work the rate out.
  std::optional<std::uint64_t> kbps;
  RateMode mode = RateMode::Legacy;
  std::uint8_t mcs = 0;  // HT: 0-76, the streams included
  std::uint8_t nss = 0;  // VHT, HE, EHT; 0 when not sent
  // From the width flag; 20 without one. nl80211 sends 80+80 MHz as 160.
  std::uint16_t widthMhz = 20;
  bool shortGi = false;  // HT, VHT: 400 ns
  // HE, EHT: the guard interval code (0: 0.8 us, 1: 1.6 us, 2: 3.2 us).
  std::optional<std::uint8_t> gi;
};

// NL80211_STA_INFO_STA_FLAGS: which of the nl80211_sta_flags the driver
// reports (mask) and which of those are set, bit n for flag n.
class NY80211_API AttrStaFlags {
 public:
  // Empty when the driver does not report the flag.
  std::optional<bool> get(nl80211_sta_flags flag) const noexcept;

  // "[authorized] [authenticated] ..." for each set flag in the order of the
  // enumeration ("none" when no flag is set), then " (mask 0x{:x})".
  std::string toString() const;

  std::uint32_t mask = 0;
  std::uint32_t set = 0;
};

class NY80211_API StationInfo {
 public:
  // NL80211_ATTR_MAC, NL80211_ATTR_IFINDEX and the nest NL80211_ATTR_STA_INFO
  // are mandatory (AttrNotFound), every field inside the nest optional; a
  // short attribute throws Error. A failed read leaves the record unchanged;
  // a successful one assigns every field, so a re-read clears old values.
  void readFrom(AttrStream const& attrs);
  // Empty only when a mandatory attribute is missing.
  static std::optional<StationInfo> tryReadFrom(AttrStream const& attrs);

  // "station {mac} on {ifc}", then for each field present, in the order of
  // the fields below, " / {name} {value}": "signal -27 dBm [-27, -28]" (the
  // chains' values in brackets, also without a total), "average signal ...",
  // "TX rate (...)", "connected 12 s", "flags ..."; absent fields leave no
  // text.
  std::string toString() const;
  // One row of the station table, ending in a newline; absent values are
  // "-". The flags cell has short words ("authz shortpre WMM MFP auth TDLS
  // assoc"), "none" when the driver reports flags but none is set.
  std::string toTableRow() const;
  // Divider, header row, divider; each line ends in a newline.
  static std::string getTableHeader();
  // No newline at the end.
  static std::string getTableDivider();

  MacAddress mac;
  NetIfcID ifc;
  std::optional<std::int8_t> signal;     // dBm
  std::vector<std::int8_t> chainSignal;  // dBm, per chain in the order sent
  std::optional<std::int8_t> signalAvg;  // dBm
  std::vector<std::int8_t> chainSignalAvg;
  std::optional<AttrRateInfo> txBitrate;
  std::optional<AttrRateInfo> rxBitrate;
  std::optional<std::uint32_t> expectedThroughputKbps;
  std::optional<std::uint32_t> inactiveMs;
  std::optional<std::uint32_t> connectedSeconds;
  // The 64-bit counters where sent, else the 32-bit ones.
  std::optional<std::uint64_t> rxBytes;
  std::optional<std::uint64_t> txBytes;
  std::optional<std::uint32_t> rxPackets;
  std::optional<std::uint32_t> txPackets;
  std::optional<std::uint32_t> txRetries;
  std::optional<std::uint32_t> txFailed;
  std::optional<std::uint64_t> rxDropMisc;
  std::optional<std::uint32_t> beaconLoss;
  std::optional<AttrStaFlags> flags;
};

namespace Cmd {

// NL80211_CMD_GET_STATION for one station of an interface, by its MAC
// address; the reply is one NL80211_CMD_NEW_STATION. Error when ifc is
// undefined.
NY80211_API Nl80211Command getStation(NetIfcID const& ifc, MacAddress const& station);
// The station dump of an interface: one NL80211_CMD_NEW_STATION per station.
NY80211_API Nl80211Command dumpStations(NetIfcID const& ifc);

}  // namespace Cmd

namespace detail {
// "legacy", "HT", "VHT", "HE", "EHT".
NY80211_API std::string_view rateModeText(RateMode mode);
}  // namespace detail

}  // namespace Ny80211

template <>
struct fmt::formatter<Ny80211::RateMode>
    : Ny80211::detail::TextFormatter<Ny80211::RateMode, &Ny80211::detail::rateModeText> {};

template <>
struct fmt::formatter<Ny80211::AttrRateInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::AttrRateInfo> {};

template <>
struct fmt::formatter<Ny80211::AttrStaFlags>
    : Ny80211::detail::ToStringFormatter<Ny80211::AttrStaFlags> {};

template <>
struct fmt::formatter<Ny80211::StationInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::StationInfo> {};
