#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestMessage.h"
#include "ny80211/AttrStream.h"
#include "ny80211/Error.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::TestMessage;
using ::testing::ThrowsMessage;

TEST(AttrStream, WrittenValuesReadBackThroughAFreshStream) {
  TestMessage m;
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
  auto const in = m.stream();
  EXPECT_EQ(in.getU8(1), 0xab);
  EXPECT_EQ(in.getU16(2), 0xbeef);
  EXPECT_EQ(in.getU32(3), 0xdeadbeefu);
  EXPECT_EQ(in.getU64(4), 0x0123456789abcdefull);
  EXPECT_EQ(in.getString(5), "wlan0");
  EXPECT_EQ(nla_len(in.find(5)), 6);  // with its NUL
  EXPECT_EQ(in.getMac(6), mac);
  auto const bytes = in.getBytes(7);
  EXPECT_EQ(std::vector<std::byte>(bytes.begin(), bytes.end()), std::vector<std::byte>(raw.begin(), raw.end()));
  EXPECT_EQ(nla_len(in.find(8)), 0);
  EXPECT_EQ(out.find(4), in.find(4));  // the writing stream indexed each attribute as it went

  // Of two attributes of a type the first wins, but both are walked, in order.
  m.u32(3, 1);
  EXPECT_EQ(m.stream().getU32(3), 0xdeadbeefu);
  std::vector<int> walked;
  m.stream().forEachAttr([&](nlattr const* a) { walked.push_back(nla_type(a)); });
  EXPECT_EQ(walked, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 3}));
}

TEST(AttrStream, MissingAndShortAttributes) {
  AttrStream const empty;
  EXPECT_FALSE(empty.has(7));
  EXPECT_THAT([&] { empty.find(7); }, ThrowsMessage<AttrNotFound>("attribute not found (type 7)"));
  empty.forEachAttr([&](nlattr const*) { ADD_FAILURE() << "an attribute in an empty stream"; });

  TestMessage m;
  nla_put_u16(m.msg, 3, 1);
  nla_put(m.msg, 4, 5, "abcde");
  nla_put(m.msg, 5, 0, nullptr);
  auto const s = m.stream();
  EXPECT_THAT([&] { s.getU32(3); }, ThrowsMessage<Error>("attribute (type 3) payload too small for data type (2 < 4)"));
  EXPECT_THAT([&] { s.getU64(3); }, ThrowsMessage<Error>("attribute (type 3) payload too small for data type (2 < 8)"));
  EXPECT_THAT([&] { s.getMac(4); }, ThrowsMessage<Error>("attribute (type 4) payload too small for data type (5 < 6)"));
  EXPECT_THAT([&] { s.getString(5); },
              ThrowsMessage<Error>("attribute (type 5) payload too small for data type (0 < 1)"));
  EXPECT_EQ(s.getString(4), "abcde");  // without its NUL it ends at the attribute
  EXPECT_THROW(s.getU8(9), AttrNotFound);
}

TEST(AttrStream, FirstOfATypeWinsAsFarAsTheWalkReaches) {
  TestMessage m;
  m.put(3, {1, 0});  // short, and first
  m.u32(3, 2).u32(NLA_F_NESTED | 5, 7).u32(0, 1).u32(351, 2).u32(0x3fff, 3);
  auto const s = m.stream();
  EXPECT_EQ(s.find(3), s.head());
  EXPECT_THAT([&] { s.getU32(3); }, ThrowsMessage<Error>("attribute (type 3) payload too small for data type (2 < 4)"));
  // Flag bits are no part of a type; types past its 14 bits are never there.
  EXPECT_EQ(s.getU32(5) + s.getU32(0) + s.getU32(351) + s.getU32(0x3fff), 13u);
  for (int type : {-1, 2, 0x4003, NLA_F_NESTED | 5, 0x10003}) {
    EXPECT_FALSE(s.has(type)) << type;
    EXPECT_THAT([&] { s.find(type); }, ThrowsMessage<AttrNotFound>(fmt::format("attribute not found (type {})", type)));
  }
  // A length past the area's end, or below a header's, ends the walk there.
  for (std::uint16_t const length : {2, 200}) {
    TestMessage cut;
    cut.u32(1, 1).u32(2, 2).u32(3, 3);
    cut.stream().find(2)->nla_len = length;
    int count = 0;
    cut.stream().forEachAttr([&](nlattr const*) { ++count; });
    EXPECT_EQ(count, 1);
    EXPECT_TRUE(cut.stream().has(1));
    EXPECT_FALSE(cut.stream().has(2) || cut.stream().has(3)) << length;
  }
}

TEST(AttrStream, FailedWritesLeaveOneCopyAndTheIndexIntact) {
  TestMessage m;
  auto s = m.stream();
  s.addU32(3, 1);
  EXPECT_THAT([&] { s.addU32(3, 2); }, ThrowsMessage<Error>("attribute already exists"));
  s.addFlag(4, false);  // writes nothing, so...
  s.addFlag(4, false);  // ...no duplicate either
  EXPECT_FALSE(s.has(4));
  s.addFlag(4, true);
  EXPECT_THAT([&] { s.addFlag(4, true); }, ThrowsMessage<Error>("attribute already exists"));
  int count = 0;
  m.stream().forEachAttr([&](nlattr const*) { ++count; });
  EXPECT_EQ(count, 2);

  TestMessage small(64);
  auto full = small.stream();
  EXPECT_THAT([&] { full.addString(5, std::string(100, 'x')); }, ThrowsMessage<Error>("failed to add attribute"));
  EXPECT_FALSE(full.has(5));
  full.addU32(6, 1);  // what fits still goes in
  EXPECT_TRUE(full.has(6));
}

TEST(AttrStream, NestsAndNestedLists) {
  TestMessage m;
  auto s = m.stream();
  // A u32 list is a nest typed by position.
  s.addU32List(10, {7, 8, 9});
  s.addU32List(11, {});
  ASSERT_EQ(s.getNestedList(10).size(), 3u);
  std::vector<int> types;
  AttrStream(s.find(10)).forEachAttr([&](nlattr const* a) { types.push_back(nla_type(a)); });
  EXPECT_EQ(types, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(AttrStream(s.find(10)).getU32(2), 9u);
  EXPECT_EQ(nla_len(s.find(11)), 0);
  EXPECT_TRUE(s.getNestedList(11).empty());

  // A nest built apart is copied into its parent.
  auto nest = NestedAttr::build();
  nest.addU32(1, 74);
  nest.addString(2, "txchainmask");
  s.addNested(20, nest);
  AttrStream const inner(m.stream().find(20));
  EXPECT_EQ(inner.getU32(1), 74u);
  EXPECT_EQ(inner.getString(2), "txchainmask");
  NestedAttr moved(std::move(nest));  // the one owner, or ASan sees a double free
  EXPECT_NE(moved.ownMessage(), nullptr);

  // The entries of a nested list are views of the parent message.
  auto* outer = nla_nest_start(m.msg, 1);
  for (std::uint32_t i = 0; i < 2; ++i) {
    auto* entry = nla_nest_start(m.msg, 100 + static_cast<int>(i));  // inner types do not count
    m.u32(5, 5180 + 20 * i);
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
