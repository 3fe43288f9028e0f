#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TestMessage.h"
#include "ny80211/Error.h"
#include "ny80211/Identifiers.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::TestMessage;

template <class F>
std::string errorText(F&& f) {
  try {
    f();
  } catch (std::exception const& e) {
    return e.what();
  }
  return "no exception";
}

TEST(Identifiers, NamesResolveAgainstTheSystem) {
  // Assumes no radio here: no /sys/class/ieee80211/phy0.
  EXPECT_EQ(errorText([] { WiPhyID{std::string("phy0")}; }), "wiphy lookup failed for name 'phy0'");

  auto const lo = if_nametoindex("lo");
  ASSERT_NE(lo, 0u);
  NetIfcID const byName{std::string("lo")};
  EXPECT_EQ(byName.index(), lo);
  EXPECT_EQ(NetIfcID(lo).name(), "lo");
  EXPECT_EQ(NetIfcID(99999).name(), "<ifindex 99999>");

  // The failure names the type of the object looking up, which inside a
  // constructor is still the base.
  EXPECT_EQ(errorText([] { VapID{std::string("nosuchifc0")}; }), "netifc lookup failed for name 'nosuchifc0' (19)");
  EXPECT_EQ(errorText([&] { VapID(byName).nameToIndex("nosuchifc0"); }),
            "VAP lookup failed for name 'nosuchifc0' (19)");
}

// Runs f on a thread of its own whose private mount namespace shows a file
// /sys/class/ieee80211/phy9/index holding `content`, so that the lookup reads a
// real file; false when that is not allowed (not root).
bool withPhyIndexFile(std::string const& content, std::function<void()> const& f) {
  bool allowed = false;
  std::thread([&] {
    if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/sys/class", "tmpfs", 0, nullptr) != 0) {
      return;
    }
    mkdir("/sys/class/ieee80211", 0755);
    mkdir("/sys/class/ieee80211/phy9", 0755);
    std::ofstream("/sys/class/ieee80211/phy9/index") << content;
    allowed = true;
    f();
  }).join();
  return allowed;
}

TEST(Identifiers, PhyIndexFileMustHoldOneDecimalNumber) {
  struct Row {
    char const* content;
    char const* expected;
  };
  for (auto const& r : {Row{"0\n", "0"},
                        {"12\n", "12"},
                        {"4294967295\n", "4294967295"},
                        {"-1\n", nullptr},
                        {"4294967296\n", nullptr},
                        {"7x\n", nullptr},
                        {"", nullptr}}) {
    std::string got;
    if (!withPhyIndexFile(r.content, [&] {
          try {
            got = std::to_string(WiPhyID(std::string("phy9")).index());
          } catch (Error const& e) {
            got = e.what();
          }
        })) {
      GTEST_SKIP() << "needs root for a mount namespace";
    }
    EXPECT_EQ(got, r.expected ? r.expected : "error reading phy index from /sys/class/ieee80211/phy9/index")
        << r.content;
  }
}

TEST(Identifiers, FormatEveryLetterAndRejectOthers) {
  NetIfcID const lo{std::string("lo")};
  auto const loIndex = std::to_string(lo.index());
  WDevID const wdev(0x10000000005ul);  // beyond 32 bits
  std::vector<std::pair<std::string, std::string>> const rows{
      {fmt::format("{}|{:p}|{:i}|{:n}|{:t}", WiPhyID(2), WiPhyID(2), WiPhyID(2), WiPhyID(2), WiPhyID(2)),
       "wiphy <?> (ID 2)|wiphy <?> (ID 2)|2|<?>|wiphy"},
      {fmt::format("{}", WiPhyID(0)), "wiphy <?> (ID 0)"},
      {fmt::format("{}|{:i}|{:n}|{:t}", WiPhyID(), WiPhyID(), WiPhyID(), WiPhyID()),
       "wiphy <undefined> (ID <undefined>)|<undefined>|<undefined>|wiphy"},
      {fmt::format("{}|{:i}|{:t}", wdev, wdev, wdev), "wdev 1099511627781|1099511627781|wdev"},
      {fmt::format("{}|{}|{:i}|{:t}", WDevID(0), WDevID(), WDevID(), WDevID()),
       "wdev 0|wdev <undefined>|<undefined>|wdev"},
      {fmt::format("{}|{:i}|{:n}|{:t}", lo, lo, lo, lo), "netifc lo|" + loIndex + "|lo|netifc"},
      {fmt::format("{}|{:i}|{:n}|{:t}", VapID(lo), VapID(lo), VapID(lo), VapID(lo)), "VAP lo|" + loIndex + "|lo|VAP"},
      {fmt::format("{}|{:i}|{:n}|{:t}", NetIfcID(), VapID(), VapID(), VapID()),
       "<undefined>|<undefined>|<undefined>|<undefined>"},
  };
  for (auto const& [got, want] : rows) EXPECT_EQ(got, want);
  // An unknown letter is rejected while parsing.
  for (auto pattern : {"{:x}", "{:pp}", "{:5i}"}) {
    auto const rejects = [&](auto const& id) {
      return errorText([&] { (void)fmt::format(fmt::runtime(pattern), id); }) == "invalid format";
    };
    EXPECT_TRUE(rejects(WiPhyID(1)) && rejects(WDevID()) && rejects(NetIfcID()) && rejects(VapID(lo))) << pattern;
  }
  EXPECT_EQ(errorText([] { (void)fmt::format(fmt::runtime("{:n}"), WDevID(1)); }), "invalid format");
}

// The attributes that id writes into a fresh message, as (type, payload) pairs.
template <class Id>
std::vector<std::pair<int, unsigned long>> written(Id const& id) {
  TestMessage m;
  auto stream = m.stream();
  id.writeTo(stream);
  std::vector<std::pair<int, unsigned long>> attrs;
  m.stream().forEachAttr(
      [&](nlattr* a) { attrs.emplace_back(nla_type(a), nla_len(a) == 8 ? nla_get_u64(a) : nla_get_u32(a)); });
  return attrs;
}

TEST(Identifiers, WriteTheirAttributeOnlyWhenDefined) {
  using Attrs = std::vector<std::pair<int, unsigned long>>;
  NetIfcID const lo{std::string("lo")};
  EXPECT_EQ(written(WiPhyID(0)), (Attrs{{NL80211_ATTR_WIPHY, 0}}));
  EXPECT_EQ(written(WDevID(0x10000000005ul)), (Attrs{{NL80211_ATTR_WDEV, 0x10000000005ul}}));
  EXPECT_EQ(written(lo), (Attrs{{NL80211_ATTR_IFINDEX, lo.index()}}));
  EXPECT_EQ(written(VapID(lo)), (Attrs{{NL80211_ATTR_IFINDEX, lo.index()}}));

  EXPECT_EQ(errorText([] { written(WiPhyID()); }), "wiphy ID undefined");
  EXPECT_EQ(errorText([] { written(WDevID()); }), "wdev ID undefined");
  EXPECT_EQ(errorText([] { written(VapID()); }), "ifc ID undefined");
}

}  // namespace
