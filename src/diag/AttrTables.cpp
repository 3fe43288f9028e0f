// The attribute tables of AttrFmt and the name tables of the QCA vendor
// decoders. Names come from the generated .inc files; which attribute gets
// which decoder is this file's choice, keyed by name and resolved at compile
// time, so a misspelt name does not build.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <netlink/attr.h>

#include "ny80211/AttrFmt.h"

namespace Ny80211 {

namespace {

using Decoder = void (AttrFmt::*)(const nlattr*);

struct NamedValue {
  int value;
  std::string_view name;
};

struct DecoderRow {
  int type;
  Decoder decoder;
};

// Indexed by attribute type.
constexpr std::string_view nl80211Names[] = {
#include "Nl80211AttrNames.inc"
};
constexpr NamedValue bssNames[] = {
#include "BssAttrNames.inc"
};
// Indexed by attribute type.
constexpr std::string_view qcaConfigNames[] = {
#include "QcaConfigAttrNames.inc"
};
// In value order, with the enumeration's gaps.
constexpr NamedValue qcaVendorSubcmds[] = {
#include "QcaVendorSubcmdNames.inc"
};

// Each lookup takes the name without the prefix its enumeration shares; the
// throw makes an unknown name a compile error.
consteval int nl80211Attr(std::string_view name) {
  constexpr std::string_view prefix = "NL80211_ATTR_";
  for (std::size_t i = 0; i < std::size(nl80211Names); ++i) {
    if (nl80211Names[i].substr(prefix.size()) == name) return static_cast<int>(i);
  }
  throw "no such nl80211 attribute";
}

consteval int bssAttr(std::string_view name) {
  constexpr std::string_view prefix = "NL80211_BSS_";
  for (auto const& row : bssNames) {
    if (row.name.substr(prefix.size()) == name) return row.value;
  }
  throw "no such BSS attribute";
}

// One row breaks the pattern (QCA_WLAN_VENDOR_ATTR_CONF_TX_RATE) and is
// looked up by its full name.
consteval int qcaConfigAttr(std::string_view name) {
  constexpr std::string_view prefix = "QCA_WLAN_VENDOR_ATTR_CONFIG_";
  for (std::size_t i = 0; i < std::size(qcaConfigNames); ++i) {
    auto const full = qcaConfigNames[i];
    if (full == name || (full.starts_with(prefix) && full.substr(prefix.size()) == name)) {
      return static_cast<int>(i);
    }
  }
  throw "no such QCA configuration attribute";
}

constexpr DecoderRow nl80211Decoders[] = {
    {nl80211Attr("WIPHY"), &AttrFmt::UInt32},
    {nl80211Attr("IFINDEX"), &AttrFmt::UInt32},
    {nl80211Attr("IFTYPE"), &AttrFmt::UInt32},
    {nl80211Attr("WIPHY_FREQ"), &AttrFmt::UInt32},
    {nl80211Attr("WIPHY_CHANNEL_TYPE"), &AttrFmt::UInt32},
    {nl80211Attr("GENERATION"), &AttrFmt::UInt32},
    {nl80211Attr("KEY_TYPE"), &AttrFmt::UInt32},
    {nl80211Attr("MAX_REMAIN_ON_CHANNEL_DURATION"), &AttrFmt::UInt32},
    {nl80211Attr("SCAN_FLAGS"), &AttrFmt::UInt32},
    {nl80211Attr("CHANNEL_WIDTH"), &AttrFmt::UInt32},
    {nl80211Attr("CENTER_FREQ1"), &AttrFmt::UInt32},
    {nl80211Attr("CENTER_FREQ2"), &AttrFmt::UInt32},
    {nl80211Attr("RADAR_EVENT"), &AttrFmt::UInt32},
    {nl80211Attr("CH_SWITCH_COUNT"), &AttrFmt::UInt32},
    {nl80211Attr("MAX_AP_ASSOC_STA"), &AttrFmt::UInt32},
    {nl80211Attr("MAX_NUM_SCHED_SCAN_PLANS"), &AttrFmt::UInt32},
    {nl80211Attr("MAX_SCAN_PLAN_INTERVAL"), &AttrFmt::UInt32},
    {nl80211Attr("MAX_SCAN_PLAN_ITERATIONS"), &AttrFmt::UInt32},
    {nl80211Attr("KEY_IDX"), &AttrFmt::UInt8},
    {nl80211Attr("MAX_NUM_SCAN_SSIDS"), &AttrFmt::UInt8},
    {nl80211Attr("REG_INITIATOR"), &AttrFmt::UInt8},
    {nl80211Attr("REG_TYPE"), &AttrFmt::UInt8},
    {nl80211Attr("WIPHY_RETRY_SHORT"), &AttrFmt::UInt8},
    {nl80211Attr("WIPHY_RETRY_LONG"), &AttrFmt::UInt8},
    {nl80211Attr("MAX_NUM_PMKIDS"), &AttrFmt::UInt8},
    {nl80211Attr("WIPHY_COVERAGE_CLASS"), &AttrFmt::UInt8},
    {nl80211Attr("MAX_NUM_SCHED_SCAN_SSIDS"), &AttrFmt::UInt8},
    {nl80211Attr("MAX_MATCH_SETS"), &AttrFmt::UInt8},
    {nl80211Attr("MAX_CSA_COUNTERS"), &AttrFmt::UInt8},
    {nl80211Attr("SMPS_MODE"), &AttrFmt::UInt8},
    {nl80211Attr("NSS"), &AttrFmt::UInt8},
    {nl80211Attr("MAX_SCAN_IE_LEN"), &AttrFmt::UInt16},
    {nl80211Attr("MAX_SCHED_SCAN_IE_LEN"), &AttrFmt::UInt16},
    {nl80211Attr("WIPHY_ANTENNA_TX"), &AttrFmt::UInt32Hex},
    {nl80211Attr("WIPHY_ANTENNA_RX"), &AttrFmt::UInt32Hex},
    {nl80211Attr("WIPHY_ANTENNA_AVAIL_TX"), &AttrFmt::UInt32Hex},
    {nl80211Attr("WIPHY_ANTENNA_AVAIL_RX"), &AttrFmt::UInt32Hex},
    {nl80211Attr("FEATURE_FLAGS"), &AttrFmt::UInt32Hex},
    {nl80211Attr("VENDOR_ID"), &AttrFmt::UInt32Hex},
    {nl80211Attr("COOKIE"), &AttrFmt::UInt64Hex},
    {nl80211Attr("WDEV"), &AttrFmt::UInt64Hex},
    {nl80211Attr("WIPHY_FRAG_THRESHOLD"), &AttrFmt::UInt32WithDisable},
    {nl80211Attr("WIPHY_RTS_THRESHOLD"), &AttrFmt::UInt32WithDisable},
    {nl80211Attr("WIPHY_TX_POWER_LEVEL"), &AttrFmt::Int32},
    {nl80211Attr("TIMED_OUT"), &AttrFmt::Bool},
    {nl80211Attr("ACK"), &AttrFmt::Bool},
    {nl80211Attr("OFFCHANNEL_TX_OK"), &AttrFmt::Bool},
    {nl80211Attr("SOFTWARE_IFTYPES"), &AttrFmt::Bool},
    {nl80211Attr("SUPPORT_AP_UAPSD"), &AttrFmt::Bool},
    {nl80211Attr("WIPHY_NAME"), &AttrFmt::String},
    {nl80211Attr("IFNAME"), &AttrFmt::String},
    {nl80211Attr("REG_ALPHA2"), &AttrFmt::String},
    {nl80211Attr("SSID"), &AttrFmt::EscapedString},
    {nl80211Attr("MAC"), &AttrFmt::MacAddr},
    {nl80211Attr("FRAME"), &AttrFmt::BytesHex},
    {nl80211Attr("EXT_FEATURES"), &AttrFmt::BytesHex},
    {nl80211Attr("BSS"), &AttrFmt::Bss},
    {nl80211Attr("VENDOR_SUBCMD"), &AttrFmt::QcaVendorSubCmd},
    {nl80211Attr("VENDOR_DATA"), &AttrFmt::QcaVendorData},
};

constexpr DecoderRow bssDecoders[] = {
    {bssAttr("BSSID"), &AttrFmt::MacAddr},        {bssAttr("FREQUENCY"), &AttrFmt::UInt32},
    {bssAttr("STATUS"), &AttrFmt::UInt32},        {bssAttr("SEEN_MS_AGO"), &AttrFmt::UInt32},
    {bssAttr("CHAN_WIDTH"), &AttrFmt::UInt32},    {bssAttr("TSF"), &AttrFmt::UInt64},
    {bssAttr("BEACON_TSF"), &AttrFmt::UInt64},    {bssAttr("LAST_SEEN_BOOTTIME"), &AttrFmt::UInt64},
    {bssAttr("PARENT_TSF"), &AttrFmt::UInt64},    {bssAttr("BEACON_INTERVAL"), &AttrFmt::UInt16},
    {bssAttr("CAPABILITY"), &AttrFmt::UInt16Bin}, {bssAttr("SIGNAL_MBM"), &AttrFmt::Int32},
    {bssAttr("SIGNAL_UNSPEC"), &AttrFmt::UInt8},  {bssAttr("CHAIN_SIGNAL"), &AttrFmt::UInt8},
    {bssAttr("PRESP_DATA"), &AttrFmt::Bool},
};

constexpr DecoderRow qcaConfigDecoders[] = {
    {qcaConfigAttr("MODULATED_DTIM"), &AttrFmt::UInt32},
    {qcaConfigAttr("STATS_AVG_FACTOR"), &AttrFmt::UInt32},
    {qcaConfigAttr("GUARD_TIME"), &AttrFmt::UInt32},
    {qcaConfigAttr("FINE_TIME_MEASUREMENT"), &AttrFmt::UInt32},
    {qcaConfigAttr("QCA_WLAN_VENDOR_ATTR_CONF_TX_RATE"), &AttrFmt::UInt32},
    {qcaConfigAttr("PENALIZE_AFTER_NCONS_BEACON_MISS"), &AttrFmt::UInt32},
    {qcaConfigAttr("TX_FAIL_COUNT"), &AttrFmt::UInt32},
    {qcaConfigAttr("GENERIC_VALUE"), &AttrFmt::UInt32},
    {qcaConfigAttr("GENERIC_LENGTH"), &AttrFmt::UInt32},
    {qcaConfigAttr("GENERIC_FLAGS"), &AttrFmt::UInt32},
    {qcaConfigAttr("ACCESS_POLICY"), &AttrFmt::UInt32},
    {qcaConfigAttr("IFINDEX"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_ENA"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_CHAIN"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_SELFTEST"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_SELFTEST_INTVL"), &AttrFmt::UInt32},
    {qcaConfigAttr("RX_REORDER_TIMEOUT_VOICE"), &AttrFmt::UInt32},
    {qcaConfigAttr("RX_REORDER_TIMEOUT_VIDEO"), &AttrFmt::UInt32},
    {qcaConfigAttr("RX_REORDER_TIMEOUT_BESTEFFORT"), &AttrFmt::UInt32},
    {qcaConfigAttr("RX_REORDER_TIMEOUT_BACKGROUND"), &AttrFmt::UInt32},
    {qcaConfigAttr("RX_BLOCKSIZE_WINLIMIT"), &AttrFmt::UInt32},
    {qcaConfigAttr("SUB20_CHAN_WIDTH"), &AttrFmt::UInt32},
    {qcaConfigAttr("PROPAGATION_ABS_DELAY"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_PROBE_PERIOD"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_STAY_PERIOD"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_SNR_DIFF"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_PROBE_DWELL_TIME"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_MGMT_SNR_WEIGHT"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_DATA_SNR_WEIGHT"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANT_DIV_ACK_SNR_WEIGHT"), &AttrFmt::UInt32},
    {qcaConfigAttr("LISTEN_INTERVAL"), &AttrFmt::UInt32},
    {qcaConfigAttr("PENALIZE_AFTER_NCONS_BEACON_MISS_BTC"), &AttrFmt::UInt32},
    {qcaConfigAttr("PHY_MODE"), &AttrFmt::UInt32},
    {qcaConfigAttr("ANI_LEVEL"), &AttrFmt::UInt32},
    {qcaConfigAttr("CHANNEL_AVOIDANCE_IND"), &AttrFmt::UInt8},
    {qcaConfigAttr("TX_MPDU_AGGREGATION"), &AttrFmt::UInt8},
    {qcaConfigAttr("RX_MPDU_AGGREGATION"), &AttrFmt::UInt8},
    {qcaConfigAttr("NON_AGG_RETRY"), &AttrFmt::UInt8},
    {qcaConfigAttr("AGG_RETRY"), &AttrFmt::UInt8},
    {qcaConfigAttr("MGMT_RETRY"), &AttrFmt::UInt8},
    {qcaConfigAttr("CTRL_RETRY"), &AttrFmt::UInt8},
    {qcaConfigAttr("PROPAGATION_DELAY"), &AttrFmt::UInt8},
    {qcaConfigAttr("QPOWER"), &AttrFmt::UInt8},
    {qcaConfigAttr("IGNORE_ASSOC_DISALLOWED"), &AttrFmt::UInt8},
    {qcaConfigAttr("BEACON_MISS_THRESHOLD_24"), &AttrFmt::UInt8},
    {qcaConfigAttr("BEACON_MISS_THRESHOLD_5"), &AttrFmt::UInt8},
    {qcaConfigAttr("RESTRICT_OFFCHANNEL"), &AttrFmt::UInt8},
    {qcaConfigAttr("LRO"), &AttrFmt::UInt8},
    {qcaConfigAttr("SCAN_ENABLE"), &AttrFmt::UInt8},
    {qcaConfigAttr("TOTAL_BEACON_MISS_COUNT"), &AttrFmt::UInt8},
    {qcaConfigAttr("DISABLE_FILS"), &AttrFmt::UInt8},
    {qcaConfigAttr("RSN_IE"), &AttrFmt::UInt8},
    {qcaConfigAttr("GTX"), &AttrFmt::UInt8},
    {qcaConfigAttr("ELNA_BYPASS"), &AttrFmt::UInt8},
    {qcaConfigAttr("BEACON_REPORT_FAIL"), &AttrFmt::UInt8},
    {qcaConfigAttr("ROAM_REASON"), &AttrFmt::UInt8},
    {qcaConfigAttr("CHANNEL_WIDTH"), &AttrFmt::UInt8},
    {qcaConfigAttr("DYNAMIC_BW"), &AttrFmt::UInt8},
    {qcaConfigAttr("TX_MSDU_AGGREGATION"), &AttrFmt::UInt8},
    {qcaConfigAttr("RX_MSDU_AGGREGATION"), &AttrFmt::UInt8},
    {qcaConfigAttr("LDPC"), &AttrFmt::UInt8},
    {qcaConfigAttr("TX_STBC"), &AttrFmt::UInt8},
    {qcaConfigAttr("RX_STBC"), &AttrFmt::UInt8},
    {qcaConfigAttr("NSS"), &AttrFmt::UInt8},
    {qcaConfigAttr("OPTIMIZED_POWER_MANAGEMENT"), &AttrFmt::UInt8},
    {qcaConfigAttr("UDP_QOS_UPGRADE"), &AttrFmt::UInt8},
    {qcaConfigAttr("NUM_TX_CHAINS"), &AttrFmt::UInt8},
    {qcaConfigAttr("NUM_RX_CHAINS"), &AttrFmt::UInt8},
    {qcaConfigAttr("ANI_SETTING"), &AttrFmt::UInt8},
    {qcaConfigAttr("TX_NSS"), &AttrFmt::UInt8},
    {qcaConfigAttr("RX_NSS"), &AttrFmt::UInt8},
    {qcaConfigAttr("GENERIC_COMMAND"), &AttrFmt::QcaGenericCommand},
    {qcaConfigAttr("GENERIC_DATA"), &AttrFmt::QcaGenericData},
    {qcaConfigAttr("RX_BLOCKSIZE_PEER_MAC"), &AttrFmt::MacAddr},
    {qcaConfigAttr("LATENCY_LEVEL"), &AttrFmt::UInt16},
};

// A type listed twice would silently lose one of its decoders.
template <std::size_t N>
consteval bool eachTypeOnce(DecoderRow const (&rows)[N]) {
  for (std::size_t i = 0; i < N; ++i) {
    for (std::size_t j = i + 1; j < N; ++j) {
      if (rows[i].type == rows[j].type) return false;
    }
  }
  return true;
}
static_assert(eachTypeOnce(nl80211Decoders));
static_assert(eachTypeOnce(bssDecoders));
static_assert(eachTypeOnce(qcaConfigDecoders));

// Binary search of the subcommand names needs them in value order.
consteval bool inValueOrder(auto const& rows) {
  return std::is_sorted(std::begin(rows), std::end(rows),
                        [](auto const& a, auto const& b) { return a.value < b.value; });
}
static_assert(inValueOrder(qcaVendorSubcmds));

template <std::size_t N>
Decoder decoderOf(int type, DecoderRow const (&rows)[N]) {
  for (auto const& row : rows) {
    if (row.type == type) return row.decoder;
  }
  return nullptr;
}

template <std::size_t N, std::size_t M>
std::vector<attr_fmt_info> indexedTable(std::string_view const (&names)[N],
                                        DecoderRow const (&decoders)[M]) {
  std::vector<attr_fmt_info> table;
  table.reserve(N);
  for (std::size_t i = 0; i < N; ++i) {
    auto const type = static_cast<int>(i);
    table.push_back({type, names[i], decoderOf(type, decoders)});
  }
  return table;
}

template <std::size_t N, std::size_t M>
std::vector<attr_fmt_info> valuedTable(NamedValue const (&names)[N],
                                       DecoderRow const (&decoders)[M]) {
  std::vector<attr_fmt_info> table;
  table.reserve(N);
  for (auto const& row : names) {
    table.push_back({row.value, row.name, decoderOf(row.value, decoders)});
  }
  return table;
}

const std::vector<attr_fmt_info> nl80211Table = indexedTable(nl80211Names, nl80211Decoders);
const std::vector<attr_fmt_info> bssTable = valuedTable(bssNames, bssDecoders);
const std::vector<attr_fmt_info> qcaConfigTable = indexedTable(qcaConfigNames, qcaConfigDecoders);
// No generic command is known yet; the lookup stays so that naming one is
// a matter of adding its row.
const std::vector<attr_fmt_info> qcaGenericCommandTable;

std::string_view qcaVendorSubcmdName(std::uint32_t value) {
  auto const* end = std::end(qcaVendorSubcmds);
  auto const* row = std::lower_bound(
      std::begin(qcaVendorSubcmds), end, value,
      [](NamedValue const& r, std::uint32_t v) { return static_cast<std::uint32_t>(r.value) < v; });
  return row != end && static_cast<std::uint32_t>(row->value) == value ? row->name : "<unknown>";
}

}  // namespace

const std::vector<attr_fmt_info>* AttrFmt::GetTable(AttrScope scope) {
  switch (scope) {
    case AttrScope::Nl80211:
      return &nl80211Table;
    case AttrScope::Bss:
      return &bssTable;
    case AttrScope::QcaWifiConfig:
      return &qcaConfigTable;
  }
  // A value cast from a number that names no scope.
  return nullptr;
}

void AttrFmt::QcaVendorSubCmd(const nlattr* attr) {
  // Shorter than a u32 it cannot be read without leaving the attribute; the
  // vendor data that follows then counts as having no subcommand.
  if (nla_len(attr) < 4) {
    out << "<invalid>";
    return;
  }
  vendorSubCmd = {nla_get_u32(attr), true};
  out << qcaVendorSubcmdName(vendorSubCmd.value);
}

void AttrFmt::QcaGenericCommand(const nlattr* attr) {
  if (nla_len(attr) < 4) {
    out << "<invalid>";
    return;
  }
  genericCommand = {nla_get_u32(attr), true};
  auto const* info = GetFmtInfo(static_cast<int>(genericCommand.value), &qcaGenericCommandTable);
  out << (info != nullptr ? info->name : std::string_view("<unknown>"));
}

}  // namespace Ny80211
