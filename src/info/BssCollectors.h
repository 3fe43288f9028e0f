#pragma once
// The element visitors through which a BSS record gathers what it keeps from
// the elements of a scan result: the operating channel, the SSID and the
// system vendor's own data. Internal to the library.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <linux/nl80211.h>

#include "ny80211/Channel.h"
#include "ny80211/Element.h"

namespace Ny80211 {

// Remembers what the HT, VHT, HE and EHT Operation elements say and, at the
// end of the sequence, derives the operating channel from them, EHT before HE
// before VHT before HT. Channel conversions throw Error.
class ChannelInfoCollector final : public ElementVisitor {
 public:
  explicit ChannelInfoCollector(nl80211_band band) : band_(band) {}

  void visit(Elem::EhtOperation const& element) override;
  void visit(Elem::HeOperation const& element) override;
  void visit(Elem::HtOperation const& element) override;
  void visit(Elem::VhtOperation const& element) override;
  void visitEnd() override;

  // Whether any of the four operation elements said anything.
  bool sawOperation() const { return ht_ || vht_ || he_ || eht_; }
  // Empty when the elements give no valid combination.
  std::optional<ChannelInfo> const& result() const { return result_; }
  // From the HT Operation element's secondary channel offset; 0 without one.
  std::uint32_t channelType() const { return channelType_; }

 private:
  // A width code with the two centre segments, as the elements carry them.
  struct Segments {
    std::uint8_t width = 0;
    std::uint8_t ccfs0 = 0;
    std::uint8_t ccfs1 = 0;
  };

  std::optional<ChannelInfo> fromEht() const;
  std::optional<ChannelInfo> fromHe() const;
  std::optional<ChannelInfo> fromHtAndVht() const;
  std::optional<ChannelInfo> make(Channel const& primary, nl80211_chan_width width,
                                  std::uint8_t center1,
                                  std::optional<std::uint8_t> center2 = std::nullopt) const;

  nl80211_band band_;
  bool ht_ = false;
  Channel htPrimary_;
  std::uint8_t secondaryOffset_ = 0;
  bool anyWidth_ = false;
  std::uint8_t htCcfs2_ = 0;
  std::optional<Segments> vht_;
  bool he_ = false;
  Channel hePrimary_;
  Segments he6_;
  std::optional<Segments> eht_;
  std::uint32_t channelType_ = 0;
  std::optional<ChannelInfo> result_;
};

// The SSID (the last SSID element wins) and the UTF-8 SSID flag; the SSID
// points into the elements' buffer.
class SsidCollector final : public ElementVisitor {
 public:
  void visit(Elem::ExtendedCaps const& element) override;
  void visit(Elem::Ssid const& element) override;

  nycpp::span<const std::byte> ssid;
  bool utf8Ssid = false;
};

// The identifier and name that the system vendor's own access points announce
// in vendor-specific elements under QuentaOui; later elements win.
class QuentaVendorSpecificCollector final : public ElementVisitor {
 public:
  void visit(Elem::VendorSpecific const& element) override;

  std::optional<std::array<std::byte, 16>> vendorId;
  std::optional<std::string> vendorName;
};

}  // namespace Ny80211
