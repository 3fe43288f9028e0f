#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ny80211/Element.h"
#include "ny80211/NeighborReport.h"

namespace {

using namespace Ny80211;
using Elem::NeighborReport;
using ::testing::ElementsAreArray;
using SubID = NeighborReport::SubElementID;

// BSSID 02:11:22:33:44:55, BSSID Information 0x0000388f, operating class
// 115, channel 36, the PHY type, then the subelement area. The element
// outlives its buffer: everything it shows is copied.
std::unique_ptr<NeighborReport> report(std::vector<int> const& area, int phy = 14) {
  std::vector<int> v{
      0x34, 13 + static_cast<int>(area.size()), 0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0x8F, 0x38, 0x00, 0x00, 115, 36,
      phy};
  v.insert(v.end(), area.begin(), area.end());
  std::vector<std::byte> in;
  in.reserve(v.size());
  for (int b : v) in.push_back(static_cast<std::byte>(b));
  return std::unique_ptr<NeighborReport>(dynamic_cast<NeighborReport*>(Element::make(in).release()));
}

TEST(NeighborReport, ListsSubelementIdsWhileAHeaderFits) {
  struct Row {
    std::vector<int> area;
    std::vector<int> ids;
  };
  Row const rows[] = {
      {{}, {}},
      {{0x01, 0x00, 0x02}, {1}},  // the second header lacks its length octet
      {{0x01, 0x08, 1, 2, 3, 4, 5, 6, 7, 8, 0xDD, 0x03, 0x00, 0x50, 0xF2}, {1, 221}},
      {{0x01, 0x05, 0x00}, {1}},  // a body past the end is still listed
      {{0x03, 0x01, 0xFF, 0x02, 0xFF, 0x55}, {3, 2}},
  };
  for (auto const& r : rows) {
    auto const nr = report(r.area);
    ASSERT_TRUE(nr);
    std::vector<int> ids;
    for (auto id : nr->subElements()) ids.push_back(static_cast<int>(id));
    EXPECT_THAT(ids, ElementsAreArray(r.ids));
  }
}

TEST(NeighborReport, Description) {
  auto const nr = report({});
  EXPECT_EQ(nr->phyType(), Elem::PhyType::HE);
  EXPECT_EQ(nr->toString(),
            "Neighbor Report Element:\n"
            "  BSSID          : 02:11:22:33:44:55\n"
            "  Reachable      : yes\n"
            "  Security       : true\n"
            "  Key Scope      : true\n"
            "  Capabilities   : [Radio Measurement] \n"
            "  Mobility Domain: false\n"
            "  HT AP          : true\n"
            "  VHT AP         : true\n"
            "  FTM            : true\n"
            "  Operating class: 115\n"
            "  Primary channel: 36\n"
            "  PHY type       : HE\n"
            "  Sub-Elements   : []\n");
  EXPECT_THAT(report({0x01, 0x00, 0x07, 0x00}, 3)->toString(),
              ::testing::EndsWith("  PHY type       : <unknown>\n  Sub-Elements   : [\n"
                                  "    TSF Information,\n    <ID 7>,\n  ]\n"));
}

TEST(NeighborReport, Table) {
  auto const divider =
      "+-------+-------------------+-----------------------------------+------------+-------+"
      "-------+-----------+----------------+";
  EXPECT_EQ(NeighborReport::getTableDivider(), divider);
  EXPECT_EQ(NeighborReport::getTableHeader(),
            fmt::format("{}\n"
                        "|       |                   |                                   |       "
                        "     |  Op.  | Prim. |           |                |\n"
                        "| Sel.? | BSSID             | SSID                              | BSSID "
                        "Info | Class | Chan. | PHY Type  | Sub-Elems      |\n"
                        "{}\n",
                        divider, divider));
  EXPECT_EQ(report({0x01, 0x00, 0xDD, 0x00})->toTableRow(true, "home"),
            "|   X   | 02:11:22:33:44:55 | home                              | 0x0000388f |  "
            "115  |   36  | HE        | 1, 221         |\n");
  // Widths are minimums: a long SSID widens the row.
  EXPECT_EQ(report({0x2D, 0x00})->toTableRow(false, std::string(40, 'x')),
            "|       | 02:11:22:33:44:55 | " + std::string(40, 'x') +
                "| 0x0000388f |  115  |   36  | HE        | 45             |\n");
}

TEST(NeighborReport, CompanionTypesPrintTheirNames) {
  EXPECT_EQ(fmt::format("{} {} {} {} {}", Elem::PhyType{2}, Elem::PhyType{3}, Elem::PhyType{4}, Elem::PhyType{14},
                        Elem::PhyType{15}),
            "DSSS <unknown> OFDM HE <unknown>");
  EXPECT_EQ(fmt::format("{}|{}|{}|{}|{}", SubID{0}, SubID{6}, SubID{7}, SubID{197}, SubID{221}),
            "<ID 0>|Wide Bandwidth Channel|<ID 7>|SSID|Vendor Specific");
  EXPECT_EQ(fmt::format("[{:>11}][{:*^8}]", Elem::PhyType{3}, SubID{7}), "[  <unknown>][*<ID 7>*]");

  // The hex text is the little-endian word.
  Elem::BssidInfo const info({0x62, 0x02, 0x03, 0xA4});
  EXPECT_EQ(info.toStringHex(), "0xa4030262");
  EXPECT_EQ(fmt::format("[{:>20}]", info.capabilities()), "[       [QoS] [APSD] ]");
  EXPECT_THAT(fmt::format("{}", Elem::BssidInfo()),
              ::testing::StartsWith("  Reachable      : <?>\n"
                                    "  Security       : false\n  Key Scope      : false\n"
                                    "  Capabilities   : \n"));
  EXPECT_EQ((Elem::BssidCapabilities{true, true, true, true}.toString()),
            "[Spectrum Management] [QoS] [APSD] [Radio Measurement] ");
}

}  // namespace
