#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/VendorCmd.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::QcaCmd;
using namespace Ny80211::testing;
using Radio = WifiParamVendorData<RadioVendorParamTable>;
using Vap = WifiParamVendorData<VapVendorParamTable>;

struct Row {
  std::string name;
  std::uint32_t paramId = 0, subCmd = 0, valueCount = 0;
  bool operator==(Row const&) const = default;
  friend std::ostream& operator<<(std::ostream& out, Row const& r) {
    return out << '"' << r.name << "\" " << r.paramId << '/' << r.subCmd << '#' << r.valueCount;
  }
};

Row toRow(VendorCmd const& r) { return {r.name, r.paramId, r.vendorSubCmd, r.valueCount}; }

// Parsed here on its own, not by the generator, so that a fault in either shows.
Row parseEntry(std::string const& entry) {
  auto const equals = entry.find('=');
  std::string name = entry.substr(0, equals);
  if (name.ends_with('+')) name.back() = ' ';
  std::size_t end = 0;
  auto const id = static_cast<std::uint32_t>(std::stoul(entry.substr(equals + 1), &end, 16));
  auto const rest = entry.substr(equals + 1 + end);
  bool const get = rest.starts_with("/get");
  auto const hash = rest.find('#');
  auto const count = hash == std::string::npos ? !get : std::stoul(rest.substr(hash + 1));
  return {name, id, get ? 75u : 74u, static_cast<std::uint32_t>(count)};
}

std::vector<Row> readListing(std::string const& file) {
  std::ifstream listing(NY80211_VENDOR_LISTINGS_DIR "/" + file);
  EXPECT_TRUE(listing.is_open()) << file;
  std::vector<Row> rows;
  for (std::string line; std::getline(listing, line);) {
    if (!line.empty() && line[0] != '#') rows.push_back(parseEntry(line));
  }
  return rows;
}

struct Table {
  char const* listing;
  VendorCmdTable const& descriptor;
  VendorCmd const* rows;
  std::size_t rowCount;
  std::map<std::pair<std::uint32_t, std::uint32_t>, int> countsBySubCmdAndValues;
  // Listing entries of each form, and those the driver's convention singles out.
  std::vector<std::string> oddRows;
};

// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): binds the table, reads nothing of it
Table const tables[] = {
    {"radio_vendor_cmds.list",
     g_radio_vendor_param_table,
     radio_vendor_cmds,
     505,
     {{{74, 1}, 270}, {{75, 0}, 234}, {{75, 1}, 1}},
     {"DMABcnRespT=0x0", "get_txchainmask=0x1001/get", "g_user_rnr_frame_sel=0x11d2/get#1", "setHALparam=0x8be0",
      "getHALparam=0x8be1/get", "enable_large_mru=0x1220"}},
    {"vap_vendor_cmds.list",
     g_vap_vendor_param_table,
     vap_vendor_cmds,
     893,
     {{{74, 1}, 449}, {{74, 2}, 17}, {{74, 3}, 5}, {{75, 0}, 419}, {{75, 1}, 3}},
     {"turbo=0x1", "g_txpow=0x22e/get#1", "s_txpow=0x22e#2", "addlocalpeer=0x189#3", "config_mesh_latency+=0x2db#2",
      "g_oce_version_override+=0x2bf/get", "setiebuf=0x8bf4", "getiebuf=0x8bf3/get", "quenta_mdns_drop=0x1005"}},
};

TEST(VendorTables, RowsEqualTheListingAndItsCounts) {
  int blankEnded = 0;
  for (auto const& table : tables) {
    SCOPED_TRACE(table.listing);
    EXPECT_EQ(table.descriptor.rows, table.rows);
    EXPECT_EQ(table.descriptor.rowCount, table.rowCount);
    auto const listed = readListing(table.listing);
    ASSERT_EQ(listed.size(), table.rowCount);
    std::map<std::pair<std::uint32_t, std::uint32_t>, int> counts;
    std::map<std::string, Row> byName;
    for (std::size_t i = 0; i < listed.size(); ++i) {
      auto const& row = listed[i];
      EXPECT_EQ(toRow(table.rows[i]), row) << "row " << i;
      ++counts[{row.subCmd, row.valueCount}];
      EXPECT_TRUE(byName.emplace(row.name, row).second) << "twice: " << row.name;
      blankEnded += row.name.ends_with(' ');
    }
    EXPECT_EQ(counts, table.countsBySubCmdAndValues);
    for (auto const& entry : table.oddRows) {
      auto const expected = parseEntry(entry);
      EXPECT_EQ(byName[expected.name], expected) << entry;
    }
  }
  EXPECT_EQ(blankEnded, 11);
}

// Every row is found by its own name and writes, in order, u32 attributes
// typed 17 and up: the command 200, its parameter, then its values.
TEST(WifiParamVendorData, EveryRowWritesItsParameter) {
  for (auto const& table : tables) {
    for (std::size_t i = 0; i < table.rowCount; ++i) {
      auto const& row = table.rows[i];
      SCOPED_TRACE(row.name);
      auto nest = NestedAttr::build();
      auto const value = 0x01020300u + static_cast<unsigned int>(i);
      auto write = [&]<class Data>() {
        if (row.valueCount == 0) Data(nest, row.name);
        if (row.valueCount == 1) Data(nest, row.name, value);
        if (row.valueCount == 2) Data(nest, row.name, value, 7);
        if (row.valueCount == 3) Data(nest, row.name, value, 7, 9);
      };
      table.rows == radio_vendor_cmds ? write.operator()<Radio>() : write.operator()<Vap>();
      // As it arrives inside a real generic netlink message.
      TestMessage message;
      message.stream().addNested(NL80211_ATTR_VENDOR_DATA, nest);
      auto* data = message.stream().find(NL80211_ATTR_VENDOR_DATA);
      auto const* payload = static_cast<std::uint8_t const*>(nla_data(data));
      std::uint32_t const values[] = {200, row.paramId, value, 7, 9};
      Bytes expected;
      for (std::uint16_t k = 0; k < 2 + row.valueCount; ++k) {
        for (auto const& part : {bytesOf<std::uint16_t>(8), bytesOf<std::uint16_t>(17 + k), bytesOf(values[k])}) {
          expected.insert(expected.end(), part.begin(), part.end());
        }
      }
      EXPECT_EQ(Bytes(payload, payload + nla_len(data)), expected);
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
