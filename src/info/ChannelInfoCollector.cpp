#include <cstdlib>

#include "info/BssCollectors.h"
#include "ny80211/Elements.h"

namespace Ny80211 {

namespace {

int distance(std::uint8_t a, std::uint8_t b) { return std::abs(int{a} - int{b}); }

}  // namespace

void ChannelInfoCollector::visit(Elem::HtOperation const& element) {
  htPrimary_ = Channel(band_, element.primaryChannel());
  secondaryOffset_ = element.secondaryChannelOffset();
  anyWidth_ = element.staChannelWidth();
  htCcfs2_ = element.ccfs2();
  ht_ = true;
  switch (secondaryOffset_) {
    case 0:
      channelType_ = NL80211_CHAN_HT20;
      break;
    case 1:
      channelType_ = NL80211_CHAN_HT40PLUS;
      break;
    case 3:
      channelType_ = NL80211_CHAN_HT40MINUS;
      break;
    default:
      break;  // 2 is reserved: the type stays as it was
  }
}

void ChannelInfoCollector::visit(Elem::VhtOperation const& element) {
  vht_ = Segments{element.channelWidth(), element.ccfs0(), element.ccfs1()};
}

void ChannelInfoCollector::visit(Elem::HeOperation const& element) {
  // A VHT Operation element of its own says more than the HE copy.
  if (!vht_ && element.vhtOperationInfo()) {
    auto const& info = *element.vhtOperationInfo();
    vht_ = Segments{info.channelWidth, info.ccfs0, info.ccfs1};
  }
  if (auto const& info = element.sixGhzOperationInfo()) {
    hePrimary_ = info->primaryChannel;
    he6_ = Segments{info->channelWidth, info->ccfs0, info->ccfs1};
    he_ = true;
  }
}

void ChannelInfoCollector::visit(Elem::EhtOperation const& element) {
  if (auto const& info = element.ehtOperationInfo()) {
    eht_ = Segments{static_cast<std::uint8_t>(info->control & 0x07), info->ccfs0, info->ccfs1};
  }
}

void ChannelInfoCollector::visitEnd() {
  if (eht_) {
    result_ = fromEht();
  } else if (he_) {
    result_ = fromHe();
  } else {
    result_ = fromHtAndVht();
  }
}

std::optional<ChannelInfo> ChannelInfoCollector::make(Channel const& primary,
                                                      nl80211_chan_width width,
                                                      std::uint8_t center1,
                                                      std::optional<std::uint8_t> center2) const {
  std::optional<quenta_common::ChannelNumber> second;
  if (center2) second = quenta_common::ChannelNumber(*center2);
  return ChannelInfo(primary, width, quenta_common::ChannelNumber(center1), second);
}

std::optional<ChannelInfo> ChannelInfoCollector::fromEht() const {
  Channel primary;
  if (ht_) {
    primary = htPrimary_;
  } else if (he_) {
    primary = hePrimary_;
  } else {
    return std::nullopt;
  }
  switch (eht_->width) {
    case 0:
      return make(primary, NL80211_CHAN_WIDTH_20, eht_->ccfs0);
    case 1:
      return make(primary, NL80211_CHAN_WIDTH_40, eht_->ccfs0);
    case 2:
      return make(primary, NL80211_CHAN_WIDTH_80, eht_->ccfs0);
    case 3:
      return make(primary, NL80211_CHAN_WIDTH_160, eht_->ccfs1);
    case 4:
      return make(primary, NL80211_CHAN_WIDTH_320, eht_->ccfs1);
    default:
      return std::nullopt;
  }
}

std::optional<ChannelInfo> ChannelInfoCollector::fromHe() const {
  switch (he6_.width) {
    case 0:
      return make(hePrimary_, NL80211_CHAN_WIDTH_20, he6_.ccfs0);
    case 1:
      return make(hePrimary_, NL80211_CHAN_WIDTH_40, he6_.ccfs0);
    case 2:
      return make(hePrimary_, NL80211_CHAN_WIDTH_80, he6_.ccfs0);
    default:
      break;
  }
  // 160 MHz: CCFS0 is the centre of the primary 80 MHz, CCFS1 of the whole;
  // segments further apart are the two halves of 80+80 MHz.
  auto const apart = distance(he6_.ccfs0, he6_.ccfs1);
  if (apart == 8) return make(hePrimary_, NL80211_CHAN_WIDTH_160, he6_.ccfs1);
  if (apart < 17) return std::nullopt;
  return make(hePrimary_, NL80211_CHAN_WIDTH_80P80, he6_.ccfs0, he6_.ccfs1);
}

std::optional<ChannelInfo> ChannelInfoCollector::fromHtAndVht() const {
  if (!ht_) return std::nullopt;
  std::uint8_t const primary = htPrimary_.number;
  if (!vht_) {
    if (!anyWidth_) return make(htPrimary_, NL80211_CHAN_WIDTH_20, primary);
    switch (secondaryOffset_) {
      case 0:
        return make(htPrimary_, NL80211_CHAN_WIDTH_20, primary);
      case 1:
        return make(htPrimary_, NL80211_CHAN_WIDTH_40, static_cast<std::uint8_t>(primary + 2));
      case 3:
        return make(htPrimary_, NL80211_CHAN_WIDTH_40, static_cast<std::uint8_t>(primary - 2));
      default:
        return std::nullopt;
    }
  }
  if (!anyWidth_) {
    if (vht_->width == 0) return make(htPrimary_, NL80211_CHAN_WIDTH_20, primary);
    return std::nullopt;
  }
  switch (vht_->width) {
    case 0:
      return make(htPrimary_, NL80211_CHAN_WIDTH_40, vht_->ccfs0);
    case 1: {
      // 802.11ac-2016 signals 160 and 80+80 MHz in the second segment, which
      // an HE-capable AP may carry in the HT element instead.
      if (vht_->ccfs1 != 0 && htCcfs2_ != 0) return std::nullopt;
      auto const second = vht_->ccfs1 != 0 ? vht_->ccfs1 : htCcfs2_;
      if (second == 0) return make(htPrimary_, NL80211_CHAN_WIDTH_80, vht_->ccfs0);
      auto const apart = distance(second, vht_->ccfs0);
      if (apart == 8) return make(htPrimary_, NL80211_CHAN_WIDTH_160, second);
      if (apart < 17) return std::nullopt;
      return make(htPrimary_, NL80211_CHAN_WIDTH_80P80, vht_->ccfs0, second);
    }
    // The deprecated 802.11ac-2013 signalling.
    case 2:
      return make(htPrimary_, NL80211_CHAN_WIDTH_160, vht_->ccfs0);
    case 3:
      return make(htPrimary_, NL80211_CHAN_WIDTH_80P80, vht_->ccfs0, vht_->ccfs1);
    default:
      return std::nullopt;
  }
}

}  // namespace Ny80211
