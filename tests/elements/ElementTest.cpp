#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ny80211/Element.h"
#include "ny80211/Elements.h"
#include "ny80211/Error.h"
#include "ny80211/NeighborReport.h"

namespace {

using namespace Ny80211;
using ::testing::ThrowsMessage;
using Bytes = std::vector<std::byte>;

// Exactly these bytes on the heap, so AddressSanitizer sees a read past them.
Bytes bytes(std::initializer_list<int> values) {
  Bytes out;
  for (int v : values) out.push_back(static_cast<std::byte>(v));
  return out;
}

// One line per element visited, naming the overload reached and the fields;
// "-" for an absent record.
struct Describer : ElementVisitor {
  void visit(Elem::EhtOperation const& e) override {
    auto const& i = e.ehtOperationInfo();
    if (!i) return add("eht", "-");
    auto const& bitmap = i->disabledSubchannelBitmap;
    add("eht",
        fmt::format("{:#x} {} {} {}", i->control, i->ccfs0, i->ccfs1, bitmap ? fmt::format("{:#x}", *bitmap) : "-"));
  }
  void visit(Elem::ExtendedCaps const& e) override { add("extcaps", fmt::format("{}", e.utf8Ssid())); }
  void visit(Elem::HeOperation const& e) override {
    auto const& v = e.vhtOperationInfo();
    auto const& s = e.sixGhzOperationInfo();
    auto const vht = v ? fmt::format("{}/{}/{}", v->channelWidth, v->ccfs0, v->ccfs1) : "-";
    auto const six =
        s ? fmt::format("[{}] {}/{}/{}/{}", s->primaryChannel, s->channelWidth, s->ccfs0, s->ccfs1, s->minimumRate)
          : "-";
    add("he", vht + " " + six);
  }
  void visit(Elem::HtOperation const& e) override {
    add("ht",
        fmt::format("{} {} {} {}", e.primaryChannel(), e.secondaryChannelOffset(), e.staChannelWidth(), e.ccfs2()));
  }
  void visit(Elem::NeighborReport const& e) override { add("nr", e.bssid().ToString()); }
  void visit(Elem::Ssid const& e) override {
    auto const* chars = reinterpret_cast<char const*>(e.ssid().data());
    add("ssid", fmt::format("'{}'", nycpp::span<const char>(chars, e.ssid().size())));
  }
  void visit(Elem::VendorSpecific const& e) override {
    add("vendor", fmt::format("{} +{}", e.oui(), e.payload().size()));
  }
  void visit(Elem::VhtOperation const& e) override {
    add("vht", fmt::format("{} {} {}", e.channelWidth(), e.ccfs0(), e.ccfs1()));
  }
  void add(char const* name, std::string const& fields) { text += fmt::format("{}: {}\n", name, fields); }
  std::string text;
};

// What make gives for the bytes: the fields, "none", or the exception's text.
std::string outcome(Bytes const& in) {
  try {
    Describer d;
    ElementVisitor idle;  // does nothing
    auto const element = Element::make(in);
    if (!element) return "none";
    element->accept(idle);
    element->accept(d);
    return d.text;
  } catch (Error const& e) {
    return e.what();
  }
}

struct Row {
  Bytes in;
  char const* outcome;
};

TEST(Element, MakeGivesFieldsNothingOrTheLengthError) {
  Row const rows[] = {
      {bytes({0x00}), "too short (1 < 2)"},
      {bytes({0xDD, 0x05, 0x00, 0x50}), "too short (4 < 7)"},  // body past the end
      {bytes({0xFF, 0x00}), "too short (2 < 3)"},              // no extension octet
      {bytes({0xFF, 0x00, 0x24}), "too short (0 < 7)"},        // extension ID borrowed
      {bytes({0xFF, 0x05, 0x6A, 0, 0, 0, 0}), "too short (5 < 6)"},
      {bytes({0x34, 0x0C, 1, 2, 3, 4, 5, 6, 0, 0, 0, 0, 0, 0}), "too short (12 < 13)"},
      {bytes({0xDD, 0x02, 0x00, 0x50}), "too short (2 < 3)"},
      {bytes({0x3D, 21, 36, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), "wrong length (21 != 22)"},
      {bytes({0xC0, 7, 1, 42, 0, 0xFC, 0xFF, 0, 0}), "wrong length (7 != 5)"},
      {bytes({0xFF, 8, 0x24, 0, 0, 0, 0, 0, 0, 0}), "wrong length (8 != 7)"},
      {bytes({0x07, 0x03, 'D', 'E', ' '}), "none"},  // Country
      {bytes({0xFF, 0x01, 0x23}), "none"},
      {bytes({0x00, 0x00}), "ssid: ''\n"},
      {bytes({0x00, 0x04, 'a', 0x00, 0xFF, 'b'}), "ssid: 'a\\x00\\xffb'\n"},
      // UTF-8 SSID is bit 0 of the seventh octet, and only that bit.
      {bytes({0x7F, 6, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), "extcaps: false\n"},
      {bytes({0x7F, 7, 0, 0, 0, 0, 0, 0, 0xFE}), "extcaps: false\n"},
      {bytes({0x7F, 8, 0x04, 0, 0, 0, 0, 0, 0x01, 0x40}), "extcaps: true\n"},
      // Primary, information octet, CCFS2 in bits 5-12 of the next word.
      {bytes({0x3D, 22, 36, 0x07, 0xE0, 0x1F, 0, 0,                            // information
              0,    0,  0,  0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0}),  // Basic HT-MCS Set
       "ht: 36 3 true 255\n"},
      {bytes({0x3D, 22,   149,  0x0D, 0x1F, 0xE0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
              0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}),
       "ht: 149 1 true 0\n"},                                       // RIFS bit and CCFS2 bits 13-15 dropped
      {bytes({0xC0, 5, 3, 42, 50, 0xFC, 0xFF}), "vht: 3 42 50\n"},  // deprecated width kept
      {bytes({0xDD, 7, 0x00, 0x50, 0xF2, 0x04, 0x10, 0x4A, 0x00}), "vendor: 00:50:f2 +4\n"},
      {bytes({0x34, 13, 2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 81, 6, 7}), "nr: 02:00:00:00:00:01\n"},
  };
  for (auto const& r : rows) EXPECT_EQ(outcome(r.in), r.outcome);
}

TEST(Element, SpanLengthAndIdChecksInThatOrder) {
  Element::Header header;
  auto const buffer = bytes({0xFF, 0x07, 0x24, 0, 0, 0, 0, 0, 0, /* next */ 0x00, 0x00});
  header.readFrom(buffer);
  EXPECT_EQ(header.id, ElementID::extension(36));
  EXPECT_EQ(header.length, 7);
  auto const element = Element::make(buffer);
  ASSERT_TRUE(element);
  EXPECT_EQ(element->bytes().data(), buffer.data());
  EXPECT_EQ(element->bytes().size(), 9u);

  auto const ht = bytes({0x30, 22, 36, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  auto const check = [&](int id, int length, char const* error) {
    header.id = ElementID(static_cast<std::uint8_t>(id));
    header.length = static_cast<std::uint8_t>(length);
    EXPECT_THAT([&] { (void)Elem::HtOperation(header, ht); }, ThrowsMessage<Error>(error));
  };
  check(48, 22, "element ID mismatch (48 != 61)");
  check(48, 3, "wrong length (3 != 22)");
  check(61, 23, "too short (24 < 25)");  // a header claiming more than the buffer holds
  header.id = ElementID::extension(35);
  header.length = 7;
  EXPECT_THAT([&] { (void)Elem::HeOperation(header, buffer); },
              ThrowsMessage<Error>("element ID mismatch ((255 -> 35) != (255 -> 36))"));
  // ID 255 without its extension octet read is no extension element.
  header.id = ElementID(255);
  EXPECT_EQ(Element::make(header, buffer), nullptr);
}

TEST(ElementID, ComparesAndPrintsAsText) {
  ElementID plain(61);
  plain.extId = 9;  // ignored without the extension flag
  EXPECT_EQ(plain, ElementID(61));
  EXPECT_NE(ElementID::extension(36), ElementID::extension(106));
  EXPECT_NE(ElementID::extension(36), ElementID(255));
  EXPECT_EQ(fmt::format("{}|{}", ElementID(0), ElementID(221)), "0|221");
  EXPECT_EQ(fmt::format("[{:>13}]", ElementID::extension(36)), "[  (255 -> 36)]");
  EXPECT_EQ(fmt::format("[{:*<5}][{:^5}]", ElementID(7), ElementID(52)), "[7****][ 52  ]");
}

TEST(ElementTypes, HeAndEhtLengthFollowsTheAnnouncedFields) {
  // HE: ID, Length, 36, parameters (3), BSS Color, Basic HE-MCS and NSS Set
  // (2), then VHT information, co-hosted indicator, 6 GHz information.
  // EHT: ID, Length, 106, parameters, Basic EHT-MCS and NSS Set (4), then
  // the operation information and the disabled-subchannel bitmap.
  Row const rows[] = {
      {bytes({0xFF, 7, 36, 0xF4, 0x3F, 0xFD, 0xC1, 0xFA, 0xFF}), "he: - -\n"},
      {bytes({0xFF, 10, 36, 0x00, 0x40, 0x00, 0xC1, 0xFA, 0xFF, 1, 42, 0}), "he: 1/42/0 -\n"},
      {bytes({0xFF, 8, 36, 0x00, 0x80, 0x00, 0xC1, 0xFA, 0xFF, 7}), "he: - -\n"},
      {bytes({0xFF, 12, 36, 0x00, 0x00, 0x02, 0xC1, 0xFA, 0xFF, 37, 0xFA, 39, 47, 6}),
       "he: - [6135 MHz (# 37)] 2/39/47/6\n"},
      {bytes({0xFF, 11, 36, 0x00, 0xC0, 0x00, 0xC1, 0xFA, 0xFF, 1, 155, 0, 7}), "he: 1/155/0 -\n"},
      {bytes({0xFF, 15, 36, 0x00, 0x40, 0x02, 0xC1, 0xFA, 0xFF, 2, 50, 114, 1, 0xFB, 7, 15, 0}),
       "he: 2/50/114 [5955 MHz (#  1)] 3/7/15/0\n"},
      {bytes({0xFF, 13, 36, 0x00, 0x80, 0x02, 0xC1, 0xFA, 0xFF, 7, 5, 1, 7, 0, 12}),
       "he: - [5975 MHz (#  5)] 1/7/0/12\n"},
      {bytes({0xFF, 16, 36, 0x00, 0xC0, 0x02, 0xC1, 0xFA, 0xFF, 1, 42, 0, 7,  // 6 GHz at 13
              233, 0x02, 231, 239, 3}),
       "he: 1/42/0 [7115 MHz (#233)] 2/231/239/3\n"},
      {bytes({0xFF, 6, 106, 0x00, 0x11, 0x22, 0x33, 0x44}), "eht: -\n"},
      {bytes({0xFF, 9, 106, 0xFD, 0x11, 0x22, 0x33, 0x44, 0xFC, 0x32, 0x2A}), "eht: 0xfc 50 42 -\n"},
      {bytes({0xFF, 8, 106, 0x02, 0x11, 0x22, 0x33, 0x44, 0xF0, 0x00}), "eht: -\n"},
      {bytes({0xFF, 11, 106, 0x03, 0x11, 0x22, 0x33, 0x44, 0x04, 0x1F, 0x2F, 0x03, 0x80}), "eht: 0x4 31 47 0x8003\n"},
  };
  for (auto const& r : rows) {
    EXPECT_EQ(outcome(r.in), r.outcome);
    // One octet more or less, Length adjusted, must fail the exact length.
    unsigned const length = static_cast<unsigned>(r.in[1]);
    unsigned const min = r.in[2] == std::byte{36} ? 7 : 6;
    for (unsigned other : {length - 1, length + 1}) {
      if (other < min) continue;
      Bytes in(r.in.begin(), r.in.begin() + 2 + std::min(length, other));
      in.resize(2 + other);
      in[1] = static_cast<std::byte>(other);
      EXPECT_EQ(outcome(in), fmt::format("wrong length ({} != {})", other, length));
    }
  }
  // A primary channel that the 6 GHz band lacks fails the element.
  EXPECT_EQ(outcome(bytes({0xFF, 12, 36, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0})),
            "cannot convert channel index 0 in band 3 to frequency");
}

}  // namespace
