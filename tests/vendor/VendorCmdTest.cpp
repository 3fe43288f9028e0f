#include <array>
#include <set>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "TestMessage.h"
#include "ny80211/VendorCmd.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::QcaCmd;
using namespace Ny80211::testing;
using Radio = WifiParamVendorData<RadioVendorParamTable>;
using Vap = WifiParamVendorData<VapVendorParamTable>;

// Every row is found by its name and writes u32 attributes typed 17 up: the command 200, its parameter, its values.
TEST(WifiParamVendorData, EveryRowWritesItsParameter) {
  EXPECT_EQ(g_radio_vendor_param_table.rowCount * 1000 + g_vap_vendor_param_table.rowCount, 505893u);
  std::set<std::string> rows;
  for (auto const* table : {&g_radio_vendor_param_table, &g_vap_vendor_param_table}) {
    for (std::uint32_t i = 0; i < table->rowCount; ++i) {
      auto const& row = table->rows[i];
      rows.insert(fmt::format("'{}' {:#x}/{}#{}", row.name, row.paramId, row.vendorSubCmd, row.valueCount));
      auto nest = NestedAttr::build();
      std::uint32_t const values[] = {200, row.paramId, 0x01020300 + i, 7, 9};
      auto write = [&]<class Data>() {
        if (row.valueCount == 0) Data(nest, row.name);
        if (row.valueCount == 1) Data(nest, row.name, values[2]);
        if (row.valueCount == 2) Data(nest, row.name, values[2], 7);
        if (row.valueCount == 3) Data(nest, row.name, values[2], 7, 9);
      };
      table == &g_radio_vendor_param_table ? write.operator()<Radio>() : write.operator()<Vap>();
      Bytes expected;
      for (std::uint32_t k = 0; k < 2 + row.valueCount; ++k) {
        auto const attr = bytesOf(std::array<std::uint32_t, 2>{8u | (17 + k) << 16, values[k]});
        expected.insert(expected.end(), attr.begin(), attr.end());
      }
      auto const* head = reinterpret_cast<std::uint8_t const*>(nest.head());
      EXPECT_EQ(Bytes(head, head + nest.length()), expected) << row.name;
    }
  }
  // Each form of entry of the listings the rows come from: a set row (subcommand 74) takes one value, a get row (75)
  // none, unless the listing says otherwise; a name may end in a blank.
  for (auto const* text : {"'DMABcnRespT' 0x0/74#1", "'get_txchainmask' 0x1001/75#0",
                           "'g_user_rnr_frame_sel' 0x11d2/75#1", "'s_txpow' 0x22e/74#2", "'addlocalpeer' 0x189/74#3",
                           "'config_mesh_latency ' 0x2db/74#2", "'g_oce_version_override ' 0x2bf/75#0"})
    EXPECT_TRUE(rows.contains(text)) << text;
}

TEST(WifiParamVendorDataDeathTest, MisuseTerminates) {
  auto nest = NestedAttr::build();
  EXPECT_DEATH(Radio(nest, "txchainmask", 3, 1), "");        // a set row given two values
  EXPECT_DEATH(Radio(nest, "get_txchainmask", 1), "");       // a get row given one
  EXPECT_DEATH(Vap(nest, "txchainmask", 3), "");             // a radio name in the VAP table
  EXPECT_DEATH(Vap(nest, "config_mesh_latency", 1, 2), "");  // the trailing blank left out
  EXPECT_DEATH(Radio(nest, "dl_vap", 1), "");                // a prefix of a longer name
}

}  // namespace
