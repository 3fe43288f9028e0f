#pragma once
// A generic netlink message to write attributes into, freed at the end, with
// an AttrStream over its attribute area.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "ny80211/AttrStream.h"

namespace Ny80211::testing {

using Bytes = std::vector<std::uint8_t>;

template <class T>
Bytes bytesOf(T value) {
  Bytes bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

struct TestMessage {
  nl_msg* msg;

  // Given a size, the buffer has exactly that many bytes, so AddressSanitizer
  // sees any read past the last attribute. Without the generic netlink header
  // the message holds bare attributes, to be put as the payload of a nest.
  explicit TestMessage(std::size_t size = 0, bool genl = true)
      : msg(size != 0 ? nlmsg_alloc_size(size) : nlmsg_alloc()) {
    if (genl) genlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, 1, 0);
  }
  ~TestMessage() { nlmsg_free(msg); }
  TestMessage(TestMessage const&) = delete;
  TestMessage& operator=(TestMessage const&) = delete;

  // Room for one attribute of this payload size and no byte more.
  static TestMessage fitting(std::size_t payload) {
    return TestMessage(NLMSG_HDRLEN + GENL_HDRLEN + nla_total_size(static_cast<int>(payload)));
  }
  static TestMessage nestBody() { return TestMessage(0, false); }

  AttrStream stream() const {
    auto* genl = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
    return AttrStream(msg, genlmsg_attrdata(genl, 0),
                      static_cast<unsigned long>(genlmsg_attrlen(genl, 0)));
  }
  TestMessage& u32(int type, std::uint32_t value) { return nla_put_u32(msg, type, value), *this; }
  nlattr* put(int type, Bytes const& payload) {
    auto* attr = nla_reserve(msg, type, static_cast<int>(payload.size()));
    if (attr != nullptr && !payload.empty()) {
      std::memcpy(nla_data(attr), payload.data(), payload.size());
    }
    return attr;
  }
  nlattr* nest(int type, TestMessage const& inner) {
    nla_put_nested(msg, type, inner.msg);
    return stream().find(type);
  }
};

}  // namespace Ny80211::testing
