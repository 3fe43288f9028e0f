#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::testing;

Bytes area(AttrStream const& s) {
  auto const* head = reinterpret_cast<std::uint8_t const*>(s.head());
  return Bytes(head, head + s.length());
}

TEST(AttrStream, WritesAreIndexedAndFailedOnesLeaveNoTrace) {
  TestMessage m, small(64);
  auto out = m.stream();
  auto full = small.stream();
  std::byte const raw[] = {std::byte{1}, std::byte{0}, std::byte{0xff}};
  auto nest = NestedAttr::build();
  nest.addU32(1, 74), nest.addString(2, "txchainmask");
  out.addU8(1, 0xab), out.addU16(2, 0xbeef), out.addU32(3, 0xdeadbeef), out.addU64(4, 0x0123456789abcdefull);
  out.addString(5, "wlan0"), out.addMac(6, MacAddress(MacAddress::Bytes{2, 0, 0, 0, 1, 0})), out.addBytes(7, raw);
  out.addFlag(8, true), out.addFlag(9, false), out.addFlag(9, false);  // false writes nothing, not even a duplicate
  out.addU32List(20, {7, 8, 9}), out.addU32List(21, {}), out.addNested(22, nest);  // an empty list is still written
  auto const write = [](auto const& f) { return outcome([&] { return f(), "written"; }); };
  EXPECT_EQ(write([&] { out.addU32(3, 2); }) + write([&] { out.addFlag(8, true); }),
            "Error: attribute already existsError: attribute already exists");
  EXPECT_EQ(write([&] { AttrStream(out.find(3)).addU32(1, 1); }),
            "Error: attribute (type 1) added to a stream without message");
  EXPECT_EQ(area(out), hex("05000100 ab000000 06000200 efbe0000 08000300 efbeadde 0c000400 efcdab89 67452301"
                           "0a000500 776c616e 30000000 0a000600 02000000 01000000 07000700 0100ff00 04000800"
                           "1c001480 08000000 07000000 08000100 08000000 08000200 09000000 04001580"
                           "1c001600 08000100 4a000000 10000200 74786368 61696e6d 61736b00"));
  EXPECT_EQ(out.size(), 11u);
  for (int type = 1; type <= 22; ++type) EXPECT_EQ(out.tryFind(type), m.stream().tryFind(type)) << type;
  EXPECT_EQ(write([&] { full.addString(5, std::string(100, 'x')); }) + write([&] { full.addU32(6, 1); }),
            "Error: failed to add attributewritten");  // what fits still goes in
  EXPECT_EQ(area(full), hex("08000600 01000000"));
  NestedAttr moved(std::move(nest));  // the one owner, or ASan sees a double free
  EXPECT_NE(moved.ownMessage(), nullptr);
}

TEST(AttrStream, ReadsFindTheFirstOfATypeAndCheckItsSize) {
  TestMessage m;
  m.put({{1, hex("ab")}, {2, hex("efbe")}, {3, hex("efbeadde")}, {3, hex("01000000")}, {4, hex("efcdab8967452301")}});
  m.put({{5, hex("776c616e 3000")}, {6, hex("020000000100")}, {7, hex("0100ff")}, {8, {}}, {9, hex("0100")}});
  m.put({{10, hex("6162636465")}, {0, hex("01000000")}, {NLA_F_NESTED | 13, hex("07000000")}, {351, hex("02000000")}});
  m.put({{0x3fff, hex("03000000")}, {20, hex("0c006400 08000500 3c140000 0c006500 08000500 50140000")}});
  auto const s = m.stream();
  auto read = fmt::format("{} {} {} {} {} {} ", s.getU8(1), s.getU16(2), s.getU32(3), s.getU64(4), s.getString(5),
                          s.getMac(6).ToString());
  for (auto const byte : s.getBytes(7)) read += fmt::format("{:02x}", static_cast<int>(byte));
  EXPECT_EQ(read, "171 48879 3735928559 81985529216486895 wlan0 02:00:00:00:01:00 0100ff");
  EXPECT_EQ(s.getBytes(8).size() + *s.tryGetU32(3) + s.tryGetU64(12).value_or(1), 3735928560u);
  EXPECT_EQ(s.getString(10), "abcde");  // without its NUL it ends at the attribute
  // Flag bits are no part of a type; types past the first 64 are kept apart, past 511 walked to.
  EXPECT_EQ(s.getU32(0) + s.getU32(13) + s.getU32(351) + s.getU32(0x3fff), 13u);
  constexpr auto const* tooSmall = "Error: attribute (type {}) payload too small for data type ({} < {})";
  EXPECT_EQ(outcome([&] { return std::to_string(s.getU32(9)); }), fmt::format(tooSmall, 9, 2, 4));
  EXPECT_EQ(outcome([&] { return std::to_string(*s.tryGetU8(9) + s.getU64(9)); }), fmt::format(tooSmall, 9, 2, 8));
  EXPECT_EQ(outcome([&] { return s.getMac(10).ToString(); }), fmt::format(tooSmall, 10, 5, 6));
  EXPECT_EQ(outcome([&] { return s.getString(8); }), fmt::format(tooSmall, 8, 0, 1));
  for (int type : {-1, 12, 352, 0x4003, NLA_F_NESTED | 13, 0x10003}) {
    EXPECT_FALSE(s.has(type));
    EXPECT_EQ(outcome([&] { return std::to_string(s.getU8(type)); }),
              fmt::format("AttrNotFound: attribute not found (type {})", type));
  }
  // The entries of a nested list are views of the parent message.
  auto const entries = s.getNestedList(20);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[1].getU32(5), 5200u);
  EXPECT_TRUE(entries[0].message() == m.msg && entries[0].ownMessage() == nullptr);
  // Every attribute is walked, in order, by both walks; a length past the area or below a header's ends the walk.
  std::vector<int> walked, walkedToo;
  s.forEachAttr([&](nlattr const* a) { walked.push_back(nla_type(a)); });
  m.stream().forEachAttr([&](nlattr* a) { walkedToo.push_back(nla_type(a)); });
  EXPECT_EQ(walked, (std::vector<int>{1, 2, 3, 3, 4, 5, 6, 7, 8, 9, 10, 0, 13, 351, 0x3fff, 20}));
  EXPECT_EQ(walkedToo, walked);
  AttrStream().forEachAttr([&](nlattr const*) { ADD_FAILURE() << "an attribute in an empty stream"; });
  for (auto const* attrs : {"08000100 01000000 02000200 02000000", "08000100 01000000 c8000200 02000000"}) {
    auto cut = hex(attrs);
    AttrStream const stream(nullptr, reinterpret_cast<nlattr*>(cut.data()), cut.size());
    EXPECT_TRUE(stream.size() == 1 && stream.has(1) && !stream.has(2)) << attrs;
  }
}

// The command comes from the generic header alone, not an attribute; a message too short for the header is refused.
TEST(GenlMessage, NamesItsCommandAndRefusesARunt) {
  TestMessage raw(0, false);
  genlmsg_put(raw.msg, NL_AUTO_PORT, 77, 28, 0, 0, NL80211_CMD_TRIGGER_SCAN, 0);
  raw.u32(NL80211_CMD_TRIGGER_SCAN, 1);
  EXPECT_EQ(GenlMessage(raw.msg).commandName() + cmd_fmt(138) + cmd_fmt(255),
            "NL80211_CMD_TRIGGER_SCAN<command type 138><command type 255>");
  nlmsg_hdr(raw.msg)->nlmsg_len = NLMSG_HDRLEN + GENL_HDRLEN - 1;
  EXPECT_EQ(outcome([&] { return GenlMessage(raw.msg).commandName(); }), "Error: message too short (19 < 20)");
}

}  // namespace
