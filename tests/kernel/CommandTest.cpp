// The command path against the real nl80211 of two virtual radios, beside what
// iw prints: interfaces got, dumped, made and deleted, the wiphys, the
// kernel's refusals.
#include <netlink/attr.h>

#include "KernelHelpers.h"
#include "TraceCapture.h"
#include "ny80211/WiPhyInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// The 2.4 and 5 GHz channels ("2412 20", "2484 disabled") as `iw phy <name>
// info` prints them and as a record has them: without the split-dump flag the
// kernel sends those bands only, as to old clients; iw asks for all.
std::string iwChannels(std::string const& phy) {
  std::string channels;
  std::istringstream out(run("iw phy " + phy + " info"));
  for (std::string line; std::getline(out, line);) {
    double mhz = 0, dbm = 0;
    std::array<char, 32> limit{};
    if (std::sscanf(line.c_str(), " * %lf MHz [%*u] (%31[^)])", &mhz, limit.data()) != 2) continue;
    if (mhz < 2400 || mhz >= 5950) continue;
    if (std::string(limit.data()) == "disabled") channels += fmt::format("{} disabled\n", mhz);
    if (std::sscanf(limit.data(), "%lf dBm", &dbm) == 1) channels += fmt::format("{} {}\n", mhz, dbm);
  }
  return channels;
}
std::string channelsOf(WiPhyInfo const& info) {
  std::string channels;
  for (auto const& band : info.bands.bands) {
    EXPECT_FALSE(band.rates.rates.empty());
    for (auto const& c : band.freqs.channels) {
      channels += c.disabled ? fmt::format("{} disabled\n", c.freq)
                             : fmt::format("{} {}\n", c.freq, static_cast<std::int32_t>(c.maxTxPower) / 100.0);
    }
  }
  return channels;
}

class KernelCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    EXPECT_FALSE(socket.isConnected());
    socket.connect();  // resolves the family
    ASSERT_TRUE(socket.isConnected());
  }

  // The dump's interfaces, which must be iw's in the kernel's order.
  std::size_t dumpAsIw() {
    std::vector<std::string> ours, iw;
    for (auto const& info : replies<InterfaceInfo>(socket, Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump"))) {
      ours.push_back("Interface " + info.name);
    }
    for (auto const& record : iwRecords("iw dev", "\tInterface ", ' ')) iw.push_back(record.head);
    EXPECT_EQ(ours, iw);
    return ours.size();
  }

  // Every reply read as far as it goes: the virtual radios have no antenna
  // masks, so the reader fails on the first it requires (missing, where the
  // reply is a whole wiphy), with everything before it read.
  std::vector<WiPhyInfo> wiphys(GenlMessage&& command, char const* missing) {
    std::vector<WiPhyInfo> infos;
    socket.sendMessage(command, [&](nl_msg* reply) {
      GenlMessage const message(reply);
      EXPECT_EQ(message.commandID(), NL80211_CMD_NEW_WIPHY);
      try {
        infos.emplace_back().readFrom(message.attributes());
        ADD_FAILURE() << "read without antenna masks: " << infos.back().toString();
      } catch (AttrNotFound const& e) {
        EXPECT_STREQ(*missing == 0 ? e.what() : missing, e.what());
      }
      // The old, unsplit dump puts one wiphy per message into a buffer of
      // fixed size: one that no longer fits after another comes without bands.
      if (*missing != 0 && infos.back().bands.bands.empty()) {
        EXPECT_EQ(nla_len(message.attributes().find(NL80211_ATTR_WIPHY_BANDS)), 0);
      }
      return NL_OK;
    });
    return infos;
  }

  CommandSocket socket;
};

TEST_F(KernelCommands, InterfacesGotDumpedMadeAndDeletedAsIwShowsThem) {
  std::string debug;
  expectAsIwPrints(
      "iw dev wlan0 info", [&] { return getInterface(socket, "wlan0", &debug); }, interfaceView);
  EXPECT_EQ(debug, "[ACK] get netifc wlan0");  // answered once, then acknowledged
  auto const count = dumpAsIw();

  auto const created = replies<InterfaceInfo>(
      socket, command(NL80211_CMD_NEW_INTERFACE, "new monitor mon0",
                      {{NL80211_ATTR_WIPHY, 0}, {NL80211_ATTR_IFTYPE, NL80211_IFTYPE_MONITOR}}, "mon0"));
  expectAsIwPrints(
      "iw dev mon0 info", [&] { return created; }, interfaceView);
  NetIfcID const mon0(std::string("mon0"));
  EXPECT_EQ(mon0.index(), created.at(0).ifc.index());
  EXPECT_EQ(dumpAsIw(), count + 1);

  Nl80211Command remove(NL80211_CMD_DEL_INTERFACE, fmt::format("delete {}", mon0));
  mon0.writeTo(remove.attributes());
  EXPECT_EQ(replies<InterfaceInfo>(socket, remove).size(), 0U);
  EXPECT_EQ(remove.debugInfoString(), "[ACK] delete netifc mon0");
  EXPECT_THROW(NetIfcID(std::string("mon0")), Error);
  EXPECT_EQ(dumpAsIw(), count);
}

TEST_F(KernelCommands, WiphysByNameIndexAndDumpAsIwListsThem) {
  EXPECT_EQ(fmt::format("{}", WiPhyID(std::string("phy1"))), "wiphy phy1 (ID 1)");
  std::vector<std::string> names;  // of "Wiphy phy0", ...
  for (auto const& record : iwRecords("iw list", "Wiphy ", ':')) names.push_back(record.head.substr(6));
  for (auto const& name : names) {
    WiPhyID const phy(name);
    Nl80211Command get(NL80211_CMD_GET_WIPHY, fmt::format("get {}", phy));
    phy.writeTo(get.attributes());
    auto const infos = wiphys(std::move(get), "attribute not found (type 106)");
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_EQ(infos[0].name, name);
    EXPECT_EQ(infos[0].id.index(), phy.index());
    EXPECT_EQ(channelsOf(infos[0]), iwChannels(name));
  }
  std::vector<std::string> dumped;
  int complete = 0;
  for (auto const& info :
       wiphys(Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump wiphys"), "attribute not found (type 106)")) {
    dumped.push_back(info.name);
    EXPECT_EQ(channelsOf(info), info.bands.bands.empty() ? "" : iwChannels(info.name));
    complete += info.bands.bands.empty() ? 0 : 1;
  }
  EXPECT_GE(complete, 1);
  std::sort(dumped.begin(), dumped.end());  // the kernel's order is its own
  std::sort(names.begin(), names.end());
  EXPECT_EQ(dumped, names);
  EXPECT_GE(names.size(), 2U);
  // The parts of a split dump are no whole records.
  auto split = Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump wiphys split");
  split.attributes().addFlag(NL80211_ATTR_SPLIT_WIPHY_DUMP, true);
  EXPECT_GT(wiphys(std::move(split), "").size(), names.size());
}

// Each refusal reaches the caller with the kernel's words, logged once as a
// warning, and leaves the socket good for the next command.
TEST_F(KernelCommands, RefusalsCarryTheKernelsWords) {
  std::pair<Nl80211Command, char const*> rows[] = {
      {command(NL80211_CMD_GET_INTERFACE, "get ifindex 9999", {{NL80211_ATTR_IFINDEX, 9999}}),
       "Netlink error: No such device (-19)"},
      {command(NL80211_CMD_NEW_INTERFACE, "new interface without name",
               {{NL80211_ATTR_WIPHY, 0}, {NL80211_ATTR_IFTYPE, NL80211_IFTYPE_MONITOR}}),
       "Netlink error: Invalid argument (-22)"},
      {command(NL80211_CMD_NEW_INTERFACE, "new interface of type 99",
               {{NL80211_ATTR_WIPHY, 0}, {NL80211_ATTR_IFTYPE, 99}}, "bad0"),
       "Netlink error: Numerical result out of range (-34) [integer out of range]"},
      {Cmd::getStation(NetIfcID(std::string("wlan0")), MacAddress({2, 0, 0, 0, 0x99, 0})),
       "Netlink error: No such file or directory (-2)"},
  };
  for (auto& [refused, error] : rows) {
    SCOPED_TRACE(refused.debugInfoString());
    TraceCapture capture;
    try {
      socket.sendMessage(refused, [](nl_msg*) { return NL_OK; });
      ADD_FAILURE() << "the kernel accepted it";
    } catch (CmdFailure const& e) {
      EXPECT_EQ(e.what(), std::string(error) + "; failed command: " + refused.debugInfoString());
    }
    ASSERT_EQ(capture.lines().size(), 1U);
    EXPECT_EQ(capture.lines()[0].level, trace::Level::Warn);
    dumpAsIw();
  }
}

}  // namespace
