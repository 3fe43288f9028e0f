#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include "ny80211/AttrFmt.h"

namespace {

using namespace Ny80211;

#ifdef NY80211_NAME_TABLES_DIR
std::vector<std::pair<int, std::string>> readTable(std::string const& file) {
  std::ifstream table(std::string(NY80211_NAME_TABLES_DIR) + "/" + file);
  EXPECT_TRUE(table.is_open()) << file;
  std::vector<std::pair<int, std::string>> rows;
  std::string line;
  while (std::getline(table, line)) {
    if (line.empty() || line[0] == '#') continue;
    auto const tab = line.find('\t');
    rows.emplace_back(std::stoi(line.substr(0, tab)), line.substr(tab + 1));
  }
  return rows;
}

TEST(AttrTables, EqualTheTablesTheyCameFrom) {
  std::pair<AttrScope, char const*> const sources[] = {
      {AttrScope::Nl80211, "nl80211_attrs.tsv"},
      {AttrScope::Bss, "nl80211_bss_attrs.tsv"},
      {AttrScope::QcaWifiConfig, "qca_wlan_vendor_attr_config.tsv"},
  };
  for (auto const& [scope, file] : sources) {
    std::vector<std::pair<int, std::string>> actual;
    for (auto const& row : *AttrFmt::GetTable(scope)) actual.emplace_back(row.type, row.name);
    EXPECT_EQ(actual, readTable(file)) << file;
  }
}

TEST(AttrTables, VendorSubcommandNamesEqualTheirTable) {
  std::map<std::uint32_t, std::string> expected;
  for (auto const& [value, name] : readTable("qca_vendor_subcmds.tsv")) {
    expected[static_cast<std::uint32_t>(value)] = name;
  }
  EXPECT_EQ(expected.size(), 170u);
  for (std::uint32_t value = 0; value < 300; ++value) {
    std::unique_ptr<nl_msg, void (*)(nl_msg*)> const msg(nlmsg_alloc(), nlmsg_free);
    nla_put_u32(msg.get(), NL80211_ATTR_VENDOR_SUBCMD, value);
    AttrFmt fmt;
    fmt.QcaVendorSubCmd(nlmsg_attrdata(nlmsg_hdr(msg.get()), 0));
    auto const it = expected.find(value);
    EXPECT_EQ(fmt.out.str(), it != expected.end() ? it->second : "<unknown>") << value;
  }
}
#endif

}  // namespace
