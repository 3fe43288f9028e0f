#include "quenta_share/BaseAddress.h"

#include <stdexcept>

namespace quenta_share_detail {

std::string formatAddress(std::uint8_t const* bytes, std::size_t size) {
  static constexpr char hex[] = "0123456789abcdef";
  std::string text;
  text.reserve(size * 3);
  for (std::size_t i = 0; i < size; ++i) {
    if (i != 0) text.push_back(':');
    text.push_back(hex[bytes[i] >> 4]);
    text.push_back(hex[bytes[i] & 0xf]);
  }
  return text;
}

void throwSizeMismatch(std::size_t actual, std::size_t expected) {
  throw std::invalid_argument(
      fmt::format("address of {} bytes where {} are expected", actual, expected));
}

}  // namespace quenta_share_detail
