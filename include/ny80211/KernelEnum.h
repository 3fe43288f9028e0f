#pragma once
// KernelEnum<E>: a value of one of nl80211's enumerations as the kernel sent
// it. nl80211's C enumerations have no fixed underlying type, so a value past
// their last enumerator (a newer kernel's, or a damaged message's) cannot be
// held in them; this holds any 32-bit value, compares with the enumerators,
// and prints "<unknown>" for values without a text.

#include <cstdint>

namespace Ny80211 {

template <class E>
class KernelEnum {
 public:
  constexpr KernelEnum() noexcept = default;
  // Implicit, so that a record's field compares with an enumerator.
  constexpr KernelEnum(E value) noexcept : raw_(static_cast<std::uint32_t>(value)) {}
  static constexpr KernelEnum fromRaw(std::uint32_t raw) noexcept {
    KernelEnum value;
    value.raw_ = raw;
    return value;
  }

  constexpr std::uint32_t raw() const noexcept { return raw_; }
  friend constexpr bool operator==(KernelEnum, KernelEnum) noexcept = default;

 private:
  std::uint32_t raw_ = 0;
};

}  // namespace Ny80211
