#pragma once
// Reading an ath event's payload: copied out of the message whole, then read
// field by field with memcpy, since the payload need not be aligned for the
// fields in it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "ny80211/RtNetlinkMessage.h"
#include "quenta_share/MacAddress.h"

namespace Ny80211::detail {

// The ath event number of a custom event (its iw_point flags); Error as
// RtNetlinkMessage::getWextEventData.
std::uint16_t athEventOf(RtNetlinkMessage const& message);

// Error "ath event payload size mismatch ({} != {})" (size, received) unless
// the event's payload length is size, and Error "wext event too short ({} <
// {})" when the attribute does not hold that many bytes after its header.
void copyAthPayload(RtNetlinkMessage const& message, std::byte* to, std::size_t size);

template <std::size_t N>
class AthPayload {
 public:
  explicit AthPayload(RtNetlinkMessage const& message) {
    copyAthPayload(message, bytes_.data(), N);
  }

  // Host order, as the driver wrote it.
  template <class T, std::size_t Offset>
  T at() const noexcept {
    static_assert(std::is_trivially_copyable_v<T> && Offset + sizeof(T) <= N);
    T value{};
    std::memcpy(&value, bytes_.data() + Offset, sizeof value);
    return value;
  }
  template <std::size_t Offset>
  MacAddress macAt() const noexcept {
    return MacAddress(at<MacAddress::Bytes, Offset>());
  }

 private:
  std::array<std::byte, N> bytes_{};
};

}  // namespace Ny80211::detail
