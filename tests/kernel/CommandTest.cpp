// The wiphys of two virtual radios as the real nl80211 sends them, beside what
// iw prints, and the kernel's refusals.
#include <netlink/attr.h>

#include "KernelHelpers.h"
#include "TraceCapture.h"
#include "ny80211/WiPhyInfo.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// The 2.4 and 5 GHz channels ("2412 20", "2484 disabled") as `iw phy <name>
// info` prints them and a record has them: without the split-dump flag the kernel sends those bands
// only, as to old clients; iw asks for all.
std::string iwChannels(std::string const& phy) {
  std::string channels;
  std::istringstream out(run("iw phy " + phy + " info"));
  for (std::string line; std::getline(out, line);) {
    double mhz = 0, dbm = 0;
    std::array<char, 32> limit{};
    if (std::sscanf(line.c_str(), " * %lf MHz [%*u] (%31[^)])", &mhz, limit.data()) != 2 || mhz < 2400 || mhz >= 5950) {
      continue;
    }
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

  // Every reply read as far as it goes: the virtual radios have no antenna
  // masks, so the reader fails on the first it requires (missing, where the
  // reply is a whole wiphy).
  std::vector<WiPhyInfo> wiphys(GenlMessage&& command, std::string const& missing) {
    std::vector<WiPhyInfo> infos;
    socket.sendMessage(command, [&](nl_msg* reply) {
      GenlMessage const message(reply);
      auto& info = infos.emplace_back();
      EXPECT_EQ(message.commandID(), NL80211_CMD_NEW_WIPHY);
      try {
        info.readFrom(message.attributes());
        ADD_FAILURE() << "read without antenna masks: " << info.toString();
      } catch (AttrNotFound const& e) {
        EXPECT_EQ(missing.empty() ? e.what() : missing, e.what());
      }
      // The old, unsplit dump puts one wiphy per message into a buffer of
      // fixed size: one that no longer fits after another comes without bands.
      auto const* bands = message.attributes().tryFind(NL80211_ATTR_WIPHY_BANDS);
      EXPECT_TRUE(missing.empty() || !info.bands.bands.empty() || (bands != nullptr && nla_len(bands) == 0))
          << info.name;
      return NL_OK;
    });
    return infos;
  }

  CommandSocket socket;
};

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
  // The dump's order is the kernel's own; one wiphy at least comes whole.
  std::vector<std::string> dumped;
  int whole = 0;
  for (auto const& info :
       wiphys(Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump"), "attribute not found (type 106)")) {
    dumped.push_back(info.name);
    whole += info.bands.bands.empty() ? 0 : 1;
    EXPECT_TRUE(info.bands.bands.empty() || channelsOf(info) == iwChannels(info.name)) << info.name;
  }
  std::sort(dumped.begin(), dumped.end());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(dumped, names);
  EXPECT_GE(names.size(), 2U);
  EXPECT_GE(whole, 1);
  // The parts of a split dump are no whole records.
  auto split = Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump split");
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
       "Netlink error: No such file or directory (-2)"}};
  for (auto& [refused, error] : rows) {
    SCOPED_TRACE(refused.debugInfoString());
    TraceCapture capture;
    EXPECT_THROW(
        try { socket.sendMessage(refused, [](nl_msg*) { return NL_OK; }); } catch (CmdFailure const& e) {
          EXPECT_EQ(e.what(), std::string(error) + "; failed command: " + refused.debugInfoString());
          throw;
        },
        CmdFailure);
    ASSERT_EQ(capture.lines().size(), 1U);
    EXPECT_EQ(capture.lines()[0].level, trace::Level::Warn);
    EXPECT_EQ(getInterface(socket, "wlan0").size(), 1U);  // the socket still good
  }
}

}  // namespace
