#include "info/BssCollectors.h"

#include <algorithm>

#include "ny80211/BssInfo.h"
#include "ny80211/Elements.h"

namespace Ny80211 {

void SsidCollector::visit(Elem::Ssid const& element) { ssid = element.ssid(); }

void SsidCollector::visit(Elem::ExtendedCaps const& element) { utf8Ssid = element.utf8Ssid(); }

void QuentaVendorSpecificCollector::visit(Elem::VendorSpecific const& element) {
  // From the element start: ID, Length, OUI (3), record kind, a 16-bit
  // version that must be 1 (low byte first), then the record.
  constexpr std::size_t kind = 5, version = 6, data = 8;
  auto const bytes = element.bytes();
  // Byte by byte: cheaper than a comparison of the arrays for three bytes.
  auto const& oui = element.oui();
  if (bytes.size() <= 7 || oui[0] != QuentaOui[0] || oui[1] != QuentaOui[1] ||
      oui[2] != QuentaOui[2]) {
    return;
  }
  if (bytes[version] != std::byte{1} || bytes[version + 1] != std::byte{0}) return;
  switch (static_cast<std::uint8_t>(bytes[kind])) {
    case 4:  // identifier: 16 bytes
      if (bytes.size() > 23) {
        std::array<std::byte, 16> id{};
        std::copy_n(bytes.data() + data, id.size(), id.begin());
        vendorId = id;
      }
      break;
    case 8:  // name: the rest of the element
      if (bytes.size() > data) {
        vendorName.emplace(reinterpret_cast<char const*>(bytes.data() + data), bytes.size() - data);
      }
      break;
    default:
      break;
  }
}

}  // namespace Ny80211
