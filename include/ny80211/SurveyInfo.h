#pragma once
// SurveyInfo: what a radio measured on one channel, as an
// NL80211_CMD_NEW_SURVEY_RESULTS reply of the survey dump describes it. The
// builder of the dump is in namespace Cmd.

#include <cstdint>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Channel.h"
#include "ny80211/Export.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "quenta_common/MHz.h"

namespace Ny80211 {

class NY80211_API SurveyInfo {
 public:
  // NL80211_ATTR_IFINDEX, the nest NL80211_ATTR_SURVEY_INFO and its
  // frequency are mandatory (AttrNotFound), the rest optional; a short
  // attribute throws Error. A failed read leaves the record unchanged; a
  // successful one assigns every field.
  void readFrom(AttrStream const& attrs);
  // Empty only when a mandatory attribute is missing.
  static std::optional<SurveyInfo> tryReadFrom(AttrStream const& attrs);

  // busyMs / activeMs, when both are there and the active time is not 0.
  std::optional<double> busyRatio() const;

  // "survey {ifc} / {freq} MHz (#{:3})", " [in use]", then for each field
  // present " / noise {} dBm", " / active {} ms", " / busy {} ms" with
  // " ({:.1f}%)" of the busy ratio, " / extension busy", " / RX", " / TX",
  // " / scan", " / BSS RX" each "{} ms"; absent fields leave no text.
  std::string toString() const;

  NetIfcID ifc;
  quenta_common::MHz frequency;
  bool inUse = false;                // the radio's channel now
  std::optional<std::int8_t> noise;  // dBm
  // Channel times in ms since the driver began counting.
  std::optional<std::uint64_t> activeMs;
  std::optional<std::uint64_t> busyMs;
  std::optional<std::uint64_t> extBusyMs;
  std::optional<std::uint64_t> rxMs;
  std::optional<std::uint64_t> txMs;
  std::optional<std::uint64_t> scanMs;
  std::optional<std::uint64_t> bssRxMs;
};

namespace Cmd {

// The survey dump of an interface's radio: one NL80211_CMD_NEW_SURVEY_RESULTS
// per channel. Error when ifc is undefined.
NY80211_API Nl80211Command dumpSurvey(NetIfcID const& ifc);

}  // namespace Cmd
}  // namespace Ny80211

template <>
struct fmt::formatter<Ny80211::SurveyInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::SurveyInfo> {};
