#include <atomic>
#include <climits>
#include <stdexcept>

#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "NetlinkPeer.h"
#include "TraceCapture.h"
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

Script fails(int number, std::optional<std::string> const& message = {}, bool capped = false) {
  return [=](Request const& r) { return Replies{error(r, number, message, capped)}; };
}

// get interface 3; a message without debug text; the dump "dump interfaces", its callback stopping or throwing.
enum class Send { Get, Bare, Dump, DumpStop, DumpThrow };

// The tags of the replies the callback took, then after "| " the debug text or the exception the exchange ended in.
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
Script const twoDatagrams = [](auto& r) { return Replies{join(entry(r, 1), entry(r, 2)), join(entry(r, 3), done(r))}; };
Script const interrupted = [](auto& r) { return Replies{join(entry(r, 1), entry(r, 2, NLM_F_DUMP_INTR)), done(r)}; };
Script const ofAnotherRequest = [](Request r) { return r.bytes[11] += 0x40, Replies{error(r, 0)}; };  // seq + 2^30
// Replies of an earlier exchange, left by its failure (a time-out) while they were due, come before the dump's own.
Script const late = [](Request r) {
  auto const dump = join(entry(r, 1), done(r));
  reinterpret_cast<nlmsghdr*>(r.bytes.data())->nlmsg_seq -= 1;
  return Replies{entry(r, 7), error(r, 0), error(r, -19), dump};
};
Script const withoutQuote = [](Request const& r) {
  auto reply = error(r, -19);
  return reply.resize(reply[0] = 20), Replies{reply};  // the header and the error number
};
std::string const failed = "| CmdFailure: Netlink error: ", ofGet = "; failed command: get interface 3";
std::string const receiveFailed = "| Error: message receive failed: ", ofCommand = "; command: get interface 3";

std::tuple<Send, Script, std::string> const rows[] = {
    {Send::Get, ack, "| [ACK] get interface 3"},
    {Send::Dump, twoDatagrams, "1 2 3 | dump interfaces"},
    {Send::DumpStop, entries, "1 2 | dump interfaces"},
    {Send::DumpThrow, entries, "1 | std::exception: bad reply"},
    {Send::Dump, interrupted,
     "1 2 | DumpInterrupted: Dump inconsistency detected, interrupted; command: dump interfaces"},
    {Send::Get, noDevice, failed + "No such device (-19)" + ofGet},
    {Send::Get, fails(-95, "by the driver"), failed + "Operation not supported (-95) [by the driver]" + ofGet},
    {Send::Get, fails(-22, "missing attribute", true), failed + "Invalid argument (-22) [missing attribute]" + ofGet},
    {Send::Get, fails(-22, ""), failed + "Invalid argument (-22) [<invalid>]" + ofGet},
    {Send::Get, fails(INT_MIN), failed + "Unknown error 2147483648 (-2147483648)" + ofGet},
    {Send::Bare, ack, "| <no debug info>"},
    {Send::Bare, noDevice, failed + "No such device (-19); failed command: <no debug info>"},
    {Send::Get, ofAnotherRequest, receiveFailed + "Message sequence number mismatch (-16)" + ofCommand},
    {Send::Get, withoutQuote, receiveFailed + "Kernel reported truncated message (-18)" + ofCommand},
    {Send::Dump, late, "1 | dump interfaces"},
};

// Whatever the first exchange ends in, only a kernel error is logged, and the next command, sent twice, is
// acknowledged.
TEST(CommandSocket, ExchangesEndAsExpectedAndLeaveTheSocketUsable) {
  for (auto const& row : rows) {
    auto const& [send, replies, expected] = row;
    SCOPED_TRACE(::testing::Message() << "row " << &row - rows);
    TestMessage raw;
    GenlMessage bare(raw.msg);
    Nl80211Command get(NL80211_CMD_GET_INTERFACE, "get interface 3");
    get.attributes().addU32(NL80211_ATTR_IFINDEX, 3);
    auto dump = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump interfaces");
    // By Send: the command; what goes out: the family cut to 16 bits, request, ack (and dump) flags, command,
    // attributes.
    std::pair<GenlMessage*, char const*> const sent[] = {{&get, "70110500 05000000 08000300 03000000"},
                                                         {&bare, "70110500 01000000"},
                                                         {&dump, "70110503 05000000"},
                                                         {&dump, "70110503 05000000"},
                                                         {&dump, "70110503 05000000"}};
    auto const& [command, request] = sent[static_cast<int>(send)];
    NetlinkPeer peer;
    std::atomic<int> requests{0};
    peer.serve([&, &replies = replies, request = request](Request const& r) {
      if (++requests > 1) return Replies{error(r, 0)};
      EXPECT_EQ(
          join(Bytes(r.bytes.begin() + 4, r.bytes.begin() + 8), Bytes(r.bytes.begin() + NLMSG_HDRLEN, r.bytes.end())),
          hex(request))
          << "row " << &row - rows;
      return replies(r);
    });
    CommandSocket socket;
    SocketTestAccess::adopt(socket, peer.clientSocket(), family);
    TraceCapture capture;
    EXPECT_EQ(exchange(socket, *command, send), expected);
    EXPECT_EQ(capture.lines(),
              (expected.starts_with(failed) ? std::vector<TraceLine>{{trace::Provider::Cmd, trace::Level::Warn,
                                                                      expected.substr(expected.find("Netlink")) + "\n"}}
                                            : std::vector<TraceLine>{}));
    Nl80211Command next(NL80211_CMD_GET_INTERFACE, "next");
    EXPECT_EQ(exchange(socket, next), "| [ACK] next");
    EXPECT_EQ(exchange(socket, next), "| [ACK] [ACK] next");
  }
}

TEST(CommandSocket, RefusesWhatItCannotSend) {
  CommandSocket unconnected, orphaned, connected;
  NetlinkPeer peer;
  SocketTestAccess::adopt(connected, peer.clientSocket(), family);
  SocketTestAccess::adopt(orphaned, NetlinkPeer().clientSocket(), family);  // its peer is gone
  Nl80211Command command(NL80211_CMD_GET_INTERFACE, "get interface 3");
  GenlMessage empty;
  EXPECT_EQ(exchange(unconnected, command), "| Error: command socket not connected");
  EXPECT_EQ(exchange(connected, empty), "| Error: message to send is empty");
  EXPECT_EQ(exchange(orphaned, command), "| Error: message send failed: Unspecific failure (-1)" + ofCommand);
  auto const connect = [](CommandSocket& socket) { return outcome([&] { return socket.connect(), "connected"; }); };
  EXPECT_TRUE(connected.isConnected() && !unconnected.isConnected());
  EXPECT_EQ(connect(connected), "Error: already connected");
  // This machine's kernel has generic netlink but no wireless stack.
  auto const fresh = connect(unconnected);
  if (fresh == "connected") GTEST_SKIP() << "this kernel has nl80211; the kernel tests cover the connected case";
  EXPECT_EQ(fresh, "Error: protocol nl80211 not found");
  EXPECT_FALSE(unconnected.isConnected());
}

}  // namespace
