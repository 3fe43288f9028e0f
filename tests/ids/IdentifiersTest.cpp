#include <net/if.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Error.h"
#include "ny80211/Identifiers.h"

namespace {

using namespace Ny80211;

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
  EXPECT_EQ(errorText([] { VapID{std::string("nosuchifc0")}; }),
            "netifc lookup failed for name 'nosuchifc0' (19)");
  EXPECT_EQ(errorText([&] { VapID(byName).nameToIndex("nosuchifc0"); }),
            "VAP lookup failed for name 'nosuchifc0' (19)");
}

TEST(Identifiers, FormatEveryLetterDefinedAndUndefined) {
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
      {fmt::format("{}|{:i}|{:t}", WDevID(0), WDevID(), WDevID()), "wdev 0|<undefined>|wdev"},
      {fmt::format("{}", WDevID()), "wdev <undefined>"},
      {fmt::format("{}|{:i}|{:n}|{:t}", lo, lo, lo, lo), "netifc lo|" + loIndex + "|lo|netifc"},
      {fmt::format("{}|{:i}|{:n}|{:t}", VapID(lo), VapID(lo), VapID(lo), VapID(lo)),
       "VAP lo|" + loIndex + "|lo|VAP"},
      {fmt::format("{}|{:i}|{:n}|{:t}", NetIfcID(), VapID(), VapID(), VapID()),
       "<undefined>|<undefined>|<undefined>|<undefined>"},
  };
  for (auto const& [got, want] : rows) EXPECT_EQ(got, want);
}

TEST(Identifiers, UnknownFormatLetterIsRejectedWhileParsing) {
  NetIfcID const lo{std::string("lo")};
  for (auto spec : {"{:x}", "{:pp}", "{:5i}"}) {
    auto const rejects = [&](auto const& id) {
      return errorText([&] { (void)fmt::format(fmt::runtime(spec), id); }) == "invalid format";
    };
    // An undefined NetIfcID too, although its format('x') answers.
    EXPECT_TRUE(rejects(WiPhyID(1)) && rejects(WDevID()) && rejects(NetIfcID()) && rejects(VapID(lo)))
        << spec;
  }
  EXPECT_EQ(errorText([] { (void)fmt::format(fmt::runtime("{:n}"), WDevID(1)); }), "invalid format");
  EXPECT_EQ(NetIfcID().format('x'), "<undefined>");
  EXPECT_EQ(errorText([&] { (void)lo.format('x'); }), "invalid format");
}

// The attributes that id writes into a fresh generic netlink message, as
// (type, payload as integer) pairs.
template <class Id>
std::vector<std::pair<int, unsigned long>> written(Id const& id) {
  std::unique_ptr<nl_msg, void (*)(nl_msg*)> const msg(nlmsg_alloc(), nlmsg_free);
  genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, 1, 0);
  auto* genl = genlmsg_hdr(nlmsg_hdr(msg.get()));
  AttrStream stream(msg.get(), genlmsg_attrdata(genl, 0), 0);
  id.writeTo(stream);
  std::vector<std::pair<int, unsigned long>> attrs;
  nlattr* attr;
  int rest;
  nla_for_each_attr(attr, genlmsg_attrdata(genl, 0), genlmsg_attrlen(genl, 0), rest) {
    attrs.emplace_back(nla_type(attr), nla_len(attr) == 8 ? nla_get_u64(attr) : nla_get_u32(attr));
  }
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
