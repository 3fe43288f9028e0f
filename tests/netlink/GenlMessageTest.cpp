#include <string>

#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// The command comes from the generic header alone, not from an attribute; a
// message too short for that header is refused.
TEST(GenlMessage, ReadsItsHeadersAndRefusesARunt) {
  TestMessage raw(0, false);
  genlmsg_put(raw.msg, NL_AUTO_PORT, 77, 28, 0, 0, NL80211_CMD_TRIGGER_SCAN, 0);
  raw.u32(NL80211_CMD_TRIGGER_SCAN, 1).u32(NL80211_ATTR_IFINDEX, 3);
  GenlMessage const message(raw.msg);
  EXPECT_EQ(message.commandID(), NL80211_CMD_TRIGGER_SCAN);
  EXPECT_EQ(message.commandName(), "NL80211_CMD_TRIGGER_SCAN");
  EXPECT_EQ(message.sequenceNumber(), 77u);
  EXPECT_EQ(message.attributes().getU32(NL80211_ATTR_IFINDEX), 3u);
  nlmsg_hdr(raw.msg)->nlmsg_len = NLMSG_HDRLEN + GENL_HDRLEN - 1;
  EXPECT_EQ(outcome([&] { return GenlMessage(raw.msg).commandName(); }), "Error: message too short (19 < 20)");
  // Numbers past the table name themselves.
  EXPECT_EQ(cmd_fmt(138) + cmd_fmt(255), "<command type 138><command type 255>");
}

}  // namespace
