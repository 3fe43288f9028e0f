#include <fstream>
#include <thread>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "TestMessage.h"
#include "ny80211/Identifiers.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

// The attributes the identifier writes into a fresh message, or what it throws.
std::string written(auto const& id) {
  TestMessage m;
  auto s = m.stream();
  auto const* head = reinterpret_cast<std::uint8_t const*>(s.head());
  return outcome([&] { return id.writeTo(s), fmt::format("{:02x}|", fmt::join(head, head + s.length(), "")); });
}

// lo is index 1 in every network namespace; no radio here. A lookup names its type, in a constructor still the base.
TEST(Identifiers, ResolveWriteAndFormat) {
  NetIfcID const lo{std::string("lo")};
  WDevID const wdev(0x10000000005ul);  // beyond 32 bits
  EXPECT_EQ(NetIfcID(1).name() + NetIfcID(99999).name(), "lo<ifindex 99999>");
  EXPECT_EQ(outcome([] { return WiPhyID(std::string("phy0")).name(); }) + "|" +
                outcome([] { return VapID(std::string("nosuchifc0")).name(); }) + "|" +
                outcome([&] { return std::to_string(VapID(lo).nameToIndex("nosuchifc0")); }),
            "Error: wiphy lookup failed for name 'phy0'|Error: netifc lookup failed for name 'nosuchifc0' (19)|"
            "Error: VAP lookup failed for name 'nosuchifc0' (19)");
  EXPECT_EQ(written(WiPhyID(0)) + written(wdev) + written(lo) + written(VapID(lo)) + written(WiPhyID()) + "|" +
                written(WDevID()) + "|" + written(VapID()),
            "0800010000000000|0c0099000500000000010000|0800030001000000|0800030001000000|Error: wiphy ID undefined|"
            "Error: wdev ID undefined|Error: ifc ID undefined");
  EXPECT_EQ(fmt::format("{0}|{0:p}|{0:i}|{0:n}|{0:t}|{1}|{2}|{2:i}|{2:n}|{2:t}", WiPhyID(2), WiPhyID(0), WiPhyID()),
            "wiphy <?> (ID 2)|wiphy <?> (ID 2)|2|<?>|wiphy|wiphy <?> (ID 0)|"
            "wiphy <undefined> (ID <undefined>)|<undefined>|<undefined>|wiphy");
  EXPECT_EQ(fmt::format("{0}|{0:i}|{0:t}|{1}|{2}|{2:i}|{2:t}", wdev, WDevID(0), WDevID()),
            "wdev 1099511627781|1099511627781|wdev|wdev 0|wdev <undefined>|<undefined>|wdev");
  EXPECT_EQ(fmt::format("{0}|{0:i}|{0:n}|{0:t}|{1}|{1:i}|{1:n}|{1:t}|{2}|{3:i}|{3:n}|{3:t}", lo, VapID(lo), NetIfcID(),
                        VapID()),
            "netifc lo|1|lo|netifc|VAP lo|1|lo|VAP|<undefined>|<undefined>|<undefined>|<undefined>");
  // An unknown letter is rejected while parsing.
  auto const rejects = [](char const* pattern, auto const& id) {
    EXPECT_THAT([&] { (void)fmt::format(fmt::runtime(pattern), id); },
                ::testing::ThrowsMessage<fmt::format_error>("invalid format"))
        << pattern;
  };
  for (auto const* pattern : {"{:x}", "{:pp}", "{:5i}"}) rejects(pattern, WiPhyID(1)), rejects(pattern, VapID(lo));
  rejects("{:n}", WDevID(1)), rejects("{:x}", WDevID()), rejects("{:x}", NetIfcID());
}

// A real file to read, which a private mount namespace of a thread of its own shows as /sys/class/ieee80211/phy9/index.
TEST(Identifiers, PhyIndexFileMustHoldOneDecimalNumber) {
  bool allowed = false;
  std::thread([&] {
    allowed = unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
              mount("tmpfs", "/sys/class", "tmpfs", 0, nullptr) == 0;
    if (!allowed) return;
    mkdir("/sys/class/ieee80211", 0755), mkdir("/sys/class/ieee80211/phy9", 0755);
    auto const index = [](std::string const& content) {
      std::ofstream("/sys/class/ieee80211/phy9/index") << content;
      return outcome([] { return std::to_string(WiPhyID(std::string("phy9")).index()); });
    };
    for (auto const* number : {"0", "12", "4294967295"}) EXPECT_EQ(index(number + std::string("\n")), number);
    for (auto const* content : {"-1\n", "4294967296\n", "7x\n", ""})
      EXPECT_EQ(index(content), "Error: error reading phy index from /sys/class/ieee80211/phy9/index") << content;
  }).join();
  if (!allowed) GTEST_SKIP() << "needs root for a mount namespace";
}

}  // namespace
