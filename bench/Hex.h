#pragma once
// Bytes written as hex text, the way captures show them; blanks are skipped.

#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace bench {

using Bytes = std::vector<std::uint8_t>;

inline Bytes hex(std::string_view text) {
  auto const nibble = [](char c) -> std::uint8_t {
    if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<std::uint8_t>(c - 'a' + 10);
    throw std::invalid_argument("not a hex digit");
  };
  Bytes bytes;
  std::uint8_t high = 0;
  bool half = false;
  for (char const c : text) {
    if (c == ' ') continue;
    if (half)
      bytes.push_back(static_cast<std::uint8_t>(high << 4 | nibble(c)));
    else
      high = nibble(c);
    half = !half;
  }
  if (half) throw std::invalid_argument("odd number of hex digits");
  return bytes;
}

}  // namespace bench
