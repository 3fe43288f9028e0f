#pragma once
// BaseAddress<Derived, N>: N address bytes in wire order, printed as
// lower-case colon-separated hex (02:00:00:00:01:00).

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include <fmt/format.h>

#include "nycpp/span.h"

namespace quenta_share_detail {
std::string formatAddress(std::uint8_t const* bytes, std::size_t size);
[[noreturn]] void throwSizeMismatch(std::size_t actual, std::size_t expected);
}  // namespace quenta_share_detail

template <class Derived, std::size_t N>
class BaseAddress {
 public:
  static constexpr std::size_t Size = N;
  using Bytes = std::array<std::uint8_t, N>;

  constexpr BaseAddress() noexcept = default;
  constexpr explicit BaseAddress(Bytes const& bytes) noexcept : bytes_(bytes) {}
  // Exactly N bytes; any other size throws std::invalid_argument.
  explicit BaseAddress(nycpp::span<const std::uint8_t> bytes) {
    assign(bytes.data(), bytes.size());
  }
  explicit BaseAddress(nycpp::span<const std::byte> bytes) {
    assign(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
  }

  constexpr Bytes const& GetBytes() const noexcept { return bytes_; }
  constexpr std::uint8_t const* data() const noexcept { return bytes_.data(); }
  static constexpr std::size_t size() noexcept { return N; }
  constexpr std::uint8_t operator[](std::size_t i) const noexcept { return bytes_[i]; }
  constexpr bool IsZero() const noexcept {
    return std::all_of(bytes_.begin(), bytes_.end(), [](std::uint8_t b) { return b == 0; });
  }
  std::string ToString() const { return quenta_share_detail::formatAddress(bytes_.data(), N); }

  friend constexpr bool operator==(Derived const& a, Derived const& b) noexcept {
    return a.bytes_ == b.bytes_;
  }
  friend constexpr auto operator<=>(Derived const& a, Derived const& b) noexcept {
    return a.bytes_ <=> b.bytes_;
  }

 private:
  void assign(std::uint8_t const* bytes, std::size_t size) {
    if (size != N) quenta_share_detail::throwSizeMismatch(size, N);
    std::copy_n(bytes, N, bytes_.begin());
  }

  Bytes bytes_{};
};

template <class T>
concept IsAddress = std::is_base_of_v<BaseAddress<T, T::Size>, T>;

template <IsAddress T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
  template <class Context>
  auto format(T const& address, Context& ctx) const {
    auto const text = address.ToString();
    return fmt::formatter<fmt::string_view>::format(fmt::string_view(text), ctx);
  }
};
