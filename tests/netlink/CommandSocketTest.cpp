#include <atomic>
#include <climits>
#include <cstring>
#include <future>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/errno.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "NetlinkPeer.h"
#include "TraceCapture.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;
using ::testing::ThrowsMessage;

constexpr int family = 28;

// The u32 attribute of a request or reply; 0 when absent.
std::uint32_t u32Of(Bytes const& bytes, int type) {
  auto const* header = reinterpret_cast<nlmsghdr const*>(bytes.data());
  auto const* head = reinterpret_cast<nlattr const*>(bytes.data() + NLMSG_HDRLEN + GENL_HDRLEN);
  auto const length = static_cast<int>(header->nlmsg_len - NLMSG_HDRLEN - GENL_HDRLEN);
  auto* attr = nla_find(head, length, type);
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
    return std::vector<Bytes>{join({entry(request, 1), entry(request, 2)}), join({entry(request, 3), done(request)})};
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
    return std::vector<Bytes>{join({entry(request, 1), entry(request, 2, NLM_F_DUMP_INTR)}), done(request)};
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
    EXPECT_EQ(std::string(e.what()), std::string(nl_geterror(-NLE_DUMP_INTR)) + "; command: dump scan");
  }
  EXPECT_EQ(tags, (std::vector<std::uint32_t>{1, 2}));
}

// How the extended acknowledgement's attributes are laid out.
enum class Tlvs { AsBuilt, OtherAttribute, EmptyMessage };

struct ErrorCase {
  char const* name;
  int error;
  std::optional<std::string> message;
  bool capped;
  Tlvs tlvs;
  std::string expected;
};

void PrintTo(ErrorCase const& c, std::ostream* out) { *out << c.name; }

class CommandErrors : public CommandSocketTest, public ::testing::WithParamInterface<ErrorCase> {};

TEST_P(CommandErrors, KernelErrorBecomesCmdFailureAndAWarning) {
  auto const& c = GetParam();
  peer.serve([&](Request const& request) {
    if (c.tlvs == Tlvs::AsBuilt) return std::vector<Bytes>{error(request, c.error, c.message, c.capped)};
    auto reply = error(request, c.error, std::string("x"), c.capped);
    auto* attr = reinterpret_cast<nlattr*>(reply.data() + reply.size() - NLA_ALIGN(NLA_HDRLEN + 2));
    if (c.tlvs == Tlvs::OtherAttribute) {
      attr->nla_type = NLMSGERR_ATTR_OFFS;
    } else {  // the message attribute without payload
      attr->nla_len = NLA_HDRLEN;
      reply.resize(reply.size() - 4);
      reinterpret_cast<nlmsghdr*>(reply.data())->nlmsg_len = static_cast<std::uint32_t>(reply.size());
    }
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
  EXPECT_EQ(capture.lines(), (std::vector<TraceLine>{{trace::Provider::Cmd, trace::Level::Warn,
                                                      c.expected + "; failed command: get interface 3\n"}}));
}

INSTANTIATE_TEST_SUITE_P(
    Replies, CommandErrors,
    ::testing::Values(ErrorCase{"Plain", -19, std::nullopt, false, Tlvs::AsBuilt,
                                "Netlink error: No such device (-19)"},
                      ErrorCase{"ExtendedMessage", -95, "not supported by the driver", false, Tlvs::AsBuilt,
                                "Netlink error: Operation not supported (-95) [not supported by the driver]"},
                      ErrorCase{"ExtendedMessageCapped", -22, "missing attribute", true, Tlvs::AsBuilt,
                                "Netlink error: Invalid argument (-22) [missing attribute]"},
                      ErrorCase{"ExtendedWithoutMessage", -22, std::nullopt, false, Tlvs::OtherAttribute,
                                "Netlink error: Invalid argument (-22)"},
                      ErrorCase{"ExtendedWithoutMessageCapped", -1, std::nullopt, true, Tlvs::OtherAttribute,
                                "Netlink error: Operation not permitted (-1)"},
                      ErrorCase{"EmptyExtendedMessage", -22, std::nullopt, false, Tlvs::EmptyMessage,
                                "Netlink error: Invalid argument (-22) [<invalid>]"},
                      ErrorCase{"LowestErrorNumber", INT_MIN, std::nullopt, false, Tlvs::AsBuilt,
                                "Netlink error: Unknown error 2147483648 (-2147483648)"}),
    [](auto const& info) { return std::string(info.param.name); });

// A quoted request need not be a multiple of 4 long; the attributes behind it
// then stand at an odd address and are still read (ASan/UBSan watch the walk).
TEST(ErrorText, ExtendedMessageBehindAnOddLengthRequest) {
  for (std::uint32_t quoted : {16u, 17u, 19u, 21u}) {
    auto* msg = nlmsg_alloc_simple(NLMSG_ERROR, NLM_F_ACK_TLVS);
    nlmsgerr err{};
    err.error = -22;
    err.msg.nlmsg_len = quoted;
    nlmsg_append(msg, &err, sizeof err, 0);
    Bytes body(quoted - NLMSG_HDRLEN, 0xab);
    nlattr const attr{static_cast<std::uint16_t>(NLA_HDRLEN + 4), NLMSGERR_ATTR_MSG};
    auto const* a = reinterpret_cast<unsigned char const*>(&attr);
    body.insert(body.end(), a, a + NLA_HDRLEN);
    body.insert(body.end(), {'o', 'd', 'd', 0});
    nlmsg_append(msg, body.data(), body.size(), 0);
    // An exact-size copy, so that a read past the message shows.
    auto const bytes = bytesOf(msg);
    std::vector<std::uint32_t> aligned((bytes.size() + 3) / 4);
    std::memcpy(aligned.data(), bytes.data(), bytes.size());
    auto* error = reinterpret_cast<nlmsgerr*>(reinterpret_cast<char*>(aligned.data()) + NLMSG_HDRLEN);
    EXPECT_EQ(Ny80211::to_string(error), "Netlink error: Invalid argument (-22) [odd]") << quoted;
  }
}

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
          EXPECT_STREQ(e.what(), "Netlink error: No such device (-19); failed command: <no debug info>");
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
};

void PrintTo(ReceiveFailure const& c, std::ostream* out) { *out << c.name; }

class ReceiveFailures : public CommandSocketTest, public ::testing::WithParamInterface<ReceiveFailure> {};

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
    EXPECT_EQ(std::string(e.what()), fmt::format("message receive failed: {} ({}); command: get interface 1",
                                                 nl_geterror(c.libnlError), c.libnlError));
  }
  auto next = getInterface(2, "next");
  socket.sendMessage(next, [](nl_msg*) { return NL_OK; });
  EXPECT_EQ(next.debugInfoString(), "[ACK] next");
}

INSTANTIATE_TEST_SUITE_P(Replies, ReceiveFailures,
                         ::testing::Values(ReceiveFailure{"WrongSequence", -NLE_SEQ_MISMATCH,
                                                          [](Request const& request) {
                                                            auto reply = error(request, 0);
                                                            reinterpret_cast<nlmsghdr*>(reply.data())->nlmsg_seq +=
                                                                1000;
                                                            return reply;
                                                          }},
                                           ReceiveFailure{"TruncatedError", -NLE_MSG_TRUNC,
                                                          [](Request const& request) {
                                                            auto reply = error(request, -19);
                                                            reply.resize(NLMSG_HDRLEN +
                                                                         sizeof(int));  // no quoted request
                                                            reinterpret_cast<nlmsghdr*>(reply.data())->nlmsg_len =
                                                                static_cast<std::uint32_t>(reply.size());
                                                            return reply;
                                                          }}),
                         [](auto const& info) { return std::string(info.param.name); });

// A receive that times out while replies are still due fails that exchange
// alone: its late replies, whatever they are, are dropped, and the next
// exchange gets its own.
TEST(CommandSocketReceive, LateRepliesOfAFailedExchangeAreDropped) {
  using Replies = std::function<std::vector<Bytes>(Request const&)>;
  struct Row {
    char const* what;
    Replies late;
  };
  for (auto const& row : {
           Row{"acknowledgement", [](Request const& r) { return std::vector<Bytes>{error(r, 0)}; }},
           Row{"dump",
               [](Request const& r) {
                 return std::vector<Bytes>{entry(r, 1), done(r)};
               }},
           Row{"kernel error", [](Request const& r) { return std::vector<Bytes>{error(r, -19)}; }},
       }) {
    SCOPED_TRACE(row.what);
    NetlinkPeer peer;
    std::promise<void> gaveUp;
    auto const gaveUpSeen = gaveUp.get_future().share();
    std::atomic<int> requests{0};
    peer.serve([&](Request const& request) {
      if (++requests > 1) return std::vector<Bytes>{error(request, 0)};
      gaveUpSeen.wait();  // answer only once the caller has given up
      return row.late(request);
    });
    auto* client = peer.clientSocket();
    auto const setTimeout = [&](long microseconds) {
      timeval const timeout{0, microseconds};
      setsockopt(nl_socket_get_fd(client), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    };
    setTimeout(20000);
    CommandSocket socket;
    SocketTestAccess::adopt(socket, client, family);
    auto first = getInterface(1, "first");
    EXPECT_THAT([&] { socket.sendMessage(first, [](nl_msg*) { return NL_OK; }); },
                ThrowsMessage<Error>(fmt::format("message receive failed: {} ({}); command: first",
                                                 nl_geterror(-NLE_AGAIN), -NLE_AGAIN)));
    setTimeout(0);
    gaveUp.set_value();
    int calls = 0;
    auto next = getInterface(2, "next");
    socket.sendMessage(next, [&](nl_msg*) { return ++calls, NL_OK; });
    EXPECT_EQ(next.debugInfoString(), "[ACK] next");
    EXPECT_EQ(calls, 0);
  }
}

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
  std::uint32_t vanished = 0;
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
    return std::vector<Bytes>{entry(request, tag), join({entry(request, tag), entry(request, tag)}), done(request)};
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

TEST_F(CommandSocketTest, AcknowledgedMessageWithoutDebugTextStaysWithout) {
  peer.serve([](Request const& request) { return std::vector<Bytes>{error(request, 0)}; });
  auto* raw = nlmsg_alloc();
  genlmsg_put(raw, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, NL80211_CMD_GET_WIPHY, 0);
  GenlMessage bare(raw);
  socket.sendMessage(bare, [](nl_msg*) { return NL_OK; });
  EXPECT_EQ(bare.debugInfoString(), "<no debug info>");
  nlmsg_free(raw);
}

TEST(CommandSocketSend, NeedsAConnectedSocketAndAMessage) {
  CommandSocket unconnected;
  auto command = getInterface(1);
  EXPECT_THAT([&] { unconnected.sendMessage(command, [](nl_msg*) { return NL_OK; }); },
              ThrowsMessage<Error>("command socket not connected"));
  NetlinkPeer peer;
  CommandSocket connected;
  SocketTestAccess::adopt(connected, peer.clientSocket(), family);
  GenlMessage empty;
  EXPECT_THAT([&] { connected.sendMessage(empty, [](nl_msg*) { return NL_OK; }); },
              ThrowsMessage<Error>("message to send is empty"));
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
