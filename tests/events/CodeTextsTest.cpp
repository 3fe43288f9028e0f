#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "ny80211/CodeTexts.h"

namespace {

using namespace Ny80211;

// "code text" for each code, joined.
template <class Text>
std::string texts(Text text, std::initializer_list<std::uint32_t> codes) {
  std::vector<std::string> out;
  for (auto const code : codes) out.push_back(fmt::format("{} {}", code, text(code)));
  return fmt::format("{}", fmt::join(out, ", "));
}

// Each table's edges and the gaps between its codes.
TEST(CodeTexts, ReasonStatusAndPhyModeTexts) {
  EXPECT_EQ(texts(ieee80211_reason_to_string, {0,  1,  3,  8,  9,  10, 11, 12, 15,  16,  17,  18,        22,
                                               23, 31, 32, 36, 39, 40, 45, 46, 251, 252, 253, 0xffffffff}),
            "0 <unknown>, 1 unspecified, 3 STA is leaving, 8 STA is leaving, 9 not authenticated, 10 <unknown>, "
            "11 <unknown>, 12 BSS transition management, 15 kick out, 16 <unknown>, 17 <unknown>, "
            "18 invalid group cipher, 22 RSN required, 23 <unknown>, 31 <unknown>, 32 QoS, 36 STA is leaving, "
            "39 timeout, 40 <unknown>, 45 cipher suite not supported, 46 <unknown>, 251 <unknown>, 252 local clean-up, "
            "253 <unknown>, 4294967295 <unknown>");
  EXPECT_EQ(texts(ieee80211_status_to_string,
                  {0, 1, 2, 9, 10, 16, 17, 22, 23, 24, 25, 34, 38, 45, 46, 76, 104, 105, 106, 0xffffffff}),
            "0 success, 1 unspecified error, 2 <unknown>, 9 <unknown>, 10 capabilities mismatch, 16 timeout, "
            "17 too many STAs, 22 too many STAs, 23 rates, 24 <unknown>, 25 missing Short Slot Time support, "
            "34 excessive frame loss and/or poor channel condition, 38 invalid parameter(s), "
            "45 invalid RSNE capabilities, 46 <unknown>, 76 Anti-Clogging Token is required, 104 missing VHT support, "
            "105 radar detected, 106 <unknown>, 4294967295 <unknown>");
  // The driver's order, where the 2.4 and 5 GHz modes interleave.
  auto const phyMode = [](std::uint32_t code) { return fmt::format("{}", static_cast<ieee80211_phymode>(code)); };
  EXPECT_EQ(texts(phyMode, {0, 1, 5, 13, 14, 21, 22, 23, 32, 33, 34, 36, 37, 39, 40, 43, 44, 0xffffffff}),
            "0 auto, 1 11a, 5 11a turbo, 13 11ng HT40, 14 11na HT40, 21 11ac VHT80+80, 22 11axa HE20, 23 11axg HE20, "
            "32 11axa HE80+80, 33 11bea EHT20, 34 11beg EHT20, 36 11bea EHT40-, 37 11beg EHT40+, 39 11bea EHT40, "
            "40 11beg EHT40, 43 11bea EHT320, 44 <unknown>, 4294967295 <unknown>");
  auto const initiator = [](std::uint32_t value) {
    return fmt::format("{}", static_cast<nl80211_reg_initiator>(value));
  };
  auto const type = [](std::uint32_t value) { return fmt::format("{}", static_cast<nl80211_reg_type>(value)); };
  EXPECT_EQ(texts(initiator, {0, 1, 2, 3, 4}), "0 core, 1 user, 2 driver, 3 country IE, 4 <unknown>");
  EXPECT_EQ(texts(type, {0, 1, 2, 3, 4}), "0 country, 1 world, 2 custom world, 3 intersection, 4 <unknown>");
}

TEST(CodeTexts, SharedTextsAreOneStringAndFormatsHonourWidth) {
  auto const reason = [](std::uint32_t code) { return ieee80211_reason_to_string(code).data(); };
  auto const status = [](std::uint32_t code) { return ieee80211_status_to_string(code).data(); };
  EXPECT_EQ(reason(3), reason(8));
  EXPECT_EQ(reason(3), reason(36));
  EXPECT_EQ(reason(5), status(17));
  EXPECT_EQ(status(17), status(22));
  EXPECT_EQ(reason(39), status(16));
  for (std::uint32_t i = 0; i < 4; ++i) EXPECT_EQ(reason(18 + i), status(41 + i)) << i;
  EXPECT_EQ(reason(0), status(24));

  EXPECT_EQ(fmt::format("[{:^8}]", NL80211_REGDOM_SET_BY_USER), "[  user  ]");
  EXPECT_EQ(fmt::format("[{:<12}]", IEEE80211_MODE_11A), "[11a         ]");
  EXPECT_EQ(fmt::format("[{:*>11}]", static_cast<ieee80211_phymode>(44)), "[**<unknown>]");
}

}  // namespace
