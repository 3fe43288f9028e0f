#include <memory>
#include <string>
#include <vector>

#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include "TestMessage.h"
#include "ny80211/Elements.h"
#include "ny80211/Error.h"
#include "ny80211/NeighborReport.h"

namespace {

using namespace Ny80211;
using Elem::NeighborReport;
using Ny80211::testing::hex;

// Exactly these bytes on the heap, so AddressSanitizer sees a read past them.
std::vector<std::byte> bytes(std::string_view text) {
  auto const v = hex(text);
  return {reinterpret_cast<std::byte const*>(v.data()), reinterpret_cast<std::byte const*>(v.data() + v.size())};
}

template <class T, class Format>
std::string optional(std::optional<T> const& value, Format format) {
  return value ? format(*value) : "-";
}

// One line per element visited, naming the overload reached and its fields; "-" for an absent record.
struct Describer : ElementVisitor {
  static std::string of(std::unique_ptr<Element> const& element) {
    Describer describer;
    return element ? (element->accept(describer), describer.text) : "none";
  }
  std::string text;
  template <class... Args>
  void add(fmt::format_string<Args...> format, Args&&... args) {
    text += fmt::format(format, std::forward<Args>(args)...) + "\n";
  }
  void visit(Elem::EhtOperation const& e) override {
    add("eht: {}", optional(e.ehtOperationInfo(), [](auto const& i) {
          return fmt::format("{:#x} {} {} {}", i.control, i.ccfs0, i.ccfs1,
                             optional(i.disabledSubchannelBitmap, [](auto b) { return fmt::format("{:#x}", b); }));
        }));
  }
  void visit(Elem::ExtendedCaps const& e) override { add("extcaps: {}", e.utf8Ssid()); }
  void visit(Elem::HeOperation const& e) override {
    add("he: {} {}",
        optional(e.vhtOperationInfo(),
                 [](auto const& v) { return fmt::format("{}/{}/{}", v.channelWidth, v.ccfs0, v.ccfs1); }),
        optional(e.sixGhzOperationInfo(), [](auto const& s) {
          return fmt::format("[{}] {}/{}/{}/{}", s.primaryChannel, s.channelWidth, s.ccfs0, s.ccfs1, s.minimumRate);
        }));
  }
  void visit(Elem::HtOperation const& e) override {
    add("ht: {} {} {} {}", e.primaryChannel(), e.secondaryChannelOffset(), e.staChannelWidth(), e.ccfs2());
  }
  void visit(NeighborReport const& e) override { add("nr: {} [{}]", e.bssid(), fmt::join(e.subElements(), ", ")); }
  void visit(Elem::Ssid const& e) override {
    add("ssid: '{}'", nycpp::span<const char>(reinterpret_cast<char const*>(e.ssid().data()), e.ssid().size()));
  }
  void visit(Elem::VendorSpecific const& e) override { add("vendor: {} +{}", e.oui(), e.payload().size()); }
  void visit(Elem::VhtOperation const& e) override { add("vht: {} {} {}", e.channelWidth(), e.ccfs0(), e.ccfs1()); }
};

// Element bytes and what make gives for them: the fields, "none", or the exception's text.
TEST(Element, MakeGivesFieldsNothingOrTheLengthError) {
  std::pair<char const*, char const*> const rows[] = {
      {"00", "Error: too short (1 < 2)"},
      {"dd05 0050", "Error: too short (4 < 7)"},  // body past the end
      {"ff00", "Error: too short (2 < 3)"},       // no extension octet
      {"ff00 24", "Error: too short (0 < 7)"},    // extension ID borrowed
      {"ff05 6a00000000", "Error: too short (5 < 6)"},
      {"340c 010203040506 000000000000", "Error: too short (12 < 13)"},
      {"dd02 0050", "Error: too short (2 < 3)"},
      {"3d15 24 0000000000000000000000000000000000000000", "Error: wrong length (21 != 22)"},
      {"c007 012a00fcff0000", "Error: wrong length (7 != 5)"},
      {"0703 444520", "none"},  // Country
      {"ff01 23", "none"},
      {"0000", "ssid: ''\n"},
      {"0001 61 dd00", "ssid: 'a'\n"},  // the element ends at its length, not the buffer's
      // UTF-8 SSID is bit 0 of the seventh octet, and only that bit.
      {"7f06 ffffffffffff", "extcaps: false\n"},
      {"7f07 000000000000fe", "extcaps: false\n"},
      {"7f07 04000000000001", "extcaps: true\n"},
      // Primary, information octet, CCFS2 in bits 5-12 of the next word; then the Basic HT-MCS Set.
      {"3d16 24 07 e01f 0000 00000000000000000000000000000000", "ht: 36 3 true 255\n"},
      {"3d16 95 09 1fe0 ffff ffffffffffffffffffffffffffffffff", "ht: 149 1 false 0\n"},  // RIFS; CCFS2 bits 13-15
      {"c005 032a32fcff", "vht: 3 42 50\n"},                                             // deprecated width kept
      {"dd07 0050f2 04104a00", "vendor: 00:50:f2 +4\n"},
      // Neighbor reports list their subelements while a header fits.
      {"340d 020000000001 00000000 510607", "nr: 02:00:00:00:00:01 []\n"},
      {"3410 020000000001 00000000 510607 0100 02", "nr: 02:00:00:00:00:01 [TSF Information]\n"},  // no length
      {"341c 020000000001 00000000 510607 0108 0102030405060708 dd03 0050f2",
       "nr: 02:00:00:00:00:01 [TSF Information, Vendor Specific]\n"},
      {"3413 020000000001 00000000 510607 0301ff 02ff55",
       "nr: 02:00:00:00:00:01 [BSS Transition Candidate Preference, Condensed Country String]\n"},
      {"3417 020000000001 00000000 510607 0000 0600 0700 c300 c500",
       "nr: 02:00:00:00:00:01 [<ID 0>, Wide Bandwidth Channel, <ID 7>, BSS Load, SSID]\n"},
      // HE: parameters, BSS Color, Basic HE-MCS and NSS Set, then the VHT information, co-hosted indicator and 6 GHz
      // information the parameters announce, each after the ones before, not an octet more or less.
      {"ff07 24 f43ffd c1faff", "he: - -\n"},
      {"ff0f 24 004002 c1faff 023272 01fb070f00", "he: 2/50/114 [5955 MHz (#  1)] 3/7/15/0\n"},
      {"ff0d 24 008002 c1faff 07 050107000c", "he: - [5975 MHz (#  5)] 1/7/0/12\n"},
      {"ff10 24 00c002 c1faff 012a00 07 e902e7ef03", "he: 1/42/0 [7115 MHz (#233)] 2/231/239/3\n"},
      {"ff08 24 000000 000000 00", "Error: wrong length (8 != 7)"},
      {"ff09 24 004000 000000 0000", "Error: wrong length (9 != 10)"},
      {"ff11 24 00c002 000000 000000 00 0000000000 00", "Error: wrong length (17 != 16)"},
      {"ff0c 24 000002 000000 0000000000", "Error: cannot convert channel index 0 in band 3 to frequency"},
      // EHT: parameters, Basic EHT-MCS and NSS Set (4), then the operation information and the bitmap.
      {"ff06 6a 00 11223344", "eht: -\n"},
      {"ff09 6a fd 11223344 fc322a", "eht: 0xfc 50 42 -\n"},
      {"ff08 6a 02 11223344 f000", "eht: -\n"},  // a bitmap without its information
      {"ff0b 6a 03 11223344 041f2f 0380", "eht: 0x4 31 47 0x8003\n"},
      {"ff07 6a 00 11223344 00", "Error: wrong length (7 != 6)"},
      {"ff0a 6a 03 11223344 000000 00", "Error: wrong length (10 != 11)"},
  };
  for (auto const& [in, out] : rows) {
    auto const buffer = bytes(in);
    EXPECT_EQ(Ny80211::testing::outcome([&] { return Describer::of(Element::make(buffer)); }), out) << in;
  }
}

// Headers built by hand: the length against the buffer first, then the length rule, then the ID.
TEST(Element, SpanLengthAndIdChecksInThatOrder) {
  auto const ht = bytes("3016 24 000000000000000000000000000000000000000000");
  Element::Header header;
  for (auto const& [id, length, error] : {std::tuple{48, 22, "element ID mismatch (48 != 61)"},
                                          {48, 3, "wrong length (3 != 22)"},
                                          {61, 23, "too short (24 < 25)"}}) {  // more than the buffer holds
    header.id = ElementID(static_cast<std::uint8_t>(id));
    header.length = static_cast<std::uint8_t>(length);
    EXPECT_THAT([&] { (void)Elem::HtOperation(header, ht); }, ::testing::ThrowsMessage<Error>(error));
  }
  header.id = ElementID::extension(35);
  header.length = 7;
  auto const buffer = bytes("ff07 24 000000000000");
  EXPECT_THAT([&] { (void)Elem::HeOperation(header, buffer); },
              ::testing::ThrowsMessage<Error>("element ID mismatch ((255 -> 35) != (255 -> 36))"));
  header.id = ElementID(255);  // without its extension octet read, no extension element
  EXPECT_EQ(Element::make(header, buffer), nullptr);
}

// The element outlives its buffer: everything it shows is copied.
std::unique_ptr<NeighborReport> report(std::string_view hex) {
  auto const in = bytes(hex);
  return std::unique_ptr<NeighborReport>(dynamic_cast<NeighborReport*>(Element::make(in).release()));
}

TEST(NeighborReport, DescriptionAndTableRow) {
  // Reachable, security, key scope, spectrum management, radio measurement, HT, VHT and FTM; operating class 115,
  // channel 36, HE.
  auto const nr = report("340d 021122334455 9f380000 7324 0e");
  EXPECT_EQ(nr->toString(),
            "Neighbor Report Element:\n  BSSID          : 02:11:22:33:44:55\n  Reachable      : yes\n"
            "  Security       : true\n  Key Scope      : true\n"
            "  Capabilities   : [Spectrum Management] [Radio Measurement] \n  Mobility Domain: false\n"
            "  HT AP          : true\n  VHT AP         : true\n  FTM            : true\n  Operating class: 115\n"
            "  Primary channel: 36\n  PHY type       : HE\n  Sub-Elements   : []\n");
  EXPECT_EQ(nr->toTableRow(true, "home"),
            "|   X   | 02:11:22:33:44:55 | home                              | 0x0000389f "
            "|  115  |   36  | HE        |                |\n");
  // Reachability reserved (0), QoS and APSD, operating class 1, channel 6, a PHY type without a name.
  auto const other = report("3419 021122334455 600203a4 0106 03 0000 0100 0600 0700 2d00 dd00");
  EXPECT_THAT(
      other->toString(),
      ::testing::EndsWith("  Reachable      : <?>\n  Security       : false\n  Key Scope      : false\n"
                          "  Capabilities   : [QoS] [APSD] \n  Mobility Domain: false\n  HT AP          : false\n"
                          "  VHT AP         : false\n  FTM            : false\n  Operating class: 1\n"
                          "  Primary channel: 6\n  PHY type       : <unknown>\n  Sub-Elements   : [\n    <ID 0>,\n"
                          "    TSF Information,\n    Wide Bandwidth Channel,\n    <ID 7>,\n    HT Capabilities,\n"
                          "    Vendor Specific,\n  ]\n"));
  // Widths are minimums: a long SSID or list widens the row.
  EXPECT_EQ(other->toTableRow(false, std::string(40, 'x')),
            "|       | 02:11:22:33:44:55 | " + std::string(40, 'x') +
                "| 0xa4030260 |   1   |   6   | <unknown> | 0, 1, 6, 7, 45, 221|\n");
  auto const divider = std::string("+-------+-------------------+-----------------------------------+------------+") +
                       "-------+-------+-----------+----------------+\n";
  EXPECT_EQ(
      NeighborReport::getTableHeader(),
      divider + "|       |                   |                                   |            |  Op.  | Prim. |     " +
          "      |                |\n| Sel.? | BSSID             | SSID                              | BSSID Info " +
          "| Class | Chan. | PHY Type  | Sub-Elems      |\n" + divider);
  EXPECT_EQ(fmt::format("[{:>11}][{:*^8}]", Elem::PhyType{15}, NeighborReport::SubElementID{7}),
            "[  <unknown>][*<ID 7>*]");
}

}  // namespace
