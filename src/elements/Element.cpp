#include "ny80211/Element.h"

#include <array>
#include <cstdint>
#include <iterator>

#include <fmt/format.h>

#include "elements/ElementWalk.h"
#include "ny80211/Elements.h"
#include "ny80211/Error.h"
#include "ny80211/NeighborReport.h"

namespace Ny80211 {

std::string ElementID::toString() const {
  if (isExtension) return fmt::format("({} -> {})", id, extId);
  return fmt::format("{}", id);
}

LengthConstraint::~LengthConstraint() = default;

namespace {

// MinLength's rule for the frame's own checks, without a rule object.
void requireAtLeast(std::size_t length, std::size_t minimum) {
  if (length < minimum) throw Error(fmt::format("too short ({} < {})", length, minimum));
}

}  // namespace

void MinLength::check(std::size_t length) const { requireAtLeast(length, minimum_); }

void FixedLength::check(std::size_t length) const {
  if (length != length_) throw Error(fmt::format("wrong length ({} != {})", length, length_));
}

void Element::Header::readFrom(nycpp::span<const std::byte> const& bytes) {
  requireAtLeast(bytes.size(), 2);
  // A non-extension ID leaves extId alone: it is ignored in comparisons.
  id.id = static_cast<std::uint8_t>(bytes[0]);
  id.isExtension = false;
  length = static_cast<std::uint8_t>(bytes[1]);
  requireAtLeast(bytes.size(), std::size_t{length} + 2);
  if (id.id == 255) {
    requireAtLeast(bytes.size(), 3);
    id.extId = static_cast<std::uint8_t>(bytes[2]);
    id.isExtension = true;
  }
}

Element::Element(nycpp::span<const std::byte> bytes, Header const& header,
                 ElementID const& expected, LengthConstraint const& rule) {
  // make reads the header from the same bytes, so this only fails for a
  // header built by hand; it keeps every read of a derived class in bounds.
  std::size_t const size = std::size_t{header.length} + 2;
  requireAtLeast(bytes.size(), size);
  bytes_ = nycpp::span<const std::byte>(bytes.data(), size);
  rule.check(header.length);
  if (!(header.id == expected)) {
    throw Error(fmt::format("element ID mismatch ({} != {})", header.id, expected));
  }
}

Element::~Element() = default;

namespace {

using Bytes = nycpp::span<const std::byte>;

template <class T>
std::unique_ptr<Element> create(Element::Header const& header, Bytes const& bytes) {
  return std::make_unique<T>(header, bytes);
}

template <class T>
void visitAs(Element::Header const& header, Bytes const& bytes, ElementVisitor& visitor) {
  T const element(header, bytes);
  element.accept(visitor);
}

struct Kind {
  ElementID id;
  std::unique_ptr<Element> (*make)(Element::Header const&, Bytes const&) = nullptr;
  void (*visit)(Element::Header const&, Bytes const&, ElementVisitor&) = nullptr;
};

template <class T>
constexpr Kind kind() {
  return {T::Id, &create<T>, &visitAs<T>};
}

// An ID 255 header that is no extension matches no row.
constexpr Kind kinds[] = {
    kind<Elem::Ssid>(),         kind<Elem::NeighborReport>(), kind<Elem::HtOperation>(),
    kind<Elem::ExtendedCaps>(), kind<Elem::VhtOperation>(),   kind<Elem::VendorSpecific>(),
    kind<Elem::HeOperation>(),  kind<Elem::EhtOperation>(),
};

// The row of each plain element ID (-1: none); extension IDs are few and
// searched.
constexpr auto plainRows = [] {
  std::array<std::int8_t, 256> rows{};
  rows.fill(-1);
  for (std::size_t i = 0; i < std::size(kinds); ++i) {
    if (!kinds[i].id.isExtension) rows[kinds[i].id.id] = static_cast<std::int8_t>(i);
  }
  return rows;
}();

Kind const* kindOf(ElementID const& id) {
  if (!id.isExtension) {
    auto const row = plainRows[id.id];
    return row < 0 ? nullptr : &kinds[row];
  }
  for (auto const& kind : kinds) {
    if (kind.id == id) return &kind;
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<Element> Element::make(nycpp::span<const std::byte> const& bytes) {
  Header header;
  header.readFrom(bytes);
  return make(header, bytes);
}

std::unique_ptr<Element> Element::make(Header const& header,
                                       nycpp::span<const std::byte> const& bytes) {
  auto const* kind = kindOf(header.id);
  return kind != nullptr ? kind->make(header, bytes) : nullptr;
}

bool detail::visitElement(Element::Header const& header, nycpp::span<const std::byte> const& bytes,
                          ElementVisitor& visitor) {
  auto const* kind = kindOf(header.id);
  if (kind == nullptr) return false;
  kind->visit(header, bytes, visitor);
  return true;
}

std::optional<detail::BrokenElement> detail::walkElements(
    nycpp::span<const std::byte> const& elements, ElementVisitor& visitor) {
  std::size_t pos = 0;
  auto const len = elements.size();
  while (pos < len) {
    Element::Header header;
    try {
      nycpp::span<const std::byte> const rest(elements.data() + pos, len - pos);
      header.readFrom(rest);
      visitElement(header, rest, visitor);
    } catch (Error const& e) {
      return BrokenElement{pos, e.what()};
    }
    pos += header.length + 2u;
  }
  return std::nullopt;
}

ElementVisitor::~ElementVisitor() = default;
void ElementVisitor::visit(Elem::EhtOperation const&) {}
void ElementVisitor::visit(Elem::ExtendedCaps const&) {}
void ElementVisitor::visit(Elem::HeOperation const&) {}
void ElementVisitor::visit(Elem::HtOperation const&) {}
void ElementVisitor::visit(Elem::NeighborReport const&) {}
void ElementVisitor::visit(Elem::Ssid const&) {}
void ElementVisitor::visit(Elem::VendorSpecific const&) {}
void ElementVisitor::visit(Elem::VhtOperation const&) {}
void ElementVisitor::visitEnd() {}

}  // namespace Ny80211
