#include <iterator>

#include <fmt/format.h>

#include "ny80211/BssInfo.h"

namespace Ny80211 {

AttrSsid::AttrSsid(std::vector<std::byte> const& bytes) : bytes_(bytes) {}

std::string AttrSsid::toEscapedString() const {
  fmt::memory_buffer out;
  auto const size = bytes_.size();
  for (std::size_t i = 0; i < size; ++i) {
    auto const c = static_cast<unsigned char>(bytes_[i]);
    // isprint of the "C" locale, fixed here so that a daemon's setlocale
    // cannot change what reaches a log.
    bool const printable = c >= 0x20 && c <= 0x7e;
    bool const edgeBlank = c == ' ' && (i == 0 || i + 1 == size);
    if (printable && c != '\\' && !edgeBlank) {
      out.push_back(static_cast<char>(c));
    } else {
      fmt::format_to(std::back_inserter(out), "\\x{:02x}", c);
    }
  }
  return fmt::to_string(out);
}

}  // namespace Ny80211
