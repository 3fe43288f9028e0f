#pragma once
// What the record tests share: messages of attributes, nests as payloads, reads as one text.

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "TestMessage.h"

namespace Ny80211::testing {

template <class T>
std::vector<T> operator+(std::vector<T> a, std::vector<T> const& b) {
  return a.insert(a.end(), b.begin(), b.end()), a;
}

// Attributes from pairs of type and payload, as hex text or bytes.
inline Bytes payload(char const* text) { return hex(text); }
inline Bytes payload(Bytes const& bytes) { return bytes; }
inline Attrs attrs() { return {}; }
template <class Payload, class... Rest>
Attrs attrs(int type, Payload const& value, Rest const&... rest) {
  return Attrs{{type, payload(value)}} + attrs(rest...);
}

// The payload of a nest of these attributes.
inline Bytes body(Attrs const& attrs) {
  auto nest = TestMessage::nestBody();
  auto const* msg = nlmsg_hdr(nest.put(attrs).msg);
  auto const* head = static_cast<std::uint8_t const*>(nlmsg_data(msg));
  return Bytes(head, head + nlmsg_datalen(msg));
}

// A message of these attributes read into a fresh record: its text, or the exception.
template <class Record>
std::string read(Attrs const& attrs) {
  return outcome([&] {
    Record record;
    record.readFrom(TestMessage().put(attrs).stream());
    return record.toString();
  });
}

// The text with the first `from` in it replaced by `to`.
inline std::string edit(std::string text, std::string const& from, std::string const& to) {
  return text.replace(text.find(from), from.size(), to);
}
inline std::string notFound(int type) { return fmt::format("AttrNotFound: attribute not found (type {})", type); }
inline std::string tooSmall(int type, int size, int needed) {
  return fmt::format("Error: attribute (type {}) payload too small for data type ({} < {})", type, size, needed);
}

}  // namespace Ny80211::testing
