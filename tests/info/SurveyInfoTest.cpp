#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/SurveyInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// What nl80211_send_survey fills for the channel in use, in its order.
Attrs fullInfo() {
  auto const ms = [](std::uint64_t value) { return bytesOf(value); };
  return {{NL80211_SURVEY_INFO_FREQUENCY, hex("3c140000")},
          {NL80211_SURVEY_INFO_NOISE, hex("a1")},
          {NL80211_SURVEY_INFO_IN_USE, {}},
          {NL80211_SURVEY_INFO_TIME, ms(1000)},
          {NL80211_SURVEY_INFO_TIME_BUSY, ms(250)},
          {NL80211_SURVEY_INFO_TIME_EXT_BUSY, ms(10)},
          {NL80211_SURVEY_INFO_TIME_RX, ms(200)},
          {NL80211_SURVEY_INFO_TIME_TX, ms(30)},
          {NL80211_SURVEY_INFO_TIME_SCAN, ms(5)},
          {NL80211_SURVEY_INFO_TIME_BSS_RX, ms(150)}};
}

// A reply on lo; without info attributes, without the nest.
TestMessage& reply(TestMessage& m, Attrs const& info, bool withIfindex = true) {
  if (withIfindex) m.u32(NL80211_ATTR_IFINDEX, 1);
  auto nest = TestMessage::nestBody();
  if (!info.empty()) m.nest(NL80211_ATTR_SURVEY_INFO, nest.put(info));
  return m;
}
void readInto(SurveyInfo& survey, Attrs const& info) {
  TestMessage m;
  survey.readFrom(reply(m, info).stream());
}

TEST(SurveyInfo, PrintsWhatIsSentAndTheBusyRatio) {
  std::string const full =
      "survey netifc lo / 5180 MHz (# 36) [in use] / noise -95 dBm / active 1000 ms / busy 250 ms "
      "(25.0%) / extension busy 10 ms / RX 200 ms / TX 30 ms / scan 5 ms / BSS RX 150 ms";
  // The attribute changed, its payload (nullptr: left out); a part of the
  // full text and what it becomes; the busy ratio.
  struct Row {
    int type = 0;
    char const *payload = nullptr, *part = nullptr, *becomes = nullptr;
    std::optional<double> ratio;
  } const rows[] = {
      {-1, nullptr, "", "", 0.25},
      {NL80211_SURVEY_INFO_IN_USE, nullptr, " [in use]", "", 0.25},
      {NL80211_SURVEY_INFO_NOISE, nullptr, " / noise -95 dBm", "", 0.25},
      {NL80211_SURVEY_INFO_TIME, nullptr, " / active 1000 ms / busy 250 ms (25.0%)", " / busy 250 ms", std::nullopt},
      {NL80211_SURVEY_INFO_TIME, "0000000000000000", "active 1000 ms / busy 250 ms (25.0%)",
       "active 0 ms / busy 250 ms", std::nullopt},
      {NL80211_SURVEY_INFO_TIME, "b80b000000000000", "active 1000 ms / busy 250 ms (25.0%)",
       "active 3000 ms / busy 250 ms (8.3%)", 250.0 / 3000},
      {NL80211_SURVEY_INFO_TIME_BUSY, nullptr, " / busy 250 ms (25.0%)", "", std::nullopt},
      {NL80211_SURVEY_INFO_TIME_EXT_BUSY, nullptr, " / extension busy 10 ms", "", 0.25},
      {NL80211_SURVEY_INFO_TIME_RX, nullptr, " / RX 200 ms", "", 0.25},
      {NL80211_SURVEY_INFO_TIME_TX, nullptr, " / TX 30 ms", "", 0.25},
      {NL80211_SURVEY_INFO_TIME_SCAN, nullptr, " / scan 5 ms", "", 0.25},
      {NL80211_SURVEY_INFO_TIME_BSS_RX, nullptr, " / BSS RX 150 ms", "", 0.25},
  };
  for (auto const& r : rows) {
    SCOPED_TRACE(r.part);
    SurveyInfo survey;
    auto const payloads = r.payload ? std::vector{r.payload} : std::vector<char const*>{};
    readInto(survey, replaced(fullInfo(), r.type, payloads));
    auto text = full;
    text.replace(text.find(r.part), std::string(r.part).size(), r.becomes);
    EXPECT_EQ(survey.toString(), text);
    EXPECT_EQ(survey.busyRatio(), r.ratio);
  }
}

TEST(SurveyInfo, AFailedReadLeavesTheRecordAndAGoodOneReplacesEveryField) {
  SurveyInfo survey;
  readInto(survey, fullInfo());
  readInto(survey, {{NL80211_SURVEY_INFO_FREQUENCY, hex("6c090000")}});
  EXPECT_EQ(survey.toString(), "survey netifc lo / 2412 MHz (#  1)");
  static constexpr char notFound[] = "AttrNotFound: attribute not found (type {})";
  static constexpr char tooSmall[] = "Error: attribute (type {}) payload too small for data type ({} < {})";
  struct Row {
    Attrs info;
    bool withIfindex;
    std::string read;
  } const rows[] = {
      {fullInfo(), false, fmt::format(notFound, int{NL80211_ATTR_IFINDEX})},
      {{}, true, fmt::format(notFound, int{NL80211_ATTR_SURVEY_INFO})},
      {replaced(fullInfo(), NL80211_SURVEY_INFO_FREQUENCY, {}), true,
       fmt::format(notFound, int{NL80211_SURVEY_INFO_FREQUENCY})},
      {replaced(fullInfo(), NL80211_SURVEY_INFO_FREQUENCY, {"1414"}), true,
       fmt::format(tooSmall, int{NL80211_SURVEY_INFO_FREQUENCY}, 2, 4)},
      {replaced(fullInfo(), NL80211_SURVEY_INFO_NOISE, {""}), true,
       fmt::format(tooSmall, int{NL80211_SURVEY_INFO_NOISE}, 0, 1)},
      {replaced(fullInfo(), NL80211_SURVEY_INFO_TIME, {"e8030000"}), true,
       fmt::format(tooSmall, int{NL80211_SURVEY_INFO_TIME}, 4, 8)},
  };
  for (auto const& r : rows) {
    SCOPED_TRACE(r.read);
    TestMessage m;
    reply(m, r.info, r.withIfindex);
    EXPECT_EQ(outcome([&] { return survey.readFrom(m.stream()), survey.toString(); }), r.read);
    EXPECT_EQ(survey.toString(), "survey netifc lo / 2412 MHz (#  1)");
    EXPECT_EQ(outcome([&] { return std::string(SurveyInfo::tryReadFrom(m.stream()) ? "read" : "empty"); }),
              r.read.starts_with("AttrNotFound") ? "empty" : r.read);
  }
}

}  // namespace
