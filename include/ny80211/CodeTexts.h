#pragma once
// Short texts of the codes that events carry: IEEE 802.11 reason and status
// codes, the chip driver's PHY modes, and nl80211's regulatory initiator and
// type. Codes without a text read "<unknown>".

#include <cstdint>
#include <string_view>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "ny80211/Channel.h"
#include "ny80211/Export.h"

namespace Ny80211 {

// The chip driver's PHY modes, in the driver's order (values 0 to 43).
enum ieee80211_phymode : std::uint32_t {
  IEEE80211_MODE_AUTO = 0,
  IEEE80211_MODE_11A,
  IEEE80211_MODE_11B,
  IEEE80211_MODE_11G,
  IEEE80211_MODE_FH,
  IEEE80211_MODE_TURBO_A,
  IEEE80211_MODE_TURBO_G,
  IEEE80211_MODE_11NA_HT20,
  IEEE80211_MODE_11NG_HT20,
  IEEE80211_MODE_11NA_HT40PLUS,
  IEEE80211_MODE_11NA_HT40MINUS,
  IEEE80211_MODE_11NG_HT40PLUS,
  IEEE80211_MODE_11NG_HT40MINUS,
  IEEE80211_MODE_11NG_HT40,
  IEEE80211_MODE_11NA_HT40,
  IEEE80211_MODE_11AC_VHT20,
  IEEE80211_MODE_11AC_VHT40PLUS,
  IEEE80211_MODE_11AC_VHT40MINUS,
  IEEE80211_MODE_11AC_VHT40,
  IEEE80211_MODE_11AC_VHT80,
  IEEE80211_MODE_11AC_VHT160,
  IEEE80211_MODE_11AC_VHT80_80,
  IEEE80211_MODE_11AXA_HE20,
  IEEE80211_MODE_11AXG_HE20,
  IEEE80211_MODE_11AXA_HE40PLUS,
  IEEE80211_MODE_11AXA_HE40MINUS,
  IEEE80211_MODE_11AXG_HE40PLUS,
  IEEE80211_MODE_11AXG_HE40MINUS,
  IEEE80211_MODE_11AXA_HE40,
  IEEE80211_MODE_11AXG_HE40,
  IEEE80211_MODE_11AXA_HE80,
  IEEE80211_MODE_11AXA_HE160,
  IEEE80211_MODE_11AXA_HE80_80,
  IEEE80211_MODE_11BEA_EHT20,
  IEEE80211_MODE_11BEG_EHT20,
  IEEE80211_MODE_11BEA_EHT40PLUS,
  IEEE80211_MODE_11BEA_EHT40MINUS,
  IEEE80211_MODE_11BEG_EHT40PLUS,
  IEEE80211_MODE_11BEG_EHT40MINUS,
  IEEE80211_MODE_11BEA_EHT40,
  IEEE80211_MODE_11BEG_EHT40,
  IEEE80211_MODE_11BEA_EHT80,
  IEEE80211_MODE_11BEA_EHT160,
  IEEE80211_MODE_11BEA_EHT320,
};

// Reason codes of deauthentication and disassociation.
NY80211_API std::string_view ieee80211_reason_to_string(std::uint32_t code) noexcept;
// Status codes of authentication and association.
NY80211_API std::string_view ieee80211_status_to_string(std::uint32_t code) noexcept;

namespace detail {
// Status 105 and the DFS event print the same text.
inline constexpr std::string_view radarDetectedText = "radar detected";

NY80211_API std::string_view phyModeText(ieee80211_phymode mode) noexcept;
NY80211_API std::string_view regInitiatorText(std::uint32_t initiator) noexcept;
NY80211_API std::string_view regTypeText(std::uint32_t type) noexcept;
}  // namespace detail

}  // namespace Ny80211

// The texts, with fill, alignment and width as for a string.
template <>
struct fmt::formatter<Ny80211::ieee80211_phymode>
    : Ny80211::detail::TextFormatter<Ny80211::ieee80211_phymode, &Ny80211::detail::phyModeText> {};

template <>
struct fmt::formatter<nl80211_reg_initiator>
    : Ny80211::detail::TextFormatter<nl80211_reg_initiator, &Ny80211::detail::regInitiatorText> {};

template <>
struct fmt::formatter<nl80211_reg_type>
    : Ny80211::detail::TextFormatter<nl80211_reg_type, &Ny80211::detail::regTypeText> {};
