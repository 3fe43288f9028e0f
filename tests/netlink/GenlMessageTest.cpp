#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;

TEST(GenlMessage, CommandCarriesHeaderAttributesAndDebugText) {
  auto command = Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump interfaces");
  command.attributes().addU32(NL80211_ATTR_IFINDEX, 3);
  auto const* header = nlmsg_hdr(command.toNlMsg());
  EXPECT_TRUE(header->nlmsg_flags & NLM_F_DUMP);
  EXPECT_EQ(command.commandID(), NL80211_CMD_GET_INTERFACE);
  EXPECT_EQ(command.commandName(), "NL80211_CMD_GET_INTERFACE");
  EXPECT_EQ(command.debugInfoString(), "dump interfaces");

  // A received copy of the same bytes reads the same.
  GenlMessage const received(command.toNlMsg());
  EXPECT_EQ(received.attributes().getU32(NL80211_ATTR_IFINDEX), 3u);
  EXPECT_EQ(received.debugInfoString(), "<no debug info>");
}

TEST(GenlMessage, CommandIdComesFromTheGenericHeaderAlone) {
  auto* raw = nlmsg_alloc();
  genlmsg_put(raw, NL_AUTO_PORT, 77, 28, 0, 0, 0x21, 0);
  nla_put_u32(raw, 0x21, 1);
  GenlMessage const message(raw);
  EXPECT_EQ(message.commandID(), 0x21);
  EXPECT_EQ(message.sequenceNumber(), 77u);
  nlmsg_free(raw);
}

TEST(CommandNames, BeyondTheTable) {
  EXPECT_EQ(cmd_fmt(138), "<command type 138>");
  EXPECT_EQ(cmd_fmt(200), "<command type 200>");
  EXPECT_EQ(cmd_fmt(255), "<command type 255>");
}

#ifdef NY80211_NAME_TABLES_DIR
TEST(CommandNames, EqualTheTableTheyCameFrom) {
  std::ifstream table(NY80211_NAME_TABLES_DIR "/nl80211_commands.tsv");
  ASSERT_TRUE(table.is_open());
  std::string line;
  int rows = 0;
  while (std::getline(table, line)) {
    if (line.empty() || line[0] == '#') continue;
    auto const tab = line.find('\t');
    auto const value = std::stoi(line.substr(0, tab));
    EXPECT_EQ(cmd_fmt(static_cast<std::uint8_t>(value)), line.substr(tab + 1)) << value;
    ++rows;
  }
  EXPECT_EQ(rows, 138);
}
#endif

}  // namespace
