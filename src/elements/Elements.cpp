#include "ny80211/Elements.h"

#include <linux/nl80211.h>

namespace Ny80211::Elem {

Ssid::Ssid(Header const& header, nycpp::span<const std::byte> const& bytes)
    : Element(bytes, header, Id, MinLength(0)) {}

void Ssid::accept(ElementVisitor& visitor) const { visitor.visit(*this); }

// UTF-8 SSID is capability bit 48, bit 0 of body octet 6.
ExtendedCaps::ExtendedCaps(Header const& header, nycpp::span<const std::byte> const& bytes)
    : Element(bytes, header, Id, MinLength(0)),
      utf8Ssid_(header.length >= 7 && (octet(8) & 0x01) != 0) {}

void ExtendedCaps::accept(ElementVisitor& visitor) const { visitor.visit(*this); }

HtOperation::HtOperation(Header const& header, nycpp::span<const std::byte> const& bytes)
    : Element(bytes, header, Id, FixedLength(22)),
      primaryChannel_(octet(2)),
      secondaryChannelOffset_(octet(3) & 0x03),
      staChannelWidth_((octet(3) & 0x04) != 0),
      // Bits 5-12 of the little-endian word at offsets 4-5.
      ccfs2_(static_cast<std::uint8_t>((octet(4) | octet(5) << 8) >> 5)) {}

void HtOperation::accept(ElementVisitor& visitor) const { visitor.visit(*this); }

VhtOperation::VhtOperation(Header const& header, nycpp::span<const std::byte> const& bytes)
    : Element(bytes, header, Id, FixedLength(5)),
      channelWidth_(octet(2)),
      ccfs0_(octet(3)),
      ccfs1_(octet(4)) {}

void VhtOperation::accept(ElementVisitor& visitor) const { visitor.visit(*this); }

VendorSpecific::VendorSpecific(Header const& header, nycpp::span<const std::byte> const& bytes)
    : Element(bytes, header, Id, MinLength(3)), oui_(Oui::Bytes{octet(2), octet(3), octet(4)}) {}

void VendorSpecific::accept(ElementVisitor& visitor) const { visitor.visit(*this); }

// Parameters at offsets 3-5: VHT Operation Information present is bit 14,
// Co-Hosted BSS bit 15, 6 GHz Operation Information present bit 17.
HeOperation::HeOperation(Header const& header, nycpp::span<const std::byte> const& bytes)
    : Element(bytes, header, Id, MinLength(7)) {
  bool const vht = (octet(4) & 0x40) != 0;
  bool const coHosted = (octet(4) & 0x80) != 0;
  bool const sixGhz = (octet(5) & 0x02) != 0;
  FixedLength(7u + (vht ? 3u : 0u) + (coHosted ? 1u : 0u) + (sixGhz ? 5u : 0u))
      .check(header.length);

  // The optional fields follow BSS Color and the Basic HE-MCS and NSS Set.
  std::size_t at = 9;
  if (vht) {
    vhtOperationInfo_ = VhtOperationInfo{octet(at), octet(at + 1), octet(at + 2)};
    at += 3;
  }
  if (coHosted) at += 1;  // Max Co-Hosted BSSID Indicator
  if (sixGhz) {
    sixGhzOperationInfo_ = SixGhzOperationInfo{Channel(NL80211_BAND_6GHZ, octet(at)),
                                               static_cast<std::uint8_t>(octet(at + 1) & 0x03),
                                               octet(at + 2), octet(at + 3), octet(at + 4)};
  }
}

void HeOperation::accept(ElementVisitor& visitor) const { visitor.visit(*this); }

// Parameters at offset 3: bit 0 EHT Operation Information present, bit 1
// Disabled Subchannel Bitmap present; both follow the Basic EHT-MCS and NSS
// Set at offsets 4-7.
EhtOperation::EhtOperation(Header const& header, nycpp::span<const std::byte> const& bytes)
    : Element(bytes, header, Id, MinLength(6)) {
  bool const info = (octet(3) & 0x01) != 0;
  bool const bitmap = (octet(3) & 0x02) != 0;
  FixedLength((info ? 9u : 6u) + (bitmap ? 2u : 0u)).check(header.length);

  // A bitmap without the information it belongs to passes the length check
  // and is ignored.
  if (!info) return;
  EhtOperationInfo operation{octet(8), octet(9), octet(10), std::nullopt};
  if (bitmap) {
    operation.disabledSubchannelBitmap = static_cast<std::uint16_t>(octet(11) | octet(12) << 8);
  }
  ehtOperationInfo_ = operation;
}

void EhtOperation::accept(ElementVisitor& visitor) const { visitor.visit(*this); }

}  // namespace Ny80211::Elem
