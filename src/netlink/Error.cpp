#include "ny80211/Error.h"

#include <optional>
#include <system_error>

#include <fmt/format.h>
#include <linux/netlink.h>
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
// The error's own netlink header stands right before it.
std::optional<std::string> extendedAckMessage(nlmsgerr* err) {
  auto const* header = reinterpret_cast<nlmsghdr const*>(reinterpret_cast<char const*>(err) -
                                                         NLMSG_HDRLEN);
  if (!(header->nlmsg_flags & NLM_F_ACK_TLVS)) return {};
  // With NLM_F_CAPPED the quoted request is its header alone.
  std::size_t const offset = (header->nlmsg_flags & NLM_F_CAPPED)
                                 ? NLMSG_HDRLEN + sizeof(nlmsgerr)
                                 : NLMSG_HDRLEN + sizeof(int) + err->msg.nlmsg_len;
  if (header->nlmsg_len <= offset) return {};
  auto* attrs = reinterpret_cast<nlattr*>(reinterpret_cast<char*>(err) - NLMSG_HDRLEN + offset);
  AttrStream const stream(nullptr, attrs, header->nlmsg_len - offset);
  if (!stream.has(NLMSGERR_ATTR_MSG)) return {};
  return getString(stream.find(NLMSGERR_ATTR_MSG));
}

}  // namespace

std::string to_string(nlmsgerr* err) {
  auto text = fmt::format("Netlink error: {} ({})",
                          std::generic_category().message(-err->error), err->error);
  if (auto const message = extendedAckMessage(err)) text += fmt::format(" [{}]", *message);
  return text;
}

}  // namespace Ny80211
