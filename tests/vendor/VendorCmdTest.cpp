#include <array>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <string>

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

std::string textOf(VendorCmd const& r) {
  return fmt::format("'{}' {:#x}/{}#{}", r.name, r.paramId, r.vendorSubCmd, r.valueCount);
}

// A listing entry as the text of its row, read here on its own, not by the generator, so that a fault in either
// shows: a set row (74) takes one value, a get row (75) none, unless #n says otherwise; + is a trailing blank.
std::string parsed(std::string const& entry) {
  static std::regex const form(R"((\w+)(\+?)=0x([0-9a-f]+)(/get)?(#(\d))?)");
  std::smatch m;
  EXPECT_TRUE(std::regex_match(entry, m, form)) << entry;
  return fmt::format("'{}{}' {:#x}/{}#{}", m[1].str(), m[2].length() != 0 ? " " : "", std::stoul(m[3], nullptr, 16),
                     m[4].matched ? 75 : 74,
                     m[6].matched   ? std::stoi(m[6])
                     : m[4].matched ? 0
                                    : 1);
}

// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): binds the tables, reads nothing of them
std::pair<char const*, VendorCmdTable const&> const tables[] = {{"radio_vendor_cmds.list", g_radio_vendor_param_table},
                                                                {"vap_vendor_cmds.list", g_vap_vendor_param_table}};

TEST(VendorTables, RowsAreTheirListingsInOrder) {
  EXPECT_EQ(g_radio_vendor_param_table.rowCount + g_vap_vendor_param_table.rowCount, 505u + 893u);
  std::set<std::string> texts;
  for (auto const& [file, table] : tables) {
    std::ifstream listing(NY80211_VENDOR_LISTINGS_DIR "/" + std::string(file));
    std::size_t i = 0;
    for (std::string line; std::getline(listing, line);) {
      if (line.empty() || line[0] == '#') continue;
      ASSERT_LT(i, table.rowCount) << file;
      EXPECT_EQ(textOf(table.rows[i]), parsed(line)) << file << ' ' << i;
      texts.insert(textOf(table.rows[i++]));
    }
    EXPECT_EQ(i, table.rowCount) << file;
  }
  // Each form of entry, as the driver's convention reads it.
  for (auto const* text : {"'DMABcnRespT' 0x0/74#1", "'get_txchainmask' 0x1001/75#0",
                           "'g_user_rnr_frame_sel' 0x11d2/75#1", "'s_txpow' 0x22e/74#2", "'addlocalpeer' 0x189/74#3",
                           "'config_mesh_latency ' 0x2db/74#2", "'g_oce_version_override ' 0x2bf/75#0"})
    EXPECT_TRUE(texts.contains(text)) << text;
}

// Every row is found by its own name and writes, in order, u32 attributes
// typed 17 and up: the command 200, its parameter, then its values.
TEST(WifiParamVendorData, EveryRowWritesItsParameter) {
  for (auto const& [file, table] : tables) {
    for (std::uint32_t i = 0; i < table.rowCount; ++i) {
      auto const& row = table.rows[i];
      auto nest = NestedAttr::build();
      std::uint32_t const values[] = {200, row.paramId, 0x01020300 + i, 7, 9};
      auto write = [&]<class Data>() {
        if (row.valueCount == 0) Data(nest, row.name);
        if (row.valueCount == 1) Data(nest, row.name, values[2]);
        if (row.valueCount == 2) Data(nest, row.name, values[2], 7);
        if (row.valueCount == 3) Data(nest, row.name, values[2], 7, 9);
      };
      &table == &g_radio_vendor_param_table ? write.operator()<Radio>() : write.operator()<Vap>();
      Bytes expected;
      for (std::uint32_t k = 0; k < 2 + row.valueCount; ++k) {
        auto const attr = bytesOf(std::array<std::uint32_t, 2>{8u | (17 + k) << 16, values[k]});
        expected.insert(expected.end(), attr.begin(), attr.end());
      }
      auto const* head = reinterpret_cast<std::uint8_t const*>(nest.head());
      EXPECT_EQ(Bytes(head, head + nest.length()), expected) << row.name;
    }
  }
}

TEST(WifiParamVendorDataDeathTest, MisuseTerminates) {
  std::pair<char const*, std::function<void(NestedAttr&)>> const cases[] = {
      {"set row with two values", [](NestedAttr& n) { Radio(n, "txchainmask", 3, 1); }},
      {"get row with a value", [](NestedAttr& n) { Radio(n, "get_txchainmask", 1); }},
      {"radio name in the VAP table", [](NestedAttr& n) { Vap(n, "txchainmask", 3); }},
      {"trailing blank left out", [](NestedAttr& n) { Vap(n, "config_mesh_latency", 1, 2); }},
      {"prefix of a longer name", [](NestedAttr& n) { Radio(n, "dl_vap", 1); }},
      {"other case", [](NestedAttr& n) { Radio(n, "TXCHAINMASK", 3); }},
  };
  for (auto const& [what, write] : cases) {
    auto nest = NestedAttr::build();
    EXPECT_DEATH(write(nest), "") << what;
  }
}

}  // namespace
