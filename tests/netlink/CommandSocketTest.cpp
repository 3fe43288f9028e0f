#include <atomic>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/errno.h>

#include "NetlinkPeer.h"
#include "TraceCapture.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

constexpr int family = 28;

// The u32 attribute of a request or reply; 0 when absent.
std::uint32_t u32Of(Bytes const& bytes, int type) {
  auto const* header = reinterpret_cast<nlmsghdr const*>(bytes.data());
  auto* head = reinterpret_cast<nlattr*>(const_cast<unsigned char*>(bytes.data()) + NLMSG_HDRLEN +
                                         GENL_HDRLEN);
  auto* attr = nla_find(head, static_cast<int>(header->nlmsg_len) - NLMSG_HDRLEN - GENL_HDRLEN, type);
  return attr ? nla_get_u32(attr) : 0;
}

Bytes entry(Request const& request, std::uint32_t tag, int extraFlags = 0) {
  return genlReply(request, NL80211_CMD_NEW_INTERFACE, NLM_F_MULTI | extraFlags,
                   [&](nl_msg* msg) { nla_put_u32(msg, NL80211_ATTR_IFINDEX, tag); });
}

Bytes join(std::vector<Bytes> const& parts) {
  Bytes all;
  for (auto const& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Nl80211Command getInterface(std::uint32_t index, std::string debug = "get interface") {
  Nl80211Command command(NL80211_CMD_GET_INTERFACE, std::move(debug));
  command.attributes().addU32(NL80211_ATTR_IFINDEX, index);
  return command;
}

class CommandSocketTest : public ::testing::Test {
 protected:
  void SetUp() override { SocketTestAccess::adopt(socket, peer.clientSocket(), family); }

  std::vector<std::uint32_t> collectTags(GenlMessage& command) {
    std::vector<std::uint32_t> tags;
    socket.sendMessage(command, [&](nl_msg* reply) {
      GenlMessage message(reply);
      tags.push_back(message.attributes().getU32(NL80211_ATTR_IFINDEX));
      return NL_OK;
    });
    return tags;
  }

  NetlinkPeer peer;
  CommandSocket socket;
};

TEST_F(CommandSocketTest, AcknowledgedCommandMarksItsDebugText) {
  Request seen;
  peer.serve([&](Request const& request) {
    seen = request;
    return std::vector<Bytes>{error(request, 0)};
  });
  auto command = getInterface(7);
  int replies = 0;
  socket.sendMessage(command, [&](nl_msg*) { return ++replies, NL_OK; });
  EXPECT_EQ(replies, 0);
  EXPECT_EQ(command.debugInfoString(), "[ACK] get interface");
  // What went out: the family stamped, a request asking for an acknowledgement.
  EXPECT_EQ(seen.header().nlmsg_type, family);
  EXPECT_EQ(seen.header().nlmsg_flags & (NLM_F_REQUEST | NLM_F_ACK), NLM_F_REQUEST | NLM_F_ACK);
  EXPECT_EQ(seen.bytes[NLMSG_HDRLEN], NL80211_CMD_GET_INTERFACE);
  EXPECT_EQ(u32Of(seen.bytes, NL80211_ATTR_IFINDEX), 7u);
}

TEST(CommandSocketStamps, FamilyCutTo16BitsAndOneAckMarkPerAcknowledgement) {
  NetlinkPeer peer;
  std::vector<int> types;
  peer.serve([&](Request const& request) {
    types.push_back(request.header().nlmsg_type);
    return std::vector<Bytes>{error(request, 0)};
  });
  CommandSocket socket;
  SocketTestAccess::adopt(socket, peer.clientSocket(), 70000);
  auto command = getInterface(7, "twice");
  socket.sendMessage(command, [](nl_msg*) { return NL_OK; });
  socket.sendMessage(command, [](nl_msg*) { return NL_OK; });
  EXPECT_EQ(command.debugInfoString(), "[ACK] [ACK] twice");
  EXPECT_EQ(types, (std::vector<int>{4464, 4464}));
}

TEST_F(CommandSocketTest, DumpDeliversEveryEntryInOrderAcrossDatagrams) {
  peer.serve([](Request const& request) {
    EXPECT_TRUE(request.header().nlmsg_flags & NLM_F_DUMP);
    return std::vector<Bytes>{join({entry(request, 1), entry(request, 2)}),
                              join({entry(request, 3), done(request)})};
  });
  auto command = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump interfaces");
  EXPECT_EQ(collectTags(command), (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_EQ(command.debugInfoString(), "dump interfaces");  // ended by NLMSG_DONE, not an ACK
}

TEST_F(CommandSocketTest, StopFromTheCallbackDoesNotEndTheExchange) {
  peer.serve([](Request const& request) {
    return std::vector<Bytes>{entry(request, 1), entry(request, 2), done(request)};
  });
  auto command = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump");
  int replies = 0;
  socket.sendMessage(command, [&](nl_msg*) { return ++replies, NL_STOP; });
  EXPECT_EQ(replies, 2);
}

TEST_F(CommandSocketTest, InterruptedDumpThrowsAfterDeliveringItsEntries) {
  peer.serve([](Request const& request) {
    return std::vector<Bytes>{join({entry(request, 1), entry(request, 2, NLM_F_DUMP_INTR)}),
                              done(request)};
  });
  auto command = Nl80211Command::dump(NL80211_CMD_GET_SCAN, "dump scan");
  std::vector<std::uint32_t> tags;
  try {
    socket.sendMessage(command, [&](nl_msg* reply) {
      tags.push_back(GenlMessage(reply).attributes().getU32(NL80211_ATTR_IFINDEX));
      return NL_OK;
    });
    FAIL() << "no exception";
  } catch (DumpInterrupted const& e) {
    EXPECT_EQ(std::string(e.what()),
              std::string(nl_geterror(-NLE_DUMP_INTR)) + "; command: dump scan");
  }
  EXPECT_EQ(tags, (std::vector<std::uint32_t>{1, 2}));
}

struct ErrorCase {
  char const* name;
  int error;
  std::optional<std::string> message;
  bool capped;
  bool tlvsWithoutMessage;
  std::string expected;
};

void PrintTo(ErrorCase const& c, std::ostream* out) { *out << c.name; }

class CommandErrors : public CommandSocketTest, public ::testing::WithParamInterface<ErrorCase> {};

TEST_P(CommandErrors, KernelErrorBecomesCmdFailureAndAWarning) {
  auto const& c = GetParam();
  peer.serve([&](Request const& request) {
    if (!c.tlvsWithoutMessage) return std::vector<Bytes>{error(request, c.error, c.message, c.capped)};
    // NLM_F_ACK_TLVS with an attribute, but not the message one.
    auto reply = error(request, c.error, std::string("x"), c.capped);
    auto* attr = reinterpret_cast<nlattr*>(reply.data() + reply.size() - NLA_ALIGN(NLA_HDRLEN + 2));
    attr->nla_type = NLMSGERR_ATTR_OFFS;
    return std::vector<Bytes>{reply};
  });
  TraceCapture capture;
  auto command = getInterface(3, "get interface 3");
  try {
    socket.sendMessage(command, [](nl_msg*) { return NL_OK; });
    FAIL() << "no exception";
  } catch (CmdFailure const& e) {
    EXPECT_EQ(std::string(e.what()), c.expected + "; failed command: get interface 3");
  }
  EXPECT_EQ(capture.lines(),
            (std::vector<TraceLine>{{trace::Provider::Cmd, trace::Level::Warn,
                                     c.expected + "; failed command: get interface 3\n"}}));
}

INSTANTIATE_TEST_SUITE_P(
    Replies, CommandErrors,
    ::testing::Values(
        ErrorCase{"Plain", -19, std::nullopt, false, false, "Netlink error: No such device (-19)"},
        ErrorCase{"ExtendedMessage", -95, "not supported by the driver", false, false,
                  "Netlink error: Operation not supported (-95) [not supported by the driver]"},
        ErrorCase{"ExtendedMessageCapped", -22, "missing attribute", true, false,
                  "Netlink error: Invalid argument (-22) [missing attribute]"},
        ErrorCase{"ExtendedWithoutMessage", -22, std::nullopt, false, true,
                  "Netlink error: Invalid argument (-22)"},
        ErrorCase{"ExtendedWithoutMessageCapped", -1, std::nullopt, true, true,
                  "Netlink error: Operation not permitted (-1)"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(CommandSocketTest, ErrorWithoutDebugTextSaysSo) {
  peer.serve([](Request const& request) { return std::vector<Bytes>{error(request, -19)}; });
  auto* raw = nlmsg_alloc();
  genlmsg_put(raw, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, NL80211_CMD_GET_WIPHY, 0);
  GenlMessage bare(raw);
  EXPECT_THROW(
      {
        try {
          socket.sendMessage(bare, [](nl_msg*) { return NL_OK; });
        } catch (CmdFailure const& e) {
          EXPECT_STREQ(e.what(),
                       "Netlink error: No such device (-19); failed command: <no debug info>");
          throw;
        }
      },
      CmdFailure);
  nlmsg_free(raw);
}

struct ReceiveFailure {
  char const* name;
  int libnlError;  // what nl_recvmsgs reports
  std::function<Bytes(Request const&)> reply;
  bool usableAfterwards;  // libnl's expected sequence number stays behind after a mismatch
};

void PrintTo(ReceiveFailure const& c, std::ostream* out) { *out << c.name; }

class ReceiveFailures : public CommandSocketTest,
                        public ::testing::WithParamInterface<ReceiveFailure> {};

TEST_P(ReceiveFailures, BecomeErrorAndLeaveTheSocketUsable) {
  auto const& c = GetParam();
  std::atomic<int> requests{0};
  peer.serve([&](Request const& request) {
    return std::vector<Bytes>{++requests == 1 ? c.reply(request) : error(request, 0)};
  });
  auto command = getInterface(1, "get interface 1");
  try {
    socket.sendMessage(command, [](nl_msg*) { return NL_OK; });
    FAIL() << "no exception";
  } catch (CmdFailure const&) {
    FAIL() << "a receive failure is no kernel error";
  } catch (Error const& e) {
    EXPECT_EQ(std::string(e.what()),
              fmt::format("message receive failed: {} ({}); command: get interface 1",
                          nl_geterror(c.libnlError), c.libnlError));
  }
  if (!c.usableAfterwards) return;
  auto next = getInterface(2, "next");
  socket.sendMessage(next, [](nl_msg*) { return NL_OK; });
  EXPECT_EQ(next.debugInfoString(), "[ACK] next");
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ReceiveFailures,
    ::testing::Values(
        ReceiveFailure{"WrongSequence", -NLE_SEQ_MISMATCH,
                       [](Request const& request) {
                         auto reply = error(request, 0);
                         reinterpret_cast<nlmsghdr*>(reply.data())->nlmsg_seq += 1000;
                         return reply;
                       },
                       false},
        ReceiveFailure{"TruncatedError", -NLE_MSG_TRUNC,
                       [](Request const& request) {
                         auto reply = error(request, -19);
                         reply.resize(NLMSG_HDRLEN + sizeof(int));  // no quoted request
                         reinterpret_cast<nlmsghdr*>(reply.data())->nlmsg_len =
                             static_cast<std::uint32_t>(reply.size());
                         return reply;
                       },
                       true}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(CommandSocketTest, CallbackExceptionIsRethrownAfterTheExchangeIsDrained) {
  peer.serve([](Request const& request) {
    if (request.header().nlmsg_flags & NLM_F_DUMP) {
      return std::vector<Bytes>{entry(request, 1), entry(request, 2), done(request)};
    }
    return std::vector<Bytes>{error(request, 0)};
  });
  auto dump = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump");
  int calls = 0;
  EXPECT_THROW(socket.sendMessage(dump,
                                  [&](nl_msg*) -> int {
                                    ++calls;
                                    throw std::invalid_argument("bad reply");
                                  }),
               std::invalid_argument);
  EXPECT_EQ(calls, 1);
  auto next = getInterface(2, "next");
  socket.sendMessage(next, [](nl_msg*) { return NL_OK; });
  EXPECT_EQ(next.debugInfoString(), "[ACK] next");
}

TEST(CommandSocketSend, FailureNamesTheCommand) {
  CommandSocket socket;
  std::uint32_t vanished;
  {
    NetlinkPeer gone;
    vanished = gone.port();
    SocketTestAccess::adopt(socket, gone.clientSocket(), family);
  }
  auto command = getInterface(1, "get interface 1");
  try {
    socket.sendMessage(command, [](nl_msg*) { return NL_OK; });
    FAIL() << "sent to port " << vanished;
  } catch (Error const& e) {
    EXPECT_TRUE(std::string(e.what()).starts_with("message send failed: ")) << e.what();
    EXPECT_TRUE(std::string(e.what()).ends_with("; command: get interface 1")) << e.what();
  }
}

// Each thread's dump entries carry its own tag: with the exchanges
// serialised, every call sees all of its entries and none of another's.
TEST_F(CommandSocketTest, ConcurrentSendsDoNotInterleave) {
  peer.serve([](Request const& request) {
    auto const tag = u32Of(request.bytes, NL80211_ATTR_IFINDEX);
    return std::vector<Bytes>{entry(request, tag), join({entry(request, tag), entry(request, tag)}),
                              done(request)};
  });
  constexpr int threads = 4, rounds = 25;
  std::atomic<int> good{0};
  std::vector<std::thread> senders;
  for (int t = 1; t <= threads; ++t) {
    senders.emplace_back([&, t] {
      for (int round = 0; round < rounds; ++round) {
        auto command = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump");
        command.attributes().addU32(NL80211_ATTR_IFINDEX, static_cast<std::uint32_t>(t));
        auto const tags = collectTags(command);
        if (tags == std::vector<std::uint32_t>(3, static_cast<std::uint32_t>(t))) ++good;
      }
    });
  }
  for (auto& sender : senders) sender.join();
  EXPECT_EQ(good, threads * rounds);
}

TEST(CommandSocketConnect, WithoutNl80211TheFamilyIsNotFound) {
  // This machine's kernel has generic netlink but no wireless stack.
  CommandSocket socket;
  EXPECT_FALSE(socket.isConnected());
  try {
    socket.connect();
    GTEST_SKIP() << "this kernel has nl80211; the kernel tests cover the connected case";
  } catch (Error const& e) {
    EXPECT_STREQ(e.what(), "protocol nl80211 not found");
  }
  EXPECT_FALSE(socket.isConnected());
}

TEST(CommandSocketConnect, SecondConnectIsRefused) {
  NetlinkPeer peer;
  CommandSocket socket;
  SocketTestAccess::adopt(socket, peer.clientSocket(), family);
  EXPECT_TRUE(socket.isConnected());
  try {
    socket.connect();
    FAIL() << "connected twice";
  } catch (Error const& e) {
    EXPECT_STREQ(e.what(), "already connected");
  }
}

}  // namespace
