#include "ny80211/WiPhyInfo.h"

#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <linux/nl80211.h>

namespace Ny80211 {

bool AttrWiphyAntenna::isEnabled(unsigned int antenna) const {
  if (antenna > 31) return false;
  return (mask >> antenna) & 1u;
}

std::string AttrWiphyAntenna::toString() const { return fmt::format("{:b}", mask); }

BandAttrFreqs::BandChannelInfo::BandChannelInfo(NestedAttr const& freq)
    : freq(freq.getU32(NL80211_FREQUENCY_ATTR_FREQ)),
      disabled(freq.has(NL80211_FREQUENCY_ATTR_DISABLED)),
      noIR(freq.has(NL80211_FREQUENCY_ATTR_NO_IR)),
      radar(freq.has(NL80211_FREQUENCY_ATTR_RADAR)),
      maxTxPower(freq.getU32(NL80211_FREQUENCY_ATTR_MAX_TX_POWER)) {}

std::string BandAttrFreqs::BandChannelInfo::toString() const {
  fmt::memory_buffer out;
  // mBm to dBm only here; the record keeps what nl80211 sent.
  auto const dBm = static_cast<float>(static_cast<std::int32_t>(maxTxPower)) / 100.0f;
  fmt::format_to(std::back_inserter(out), "freq {:4} MHz (#{:3}) / max TX power {:.4} dBm", freq,
                 freq.GetChannelNumber(), dBm);
  if (disabled || noIR || radar) {
    fmt::format_to(std::back_inserter(out), " / flags");
    if (disabled) fmt::format_to(std::back_inserter(out), " [disabled]");
    if (noIR) fmt::format_to(std::back_inserter(out), " [no IR]");
    if (radar) fmt::format_to(std::back_inserter(out), " [radar]");
  }
  return fmt::to_string(out);
}

BandAttrFreqs::BandAttrFreqs(std::vector<NestedAttr> const& freqs) {
  channels.reserve(freqs.size());
  for (auto const& freq : freqs) channels.emplace_back(freq);
}

std::string BandAttrFreqs::toString() const {
  return fmt::format("[{}]", fmt::join(channels, ", "));
}

// The kernel gives the rate in units of 100 kbps.
BandAttrRates::BandRateInfo::BandRateInfo(NestedAttr const& rate)
    : bitrate(std::uint64_t{rate.getU32(NL80211_BITRATE_ATTR_RATE)} * 100) {}

std::string BandAttrRates::BandRateInfo::toString() const { return fmt::format("{}", bitrate); }

BandAttrRates::BandAttrRates(std::vector<NestedAttr> const& rates) {
  this->rates.reserve(rates.size());
  for (auto const& rate : rates) this->rates.emplace_back(rate);
}

std::string BandAttrRates::toString() const {
  return fmt::format("[[kbps] {}]", fmt::join(rates, ", "));
}

AttrWiphyBands::BandInfo::BandInfo(NestedAttr const& band)
    : freqs(band.getNestedList(NL80211_BAND_ATTR_FREQS)),
      rates(band.getNestedList(NL80211_BAND_ATTR_RATES)) {}

std::string AttrWiphyBands::BandInfo::toString() const {
  return fmt::format("Channels ({}) / Non-HT Rates ([kbps] {})", fmt::join(freqs.channels, ", "),
                     fmt::join(rates.rates, ", "));
}

AttrWiphyBands::AttrWiphyBands(std::vector<NestedAttr> const& bands) {
  this->bands.reserve(bands.size());
  for (auto const& band : bands) this->bands.emplace_back(band);
}

std::string AttrWiphyBands::toString() const { return fmt::format("[{}]", fmt::join(bands, ", ")); }

void WiPhyInfo::readFrom(AttrStream const& attrs) {
  id = WiPhyID(attrs.getU32(NL80211_ATTR_WIPHY));
  name = attrs.getString(NL80211_ATTR_WIPHY_NAME);
  generation = attrs.getU32(NL80211_ATTR_GENERATION);
  bands = AttrWiphyBands(attrs.getNestedList(NL80211_ATTR_WIPHY_BANDS));
  antennaRx = AttrWiphyAntenna(attrs.getU32(NL80211_ATTR_WIPHY_ANTENNA_RX));
  antennaTx = AttrWiphyAntenna(attrs.getU32(NL80211_ATTR_WIPHY_ANTENNA_TX));
  antennaAvailRx = AttrWiphyAntenna(attrs.getU32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_RX));
  antennaAvailTx = AttrWiphyAntenna(attrs.getU32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_TX));
}

std::string WiPhyInfo::toString() const {
  return fmt::format(
      "[gen {}] wiphy '{}' / ID {:i} / antenna avail:used RX {}:{} TX {}:{} / bands ([{}])",
      generation, name, id, antennaAvailRx, antennaRx, antennaAvailTx, antennaTx,
      fmt::join(bands.bands, ", "));
}

}  // namespace Ny80211
