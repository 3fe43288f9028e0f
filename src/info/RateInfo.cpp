#include <array>
#include <iterator>
#include <string>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "ny80211/StationInfo.h"

namespace Ny80211 {

namespace {

// The MCS attribute that marks a mode, with the NSS and guard-interval
// attributes of the same generation (0: the mode has none), newest first.
struct ModeAttrs {
  RateMode mode;
  int mcs;
  int nss;
  int gi;
};
constexpr std::array<ModeAttrs, 4> modes{{
    {RateMode::Eht, NL80211_RATE_INFO_EHT_MCS, NL80211_RATE_INFO_EHT_NSS, NL80211_RATE_INFO_EHT_GI},
    {RateMode::He, NL80211_RATE_INFO_HE_MCS, NL80211_RATE_INFO_HE_NSS, NL80211_RATE_INFO_HE_GI},
    {RateMode::Vht, NL80211_RATE_INFO_VHT_MCS, NL80211_RATE_INFO_VHT_NSS, 0},
    {RateMode::Ht, NL80211_RATE_INFO_MCS, 0, 0},
}};

struct WidthFlag {
  int attr;
  std::uint16_t mhz;
};
constexpr std::array<WidthFlag, 7> widths{{
    {NL80211_RATE_INFO_5_MHZ_WIDTH, 5},
    {NL80211_RATE_INFO_10_MHZ_WIDTH, 10},
    {NL80211_RATE_INFO_40_MHZ_WIDTH, 40},
    {NL80211_RATE_INFO_80_MHZ_WIDTH, 80},
    {NL80211_RATE_INFO_80P80_MHZ_WIDTH, 160},
    {NL80211_RATE_INFO_160_MHZ_WIDTH, 160},
    {NL80211_RATE_INFO_320_MHZ_WIDTH, 320},
}};

// nl80211_he_gi and nl80211_eht_gi number their intervals alike.
constexpr std::array<std::string_view, 3> giTexts{"0.8 us", "1.6 us", "3.2 us"};

}  // namespace

void AttrRateInfo::readFrom(AttrStream const& attrs) {
  AttrRateInfo rate;
  // The kernel sends the 16-bit total only while it fits, the 32-bit one always.
  if (auto const total = attrs.tryGetU32(NL80211_RATE_INFO_BITRATE32)) {
    rate.kbps = std::uint64_t{*total} * 100;
  } else if (auto const* total16 = attrs.tryFind(NL80211_RATE_INFO_BITRATE)) {
    rate.kbps = std::uint64_t{getU16(total16)} * 100;
  }
  for (auto const& row : modes) {
    auto const mcs = attrs.tryGetU8(row.mcs);
    if (!mcs) continue;
    rate.mode = row.mode;
    rate.mcs = *mcs;
    if (row.nss != 0) rate.nss = attrs.tryGetU8(row.nss).value_or(0);
    if (row.gi != 0) rate.gi = attrs.tryGetU8(row.gi);
    break;
  }
  for (auto const& flag : widths) {
    if (attrs.has(flag.attr)) {
      rate.widthMhz = flag.mhz;
      break;
    }
  }
  rate.shortGi = attrs.has(NL80211_RATE_INFO_SHORT_GI);
  *this = rate;
}

std::string AttrRateInfo::toString() const {
  fmt::memory_buffer out;
  auto const to = std::back_inserter(out);
  if (kbps) {
    fmt::format_to(to, "{} kbps", *kbps);
  } else {
    fmt::format_to(to, "<unknown> kbps");
  }
  if (mode != RateMode::Legacy) fmt::format_to(to, " {} MCS {}", mode, mcs);
  if (mode != RateMode::Legacy && mode != RateMode::Ht) fmt::format_to(to, " NSS {}", nss);
  if (mode != RateMode::Legacy || widthMhz != 20) fmt::format_to(to, " / {} MHz", widthMhz);
  if ((mode == RateMode::Ht || mode == RateMode::Vht) && shortGi) {
    fmt::format_to(to, " / short GI");
  }
  if (gi) fmt::format_to(to, " / GI {}", *gi < giTexts.size() ? giTexts[*gi] : "<unknown>");
  return fmt::to_string(out);
}

namespace detail {

std::string_view rateModeText(RateMode mode) {
  switch (mode) {
    case RateMode::Legacy:
      return "legacy";
    case RateMode::Ht:
      return "HT";
    case RateMode::Vht:
      return "VHT";
    case RateMode::He:
      return "HE";
    case RateMode::Eht:
      return "EHT";
  }
  return "<unknown>";
}

}  // namespace detail
}  // namespace Ny80211
