#include <array>
#include <iterator>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "ny80211/Error.h"
#include "ny80211/SurveyInfo.h"

namespace Ny80211 {

namespace {

// The channel times, in the order they print.
struct ChannelTime {
  int attr;
  std::optional<std::uint64_t> SurveyInfo::*field;
  std::string_view label;
};
constexpr std::array<ChannelTime, 7> times{{
    {NL80211_SURVEY_INFO_TIME, &SurveyInfo::activeMs, "active"},
    {NL80211_SURVEY_INFO_TIME_BUSY, &SurveyInfo::busyMs, "busy"},
    {NL80211_SURVEY_INFO_TIME_EXT_BUSY, &SurveyInfo::extBusyMs, "extension busy"},
    {NL80211_SURVEY_INFO_TIME_RX, &SurveyInfo::rxMs, "RX"},
    {NL80211_SURVEY_INFO_TIME_TX, &SurveyInfo::txMs, "TX"},
    {NL80211_SURVEY_INFO_TIME_SCAN, &SurveyInfo::scanMs, "scan"},
    {NL80211_SURVEY_INFO_TIME_BSS_RX, &SurveyInfo::bssRxMs, "BSS RX"},
}};

}  // namespace

void SurveyInfo::readFrom(AttrStream const& attrs) {
  SurveyInfo survey;
  survey.ifc = NetIfcID(attrs.getU32(NL80211_ATTR_IFINDEX));
  AttrStream const info(attrs.find(NL80211_ATTR_SURVEY_INFO));
  survey.frequency = info.getU32(NL80211_SURVEY_INFO_FREQUENCY);
  survey.inUse = info.has(NL80211_SURVEY_INFO_IN_USE);
  if (auto const noise = info.tryGetU8(NL80211_SURVEY_INFO_NOISE)) {
    survey.noise = static_cast<std::int8_t>(*noise);
  }
  for (auto const& time : times) survey.*time.field = info.tryGetU64(time.attr);
  *this = std::move(survey);
}

std::optional<SurveyInfo> SurveyInfo::tryReadFrom(AttrStream const& attrs) {
  try {
    SurveyInfo survey;
    survey.readFrom(attrs);
    return survey;
  } catch (AttrNotFound const&) {
    return std::nullopt;
  }
}

std::optional<double> SurveyInfo::busyRatio() const {
  if (!activeMs || !busyMs || *activeMs == 0) return std::nullopt;
  return static_cast<double>(*busyMs) / static_cast<double>(*activeMs);
}

std::string SurveyInfo::toString() const {
  fmt::memory_buffer out;
  auto const to = std::back_inserter(out);
  fmt::format_to(to, "survey {} / {} MHz (#{:3})", ifc, frequency, frequency.GetChannelNumber());
  if (inUse) fmt::format_to(to, " [in use]");
  if (noise) fmt::format_to(to, " / noise {} dBm", *noise);
  for (auto const& time : times) {
    auto const& value = this->*time.field;
    if (!value) continue;
    fmt::format_to(to, " / {} {} ms", time.label, *value);
    if (time.field == &SurveyInfo::busyMs) {
      if (auto const ratio = busyRatio()) fmt::format_to(to, " ({:.1f}%)", *ratio * 100);
    }
  }
  return fmt::to_string(out);
}

namespace Cmd {

Nl80211Command dumpSurvey(NetIfcID const& ifc) {
  auto command =
      Nl80211Command::dump(NL80211_CMD_GET_SURVEY, fmt::format("dump survey on {}", ifc));
  ifc.writeTo(command.attributes());
  return command;
}

}  // namespace Cmd
}  // namespace Ny80211
