// The command path against the real nl80211 of a kernel with two virtual
// radios (phy0/wlan0, phy1/wlan1), cross-checked with iw.
#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "KernelHelpers.h"
#include "TraceCapture.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// An interface as the library reads it from a reply.
IwInterface fromReply(nl_msg* reply) {
  GenlMessage const message(reply);
  auto const& attrs = message.attributes();
  IwInterface ifc;
  ifc.wiphy = attrs.getU32(NL80211_ATTR_WIPHY);
  ifc.name = attrs.getString(NL80211_ATTR_IFNAME);
  ifc.ifindex = attrs.getU32(NL80211_ATTR_IFINDEX);
  ifc.wdev = attrs.getU64(NL80211_ATTR_WDEV);
  ifc.addr = attrs.getMac(NL80211_ATTR_MAC).ToString();
  switch (attrs.getU32(NL80211_ATTR_IFTYPE)) {
    case NL80211_IFTYPE_STATION:
      ifc.type = "managed";
      break;
    case NL80211_IFTYPE_MONITOR:
      ifc.type = "monitor";
      break;
    case NL80211_IFTYPE_AP:
      ifc.type = "AP";
      break;
    default:
      ifc.type = "other";
      break;
  }
  return ifc;
}

std::vector<IwInterface> dumpInterfaces(CommandSocket& socket) {
  auto dump = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump interfaces");
  std::vector<IwInterface> interfaces;
  socket.sendMessage(dump, [&](nl_msg* reply) {
    interfaces.push_back(fromReply(reply));
    return NL_OK;
  });
  return interfaces;
}

std::vector<IwInterface> sorted(std::vector<IwInterface> list) {
  std::sort(list.begin(), list.end());
  return list;
}

class KernelCommands : public ::testing::Test {
 protected:
  void SetUp() override { socket.connect(); }
  CommandSocket socket;
};

TEST(KernelConnect, ResolvesTheRealFamily) {
  CommandSocket socket;
  EXPECT_FALSE(socket.isConnected());
  socket.connect();
  EXPECT_TRUE(socket.isConnected());
}

TEST_F(KernelCommands, InterfaceByIndexIsAnsweredOnceAndAcknowledged) {
  NetIfcID const wlan0(std::string("wlan0"));
  Nl80211Command get(NL80211_CMD_GET_INTERFACE, fmt::format("get {}", wlan0));
  wlan0.writeTo(get.attributes());
  std::vector<IwInterface> replies;
  socket.sendMessage(get, [&](nl_msg* reply) {
    replies.push_back(fromReply(reply));
    return NL_OK;
  });
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0].name, "wlan0");
  EXPECT_EQ(replies[0].ifindex, wlan0.index());
  EXPECT_EQ(get.debugInfoString(), "[ACK] get netifc wlan0");
}

TEST_F(KernelCommands, InterfaceDumpAgreesWithIw) {
  auto const ours = dumpInterfaces(socket);
  auto const iw = iwDev();
  ASSERT_EQ(ours.size(), 2u);
  // iw prints the interfaces in the order the kernel dumps them.
  EXPECT_EQ(ours, iw);
  // The dump ends with NLMSG_DONE; each interface came once.
  std::set<unsigned> indices;
  for (auto const& ifc : ours) EXPECT_TRUE(indices.insert(ifc.ifindex).second) << ifc.name;
}

TEST_F(KernelCommands, WiphyByNameIndexAndDump) {
  WiPhyID const phy1(std::string("phy1"));
  EXPECT_EQ(phy1.index(), 1u);
  EXPECT_EQ(fmt::format("{}", phy1), "wiphy phy1 (ID 1)");

  Nl80211Command get(NL80211_CMD_GET_WIPHY, fmt::format("get {}", phy1));
  phy1.writeTo(get.attributes());
  std::vector<std::string> names;
  socket.sendMessage(get, [&](nl_msg* reply) {
    names.push_back(GenlMessage(reply).attributes().getString(NL80211_ATTR_WIPHY_NAME));
    return NL_OK;
  });
  EXPECT_EQ(names, std::vector<std::string>{"phy1"});
  EXPECT_TRUE(get.debugInfoString().starts_with("[ACK] "));

  auto dump = Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump wiphys");
  std::vector<std::uint32_t> wiphys;
  socket.sendMessage(dump, [&](nl_msg* reply) {
    GenlMessage const message(reply);
    EXPECT_EQ(message.commandID(), NL80211_CMD_NEW_WIPHY);
    wiphys.push_back(message.attributes().getU32(NL80211_ATTR_WIPHY));
    return NL_OK;
  });
  std::sort(wiphys.begin(), wiphys.end());  // the kernel's order is its own
  EXPECT_EQ(wiphys, (std::vector<std::uint32_t>{0, 1}));
}

TEST_F(KernelCommands, MonitorInterfaceCreatedAndDeleted) {
  WiPhyID const phy0(std::string("phy0"));
  Nl80211Command create(NL80211_CMD_NEW_INTERFACE, "new monitor mon0");
  phy0.writeTo(create.attributes());
  create.attributes().addString(NL80211_ATTR_IFNAME, "mon0");
  create.attributes().addU32(NL80211_ATTR_IFTYPE, NL80211_IFTYPE_MONITOR);
  std::vector<IwInterface> created;
  socket.sendMessage(create, [&](nl_msg* reply) {
    created.push_back(fromReply(reply));
    return NL_OK;
  });
  ASSERT_EQ(created.size(), 1u);
  EXPECT_EQ(created[0].name, "mon0");
  EXPECT_EQ(created[0].type, "monitor");
  NetIfcID const mon0(std::string("mon0"));
  EXPECT_EQ(mon0.index(), created[0].ifindex);
  EXPECT_EQ(sorted(dumpInterfaces(socket)), sorted(iwDev()));

  Nl80211Command remove(NL80211_CMD_DEL_INTERFACE, fmt::format("delete {}", mon0));
  mon0.writeTo(remove.attributes());
  socket.sendMessage(remove, [](nl_msg*) { return NL_OK; });
  EXPECT_EQ(remove.debugInfoString(), "[ACK] delete netifc mon0");
  EXPECT_THROW(NetIfcID(std::string("mon0")), Error);
  EXPECT_EQ(dumpInterfaces(socket).size(), 2u);
}

struct Rejected {
  char const* name;
  std::function<Nl80211Command()> command;
  std::string expected;  // the text before "; failed command: "
};

void PrintTo(Rejected const& r, std::ostream* out) { *out << r.name; }

class KernelRejects : public KernelCommands, public ::testing::WithParamInterface<Rejected> {};

TEST_P(KernelRejects, WithCmdFailureCarryingTheKernelsWords) {
  auto command = GetParam().command();
  TraceCapture capture;
  try {
    socket.sendMessage(command, [](nl_msg*) { return NL_OK; });
    FAIL() << "the kernel accepted " << command.debugInfoString();
  } catch (CmdFailure const& e) {
    EXPECT_EQ(std::string(e.what()), GetParam().expected + "; failed command: " + command.debugInfoString());
  }
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_EQ(capture.lines()[0].level, trace::Level::Warn);
  // The socket is still good for the next command.
  EXPECT_EQ(dumpInterfaces(socket).size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, KernelRejects,
    ::testing::Values(Rejected{"UnknownInterfaceIndex",
                               [] {
                                 Nl80211Command get(NL80211_CMD_GET_INTERFACE, "get ifindex 9999");
                                 get.attributes().addU32(NL80211_ATTR_IFINDEX, 9999);
                                 return get;
                               },
                               "Netlink error: No such device (-19)"},
                      Rejected{"NewInterfaceWithoutName",
                               [] {
                                 Nl80211Command create(NL80211_CMD_NEW_INTERFACE, "new interface without name");
                                 create.attributes().addU32(NL80211_ATTR_WIPHY, 0);
                                 create.attributes().addU32(NL80211_ATTR_IFTYPE, NL80211_IFTYPE_MONITOR);
                                 return create;
                               },
                               "Netlink error: Invalid argument (-22)"},
                      Rejected{"InterfaceTypeOutOfRange",
                               [] {
                                 Nl80211Command create(NL80211_CMD_NEW_INTERFACE, "new interface of type 99");
                                 create.attributes().addU32(NL80211_ATTR_WIPHY, 0);
                                 create.attributes().addString(NL80211_ATTR_IFNAME, "bad0");
                                 create.attributes().addU32(NL80211_ATTR_IFTYPE, 99);
                                 return create;
                               },
                               "Netlink error: Numerical result out of range (-34) [integer out of range]"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(KernelCommands, ConcurrentDumpsEachGetTheirOwnReplies) {
  auto const expected = sorted(iwDev());
  constexpr int threads = 4, rounds = 10;
  std::atomic<int> complete{0};
  std::vector<std::thread> senders;
  senders.reserve(threads);
  for (int t = 0; t < threads; ++t) {
    senders.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        if (sorted(dumpInterfaces(socket)) == expected) ++complete;
      }
    });
  }
  for (auto& sender : senders) sender.join();
  EXPECT_EQ(complete, threads * rounds);
}

}  // namespace
