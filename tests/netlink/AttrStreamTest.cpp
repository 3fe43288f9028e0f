#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Error.h"

namespace {

using namespace Ny80211;

// A generic netlink message to write into, freed at the end of the test.
struct Message {
  nl_msg* msg = nlmsg_alloc();
  Message() { genlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, 1, 0); }
  ~Message() { nlmsg_free(msg); }
  genlmsghdr* genl() const { return static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg))); }
  AttrStream stream() const {
    return AttrStream(msg, genlmsg_attrdata(genl(), 0),
                      static_cast<unsigned long>(genlmsg_attrlen(genl(), 0)));
  }
};

template <class F>
std::string errorText(F&& f) {
  try {
    f();
  } catch (Error const& e) {
    return e.what();
  }
  return "<no exception>";
}

TEST(AttrStream, WrittenValuesReadBackThroughAFreshStream) {
  Message m;
  auto out = m.stream();
  MacAddress const mac(MacAddress::Bytes{2, 0, 0, 0, 1, 0});
  std::array<std::byte, 3> const raw{std::byte{1}, std::byte{0}, std::byte{0xff}};
  out.addU8(1, 0xab);
  out.addU16(2, 0xbeef);
  out.addU32(3, 0xdeadbeef);
  out.addU64(4, 0x0123456789abcdefull);
  out.addString(5, "wlan0");
  out.addMac(6, mac);
  out.addBytes(7, raw);
  out.addFlag(8, true);
  out.addInternal<std::array<std::byte, 6>>(9, std::array<std::byte, 6>{std::byte{9}});

  auto const in = m.stream();
  EXPECT_EQ(in.getU8(1), 0xab);
  EXPECT_EQ(in.getU16(2), 0xbeef);
  EXPECT_EQ(in.getU32(3), 0xdeadbeefu);
  EXPECT_EQ(in.getU64(4), 0x0123456789abcdefull);
  EXPECT_EQ(in.getString(5), "wlan0");
  EXPECT_EQ(nla_len(in.find(5)), 6);  // with its NUL
  EXPECT_EQ(in.getMac(6), mac);
  auto const bytes = in.getBytes(7);
  EXPECT_EQ(std::vector<std::byte>(bytes.begin(), bytes.end()),
            std::vector<std::byte>(raw.begin(), raw.end()));
  EXPECT_TRUE(in.has(8));
  EXPECT_EQ(nla_len(in.find(8)), 0);
  EXPECT_EQ(in.getMac(9).ToString(), "09:00:00:00:00:00");
  // The writing stream indexed each attribute as it went.
  EXPECT_EQ(out.find(4), in.find(4));
}

TEST(AttrStream, FirstOfTwoAttributesOfATypeWinsButBothAreWalked) {
  Message m;
  nla_put_u32(m.msg, 7, 1);
  nla_put_u32(m.msg, 7, 2);
  auto const stream = m.stream();
  EXPECT_EQ(stream.getU32(7), 1u);
  std::vector<std::uint32_t> walked;
  stream.forEachAttr([&](nlattr const* a) { walked.push_back(nla_get_u32(const_cast<nlattr*>(a))); });
  EXPECT_EQ(walked, (std::vector<std::uint32_t>{1, 2}));
}

TEST(AttrStream, MissingAndShortAttributes) {
  AttrStream const empty;
  EXPECT_FALSE(empty.has(7));
  EXPECT_THROW(empty.find(7), AttrNotFound);
  EXPECT_EQ(errorText([&] { empty.find(7); }), "attribute not found (type 7)");
  int calls = 0;
  empty.forEachAttr([&](nlattr const*) { ++calls; });
  EXPECT_EQ(calls, 0);

  Message m;
  nla_put_u16(m.msg, 3, 1);
  nla_put(m.msg, 4, 5, "abcde");
  nla_put(m.msg, 5, 0, nullptr);
  auto const s = m.stream();
  EXPECT_EQ(errorText([&] { s.getU32(3); }),
            "attribute (type 3) payload too small for data type (2 < 4)");
  EXPECT_EQ(errorText([&] { s.getU64(3); }),
            "attribute (type 3) payload too small for data type (2 < 8)");
  EXPECT_EQ(errorText([&] { s.getMac(4); }),
            "attribute (type 4) payload too small for data type (5 < 6)");
  EXPECT_EQ(errorText([&] { s.getString(5); }),
            "attribute (type 5) payload too small for data type (0 < 1)");
  // A string without its NUL ends at the attribute, not past it.
  EXPECT_EQ(s.getString(4), "abcde");
  EXPECT_THROW(s.getU8(9), AttrNotFound);
}

TEST(AttrStream, WritingTwiceIsRefusedAndLeavesOneCopy) {
  Message m;
  auto s = m.stream();
  s.addU32(3, 1);
  EXPECT_EQ(errorText([&] { s.addU32(3, 2); }), "attribute already exists");
  s.addFlag(4, false);  // writes nothing, so...
  s.addFlag(4, false);  // ...no duplicate either
  EXPECT_FALSE(s.has(4));
  s.addFlag(4, true);
  EXPECT_EQ(errorText([&] { s.addFlag(4, true); }), "attribute already exists");
  int count = 0;
  m.stream().forEachAttr([&](nlattr const*) { ++count; });
  EXPECT_EQ(count, 2);
}

TEST(AttrStream, FullMessageFailsTheWriteAndKeepsTheIndex) {
  nl_msg* small = nlmsg_alloc_size(64);
  genlmsg_put(small, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, 1, 0);
  auto* genl = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(small)));
  AttrStream s(small, genlmsg_attrdata(genl, 0), 0);
  std::string const big(100, 'x');
  EXPECT_EQ(errorText([&] { s.addString(5, big); }), "failed to add attribute");
  EXPECT_FALSE(s.has(5));
  s.addU32(6, 1);  // what fits still goes in
  EXPECT_TRUE(s.has(6));
  nlmsg_free(small);
}

TEST(AttrStream, U32ListIsANestTypedByPosition) {
  Message m;
  auto s = m.stream();
  s.addU32List(10, {7, 8, 9});
  s.addU32List(11, {});
  auto const list = s.getNestedList(10);
  ASSERT_EQ(list.size(), 3u);
  std::vector<int> types;
  AttrStream(s.find(10)).forEachAttr([&](nlattr const* a) { types.push_back(nla_type(a)); });
  EXPECT_EQ(types, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(AttrStream(s.find(10)).getU32(2), 9u);
  EXPECT_EQ(nla_len(s.find(11)), 0);
  EXPECT_TRUE(s.getNestedList(11).empty());
}

TEST(AttrStream, NestedAttrBuiltApartIsCopiedIntoItsParent) {
  auto nest = NestedAttr::build();
  nest.addU32(1, 74);
  nest.addString(2, "txchainmask");
  Message m;
  auto s = m.stream();
  s.addNested(20, nest);
  AttrStream const inner(m.stream().find(20));
  EXPECT_EQ(inner.getU32(1), 74u);
  EXPECT_EQ(inner.getString(2), "txchainmask");
  // Moving keeps the one owner; the moved-from nest owns nothing.
  NestedAttr moved(std::move(nest));
  EXPECT_NE(moved.ownMessage(), nullptr);
  EXPECT_EQ(nest.ownMessage(), nullptr);  // NOLINT(bugprone-use-after-move)
}

TEST(AttrStream, NestedListEntriesAreViewsOfTheParentMessage) {
  Message m;
  auto* outer = nla_nest_start(m.msg, 1);
  for (std::uint32_t i = 0; i < 2; ++i) {
    auto* entry = nla_nest_start(m.msg, 100 + static_cast<int>(i));  // inner types do not count
    nla_put_u32(m.msg, 5, 5180 + 20 * i);
    nla_nest_end(m.msg, entry);
  }
  nla_nest_end(m.msg, outer);
  {
    auto const entries = readNestedList(m.stream(), m.stream().find(1));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[1].getU32(5), 5200u);
    EXPECT_EQ(entries[0].message(), m.msg);
    EXPECT_EQ(entries[0].ownMessage(), nullptr);
  }
  EXPECT_EQ(m.stream().getNestedList(1).size(), 2u);  // the parent is still intact (ASan)
}

}  // namespace
