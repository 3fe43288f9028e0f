#pragma once
// Typed elements without a heap object: each is built on the stack and handed
// to a visitor at once. Internal to the library.

#include <cstddef>
#include <optional>
#include <string>

#include "ny80211/Element.h"

namespace Ny80211::detail {

// The typed element of header and bytes, given to the visitor; false for an
// element the library does not model. Throws Error as Element::make does.
bool visitElement(Element::Header const& header, nycpp::span<const std::byte> const& bytes,
                  ElementVisitor& visitor);

// Where a walk stopped: the broken element's offset and what is wrong.
struct BrokenElement {
  std::size_t offset = 0;
  std::string error;
};

// Every element of a sequence that parses, in order, to the visitor, up to
// the first broken one, which is returned. visitEnd is left to the caller.
std::optional<BrokenElement> walkElements(nycpp::span<const std::byte> const& elements,
                                          ElementVisitor& visitor);

}  // namespace Ny80211::detail
