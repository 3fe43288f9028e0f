// The ny80211 tool run in-process: what each command line makes of its
// arguments before it asks the kernel anything, and what decode makes of
// nl80211 messages built with libnl.
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tool.h"

namespace {

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

Outcome runTool(std::vector<std::string> const& args, std::string const& input = "") {
  std::istringstream in(input);
  std::ostringstream out, err;
  Tool::Io io{in, out, err};
  auto const status = Tool::run(args, io);
  return {status, out.str(), err.str()};
}

// A command line (split at blanks), its status, and for status 0 the start
// of standard output, else the whole of standard error; then standard input.
// No interface or radio named here exists (wlan9, phy9): nothing reaches the
// kernel.
struct Line {
  std::string args;
  int status;
  std::string text;
  std::string input = "";
};

class CommandLine : public ::testing::TestWithParam<Line> {};

TEST_P(CommandLine, GivesStatusAndMessage) {
  auto const& line = GetParam();
  std::vector<std::string> args;
  std::istringstream words(line.args);
  for (std::string word; words >> word;) args.push_back(word);
  auto const outcome = runTool(args, line.input);
  EXPECT_EQ(outcome.status, line.status);
  if (line.status == Tool::ok) {
    EXPECT_EQ(outcome.out.substr(0, line.text.size()), line.text);
    EXPECT_EQ(outcome.err, "");
  } else {
    EXPECT_EQ(outcome.err, line.text);
    EXPECT_EQ(outcome.out, "");
  }
}

std::string const usage = " (usage: ny80211 param get|set TARGET NAME [VALUE...])\n";
std::string const badValue = "' for 'txchainmask' (an unsigned 32-bit number)\n";

INSTANTIATE_TEST_SUITE_P(
    Tool, CommandLine,
    ::testing::Values(
        Line{"", 2, "usage: ny80211 COMMAND [ARG...]  (ny80211 --help lists them)\n"},
        Line{"--help", 0, "usage: ny80211 COMMAND [ARG...]  (ny80211 COMMAND --help for one)\n"},
        Line{"frob", 2, "ny80211: unknown command 'frob' (ny80211 --help lists them)\n"},
        // --help after a command wins over every other check.
        Line{"dev --help", 0, "usage: ny80211 dev\nevery wireless interface"},
        Line{"phy -h", 0, "usage: ny80211 phy\nthe radios"},
        Line{"stations wlan9 --help", 0, "usage: ny80211 stations IFACE\n"},
        Line{"events bogus --help", 0, "usage: ny80211 events [GROUP...]\n"},
        Line{"param --help", 0, "usage: ny80211 param get|set TARGET NAME [VALUE...]\n"},
        Line{"decode --help", 0, "usage: ny80211 decode\n", "zz"},
        // Counts of arguments.
        Line{"dev wlan0", 2, "ny80211 dev: unexpected argument 'wlan0' (usage: ny80211 dev)\n"},
        Line{"phy phy0", 2, "ny80211 phy: unexpected argument 'phy0' (usage: ny80211 phy)\n"},
        Line{"scan", 2, "ny80211 scan: missing argument (usage: ny80211 scan IFACE)\n"},
        Line{"scan a b", 2, "ny80211 scan: unexpected argument 'b' (usage: ny80211 scan IFACE)\n"},
        Line{"stations", 2, "ny80211 stations: missing argument (usage: ny80211 stations IFACE)\n"},
        Line{"survey", 2, "ny80211 survey: missing argument (usage: ny80211 survey IFACE)\n"},
        Line{"survey a b", 2, "ny80211 survey: unexpected argument 'b' (usage: ny80211 survey IFACE)\n"},
        Line{"decode -", 2, "ny80211 decode: unexpected argument '-' (usage: ny80211 decode)\n"},
        Line{"param get phy0", 2, "ny80211 param: missing argument" + usage},
        Line{"param set a addlocalpeer 1 2 3 4", 2, "ny80211 param: unexpected argument '4'" + usage},
        // Interfaces and groups.
        Line{"scan wlan9", 2, "ny80211 scan: unknown interface 'wlan9'\n"},
        Line{"stations wlan9", 2, "ny80211 stations: unknown interface 'wlan9'\n"},
        Line{"survey wlan9", 2, "ny80211 survey: unknown interface 'wlan9'\n"},
        Line{"events scan mgmt", 2,
             "ny80211 events: unknown group 'mgmt' (one of config, scan, regulatory, mlme, "
             "vendor, nan, testmode)\n"},
        // Parameters: every mistake that the library's lookup would end the
        // process on is a usage error here.
        Line{"param put phy0 txchainmask 3", 2, "ny80211 param: unknown action 'put' (get or set)\n"},
        Line{"param get phy0 foo", 2, "ny80211 param: unknown parameter 'foo'\n"},
        // Lengths are compared, not prefixes; a trailing blank is the name's.
        Line{"param set phy0 dl_vap 1", 2, "ny80211 param: unknown parameter 'dl_vap'\n"},
        Line{"param set wlan0 config_mesh_latency 1 2", 2, "ny80211 param: unknown parameter 'config_mesh_latency'\n"},
        Line{"param set phy0 txchainmask", 2, "ny80211 param: 'txchainmask' takes 1 value, not 0\n"},
        Line{"param set a addlocalpeer 1", 2, "ny80211 param: 'addlocalpeer' takes 3 values, not 1\n"},
        Line{"param get phy0 get_txchainmask 1", 2, "ny80211 param: 'get_txchainmask' takes 0 values, not 1\n"},
        // The subcommand column decides, not the name.
        Line{"param set phy0 get_txchainmask", 2,
             "ny80211 param: 'get_txchainmask' is a get parameter, not a set one\n"},
        Line{"param get wlan0 get_mixedmode 1", 2,
             "ny80211 param: 'get_mixedmode' is a set parameter, not a get one\n"},
        Line{"param set phy0 txchainmask 0x1g", 2, "ny80211 param: bad value '0x1g" + badValue},
        Line{"param set phy0 txchainmask 4294967296", 2, "ny80211 param: bad value '4294967296" + badValue},
        Line{"param set phy0 txchainmask -1", 2, "ny80211 param: bad value '-1" + badValue},
        Line{"param set wlan9 txchainmask 0xf", 2,
             "ny80211 param: unknown radio 'wlan9' ('txchainmask' is a radio parameter)\n"},
        Line{"param get phy9 get_turbo", 2,
             "ny80211 param: unknown interface 'phy9' ('get_turbo' is an interface parameter)\n"},
        // In both tables: the target decides.
        Line{"param set wlan9 burst 1", 2, "ny80211 param: unknown radio or interface 'wlan9'\n"},
        // Standard input of decode.
        Line{"decode", 2, "ny80211 decode: no message on standard input\n", " \n"},
        Line{"decode", 2, "ny80211 decode: bad hex digit 'g' at character 14\n", "1c00 0000 1c0g"},
        Line{"decode", 2, "ny80211 decode: bad hex digit 'x' at character 2\n", "0x1c"},
        Line{"decode", 2, "ny80211 decode: odd number of hex digits (3)\n", "1c0"},
        Line{"decode", 2, "ny80211 decode: 6 bytes at byte 0, too few for a netlink header (16)\n", "1c000000 1c00"},
        // The length field says more bytes than there are, then fewer than
        // the generic netlink header needs; then NLMSG_ERROR.
        Line{"decode", 2, "ny80211 decode: message at byte 0 has length 29, not from 20 to 28\n",
             "1d0000001c0000000900000000000000080000000800030004000000"},
        Line{"decode", 2, "ny80211 decode: message at byte 0 has length 16, not from 20 to 20\n",
             "100000001c000000090000000000000008000000"},
        Line{"decode", 2, "ny80211 decode: message at byte 0 is of netlink's own type 2, not a family's\n",
             "1400000002000000090000000000000000000000"},
        // A whole message, then a header cut short: nothing is rendered.
        Line{"decode", 2, "ny80211 decode: 4 bytes at byte 28, too few for a netlink header (16)\n",
             "1c0000001c0000000900000000000000080000000800030004000000 1c000000"}));

// Hex of messages built with libnl (genlmsg_put, nla_put_*), as a capture
// shows them, and the text decode prints for them.
struct Decoded {
  std::string hex;
  std::string text;
};

class Decode : public ::testing::TestWithParam<Decoded> {};

TEST_P(Decode, RendersEachMessage) {
  auto const outcome = runTool({"decode"}, GetParam().hex);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.status, Tool::ok);
  EXPECT_EQ(outcome.out, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Tool, Decode,
                         ::testing::Values(
                             // NL80211_CMD_NEW_INTERFACE of an access point, as one line.
                             Decoded{
                                 "580000001c00000007000000640000000700000008000300030000000a000400776c616e3000000008"
                                 "0001000000000008000500030000000c00990001000000000000000a00060002000000010000000800"
                                 "2e0005000000",
                                 "NL80211_CMD_NEW_INTERFACE (seq 7, flags 0x0):\n"
                                 "\t\t[    4 byte] NL80211_ATTR_IFINDEX                     : 3\n"
                                 "\t\t[    6 byte] NL80211_ATTR_IFNAME                      : wlan0\n"
                                 "\t\t[    4 byte] NL80211_ATTR_WIPHY                       : 0\n"
                                 "\t\t[    4 byte] NL80211_ATTR_IFTYPE                      : 3\n"
                                 "\t\t[    8 byte] NL80211_ATTR_WDEV                        : 0x1\n"
                                 "\t\t[    6 byte] NL80211_ATTR_MAC                         : 02:00:00:00:01:00\n"
                                 "\t\t[    4 byte] NL80211_ATTR_GENERATION                  : 5\n"},
                             // A vendor command with its QCA data, then NL80211_CMD_DEL_INTERFACE,
                             // broken over lines and grouped as a capture shows them.
                             Decoded{"48000000 1c000500 08000000 00000000 67000000 08000100 00000000 0800c300\n"
                                     "74130000 0800c400 4a000000 1c00c580 08001100 c8000000 08001200 01100000\n"
                                     "08001300 03000000\n"
                                     "1c000000 1c000000 09000000 00000000 08000000 08000300 04000000\n",
                                     // The formatter names no generic command (its table is empty).
                                     "NL80211_CMD_VENDOR (seq 8, flags 0x5):\n"
                                     "\t\t[    4 byte] NL80211_ATTR_WIPHY                       : 0\n"
                                     "\t\t[    4 byte] NL80211_ATTR_VENDOR_ID                   : 0x1374\n"
                                     "\t\t[    4 byte] NL80211_ATTR_VENDOR_SUBCMD               : "
                                     "QCA_NL80211_VENDOR_SUBCMD_SET_WIFI_CONFIGURATION\n"
                                     "\t\t[   24 byte] NL80211_ATTR_VENDOR_DATA                 : nested =>\n"
                                     "\t\t[    4 byte]    QCA_WLAN_VENDOR_ATTR_CONFIG_GENERIC_COMMAND : <unknown>\n"
                                     "\t\t[    4 byte]    QCA_WLAN_VENDOR_ATTR_CONFIG_GENERIC_VALUE : 4097\n"
                                     "\t\t[    4 byte]    QCA_WLAN_VENDOR_ATTR_CONFIG_GENERIC_DATA : <...>\n"
                                     "\n"
                                     "NL80211_CMD_DEL_INTERFACE (seq 9, flags 0x0):\n"
                                     "\t\t[    4 byte] NL80211_ATTR_IFINDEX                     : 4\n"}));

}  // namespace
