// decode: netlink messages given in hex on standard input (as a capture
// shows them), each rendered by the attribute formatter as nl80211.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <istream>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <netlink/msg.h>

#include "Tool.h"
#include "ny80211/AttrFmt.h"
#include "ny80211/GenlMessage.h"

namespace Tool {
namespace {

// Two hex digits a byte; blanks and line ends between them are skipped.
std::vector<std::uint8_t> readHex(std::istream& in) {
  std::string const text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  std::string digits;
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto const c = static_cast<unsigned char>(text[i]);
    if (std::isspace(c)) continue;
    if (!std::isxdigit(c))
      throw UsageError(fmt::format("bad hex digit '{}' at character {}", text[i], i + 1));
    digits += text[i];
  }
  if (digits.empty()) throw UsageError("no message on standard input");
  if (digits.size() % 2 != 0)
    throw UsageError(fmt::format("odd number of hex digits ({})", digits.size()));
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

struct MsgFree {
  void operator()(nl_msg* msg) const noexcept { nlmsg_free(msg); }
};

// Where each message starts and how long it is; UsageError when the bytes
// are no run of whole messages of a netlink family.
std::vector<std::pair<std::size_t, std::uint32_t>> split(std::vector<std::uint8_t> const& bytes) {
  std::vector<std::pair<std::size_t, std::uint32_t>> messages;
  for (std::size_t offset = 0; offset < bytes.size();) {
    auto const left = bytes.size() - offset;
    nlmsghdr header{};
    if (left < sizeof header) {
      throw UsageError(fmt::format("{} bytes at byte {}, too few for a netlink header ({})", left,
                                   offset, sizeof header));
    }
    std::memcpy(&header, bytes.data() + offset, sizeof header);
    if (header.nlmsg_len < NLMSG_HDRLEN + GENL_HDRLEN || header.nlmsg_len > left) {
      throw UsageError(fmt::format("message at byte {} has length {}, not from {} to {}", offset,
                                   header.nlmsg_len, NLMSG_HDRLEN + GENL_HDRLEN, left));
    }
    if (header.nlmsg_type < NLMSG_MIN_TYPE) {
      throw UsageError(fmt::format("message at byte {} is of netlink's own type {}, not a family's",
                                   offset, header.nlmsg_type));
    }
    messages.emplace_back(offset, header.nlmsg_len);
    offset += NLMSG_ALIGN(header.nlmsg_len);
  }
  return messages;
}

}  // namespace

void decode(Args, Io& io) {
  auto const bytes = readHex(io.in);
  // All checked first: bad input prints no half of a rendering.
  for (auto const& [offset, length] : split(bytes)) {
    // libnl reads the header in place: the copy is aligned for it.
    std::vector<std::uint32_t> aligned((length + 3) / 4);
    std::memcpy(aligned.data(), bytes.data() + offset, length);
    auto* const header = reinterpret_cast<nlmsghdr*>(aligned.data());
    std::unique_ptr<nl_msg, MsgFree> const msg(nlmsg_convert(header));
    if (!msg) throw std::bad_alloc();
    Ny80211::GenlMessage const message(msg.get());
    io.out << fmt::format("{} (seq {}, flags 0x{:x}):\n", message.commandName(), header->nlmsg_seq,
                          header->nlmsg_flags)
           << Ny80211::AttrFmt::Format({Ny80211::AttrScope::Nl80211, message.attributes()});
  }
}

}  // namespace Tool
