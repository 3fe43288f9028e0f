// Fuzz target: to_string(nlmsgerr*), the text of an error message from the
// kernel, called as libnl calls the error callbacks: for an NLMSG_ERROR
// message of at least a netlink header and an nlmsgerr, with a non-zero
// error, the nlmsgerr right behind its header.
//   framed: [0] [flags] [error: 4] [n] [n bytes] TLVs... — flags bit 0 is
//           NLM_F_ACK_TLVS and bit 1 NLM_F_CAPPED; the quoted request is a
//           header and the n bytes (only the header when capped), then the
//           extended acknowledgement attributes right behind it, where the
//           library reads them (the kernel pads the request to 4 bytes, and
//           the requests libnl builds are all multiples of 4 long). The text
//           must be what the error and the message attribute say.
//   raw:    [1] message... — any such message.

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <system_error>

#include <fmt/format.h>
#include <linux/netlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include "FuzzInput.h"
#include "ny80211/Error.h"

namespace {

using namespace Ny80211;

constexpr std::size_t errorSize = NLMSG_HDRLEN + sizeof(nlmsgerr);

// The text for the error and the extended acknowledgement attributes; none
// where the outcome is not settled (the most negative error, an empty
// message attribute).
std::optional<std::string> expectedText(std::int32_t error, bool withTlvs, fuzz::Bytes tlvs) {
  if (error == INT_MIN) return std::nullopt;
  auto text = fmt::format("Netlink error: {} ({})", std::generic_category().message(-error), error);
  if (!withTlvs) return text;
  auto const* message = nla_find(reinterpret_cast<nlattr*>(tlvs.data()),
                                 static_cast<int>(tlvs.size()), NLMSGERR_ATTR_MSG);
  if (message == nullptr) return text;
  if (nla_len(message) < 1) return std::nullopt;
  auto const* chars = static_cast<char const*>(nla_data(message));
  auto const length = strnlen(chars, static_cast<std::size_t>(nla_len(message)));
  return text + fmt::format(" [{}]", std::string_view(chars, length));
}

void framed(fuzz::Input& input) {
  auto const flagBits = input.byte();
  auto const error = input.value<std::int32_t>();
  auto const body = input.take(input.byte());
  auto const tlvs = input.rest();
  if (error == 0) return;
  bool const withTlvs = (flagBits & 1) != 0;
  bool const capped = (flagBits & 2) != 0;
  int const flags = (withTlvs ? NLM_F_ACK_TLVS : 0) | (capped ? NLM_F_CAPPED : 0);

  auto const size = errorSize + (capped ? 0 : body.size()) + tlvs.size();
  fuzz::Message message(nlmsg_alloc_size(size));
  auto* header = message ? nlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, NLMSG_ERROR,
                                     sizeof(nlmsgerr), flags)
                         : nullptr;
  if (header == nullptr) fuzz::fail("error message does not fit");
  auto* err = static_cast<nlmsgerr*>(nlmsg_data(header));
  err->error = error;
  err->msg.nlmsg_len = static_cast<std::uint32_t>(NLMSG_HDRLEN + body.size());
  err->msg.nlmsg_type = 0x1c;
  err->msg.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
  auto const complete =
      fuzz::appended(fuzz::appended(std::move(message), capped ? fuzz::Bytes{} : body), tlvs);

  auto const text = to_string(err);
  auto const expected = expectedText(error, withTlvs, tlvs);
  if (expected && text != *expected) {
    fuzz::fail(fmt::format("'{}' != '{}'", text, *expected));
  }
}

void raw(fuzz::Input& input) {
  auto bytes = fuzz::rawMessageBytes(input.rest(), errorSize);
  if (bytes.empty()) return;
  nlmsghdr header{};
  nlmsgerr err{};
  std::memcpy(&header, bytes.data(), sizeof header);
  std::memcpy(&err, bytes.data() + NLMSG_HDRLEN, sizeof err);
  if (header.nlmsg_type != NLMSG_ERROR || err.error == 0) return;
  to_string(reinterpret_cast<nlmsgerr*>(bytes.data() + NLMSG_HDRLEN));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::logSink();
  fuzz::Input input(data, size);
  if (fuzz::isRaw(input)) {
    raw(input);
  } else {
    framed(input);
  }
  return 0;
}
