// Records and the formatter against the real nl80211: the wiphy replies of
// two virtual radios, the operating channel of an access point that hostapd
// runs on phy0/wlan0, the scan results of phy1/wlan1, and a vendor command.
#include <chrono>
#include <cstdio>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/handlers.h>

#include "KernelHelpers.h"
#include "ny80211/AttrFmt.h"
#include "ny80211/Channel.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"
#include "ny80211/VendorCmd.h"
#include "ny80211/WiPhyInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

std::string const vht80 =
    "ssid=ny80211-vht80\ncountry_code=US\nieee80211d=1\nhw_mode=a\nchannel=36\n"
    "ieee80211n=1\nieee80211ac=1\nht_capab=[HT40+]\nvht_oper_chwidth=1\n"
    "vht_oper_centr_freq_seg0_idx=42\n";

// Every reply of one command, rendered by the formatter as it arrives (under
// the sanitizers in their build), with a callback for the caller.
void sendAndRender(CommandSocket& socket, GenlMessage& command, std::function<void(GenlMessage const&)> const& each) {
  socket.sendMessage(command, [&](nl_msg* reply) {
    GenlMessage const message(reply);
    std::ostringstream text;
    message.attributes().printToStream(text, AttrScope::Nl80211);
    EXPECT_NE(text.str().find("\tAttributes:\n"), std::string::npos);
    each(message);
    return NL_OK;
  });
}

class KernelRecords : public ::testing::Test {
 protected:
  void SetUp() override { socket.connect(); }

  ChannelInfo channelOf(NetIfcID const& ifc) {
    Nl80211Command get(NL80211_CMD_GET_INTERFACE, fmt::format("get {}", ifc));
    ifc.writeTo(get.attributes());
    ChannelInfo channel;
    sendAndRender(socket, get, [&](GenlMessage const& reply) { channel.readFrom(reply.attributes()); });
    return channel;
  }

  CommandSocket socket;
};

// `iw phy <name> info`: the frequencies of each band, with their power limit
// and whether they are disabled, in the order iw prints them.
std::vector<std::string> iwFrequencies(std::string const& phy) {
  // Lines such as "* 2412 MHz [1] (20.0 dBm)" or "* 2484.0 MHz [14] (disabled)".
  // Parsed by hand: std::regex trips GCC 12's maybe-uninitialized under -O2.
  std::vector<std::string> lines;
  std::istringstream out(run("iw phy " + phy + " info"));
  for (std::string text; std::getline(out, text);) {
    double freq = 0;
    unsigned channel = 0;
    char rest[32] = {};
    if (std::sscanf(text.c_str(), " * %lf MHz [%u] (%31[^)])", &freq, &channel, rest) != 3) continue;
    std::string const limit(rest);
    double dbm = 0;
    if (limit == "disabled") {
      lines.push_back(fmt::format("{} disabled", freq));
    } else if (std::sscanf(limit.c_str(), "%lf dBm", &dbm) == 1) {
      lines.push_back(fmt::format("{} {}", freq, dbm));
    }
  }
  return lines;
}

// Reads a wiphy reply as far as it goes: the virtual radios have no antenna
// configuration, so the kernel sends no antenna masks and the reader fails on
// the first one it requires, with everything before it read.
WiPhyInfo readUpToTheAntennas(GenlMessage const& reply) {
  WiPhyInfo info;
  EXPECT_FALSE(reply.attributes().has(NL80211_ATTR_WIPHY_ANTENNA_RX));
  try {
    info.readFrom(reply.attributes());
    ADD_FAILURE() << "read without antenna masks: " << info.toString();
  } catch (AttrNotFound const& e) {
    EXPECT_STREQ(e.what(), "attribute not found (type 106)");
  }
  EXPECT_EQ(info.id.index(), reply.attributes().getU32(NL80211_ATTR_WIPHY));
  return info;
}

// The channels as the library read them, in iw's terms.
std::vector<std::string> channelsOf(WiPhyInfo const& info) {
  std::vector<std::string> channels;
  for (auto const& band : info.bands.bands) {
    EXPECT_FALSE(band.rates.rates.empty());
    for (auto const& channel : band.freqs.channels) {
      channels.push_back(
          channel.disabled ? fmt::format("{} disabled", channel.freq)
                           : fmt::format("{} {}", channel.freq, static_cast<std::int32_t>(channel.maxTxPower) / 100.0));
    }
  }
  return channels;
}

// One per line, so that a mismatch shows as a diff.
std::string lines(std::vector<std::string> const& items) { return fmt::format("{}\n", fmt::join(items, "\n")); }

// Without the split-dump flag the kernel answers as it did for old clients:
// the 2.4 and 5 GHz bands only; iw asks for everything, the sub-1 GHz and
// 6 GHz bands included.
std::vector<std::string> iwChannelsOf24And5GHz(std::string const& phy) {
  auto channels = iwFrequencies(phy);
  std::erase_if(channels, [](std::string const& c) {
    auto const mhz = std::stoi(c);
    return mhz < 2400 || mhz >= 5950;
  });
  return channels;
}

TEST_F(KernelRecords, WiphyByIndexReadsAsIwSeesIt) {
  for (std::string const name : {"phy0", "phy1"}) {
    WiPhyID const phy(name);
    Nl80211Command get(NL80211_CMD_GET_WIPHY, fmt::format("get {}", phy));
    phy.writeTo(get.attributes());
    int replies = 0;
    sendAndRender(socket, get, [&](GenlMessage const& reply) {
      ++replies;
      auto const info = readUpToTheAntennas(reply);
      EXPECT_EQ(info.name, name);
      EXPECT_EQ(lines(channelsOf(info)), lines(iwChannelsOf24And5GHz(name)));
    });
    EXPECT_EQ(replies, 1);
  }
}

TEST_F(KernelRecords, WiphyDumpLeavesOutWhatNoLongerFits) {
  auto dump = Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump wiphys");
  std::vector<std::string> names;
  int complete = 0;
  sendAndRender(socket, dump, [&](GenlMessage const& reply) {
    auto const info = readUpToTheAntennas(reply);
    names.push_back(info.name);
    // The old, unsplit dump puts one wiphy per message into a buffer of fixed
    // size; a wiphy that no longer fits after another comes with an empty
    // band list.
    if (info.bands.bands.empty()) {
      EXPECT_EQ(nla_len(reply.attributes().find(NL80211_ATTR_WIPHY_BANDS)), 0);
    } else {
      EXPECT_EQ(lines(channelsOf(info)), lines(iwChannelsOf24And5GHz(info.name)));
      ++complete;
    }
  });
  EXPECT_GE(complete, 1);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"phy0", "phy1"}));
}

TEST_F(KernelRecords, SplitWiphyDumpPartsAreNotWholeRecords) {
  auto dump = Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump wiphys split");
  dump.attributes().addFlag(NL80211_ATTR_SPLIT_WIPHY_DUMP, true);
  int parts = 0, incomplete = 0;
  sendAndRender(socket, dump, [&](GenlMessage const& reply) {
    ++parts;
    try {
      WiPhyInfo().readFrom(reply.attributes());
    } catch (AttrNotFound const&) {
      ++incomplete;
    }
  });
  EXPECT_GT(parts, 2);
  EXPECT_EQ(incomplete, parts);
}

TEST_F(KernelRecords, AccessPointChannelBeforeAndAfterASwitch) {
  Hostapd const ap("wlan0", vht80);
  NetIfcID const wlan0(std::string("wlan0"));
  auto channel = channelOf(wlan0);
  EXPECT_EQ(channel.primary.frequency, 5180u);
  EXPECT_EQ(channel.primary.number, 36);
  EXPECT_EQ(channel.center1.frequency, 5210u);
  EXPECT_EQ(channel.width, NL80211_CHAN_WIDTH_80);
  EXPECT_FALSE(channel.center2);
  EXPECT_EQ(channel.toString(), "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 MHz");
  EXPECT_NE(run("iw dev wlan0 info").find("channel 36 (5180 MHz), width: 80 MHz, center1: 5210 MHz"),
            std::string::npos);

  ap.cli("chan_switch 5 5745 sec_channel_offset=1 center_freq1=5775 bandwidth=80 vht");
  // The switch takes five beacons.
  waitFor([&] { return channelOf(wlan0).primary.frequency == 5745u; }, std::chrono::seconds(60));
  channel = channelOf(wlan0);
  EXPECT_EQ(channel.toString(), "primary 5745 MHz (#149) / center 5775 MHz (#155) / width 80 MHz");
  EXPECT_NE(run("iw dev wlan0 info").find("channel 149 (5745 MHz), width: 80 MHz, center1: 5775 MHz"),
            std::string::npos);
}

TEST_F(KernelRecords, ScanResultsRender) {
  Hostapd const ap("wlan0", vht80);
  run("ip link set wlan1 up");
  // The access point's channel only; a scan may miss its answer.
  auto const found = [] {
    return scan("wlan1", "freq 5180") && run("iw dev wlan1 scan dump").find("ny80211-vht80") != std::string::npos;
  };
  ASSERT_TRUE(waitFor(found, std::chrono::seconds(180))) << "no scan result";

  auto dump = Nl80211Command::dump(NL80211_CMD_GET_SCAN, "dump scan wlan1");
  NetIfcID(std::string("wlan1")).writeTo(dump.attributes());
  std::vector<std::string> texts;
  sendAndRender(socket, dump, [&](GenlMessage const& reply) {
    texts.push_back(AttrFmt::Format({AttrScope::Nl80211, reply.attributes()}));
  });
  ASSERT_EQ(texts.size(), 1u);
  auto const& text = texts[0];
  EXPECT_NE(text.find("NL80211_ATTR_BSS"), std::string::npos) << text;
  EXPECT_NE(text.find("nested =>\n"), std::string::npos) << text;
  EXPECT_NE(text.find(" NL80211_BSS_BSSID"), std::string::npos) << text;
  EXPECT_NE(text.find(": 02:00:00:00:00:00\n"), std::string::npos) << text;
  EXPECT_NE(text.find(": 5180\n"), std::string::npos) << text;  // NL80211_BSS_FREQUENCY
}

TEST_F(KernelRecords, VendorParameterCommandIsRenderedAndRejected) {
  WiPhyID const phy0(std::string("phy0"));
  Nl80211Command command(NL80211_CMD_VENDOR, "set txchainmask 3 on phy0");
  phy0.writeTo(command.attributes());
  command.attributes().addU32(NL80211_ATTR_VENDOR_ID, QcaCmd::vendorId);
  command.attributes().addU32(NL80211_ATTR_VENDOR_SUBCMD, QcaCmd::subCmdSetWifiConfiguration);
  auto data = NestedAttr::build();
  QcaCmd::WifiParamVendorData<QcaCmd::RadioVendorParamTable>(data, "txchainmask", 3);
  command.attributes().addNested(NL80211_ATTR_VENDOR_DATA, data);

  auto const text = AttrFmt::Format({AttrScope::Nl80211, command.attributes()});
  EXPECT_NE(text.find(": 0x1374\n"), std::string::npos) << text;
  EXPECT_NE(text.find(": QCA_NL80211_VENDOR_SUBCMD_SET_WIFI_CONFIGURATION\n"), std::string::npos) << text;
  EXPECT_NE(text.find("QCA_WLAN_VENDOR_ATTR_CONFIG_GENERIC_VALUE"), std::string::npos) << text;
  EXPECT_NE(text.find(": 4097\n"), std::string::npos) << text;  // 0x1001

  // mac80211_hwsim knows no such vendor command.
  try {
    socket.sendMessage(command, [](nl_msg*) { return NL_OK; });
    FAIL() << "the virtual radio accepted " << command.debugInfoString();
  } catch (CmdFailure const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Netlink error: Operation not supported (-95); failed command: "
              "set txchainmask 3 on phy0");
  }
}

}  // namespace
