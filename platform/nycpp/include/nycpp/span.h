#pragma once
// nycpp::span: a pointer and a length over contiguous elements.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace nycpp {

template <class T>
class span {
 public:
  using element_type = T;
  using value_type = std::remove_cv_t<T>;
  using size_type = std::size_t;
  using pointer = T*;
  using reference = T&;
  using iterator = T*;
  static constexpr size_type npos = static_cast<size_type>(-1);

  constexpr span() noexcept = default;
  constexpr span(T* data, size_type size) noexcept : data_(data), size_(size) {}
  template <std::size_t N>
  constexpr span(T (&array)[N]) noexcept : data_(array), size_(N) {}
  // span<T> converts to span<const T>.
  template <class U>
  requires(!std::is_same_v<U, T> &&
           std::is_convertible_v<U (*)[], T (*)[]>) constexpr span(span<U> other) noexcept
      : data_(other.data()), size_(other.size()) {}
  // Any contiguous container with data() and size(): std::vector, std::array, std::string.
  template <class C>
  requires(
      !std::is_same_v<std::remove_cvref_t<C>, span> &&
      std::is_convertible_v<std::remove_pointer_t<decltype(std::declval<C&>().data())> (*)[],
                            T (*)[]>) constexpr span(C& container) noexcept(noexcept(container
                                                                                         .data()))
      : data_(container.data()), size_(container.size()) {}

  constexpr T* data() const noexcept { return data_; }
  constexpr size_type size() const noexcept { return size_; }
  constexpr size_type size_bytes() const noexcept { return size_ * sizeof(T); }
  constexpr bool empty() const noexcept { return size_ == 0; }
  constexpr T* begin() const noexcept { return data_; }
  constexpr T* end() const noexcept { return data_ + size_; }
  constexpr T& operator[](size_type i) const noexcept { return data_[i]; }

  // Sub-ranges are checked: a range outside the span throws std::out_of_range.
  constexpr span subspan(size_type offset, size_type count = npos) const {
    if (offset > size_) outOfRange("offset", offset);
    if (count == npos) return span(data_ + offset, size_ - offset);
    if (count > size_ - offset) outOfRange("count", count);
    return span(data_ + offset, count);
  }
  constexpr span first(size_type count) const { return subspan(0, count); }
  constexpr span last(size_type count) const {
    if (count > size_) outOfRange("count", count);
    return span(data_ + (size_ - count), count);
  }

 private:
  [[noreturn]] void outOfRange(char const* what, size_type value) const {
    throw std::out_of_range("span: " + std::string(what) + " " + std::to_string(value) +
                            " out of range (size " + std::to_string(size_) + ")");
  }

  T* data_ = nullptr;
  size_type size_ = 0;
};

template <class C>
span(C&) -> span<std::remove_pointer_t<decltype(std::declval<C&>().data())>>;

namespace detail {
// Every byte visible and unambiguous: printable ASCII stays as it is, the
// backslash and every other byte become \xNN, so a backslash in the output
// always starts an escape.
inline std::string escapeChars(char const* data, std::size_t size) {
  static constexpr char hex[] = "0123456789abcdef";
  std::string out;
  out.reserve(size);
  for (std::size_t i = 0; i < size; ++i) {
    auto const byte = static_cast<unsigned char>(data[i]);
    if (byte >= 0x20 && byte < 0x7f && byte != '\\') {
      out.push_back(static_cast<char>(byte));
    } else {
      out += "\\x";
      out.push_back(hex[byte >> 4]);
      out.push_back(hex[byte & 0xf]);
    }
  }
  return out;
}
}  // namespace detail

}  // namespace nycpp

// Character spans print as one escaped text, not as a range of characters.
template <class Char>
requires std::is_same_v < std::remove_const_t<Char>,
char > struct fmt::range_format_kind<nycpp::span<Char>, char>
    : std::integral_constant<fmt::range_format, fmt::range_format::disabled> {};

// Character spans print escaped; width, fill and alignment apply to the escaped text.
template <class Char>
requires std::is_same_v < std::remove_const_t<Char>,
char > struct fmt::formatter<nycpp::span<Char>> : fmt::formatter<fmt::string_view> {
  template <class Context>
  auto format(nycpp::span<Char> const& chars, Context& ctx) const {
    auto const text = nycpp::detail::escapeChars(chars.data(), chars.size());
    return fmt::formatter<fmt::string_view>::format(fmt::string_view(text), ctx);
  }
};
