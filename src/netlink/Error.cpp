#include "ny80211/Error.h"

#include <cstring>
#include <limits>
#include <optional>
#include <system_error>
#include <vector>

#include <fmt/format.h>
#include <linux/netlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include "ny80211/AttrStream.h"

namespace Ny80211 {

Error::Error(std::string const& text) : std::runtime_error(text), text_(text) {}
Error::~Error() = default;
char const* Error::what() const noexcept { return text_.c_str(); }
void Error::append(std::string_view text) { text_.append(text); }

AttrNotFound::~AttrNotFound() = default;
CmdFailure::~CmdFailure() = default;
DumpInterrupted::~DumpInterrupted() = default;

namespace {

// The kernel's extended acknowledgement message (NLMSGERR_ATTR_MSG), if any.
// The error's own netlink header stands right before it. Never throws: an
// empty message attribute reads "<invalid>".
std::optional<std::string> extendedAckMessage(nlmsgerr* err) {
  auto const* header =
      reinterpret_cast<nlmsghdr const*>(reinterpret_cast<char const*>(err) - NLMSG_HDRLEN);
  if (!(header->nlmsg_flags & NLM_F_ACK_TLVS)) return {};
  // With NLM_F_CAPPED the quoted request is its header alone.
  std::size_t const offset = (header->nlmsg_flags & NLM_F_CAPPED)
                                 ? NLMSG_HDRLEN + sizeof(nlmsgerr)
                                 : NLMSG_HDRLEN + sizeof(int) + std::size_t{err->msg.nlmsg_len};
  if (header->nlmsg_len <= offset) return {};
  // The quoted request need not be a multiple of 4 long: copy the
  // attributes to where a walk can read them aligned.
  std::size_t const length = header->nlmsg_len - offset;
  std::vector<nlattr> aligned((length + sizeof(nlattr) - 1) / sizeof(nlattr));
  std::memcpy(aligned.data(), reinterpret_cast<char const*>(header) + offset, length);
  AttrStream const stream(nullptr, aligned.data(), length);
  if (!stream.has(NLMSGERR_ATTR_MSG)) return {};
  auto const* message = stream.find(NLMSGERR_ATTR_MSG);
  if (nla_len(message) < 1) return std::string("<invalid>");
  return getString(message);
}

// The system's text for the positive error number; a number that has no
// positive counterpart (INT_MIN) is named as glibc names unknown ones.
std::string systemText(int error) {
  if (error == std::numeric_limits<int>::min()) {
    return fmt::format("Unknown error {}", -static_cast<long long>(error));
  }
  return std::generic_category().message(-error);
}

}  // namespace

std::string to_string(nlmsgerr* err) {
  auto text = fmt::format("Netlink error: {} ({})", systemText(err->error), err->error);
  if (auto const message = extendedAckMessage(err)) text += fmt::format(" [{}]", *message);
  return text;
}

}  // namespace Ny80211
