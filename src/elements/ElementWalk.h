#pragma once
// Typed elements without a heap object: each is built on the stack and handed
// to a visitor at once. Internal to the library.

#include "ny80211/Element.h"

namespace Ny80211::detail {

// The typed element of header and bytes, given to the visitor; false for an
// element the library does not model. Throws Error as Element::make does.
bool visitElement(Element::Header const& header, nycpp::span<const std::byte> const& bytes,
                  ElementVisitor& visitor);

}  // namespace Ny80211::detail
