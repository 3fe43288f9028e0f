#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "NetlinkPeer.h"
#include "TraceCapture.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;
using Replies = std::vector<Bytes>;
using Script = std::function<Replies(Request const&)>;

// Stamped on every request: the header has room for its low 16 bits, 4464.
constexpr int family = 70000;

// A dump entry that carries the tag as its interface index.
Bytes entry(Request const& request, std::uint32_t tag, int flags = 0) {
  return answer(request, request.header().nlmsg_type, NLM_F_MULTI | flags, {NL80211_CMD_NEW_INTERFACE, 0, 0, 0},
                [&](nl_msg* msg) { nla_put_u32(msg, NL80211_ATTR_IFINDEX, tag); });
}

Bytes join(Bytes all, Bytes const& more) { return all.insert(all.end(), more.begin(), more.end()), all; }

Script fails(int number, std::optional<std::string> const& message = {}, bool capped = false,
             int type = NLMSGERR_ATTR_MSG) {
  return [=](Request const& r) { return Replies{error(r, number, message, capped, type)}; };
}

Nl80211Command getInterface(std::string debug) {
  Nl80211Command command(NL80211_CMD_GET_INTERFACE, std::move(debug));
  command.attributes().addU32(NL80211_ATTR_IFINDEX, 3);
  return command;
}

// get interface 3, in Late answered only once it has timed out; a message
// without debug text; the dump "dump interfaces", its callback stopping or
// throwing after it took a reply.
enum class Send { Get, Late, Bare, Dump, DumpStop, DumpThrow };

// The tags of the replies the callback took, then after "| " the command's
// debug text or the exception the exchange ended in.
std::string exchange(CommandSocket& socket, GenlMessage& command, Send send = Send::Get) {
  std::string tags;
  try {
    socket.sendMessage(command, [&](nl_msg* reply) {
      tags += std::to_string(GenlMessage(reply).attributes().getU32(NL80211_ATTR_IFINDEX)) + " ";
      if (send == Send::DumpThrow) throw std::invalid_argument("bad reply");
      return send == Send::DumpStop ? NL_STOP : NL_OK;
    });
    return tags + "| " + command.debugInfoString();
  } catch (std::exception const& e) {
    auto const* type = dynamic_cast<CmdFailure const*>(&e) != nullptr        ? "CmdFailure: "
                       : dynamic_cast<DumpInterrupted const*>(&e) != nullptr ? "DumpInterrupted: "
                       : dynamic_cast<Error const*>(&e) != nullptr           ? "Error: "
                                                                             : "std::exception: ";
    return tags + "| " + type + e.what();
  }
}

Script const ack = fails(0), noDevice = fails(-19);
Script const entries = [](Request const& r) { return Replies{entry(r, 1), entry(r, 2), done(r)}; };
Script const acrossDatagrams = [](Request const& r) {
  return Replies{join(entry(r, 1), entry(r, 2)), join(entry(r, 3), done(r))};
};
Script const interrupted = [](Request const& r) {
  return Replies{join(entry(r, 1), entry(r, 2, NLM_F_DUMP_INTR)), done(r)};
};
Script const ofAnotherRequest = [](Request r) {
  reinterpret_cast<nlmsghdr*>(r.bytes.data())->nlmsg_seq += 1000;
  return Replies{error(r, 0)};
};
Script const withoutQuote = [](Request const& r) {
  auto reply = error(r, -19);
  reply.resize(reply[0] = 20);  // the header and the error number
  return Replies{reply};
};

std::string const failed = "| CmdFailure: Netlink error: ", ofGet = "; failed command: get interface 3";
std::string const receiveFailed = "| Error: message receive failed: ", ofLate = "; command: get interface 3";

struct Row {
  Send send;
  Script replies;
  std::string expected;
} const rows[] = {
    {Send::Get, ack, "| [ACK] get interface 3"},
    {Send::Dump, acrossDatagrams, "1 2 3 | dump interfaces"},
    {Send::DumpStop, entries, "1 2 | dump interfaces"},
    {Send::DumpThrow, entries, "1 | std::exception: bad reply"},
    {Send::Dump, interrupted,
     "1 2 | DumpInterrupted: Dump inconsistency detected, interrupted; command: dump interfaces"},
    {Send::Get, noDevice, failed + "No such device (-19)" + ofGet},
    {Send::Get, fails(-95, "by the driver"), failed + "Operation not supported (-95) [by the driver]" + ofGet},
    {Send::Get, fails(-22, "missing attribute", true), failed + "Invalid argument (-22) [missing attribute]" + ofGet},
    {Send::Get, fails(-22, "x", false, NLMSGERR_ATTR_OFFS), failed + "Invalid argument (-22)" + ofGet},
    {Send::Get, fails(-1, "x", true, NLMSGERR_ATTR_OFFS), failed + "Operation not permitted (-1)" + ofGet},
    {Send::Get, fails(-22, ""), failed + "Invalid argument (-22) [<invalid>]" + ofGet},
    {Send::Get, fails(INT_MIN), failed + "Unknown error 2147483648 (-2147483648)" + ofGet},
    {Send::Bare, ack, "| <no debug info>"},
    {Send::Bare, noDevice, failed + "No such device (-19); failed command: <no debug info>"},
    {Send::Get, ofAnotherRequest, receiveFailed + "Message sequence number mismatch (-16)" + ofLate},
    {Send::Get, withoutQuote, receiveFailed + "Kernel reported truncated message (-18)" + ofLate},
    {Send::Late, ack, receiveFailed + "Try again (-4)" + ofLate},
    {Send::Late, entries, receiveFailed + "Try again (-4)" + ofLate},
    {Send::Late, noDevice, receiveFailed + "Try again (-4)" + ofLate},
};

// Whatever the first exchange ends in, only a kernel error is logged, and the
// next command, sent twice, gets its acknowledgements and none of the late
// replies of the first.
TEST(CommandSocket, ExchangesEndAsExpectedAndLeaveTheSocketUsable) {
  for (auto const& row : rows) {
    auto const& [send, replies, expected] = row;
    SCOPED_TRACE(::testing::Message() << "row " << &row - rows);
    NetlinkPeer peer;
    std::promise<Request> firstRequest;
    std::promise<void> timedOut;
    std::atomic<int> requests{0};
    peer.serve([&, timedOutSeen = timedOut.get_future().share()](Request const& request) {
      if (++requests > 1) return Replies{error(request, 0)};
      firstRequest.set_value(request);
      if (send == Send::Late) timedOutSeen.wait();
      return replies(request);
    });
    CommandSocket socket;
    auto* client = peer.clientSocket();
    SocketTestAccess::adopt(socket, client, family);
    auto const setTimeout = [&](long microseconds) {
      timeval const timeout{0, microseconds};
      setsockopt(nl_socket_get_fd(client), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    };
    setTimeout(send == Send::Late ? 20000 : 0);
    TestMessage raw;
    GenlMessage bare(raw.msg);
    auto get = getInterface("get interface 3");
    auto dump = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump interfaces");
    bool const isDump = send >= Send::Dump;
    GenlMessage* const commands[] = {&get, &get, &bare, &dump, &dump, &dump};  // by Send
    TraceCapture capture;
    EXPECT_EQ(exchange(socket, *commands[static_cast<int>(send)], send), expected);
    std::vector<TraceLine> warned;
    if (expected.starts_with(failed))
      warned.push_back({trace::Provider::Cmd, trace::Level::Warn, expected.substr(expected.find("Netlink")) + "\n"});
    EXPECT_EQ(capture.lines(), warned);
    setTimeout(0);
    timedOut.set_value();
    // The family stamped, an acknowledgement asked for, the command and its attributes.
    auto const request = firstRequest.get_future().get();
    EXPECT_EQ(request.header().nlmsg_type, 4464);
    EXPECT_EQ(request.header().nlmsg_flags & (NLM_F_REQUEST | NLM_F_ACK | NLM_F_DUMP),
              NLM_F_REQUEST | NLM_F_ACK | (isDump ? NLM_F_DUMP : 0));
    char const* const sent[] = {"05000000 08000300 03000000", "05000000 08000300 03000000", "01000000", "05000000"};
    EXPECT_EQ(Bytes(request.bytes.begin() + NLMSG_HDRLEN, request.bytes.end()),
              hex(sent[std::min(3, static_cast<int>(send))]));
    auto next = getInterface("next");
    EXPECT_EQ(exchange(socket, next), "| [ACK] next");
    EXPECT_EQ(exchange(socket, next), "| [ACK] [ACK] next");
  }
}

// Each thread's dump entries carry its own tag: with the exchanges
// serialised, every call sees all of its entries and none of another's.
TEST(CommandSocket, ExchangesOfThreadsDoNotInterleave) {
  NetlinkPeer peer;
  peer.serve([](Request const& r) {
    std::uint32_t tag = 0;
    std::memcpy(&tag, r.bytes.data() + NLMSG_HDRLEN + GENL_HDRLEN + NLA_HDRLEN, sizeof tag);
    return Replies{entry(r, tag), join(entry(r, tag), entry(r, tag)), done(r)};
  });
  CommandSocket socket;
  SocketTestAccess::adopt(socket, peer.clientSocket(), family);
  std::atomic<int> good{0};
  std::vector<std::thread> senders;
  for (std::uint32_t tag = 1; tag <= 4; ++tag) {
    senders.emplace_back([&, tag] {
      auto command = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump");
      command.attributes().addU32(NL80211_ATTR_IFINDEX, tag);
      auto const t = std::to_string(tag) + " ";
      for (int round = 0; round < 25; ++round) good += exchange(socket, command) == t + t + t + "| dump";
    });
  }
  for (auto& sender : senders) sender.join();
  EXPECT_EQ(good, 100);
}

TEST(CommandSocket, RefusesWhatItCannotSend) {
  CommandSocket unconnected, orphaned, connected;
  NetlinkPeer peer;
  SocketTestAccess::adopt(connected, peer.clientSocket(), family);
  SocketTestAccess::adopt(orphaned, NetlinkPeer().clientSocket(), family);  // its peer is gone
  auto command = getInterface("get interface 3");
  GenlMessage empty;
  EXPECT_EQ(exchange(unconnected, command), "| Error: command socket not connected");
  EXPECT_EQ(exchange(connected, empty), "| Error: message to send is empty");
  EXPECT_EQ(exchange(orphaned, command), "| Error: message send failed: Unspecific failure (-1)" + ofLate);
  auto const connect = [](CommandSocket& socket) { return outcome([&] { return socket.connect(), "connected"; }); };
  EXPECT_TRUE(connected.isConnected() && !unconnected.isConnected());
  EXPECT_EQ(connect(connected), "Error: already connected");
  // This machine's kernel has generic netlink but no wireless stack.
  auto const fresh = connect(unconnected);
  if (fresh == "connected") GTEST_SKIP() << "this kernel has nl80211; the kernel tests cover the connected case";
  EXPECT_EQ(fresh, "Error: protocol nl80211 not found");
  EXPECT_FALSE(unconnected.isConnected());
}

// A quoted request need not be a multiple of 4 long; the attributes behind it
// then stand at an odd address and are still read (ASan/UBSan watch the walk).
TEST(CommandSocket, ErrorTextFindsTheMessageBehindAnOddLengthRequest) {
  for (std::uint32_t quoted : {16u, 17u, 19u, 21u}) {
    // NLMSG_ERROR with NLM_F_ACK_TLVS, error -22, the quoted request, then its message attribute.
    auto bytes = join(join(hex("00000000 0200 0002 00000000 00000000 eaffffff"), bytesOf(quoted)), Bytes(quoted - 4));
    bytes = join(bytes, hex("08000100 6f646400"));
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    std::vector<std::uint32_t> aligned((bytes.size() + 3) / 4);  // exactly as long, so that a read past it shows
    std::memcpy(aligned.data(), bytes.data(), bytes.size());
    EXPECT_EQ(to_string(reinterpret_cast<nlmsgerr*>(aligned.data() + NLMSG_HDRLEN / 4)),
              "Netlink error: Invalid argument (-22) [odd]")
        << quoted;
  }
}

}  // namespace
