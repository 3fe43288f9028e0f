#include <array>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "ny80211/Error.h"
#include "ny80211/StationInfo.h"

namespace Ny80211 {

namespace {

// Indexed by nl80211_sta_flags: the record's words, and the table's short
// ones, which keep a station with every flag inside its cell.
constexpr std::array<std::string_view, 8> flagTexts{
    "", "authorized", "short preamble", "WMM", "MFP", "authenticated", "TDLS peer", "associated"};
constexpr std::array<std::string_view, 8> flagCells{"",    "authz", "shortpre", "WMM",
                                                    "MFP", "auth",  "TDLS",     "assoc"};

std::optional<std::int8_t> tryGetS8(AttrStream const& attrs, int type) {
  if (auto const value = attrs.tryGetU8(type)) return static_cast<std::int8_t>(*value);
  return std::nullopt;
}

// A nest of one u8 per chain, the attribute type being the chain's number.
std::vector<std::int8_t> chainValues(AttrStream const& attrs, int type) {
  std::vector<std::int8_t> values;
  auto const* nest = attrs.tryFind(type);
  if (nest == nullptr) return values;
  AttrStream const chains(nest);
  values.reserve(chains.size());
  chains.forEachAttr(
      [&](nlattr const* chain) { values.push_back(static_cast<std::int8_t>(getU8(chain))); });
  return values;
}

std::optional<AttrRateInfo> tryGetRate(AttrStream const& attrs, int type) {
  auto const* nest = attrs.tryFind(type);
  if (nest == nullptr) return std::nullopt;
  return AttrRateInfo(AttrStream(nest));
}

// The 64-bit counter where the kernel sends it, else the 32-bit one.
std::optional<std::uint64_t> tryGetCounter(AttrStream const& attrs, int type64, int type32) {
  if (auto const wide = attrs.tryGetU64(type64)) return wide;
  if (auto const narrow = attrs.tryGetU32(type32)) return *narrow;
  return std::nullopt;
}

std::optional<AttrStaFlags> tryGetFlags(AttrStream const& attrs) {
  auto const* attr = attrs.tryFind(NL80211_STA_INFO_STA_FLAGS);
  if (attr == nullptr) return std::nullopt;
  checkPayloadSize(attr, sizeof(nl80211_sta_flag_update));
  nl80211_sta_flag_update update{};
  std::memcpy(&update, getBytes(attr).data(), sizeof update);
  AttrStaFlags flags;
  flags.mask = update.mask;
  flags.set = update.set;
  return flags;
}

template <class T>
std::string cell(std::optional<T> const& value) {
  return value ? fmt::format("{}", *value) : std::string("-");
}

std::string rateCell(std::optional<AttrRateInfo> const& rate) {
  return rate ? cell(rate->kbps) : std::string("-");
}

constexpr std::string_view rowFormat =
    "| {:17} | {:>6} | {:>6} | {:>9} | {:>9} | {:>9} | {:>9} | {:>12} | {:>12} | {:38} |\n";

}  // namespace

std::optional<bool> AttrStaFlags::get(nl80211_sta_flags flag) const noexcept {
  auto const bit = static_cast<unsigned>(flag);
  if (bit >= 32 || ((mask >> bit) & 1u) == 0) return std::nullopt;
  return ((set >> bit) & 1u) != 0;
}

std::string AttrStaFlags::toString() const {
  fmt::memory_buffer out;
  auto const to = std::back_inserter(out);
  // Only what the driver reports counts as set.
  auto const reported = set & mask;
  for (unsigned bit = 0; bit < 32; ++bit) {
    if (((reported >> bit) & 1u) == 0) continue;
    if (out.size() != 0) out.push_back(' ');
    if (bit != 0 && bit < flagTexts.size()) {
      fmt::format_to(to, "[{}]", flagTexts[bit]);
    } else {
      fmt::format_to(to, "[flag {}]", bit);
    }
  }
  if (out.size() == 0) fmt::format_to(to, "none");
  fmt::format_to(to, " (mask 0x{:x})", mask);
  return fmt::to_string(out);
}

void StationInfo::readFrom(AttrStream const& attrs) {
  StationInfo station;
  station.mac = attrs.getMac(NL80211_ATTR_MAC);
  station.ifc = NetIfcID(attrs.getU32(NL80211_ATTR_IFINDEX));
  AttrStream const info(attrs.find(NL80211_ATTR_STA_INFO));
  station.signal = tryGetS8(info, NL80211_STA_INFO_SIGNAL);
  station.chainSignal = chainValues(info, NL80211_STA_INFO_CHAIN_SIGNAL);
  station.signalAvg = tryGetS8(info, NL80211_STA_INFO_SIGNAL_AVG);
  station.chainSignalAvg = chainValues(info, NL80211_STA_INFO_CHAIN_SIGNAL_AVG);
  station.txBitrate = tryGetRate(info, NL80211_STA_INFO_TX_BITRATE);
  station.rxBitrate = tryGetRate(info, NL80211_STA_INFO_RX_BITRATE);
  station.expectedThroughputKbps = info.tryGetU32(NL80211_STA_INFO_EXPECTED_THROUGHPUT);
  station.inactiveMs = info.tryGetU32(NL80211_STA_INFO_INACTIVE_TIME);
  station.connectedSeconds = info.tryGetU32(NL80211_STA_INFO_CONNECTED_TIME);
  station.rxBytes = tryGetCounter(info, NL80211_STA_INFO_RX_BYTES64, NL80211_STA_INFO_RX_BYTES);
  station.txBytes = tryGetCounter(info, NL80211_STA_INFO_TX_BYTES64, NL80211_STA_INFO_TX_BYTES);
  station.rxPackets = info.tryGetU32(NL80211_STA_INFO_RX_PACKETS);
  station.txPackets = info.tryGetU32(NL80211_STA_INFO_TX_PACKETS);
  station.txRetries = info.tryGetU32(NL80211_STA_INFO_TX_RETRIES);
  station.txFailed = info.tryGetU32(NL80211_STA_INFO_TX_FAILED);
  station.rxDropMisc = info.tryGetU64(NL80211_STA_INFO_RX_DROP_MISC);
  station.beaconLoss = info.tryGetU32(NL80211_STA_INFO_BEACON_LOSS);
  station.flags = tryGetFlags(info);
  *this = std::move(station);
}

std::optional<StationInfo> StationInfo::tryReadFrom(AttrStream const& attrs) {
  try {
    StationInfo station;
    station.readFrom(attrs);
    return station;
  } catch (AttrNotFound const&) {
    return std::nullopt;
  }
}

std::string StationInfo::toString() const {
  fmt::memory_buffer out;
  auto const to = std::back_inserter(out);
  fmt::format_to(to, "station {} on {}", mac, ifc);
  auto part = [&](std::string_view label, auto const& value, std::string_view unit) {
    if (value) fmt::format_to(to, " / {} {}{}", label, *value, unit);
  };
  // The chains' values follow the total, as iw shows them.
  auto signalPart = [&](std::string_view label, std::optional<std::int8_t> const& total,
                        std::vector<std::int8_t> const& chains) {
    if (!total && chains.empty()) return;
    fmt::format_to(to, " / {}", label);
    if (total) fmt::format_to(to, " {} dBm", *total);
    if (!chains.empty()) fmt::format_to(to, " [{}]", fmt::join(chains, ", "));
  };
  auto rate = [&](std::string_view label, std::optional<AttrRateInfo> const& value) {
    if (value) fmt::format_to(to, " / {} ({})", label, *value);
  };
  signalPart("signal", signal, chainSignal);
  signalPart("average signal", signalAvg, chainSignalAvg);
  rate("TX rate", txBitrate);
  rate("RX rate", rxBitrate);
  part("expected throughput", expectedThroughputKbps, " kbps");
  part("inactive", inactiveMs, " ms");
  part("connected", connectedSeconds, " s");
  part("RX bytes", rxBytes, "");
  part("TX bytes", txBytes, "");
  part("RX packets", rxPackets, "");
  part("TX packets", txPackets, "");
  part("TX retries", txRetries, "");
  part("TX failed", txFailed, "");
  part("RX drops", rxDropMisc, "");
  part("beacon loss", beaconLoss, "");
  part("flags", flags, "");
  return fmt::to_string(out);
}

std::string StationInfo::toTableRow() const {
  std::string flagCell = "-";
  if (flags) {
    flagCell.clear();
    for (unsigned bit = 1; bit < flagCells.size(); ++bit) {
      if (!flags->get(static_cast<nl80211_sta_flags>(bit)).value_or(false)) continue;
      if (!flagCell.empty()) flagCell += ' ';
      flagCell += flagCells[bit];
    }
    if (flagCell.empty()) flagCell = "none";
  }
  return fmt::format(rowFormat, mac, cell(signal), cell(signalAvg), rateCell(txBitrate),
                     rateCell(rxBitrate), cell(inactiveMs), cell(connectedSeconds), cell(rxBytes),
                     cell(txBytes), flagCell);
}

std::string StationInfo::getTableHeader() {
  auto const divider = getTableDivider();
  return fmt::format("{}\n", divider) +
         fmt::format(rowFormat, "Station", "Signal", "Avg", "TX kbps", "RX kbps", "Inact. ms",
                     "Conn. s", "RX bytes", "TX bytes", "Flags") +
         fmt::format("{}\n", divider);
}

std::string StationInfo::getTableDivider() {
  return fmt::format(
      "+-{:-<17}-+-{:-<6}-+-{:-<6}-+-{:-<9}-+-{:-<9}-+-{:-<9}-+-{:-<9}-+-{:-<12}-+-{:-<12}-+"
      "-{:-<38}-+",
      "", "", "", "", "", "", "", "", "", "");
}

namespace Cmd {

Nl80211Command getStation(NetIfcID const& ifc, MacAddress const& station) {
  Nl80211Command command(NL80211_CMD_GET_STATION,
                         fmt::format("get station {} on {}", station, ifc));
  ifc.writeTo(command.attributes());
  command.attributes().addMac(NL80211_ATTR_MAC, station);
  return command;
}

Nl80211Command dumpStations(NetIfcID const& ifc) {
  auto command =
      Nl80211Command::dump(NL80211_CMD_GET_STATION, fmt::format("dump stations on {}", ifc));
  ifc.writeTo(command.attributes());
  return command;
}

}  // namespace Cmd
}  // namespace Ny80211
