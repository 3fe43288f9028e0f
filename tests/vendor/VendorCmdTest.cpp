#include <bit>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "ny80211/VendorCmd.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::QcaCmd;
using Radio = WifiParamVendorData<RadioVendorParamTable>;
using Vap = WifiParamVendorData<VapVendorParamTable>;

struct Row {
  std::string name;
  std::uint32_t paramId, subCmd, valueCount;
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
  // Listing entries the driver's convention singles out, led by the table's
  // first row and ended by its last.
  std::vector<std::string> oddRows;
};

Table const tables[] = {
    {"radio_vendor_cmds.list", g_radio_vendor_param_table, radio_vendor_cmds, 505,
     {{{74, 1}, 270}, {{75, 0}, 234}, {{75, 1}, 1}},
     {"DMABcnRespT=0x0", "get_txchainmask=0x1001/get", "dl_vapon=0x2006", "get_emiwar80p80=0x113a",
      "g_user_rnr_frame_sel=0x11d2/get#1", "setCountryID=0x2000", "getCountryID=0x2000/get",
      "set_tx_drop_threshold=0x2020", "setHALparam=0x8be0", "getHALparam=0x8be1/get",
      "get_aggr_burst=0x8bed/get", "enable_large_mru=0x1220"}},
    {"vap_vendor_cmds.list", g_vap_vendor_param_table, vap_vendor_cmds, 893,
     {{{74, 1}, 449}, {{74, 2}, 17}, {{74, 3}, 5}, {{75, 0}, 419}, {{75, 1}, 3}},
     {"turbo=0x1", "get_mixedmode=0x196", "g_dscp_tid_map=0x318", "get_mu_peer_pos=0x1d5",
      "get_he_ul_stbc=0x25b", "get_he_su_mu_ppdu_4x_ltf_800ns_gi=0x29c", "g_txpow_mgmt=0x1f6/get#1",
      "g_txpow=0x22e/get#1", "g_tx_lat_cptr=0x277/get#1", "cfreq2=0x187#2", "oce_wan_mtr=0x1fd#2",
      "s_dscp_tid_map=0x185#2", "set_monrxfilter=0x186#2", "allowdata=0x18b#2",
      "s_txpow_mgmt=0x1f6#2", "enable_fils=0x222#2", "s_txpow=0x22e#2", "print_rl=0x2da#2",
      "he_bfee_sts_supp=0x272#2", "rx_amsdu_ptid=0x28c#2", "bcast_prbrsp_en=0x28e#2",
      "oce_txpower=0x2b8#2", "oce_subnet_id=0x2b9#2", "oce_ess_report=0x2ba#2",
      "config_mesh_latency+=0x2db#2", "vap_resource_profile+=0x2e1#2", "addlocalpeer=0x189#3",
      "eht_txmcsmap=0x2e2#3", "eht_rxmcsmap=0x2e3#3", "set_eht_bfme_ss=0x2f5#3",
      "set_eht_num_sd=0x31c#3", "oce_version_override+=0x2bf", "g_oce_version_override+=0x2bf/get",
      "hlos_tidoverride+=0x2c8", "g_hlos_tidoverride+=0x2c8/get", "peer_authorize+=0x2d4",
      "g_peer_authorize+=0x2d4/get", "config_mesh_tid+=0x2dc", "enable_peer_tidlatency+=0x2dd",
      "g_peer_tidlatency+=0x2dd/get", "setiebuf=0x8bf4", "getiebuf=0x8bf3/get", "dbgreq=0x8bf8",
      "sendmgmt=0x8bfa", "me_adddeny=0x8bfb", "hbrparams=0x8bfe", "rxtimeout=0x8bff",
      "min_psnr=0x1000", "min_psnr_en=0x1001", "fix_basicrates=0x1003", "arp_fwd_en=0x1004",
      "display_band_chans=0x1221/get", "quenta_mdns_drop=0x1005"}},
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
    EXPECT_EQ(toRow(table.rows[0]), parseEntry(table.oddRows.front()));
    EXPECT_EQ(toRow(table.rows[table.rowCount - 1]), parseEntry(table.oddRows.back()));
  }
  EXPECT_EQ(blankEnded, 11);
}

// The vendor data as it arrives inside a real generic netlink message.
struct VendorMessage {
  nl_msg* msg = nlmsg_alloc();
  explicit VendorMessage(NestedAttr const& data) {
    genlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, NL80211_CMD_VENDOR, 0);
    auto* genl = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
    AttrStream(msg, genlmsg_attrdata(genl, 0), 0).addNested(NL80211_ATTR_VENDOR_DATA, data);
  }
  ~VendorMessage() { nlmsg_free(msg); }
  nlattr* vendorData() const {
    return nlmsg_find_attr(nlmsg_hdr(msg), GENL_HDRLEN, NL80211_ATTR_VENDOR_DATA);
  }
  std::vector<std::uint8_t> bytes() const {
    auto const* data = static_cast<std::uint8_t const*>(nla_data(vendorData()));
    return {data, data + nla_len(vendorData())};
  }
};

// Every row is found by its own name and writes its attributes in order.
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
      VendorMessage const message(nest);
      // Each attribute is 4 bytes: (type, value) pairs say it all.
      std::vector<std::pair<int, std::uint32_t>> written;
      AttrStream(message.vendorData()).forEachAttr([&](nlattr const* a) {
        EXPECT_EQ(nla_len(a), 4);
        written.emplace_back(nla_type(a), nla_get_u32(const_cast<nlattr*>(a)));
      });
      std::vector<std::pair<int, std::uint32_t>> expected{
          {17, 200}, {18, row.paramId}, {19, value}, {20, 7}, {21, 9}};
      expected.resize(2 + row.valueCount);
      EXPECT_EQ(written, expected);
    }
  }
}

TEST(WifiParamVendorData, ExactBytes) {
  if constexpr (std::endian::native != std::endian::little) GTEST_SKIP() << "little-endian bytes";
  auto const written = [](std::function<void(NestedAttr&)> const& write) {
    auto nest = NestedAttr::build();
    write(nest);
    return VendorMessage(nest).bytes();
  };
  using Bytes = std::vector<std::uint8_t>;
  // Attribute header (length 8, type) and payload, one attribute a line.
  EXPECT_EQ(written([](NestedAttr& n) { Radio(n, "txchainmask", 3); }),
            (Bytes{8, 0, 17, 0, 200, 0, 0, 0,  //
                   8, 0, 18, 0, 0x01, 0x10, 0, 0,  //
                   8, 0, 19, 0, 3, 0, 0, 0}));
  EXPECT_EQ(written([](NestedAttr& n) { Radio(n, "get_txchainmask"); }),
            (Bytes{8, 0, 17, 0, 200, 0, 0, 0,  //
                   8, 0, 18, 0, 0x01, 0x10, 0, 0}));
  EXPECT_EQ(written([](NestedAttr& n) { Vap(n, "addlocalpeer", 0x0a0b0c0d, 6, 1); }),
            (Bytes{8, 0, 17, 0, 200, 0, 0, 0,  //
                   8, 0, 18, 0, 0x89, 0x01, 0, 0,  //
                   8, 0, 19, 0, 0x0d, 0x0c, 0x0b, 0x0a,  //
                   8, 0, 20, 0, 6, 0, 0, 0,  //
                   8, 0, 21, 0, 1, 0, 0, 0}));
}

TEST(WifiParamVendorDataDeathTest, MisuseTerminates) {
  std::pair<char const*, std::function<void(NestedAttr&)>> const cases[] = {
      {"set row without value", [](NestedAttr& n) { Radio(n, "txchainmask"); }},
      {"set row with two values", [](NestedAttr& n) { Radio(n, "txchainmask", 3, 1); }},
      {"get row with a value", [](NestedAttr& n) { Radio(n, "get_txchainmask", 1); }},
      {"get row that takes a value, without", [](NestedAttr& n) { Vap(n, "g_txpow"); }},
      {"three-value row with two", [](NestedAttr& n) { Vap(n, "addlocalpeer", 1, 2); }},
      {"radio name in the VAP table", [](NestedAttr& n) { Vap(n, "txchainmask", 3); }},
      {"trailing blank left out", [](NestedAttr& n) { Vap(n, "config_mesh_latency", 1, 2); }},
      {"blank added", [](NestedAttr& n) { Radio(n, "txchainmask ", 3); }},
      {"prefix of a longer name", [](NestedAttr& n) { Radio(n, "dl_vap", 1); }},
      {"other case", [](NestedAttr& n) { Radio(n, "TXCHAINMASK", 3); }},
  };
  for (auto const& [what, write] : cases) {
    EXPECT_DEATH(
        {
          auto nest = NestedAttr::build();
          write(nest);
        },
        "")
        << what;
  }
}

}  // namespace
