#include <cstdint>
#include <string_view>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "ny80211/CodeTexts.h"

namespace {

using namespace Ny80211;

struct Row {
  std::uint32_t code;
  std::string_view text;
};

TEST(CodeTexts, ReasonCodesAndTheGapsBetweenThem) {
  for (auto const& r :
       {Row{0, "<unknown>"},      {1, "unspecified"}, {3, "STA is leaving"},   {8, "STA is leaving"},
        {9, "not authenticated"}, {10, "<unknown>"},  {11, "<unknown>"},       {12, "BSS transition management"},
        {15, "kick out"},         {16, "<unknown>"},  {17, "<unknown>"},       {18, "invalid group cipher"},
        {22, "RSN required"},     {23, "<unknown>"},  {31, "<unknown>"},       {32, "QoS"},
        {36, "STA is leaving"},   {39, "timeout"},    {40, "<unknown>"},       {45, "cipher suite not supported"},
        {46, "<unknown>"},        {251, "<unknown>"}, {252, "local clean-up"}, {253, "<unknown>"},
        {0xffffffff, "<unknown>"}}) {
    EXPECT_EQ(ieee80211_reason_to_string(r.code), r.text) << "reason " << r.code;
  }
}

TEST(CodeTexts, StatusCodesAndTheGapsBetweenThem) {
  for (auto const& r : {Row{0, "success"},
                        {1, "unspecified error"},
                        {2, "<unknown>"},
                        {9, "<unknown>"},
                        {10, "capabilities mismatch"},
                        {16, "timeout"},
                        {17, "too many STAs"},
                        {22, "too many STAs"},
                        {23, "rates"},
                        {24, "<unknown>"},
                        {25, "missing Short Slot Time support"},
                        {34, "excessive frame loss and/or poor channel condition"},
                        {38, "invalid parameter(s)"},
                        {45, "invalid RSNE capabilities"},
                        {46, "<unknown>"},
                        {76, "Anti-Clogging Token is required"},
                        {104, "missing VHT support"},
                        {105, "radar detected"},
                        {106, "<unknown>"},
                        {0xffffffff, "<unknown>"}}) {
    EXPECT_EQ(ieee80211_status_to_string(r.code), r.text) << "status " << r.code;
  }
}

TEST(CodeTexts, TextsSharedBetweenCodesAreOneString) {
  auto const reason = [](std::uint32_t code) { return ieee80211_reason_to_string(code).data(); };
  auto const status = [](std::uint32_t code) { return ieee80211_status_to_string(code).data(); };
  EXPECT_EQ(reason(3), reason(8));
  EXPECT_EQ(reason(3), reason(36));
  EXPECT_EQ(reason(5), status(17));
  EXPECT_EQ(status(17), status(22));
  EXPECT_EQ(reason(39), status(16));
  for (std::uint32_t i = 0; i < 4; ++i) EXPECT_EQ(reason(18 + i), status(41 + i)) << i;
  EXPECT_EQ(reason(0), status(24));
}

TEST(CodeTexts, PhyModesKeepTheDriversOrderAndHonourWidth) {
  for (auto const& r : {Row{0, "auto"},
                        {1, "11a"},
                        {5, "11a turbo"},
                        {13, "11ng HT40"},
                        {14, "11na HT40"},
                        {21, "11ac VHT80+80"},
                        {22, "11axa HE20"},
                        {23, "11axg HE20"},
                        {32, "11axa HE80+80"},
                        {33, "11bea EHT20"},
                        {34, "11beg EHT20"},
                        {36, "11bea EHT40-"},
                        {37, "11beg EHT40+"},
                        {39, "11bea EHT40"},
                        {40, "11beg EHT40"},
                        {43, "11bea EHT320"},
                        {44, "<unknown>"},
                        {0xffffffff, "<unknown>"}}) {
    EXPECT_EQ(fmt::format("{}", static_cast<ieee80211_phymode>(r.code)), r.text) << r.code;
  }
  EXPECT_EQ(fmt::format("[{:<12}]", IEEE80211_MODE_11A), "[11a         ]");
  EXPECT_EQ(fmt::format("[{:*>11}]", static_cast<ieee80211_phymode>(44)), "[**<unknown>]");
}

TEST(CodeTexts, RegulatoryInitiatorAndType) {
  auto const initiator = [](int value) { return fmt::format("{}", static_cast<nl80211_reg_initiator>(value)); };
  auto const type = [](int value) { return fmt::format("{}", static_cast<nl80211_reg_type>(value)); };
  EXPECT_EQ(initiator(0), "core");
  EXPECT_EQ(initiator(1), "user");
  EXPECT_EQ(initiator(2), "driver");
  EXPECT_EQ(initiator(3), "country IE");
  EXPECT_EQ(type(0), "country");
  EXPECT_EQ(type(1), "world");
  EXPECT_EQ(type(2), "custom world");
  EXPECT_EQ(type(3), "intersection");
  EXPECT_EQ(fmt::format("[{:^8}]", NL80211_REGDOM_SET_BY_USER), "[  user  ]");
}

}  // namespace
