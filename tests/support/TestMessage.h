#pragma once
// A generic netlink message to write attributes into, freed at the end, with
// an AttrStream over its attribute area; what a read gives as one text.

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Error.h"

namespace Ny80211::testing {

using Bytes = std::vector<std::uint8_t>;
// Types with their flag bits, in message order.
using Attrs = std::vector<std::pair<int, Bytes>>;

// Two hex digits a byte: "6c09" is {0x6c, 0x09}; blanks between bytes are skipped.
inline Bytes hex(std::string_view text) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += text[i] == ' ' ? 1 : 2) {
    if (text[i] != ' ') std::from_chars(text.data() + i, text.data() + i + 2, bytes.emplace_back(), 16);
  }
  return bytes;
}

// base with its attributes of the type replaced by one per hex payload, put first.
inline Attrs replaced(Attrs const& base, int type, std::vector<char const*> const& payloads) {
  Attrs attrs;
  for (auto const* payload : payloads) attrs.emplace_back(type, hex(payload));
  for (auto const& attr : base)
    if ((attr.first & NLA_TYPE_MASK) != type) attrs.push_back(attr);
  return attrs;
}

// The text a read returns, or the type and text of the library exception it throws.
template <class Read>
std::string outcome(Read const& read) {
  try {
    return read();
  } catch (Error const& e) {
    return (dynamic_cast<AttrNotFound const*>(&e) != nullptr ? "AttrNotFound: " : "Error: ") + std::string(e.what());
  }
}

template <class T>
Bytes bytesOf(T value) {
  auto const* begin = reinterpret_cast<std::uint8_t const*>(&value);
  return Bytes(begin, begin + sizeof value);
}

struct TestMessage {
  nl_msg* msg;

  // Of exactly the size given, if any, so that AddressSanitizer sees a read past the last attribute;
  // without the generic netlink header, bare attributes to be put as the payload of a nest.
  explicit TestMessage(std::size_t size = 0, bool genl = true)
      : msg(size != 0 ? nlmsg_alloc_size(size) : nlmsg_alloc()) {
    if (genl) genlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, 1, 0);
  }
  ~TestMessage() { nlmsg_free(msg); }
  TestMessage(TestMessage const&) = delete;
  TestMessage& operator=(TestMessage const&) = delete;

  static TestMessage nestBody() { return TestMessage(0, false); }

  AttrStream stream() const {
    auto* genl = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
    return AttrStream(msg, genlmsg_attrdata(genl, 0), static_cast<unsigned long>(genlmsg_attrlen(genl, 0)));
  }
  TestMessage& u32(int type, std::uint32_t value) { return nla_put_u32(msg, type, value), *this; }
  nlattr* put(int type, Bytes const& payload) {
    auto* attr = nla_reserve(msg, type, static_cast<int>(payload.size()));
    if (attr != nullptr && !payload.empty()) std::memcpy(nla_data(attr), payload.data(), payload.size());
    return attr;
  }
  TestMessage& put(Attrs const& attrs) {
    for (auto const& [type, payload] : attrs) put(type, payload);
    return *this;
  }
  nlattr* nest(int type, TestMessage const& inner) {
    nla_put_nested(msg, type, inner.msg);
    return stream().find(type);
  }
};

}  // namespace Ny80211::testing
