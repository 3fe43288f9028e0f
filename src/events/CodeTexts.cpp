#include "ny80211/CodeTexts.h"

#include <array>

namespace Ny80211 {

namespace {

constexpr std::string_view unknown = "<unknown>";

// Texts that more than one code prints, kept as one string each.
constexpr std::string_view staLeaving = "STA is leaving";
constexpr std::string_view tooManyStas = "too many STAs";
constexpr std::string_view timeout = "timeout";
constexpr std::string_view invalidGroupCipher = "invalid group cipher";
constexpr std::string_view invalidPairwiseCipher = "invalid pairwise cipher";
constexpr std::string_view invalidAkmp = "invalid AKMP";
constexpr std::string_view unsupportedRsneVersion = "unsupported RSNE version";

// Indexed by the driver's PHY mode number.
constexpr std::array<std::string_view, 44> phyModes = {
    "auto",         "11a",          "11b",           "11g",           "FH",          "11a turbo",
    "11g turbo",    "11na HT20",    "11ng HT20",     "11na HT40+",    "11na HT40-",  "11ng HT40+",
    "11ng HT40-",   "11ng HT40",    "11na HT40",     "11ac VHT20",    "11ac VHT40+", "11ac VHT40-",
    "11ac VHT40",   "11ac VHT80",   "11ac VHT160",   "11ac VHT80+80", "11axa HE20",  "11axg HE20",
    "11axa HE40+",  "11axa HE40-",  "11axg HE40+",   "11axg HE40-",   "11axa HE40",  "11axg HE40",
    "11axa HE80",   "11axa HE160",  "11axa HE80+80", "11bea EHT20",   "11beg EHT20", "11bea EHT40+",
    "11bea EHT40-", "11beg EHT40+", "11beg EHT40-",  "11bea EHT40",   "11beg EHT40", "11bea EHT80",
    "11bea EHT160", "11bea EHT320",
};
// A mode left out would leave the last slot empty.
static_assert(phyModes.back() == "11bea EHT320");

}  // namespace

std::string_view ieee80211_reason_to_string(std::uint32_t code) noexcept {
  switch (code) {
    case 1:
      return "unspecified";
    case 2:
      return "authentication expired";
    case 3:
    case 8:
    case 36:
      return staLeaving;
    case 4:
      return "inactivity";
    case 5:
      return tooManyStas;
    case 6:
      return "frame received from non-authenticated STA";
    case 7:
      return "frame received from non-associated STA";
    case 9:
      return "not authenticated";
    case 12:
      return "BSS transition management";
    case 13:
      return "invalid IE";
    case 14:
      return "MIC failure";
    case 15:
      return "kick out";
    case 18:
      return invalidGroupCipher;
    case 19:
      return invalidPairwiseCipher;
    case 20:
      return invalidAkmp;
    case 21:
      return unsupportedRsneVersion;
    case 22:
      return "RSN required";
    case 32:
      return "QoS";
    case 33:
      return "QoS insufficient bandwidth";
    case 34:
      return "too many missing ACKs";
    case 35:
      return "exceeded TXOP";
    case 37:
      return "declined";
    case 38:
      return "setup required";
    case 39:
      return timeout;
    case 45:
      return "cipher suite not supported";
    case 252:
      return "local clean-up";
    default:
      return unknown;
  }
}

std::string_view ieee80211_status_to_string(std::uint32_t code) noexcept {
  switch (code) {
    case 0:
      return "success";
    case 1:
      return "unspecified error";
    case 10:
      return "capabilities mismatch";
    case 11:
      return "not associated";
    case 12:
      return "other";
    case 13:
      return "authentication algorithm not supported";
    case 14:
      return "sequence error";
    case 15:
      return "challenge failure";
    case 16:
      return timeout;
    case 17:
    case 22:
      return tooManyStas;
    case 18:
      return "basic rates mismatch";
    case 19:
      return "missing short preamble support";
    case 20:
      return "PBCC required";
    case 21:
      return "CA required";
    case 23:
      return "rates";
    case 25:
      return "missing Short Slot Time support";
    case 26:
      return "missing DSSSOFDM";
    case 27:
      return "missing HT support";
    case 30:
      return "rejected temporarily, try again later";
    case 31:
      return "robust management frame policy violation";
    case 34:
      return "excessive frame loss and/or poor channel condition";
    case 37:
      return "refused";
    case 38:
      return "invalid parameter(s)";
    case 40:
      return "invalid element";
    case 41:
      return invalidGroupCipher;
    case 42:
      return invalidPairwiseCipher;
    case 43:
      return invalidAkmp;
    case 44:
      return unsupportedRsneVersion;
    case 45:
      return "invalid RSNE capabilities";
    case 48:
      return "DLS not allowed";
    case 53:
      return "invalid PMKID";
    case 76:
      return "Anti-Clogging Token is required";
    case 77:
      return "finite cyclic group not supported";
    case 104:
      return "missing VHT support";
    case 105:
      return detail::radarDetectedText;
    default:
      return unknown;
  }
}

namespace detail {

std::string_view phyModeText(ieee80211_phymode mode) noexcept {
  return mode < phyModes.size() ? phyModes[mode] : unknown;
}

std::string_view regInitiatorText(std::uint32_t initiator) noexcept {
  switch (initiator) {
    case NL80211_REGDOM_SET_BY_CORE:
      return "core";
    case NL80211_REGDOM_SET_BY_USER:
      return "user";
    case NL80211_REGDOM_SET_BY_DRIVER:
      return "driver";
    case NL80211_REGDOM_SET_BY_COUNTRY_IE:
      return "country IE";
    default:
      return unknown;
  }
}

std::string_view regTypeText(std::uint32_t type) noexcept {
  switch (type) {
    case NL80211_REGDOM_TYPE_COUNTRY:
      return "country";
    case NL80211_REGDOM_TYPE_WORLD:
      return "world";
    case NL80211_REGDOM_TYPE_CUSTOM_WORLD:
      return "custom world";
    case NL80211_REGDOM_TYPE_INTERSECTION:
      return "intersection";
    default:
      return unknown;
  }
}

}  // namespace detail
}  // namespace Ny80211
