#pragma once
// The typed elements that the library reads: SSID, Extended Capabilities, HT,
// VHT, HE and EHT Operation, Vendor Specific. Each copies the fields the
// library uses at construction; every other bit is skipped and reserved
// values are kept as read. Made through Element::make.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "ny80211/Channel.h"
#include "ny80211/Element.h"
#include "ny80211/Export.h"
#include "nycpp/span.h"
#include "quenta_share/MacAddress.h"

namespace Ny80211::Elem {

// The SSID octets as sent, up to 255 of them; whether they are UTF-8 is told
// by ExtendedCaps.
class NY80211_API Ssid final : public Element {
 public:
  static constexpr ElementID Id{0};

  Ssid(Header const& header, nycpp::span<const std::byte> const& bytes);
  void accept(ElementVisitor& visitor) const override;

  // In the element's buffer, like the element itself.
  nycpp::span<const std::byte> ssid() const { return bytes().subspan(2); }
};

class NY80211_API ExtendedCaps final : public Element {
 public:
  static constexpr ElementID Id{127};

  ExtendedCaps(Header const& header, nycpp::span<const std::byte> const& bytes);
  void accept(ElementVisitor& visitor) const override;

  // Capability bit 48; false when the element stops before it.
  bool utf8Ssid() const { return utf8Ssid_; }

 private:
  bool utf8Ssid_ = false;
};

class NY80211_API HtOperation final : public Element {
 public:
  static constexpr ElementID Id{61};

  HtOperation(Header const& header, nycpp::span<const std::byte> const& bytes);
  void accept(ElementVisitor& visitor) const override;

  std::uint8_t primaryChannel() const { return primaryChannel_; }
  // 0 none, 1 above, 3 below.
  std::uint8_t secondaryChannelOffset() const { return secondaryChannelOffset_; }
  // Any channel width allowed.
  bool staChannelWidth() const { return staChannelWidth_; }
  // Channel Center Frequency Segment 2.
  std::uint8_t ccfs2() const { return ccfs2_; }

 private:
  std::uint8_t primaryChannel_ = 0;
  std::uint8_t secondaryChannelOffset_ = 0;
  bool staChannelWidth_ = false;
  std::uint8_t ccfs2_ = 0;
};

class NY80211_API VhtOperation final : public Element {
 public:
  static constexpr ElementID Id{192};

  VhtOperation(Header const& header, nycpp::span<const std::byte> const& bytes);
  void accept(ElementVisitor& visitor) const override;

  // 0: 20/40 MHz, 1: 80/160/80+80 MHz, 2 and 3 deprecated.
  std::uint8_t channelWidth() const { return channelWidth_; }
  std::uint8_t ccfs0() const { return ccfs0_; }
  std::uint8_t ccfs1() const { return ccfs1_; }

 private:
  std::uint8_t channelWidth_ = 0;
  std::uint8_t ccfs0_ = 0;
  std::uint8_t ccfs1_ = 0;
};

class NY80211_API VendorSpecific final : public Element {
 public:
  static constexpr ElementID Id{221};

  VendorSpecific(Header const& header, nycpp::span<const std::byte> const& bytes);
  void accept(ElementVisitor& visitor) const override;

  Oui const& oui() const { return oui_; }
  // The vendor's octets after the OUI, in the element's buffer.
  nycpp::span<const std::byte> payload() const { return bytes().subspan(5); }

 private:
  Oui oui_;
};

class NY80211_API HeOperation final : public Element {
 public:
  static constexpr ElementID Id = ElementID::extension(36);

  struct VhtOperationInfo {
    std::uint8_t channelWidth = 0;
    std::uint8_t ccfs0 = 0;
    std::uint8_t ccfs1 = 0;
  };
  struct SixGhzOperationInfo {
    Channel primaryChannel;
    std::uint8_t channelWidth = 0;  // Control bits 0-1
    std::uint8_t ccfs0 = 0;
    std::uint8_t ccfs1 = 0;
    std::uint8_t minimumRate = 0;
  };

  // The Length octet must match the optional fields that the parameters
  // announce. A 6 GHz primary channel outside the band throws Error too.
  HeOperation(Header const& header, nycpp::span<const std::byte> const& bytes);
  void accept(ElementVisitor& visitor) const override;

  std::optional<VhtOperationInfo> const& vhtOperationInfo() const { return vhtOperationInfo_; }
  std::optional<SixGhzOperationInfo> const& sixGhzOperationInfo() const {
    return sixGhzOperationInfo_;
  }

 private:
  std::optional<VhtOperationInfo> vhtOperationInfo_;
  std::optional<SixGhzOperationInfo> sixGhzOperationInfo_;
};

class NY80211_API EhtOperation final : public Element {
 public:
  static constexpr ElementID Id = ElementID::extension(106);

  struct EhtOperationInfo {
    std::uint8_t control = 0;  // channel width in bits 0-2
    std::uint8_t ccfs0 = 0;
    std::uint8_t ccfs1 = 0;
    std::optional<std::uint16_t> disabledSubchannelBitmap;
  };

  // The Length octet must match the optional fields that the parameters
  // announce. A bitmap announced without the operation information is
  // accepted and skipped.
  EhtOperation(Header const& header, nycpp::span<const std::byte> const& bytes);
  void accept(ElementVisitor& visitor) const override;

  std::optional<EhtOperationInfo> const& ehtOperationInfo() const { return ehtOperationInfo_; }

 private:
  std::optional<EhtOperationInfo> ehtOperationInfo_;
};

}  // namespace Ny80211::Elem
