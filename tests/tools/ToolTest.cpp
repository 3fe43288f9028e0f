// The ny80211 tool run in-process: its checks of the command line, and decode on messages built with libnl.
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tool.h"

namespace {

// A command line (split at blanks), its status, and for status 0 standard output, else standard error: a text
// ending in "..." is the start of it, one starting with ':' follows "ny80211 COMMAND". Then standard input. No
// interface or radio named here exists (wlan9, phy9): nothing reaches the kernel.
struct Line {
  std::string args;
  int status;
  std::string text;
  std::string input = "";
};

Line const lines[] = {
    {"", 2, "usage: ny80211 COMMAND [ARG...]  (ny80211 --help lists them)\n"},
    {"--help", 0, "usage: ny80211 COMMAND [ARG...]  (ny80211 COMMAND --help for one)\n..."},
    {"frob", 2, "ny80211: unknown command 'frob' (ny80211 --help lists them)\n"},
    // --help after a command wins over every other check.
    {"phy -h", 0, "usage: ny80211 phy\nthe radios..."},
    {"dev wlan0", 2, ": unexpected argument 'wlan0' (usage: ny80211 dev)\n"},
    {"scan", 2, ": missing argument (usage: ny80211 scan IFACE)\n"},
    {"scan wlan9", 2, ": unknown interface 'wlan9'\n"},
    {"events scan mgmt", 2, ": unknown group 'mgmt' (one of config, scan, regulatory, mlme, vendor, nan, testmode)\n"},
    // Parameters: every mistake that the library's lookup would end the process on is a usage error here.
    {"param put phy0 txchainmask 3", 2, ": unknown action 'put' (get or set)\n"},
    {"param get phy0 foo", 2, ": unknown parameter 'foo'\n"},
    // Names are compared whole: the table's has a trailing blank.
    {"param set wlan0 config_mesh_latency 1 2", 2, ": unknown parameter 'config_mesh_latency'\n"},
    {"param set phy0 txchainmask", 2, ": 'txchainmask' takes 1 value, not 0\n"},
    {"param set a addlocalpeer 1", 2, ": 'addlocalpeer' takes 3 values, not 1\n"},
    // The subcommand column decides, not the name.
    {"param set phy0 get_txchainmask", 2, ": 'get_txchainmask' is a get parameter, not a set one\n"},
    {"param get wlan0 get_mixedmode 1", 2, ": 'get_mixedmode' is a set parameter, not a get one\n"},
    {"param set phy0 txchainmask 0x1g", 2, ": bad value '0x1g' for 'txchainmask' (an unsigned 32-bit number)\n"},
    {"param set phy0 txchainmask 4294967296", 2,
     ": bad value '4294967296' for 'txchainmask' (an unsigned 32-bit number)\n"},
    {"param set wlan9 txchainmask 0xf", 2, ": unknown radio 'wlan9' ('txchainmask' is a radio parameter)\n"},
    {"param get phy9 get_turbo", 2, ": unknown interface 'phy9' ('get_turbo' is an interface parameter)\n"},
    // In both tables: the target decides.
    {"param set wlan9 burst 1", 2, ": unknown radio or interface 'wlan9'\n"},
    {"decode", 2, ": no message on standard input\n", " \n"},
    {"decode", 2, ": bad hex digit 'g' at character 14\n", "1c00 0000 1c0g"},
    {"decode", 2, ": odd number of hex digits (3)\n", "1c0"},
    // Lengths past the bytes there are and short of the generic netlink header; then NLMSG_ERROR.
    {"decode", 2, ": message at byte 0 has length 29, not from 20 to 28\n",
     "1d0000001c0000000900000000000000080000000800030004000000"},
    {"decode", 2, ": message at byte 0 has length 16, not from 20 to 20\n", "100000001c000000090000000000000008000000"},
    {"decode", 2, ": message at byte 0 is of netlink's own type 2, not a family's\n",
     "1400000002000000090000000000000000000000"},
    // A whole message, then a header cut short: nothing is rendered.
    {"decode", 2, ": 4 bytes at byte 28, too few for a netlink header (16)\n",
     "1c0000001c0000000900000000000000080000000800030004000000 1c000000"},
    // Messages as libnl builds them (genlmsg_put, nla_put), as a capture shows them: grouped, over lines.
    {"decode", 0,
     "NL80211_CMD_DEL_INTERFACE (seq 9, flags 0x5):\n"
     "\t\t[    4 byte] NL80211_ATTR_IFINDEX                     : 4\n"
     "NL80211_CMD_NEW_INTERFACE (seq 10, flags 0x0):\n"
     "\t\t[    6 byte] NL80211_ATTR_IFNAME                      : wlan0\n"
     "\t\t[    6 byte] NL80211_ATTR_MAC                         : 02:00:00:00:01:00\n",
     "1c000000 1c000500 09000000 00000000 08000000 08000300 04000000\n"
     "2c000000 1c000000 0a000000 00000000 07000000 0a000400 776c616e 30000000 0a000600 02000000 01000000"},
};

TEST(Tool, CommandLinesGiveStatusAndMessage) {
  for (auto const& line : lines) {
    SCOPED_TRACE(line.args + " < " + line.input);
    std::vector<std::string> args;
    std::istringstream words(line.args), in(line.input);
    for (std::string word; words >> word;) args.push_back(word);
    std::ostringstream out, err;
    Tool::Io io{in, out, err};
    EXPECT_EQ(Tool::run(args, io), line.status);
    auto const prefix = line.text.ends_with("...");
    auto expected = line.text.substr(0, line.text.size() - (prefix ? 3 : 0));
    if (expected.starts_with(':')) expected.insert(0, args[0]).insert(0, "ny80211 ");
    auto const shown = (line.status == Tool::ok ? out : err).str();
    EXPECT_EQ(prefix ? shown.substr(0, expected.size()) : shown, expected);
    EXPECT_EQ((line.status == Tool::ok ? err : out).str(), "");
  }
}

}  // namespace
