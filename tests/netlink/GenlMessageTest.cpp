#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::TestMessage;

TEST(GenlMessage, CommandCarriesHeaderAttributesAndDebugText) {
  auto command = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump interfaces");
  command.attributes().addU32(NL80211_ATTR_IFINDEX, 3);
  EXPECT_TRUE(nlmsg_hdr(command.toNlMsg())->nlmsg_flags & NLM_F_DUMP);
  EXPECT_EQ(command.commandID(), NL80211_CMD_GET_INTERFACE);
  EXPECT_EQ(command.commandName(), "NL80211_CMD_GET_INTERFACE");
  EXPECT_EQ(command.debugInfoString(), "dump interfaces");
  // A received copy of the same bytes reads the same.
  GenlMessage const received(command.toNlMsg());
  EXPECT_EQ(received.attributes().getU32(NL80211_ATTR_IFINDEX), 3u);
  EXPECT_EQ(received.debugInfoString(), "<no debug info>");

  // The command comes from the generic header alone, not from an attribute.
  TestMessage raw(0, false);
  genlmsg_put(raw.msg, NL_AUTO_PORT, 77, 28, 0, 0, 0x21, 0);
  raw.u32(0x21, 1);
  GenlMessage const message(raw.msg);
  EXPECT_EQ(message.commandID(), 0x21);
  EXPECT_EQ(message.sequenceNumber(), 77u);
}

TEST(CommandNames, EqualTheTableTheyCameFromAndNumbersBeyond) {
  EXPECT_EQ(cmd_fmt(138), "<command type 138>");
  EXPECT_EQ(cmd_fmt(255), "<command type 255>");
#ifdef NY80211_NAME_TABLES_DIR
  std::ifstream table(NY80211_NAME_TABLES_DIR "/nl80211_commands.tsv");
  ASSERT_TRUE(table.is_open());
  int rows = 0;
  for (std::string line; std::getline(table, line);) {
    if (line.empty() || line[0] == '#') continue;
    auto const tab = line.find('\t');
    auto const value = std::stoi(line.substr(0, tab));
    EXPECT_EQ(cmd_fmt(static_cast<std::uint8_t>(value)), line.substr(tab + 1)) << value;
    ++rows;
  }
  EXPECT_EQ(rows, 138);
#endif
}

}  // namespace
