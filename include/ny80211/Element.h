#pragma once
// The frame of the IEEE 802.11 information-element parser: element IDs, the
// two-octet header, length rules, the abstract Element with its factory, and
// the visitor through which consumers receive the typed elements
// (Elements.h, NeighborReport.h).

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <fmt/format.h>

#include "ny80211/Channel.h"
#include "ny80211/Export.h"
#include "nycpp/span.h"

namespace Ny80211 {

// An element ID as on the air; ID 255 is followed by an extension ID.
class NY80211_API ElementID {
 public:
  constexpr ElementID() noexcept = default;
  constexpr explicit ElementID(std::uint8_t id) noexcept : id(id) {}
  // An extension element: ID 255 with its Element ID Extension.
  static constexpr ElementID extension(std::uint8_t extId) noexcept {
    ElementID e(255);
    e.extId = extId;
    e.isExtension = true;
    return e;
  }

  // The extension ID counts only for extension elements.
  friend constexpr bool operator==(ElementID const& a, ElementID const& b) noexcept {
    return a.id == b.id && a.isExtension == b.isExtension && (!a.isExtension || a.extId == b.extId);
  }

  // "61", or "(255 -> 36)" for an extension element.
  std::string toString() const;

  std::uint8_t id = 0;
  std::uint8_t extId = 0;  // meaningful only when isExtension
  bool isExtension = false;
};

// A rule on an element's Length octet; check throws Error when it fails.
class NY80211_API LengthConstraint {
 public:
  virtual ~LengthConstraint();
  virtual void check(std::size_t length) const = 0;

 protected:
  LengthConstraint() = default;
  LengthConstraint(LengthConstraint const&) = default;
  LengthConstraint& operator=(LengthConstraint const&) = default;
  LengthConstraint(LengthConstraint&&) = default;
  LengthConstraint& operator=(LengthConstraint&&) = default;
};

// Error "too short ({} < {})" below the minimum.
class NY80211_API MinLength final : public LengthConstraint {
 public:
  explicit MinLength(std::size_t minimum) : minimum_(minimum) {}
  // Inline: every element makes one of these on its way.
  ~MinLength() override = default;
  void check(std::size_t length) const override;

 private:
  std::size_t minimum_;
};

// Error "wrong length ({} != {})" on any other length.
class NY80211_API FixedLength final : public LengthConstraint {
 public:
  explicit FixedLength(std::size_t length) : length_(length) {}
  ~FixedLength() override = default;
  void check(std::size_t length) const override;

 private:
  std::size_t length_;
};

class ElementVisitor;

// One typed element over the buffer it was read from, which must outlive it.
class NY80211_API Element {
 public:
  class NY80211_API Header {
   public:
    Header() = default;

    // ID, Length and, for ID 255, the extension ID from the start of bytes;
    // Error "too short ({} < {})" when bytes do not hold the whole element.
    // The extension ID is read whenever the buffer has a third byte, even
    // when the Length octet is 0: the length rules of make sort that out.
    void readFrom(nycpp::span<const std::byte> const& bytes);

    ElementID id;
    std::uint8_t length = 0;  // octets after ID and Length, extension ID included
  };

  virtual ~Element();

  virtual void accept(ElementVisitor& visitor) const = 0;

  // The whole element, ID and Length octets included: header length + 2 bytes.
  nycpp::span<const std::byte> const& bytes() const { return bytes_; }

  // The typed element, or an empty pointer for an element the library does
  // not model. Throws Error on a truncated or malformed element.
  static std::unique_ptr<Element> make(nycpp::span<const std::byte> const& bytes);
  static std::unique_ptr<Element> make(Header const& header,
                                       nycpp::span<const std::byte> const& bytes);

 protected:
  // Applies the rule to the Length octet, then compares the header's ID with
  // the expected one (Error "element ID mismatch ({} != {})"). A header that
  // claims more bytes than the buffer holds is refused as too short, so a
  // derived class may read any offset below header length + 2.
  Element(nycpp::span<const std::byte> bytes, Header const& header, ElementID const& expected,
          LengthConstraint const& rule);
  Element(Element const&) = default;
  Element& operator=(Element const&) = default;
  Element(Element&&) = default;
  Element& operator=(Element&&) = default;

  std::uint8_t octet(std::size_t offset) const { return static_cast<std::uint8_t>(bytes_[offset]); }

 private:
  nycpp::span<const std::byte> bytes_;
};

namespace Elem {
class EhtOperation;
class ExtendedCaps;
class HeOperation;
class HtOperation;
class NeighborReport;
class Ssid;
class VendorSpecific;
class VhtOperation;
}  // namespace Elem

// Receives the typed elements of a sequence, then visitEnd once. Every
// operation does nothing unless overridden. The order of the operations is
// part of the interface: new ones go at the end.
class NY80211_API ElementVisitor {
 public:
  ElementVisitor() = default;
  ElementVisitor(ElementVisitor const&) = default;
  ElementVisitor& operator=(ElementVisitor const&) = default;
  ElementVisitor(ElementVisitor&&) = default;
  ElementVisitor& operator=(ElementVisitor&&) = default;
  virtual ~ElementVisitor();
  virtual void visit(Elem::EhtOperation const& element);
  virtual void visit(Elem::ExtendedCaps const& element);
  virtual void visit(Elem::HeOperation const& element);
  virtual void visit(Elem::HtOperation const& element);
  virtual void visit(Elem::NeighborReport const& element);
  virtual void visit(Elem::Ssid const& element);
  virtual void visit(Elem::VendorSpecific const& element);
  virtual void visit(Elem::VhtOperation const& element);
  virtual void visitEnd();
};

}  // namespace Ny80211

template <>
struct fmt::formatter<Ny80211::ElementID> : Ny80211::detail::ToStringFormatter<Ny80211::ElementID> {
};
