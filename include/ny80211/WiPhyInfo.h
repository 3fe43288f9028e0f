#pragma once
// WiPhyInfo: one wireless PHY as an NL80211_CMD_NEW_WIPHY message describes it,
// with its bands (channels and legacy bit rates) and antenna masks.

#include <cstdint>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Channel.h"
#include "ny80211/Export.h"
#include "ny80211/Identifiers.h"
#include "quenta_common/MHz.h"

namespace Ny80211 {

// An antenna bit mask: bit n set is antenna n.
class NY80211_API AttrWiphyAntenna {
 public:
  AttrWiphyAntenna() = default;
  explicit AttrWiphyAntenna(unsigned int mask) : mask(mask) {}

  // False for antennas above 31.
  bool isEnabled(unsigned int antenna) const;
  // The mask in binary: "11" for antennas 0 and 1.
  std::string toString() const;

  std::uint32_t mask = 0;
};

// The entries of NL80211_BAND_ATTR_FREQS, in message order.
class NY80211_API BandAttrFreqs {
 public:
  class NY80211_API BandChannelInfo {
   public:
    // FREQ and MAX_TX_POWER are mandatory (AttrNotFound); the flags are read
    // by presence.
    explicit BandChannelInfo(NestedAttr const& freq);

    // "freq 5180 MHz (# 36) / max TX power 23 dBm", then " / flags" and a
    // bracketed word for each flag set.
    std::string toString() const;

    quenta_common::MHz freq;
    bool disabled = false;
    bool noIR = false;
    bool radar = false;
    std::uint32_t maxTxPower = 0;  // mBm, signed
  };

  BandAttrFreqs() = default;
  explicit BandAttrFreqs(std::vector<NestedAttr> const& freqs);

  // "[{}]" with the channels joined by ", "
  std::string toString() const;

  std::vector<BandChannelInfo> channels;
};

// The entries of NL80211_BAND_ATTR_RATES, in message order.
class NY80211_API BandAttrRates {
 public:
  class NY80211_API BandRateInfo {
   public:
    // NL80211_BITRATE_ATTR_RATE is mandatory (AttrNotFound).
    explicit BandRateInfo(NestedAttr const& rate);

    // The bitrate in kbps.
    std::string toString() const;

    std::uint64_t bitrate = 0;  // kbps
  };

  BandAttrRates() = default;
  explicit BandAttrRates(std::vector<NestedAttr> const& rates);

  // "[[kbps] {}]" with the rates joined by ", "
  std::string toString() const;

  std::vector<BandRateInfo> rates;
};

// The entries of NL80211_ATTR_WIPHY_BANDS, in message order; which band each
// one is (its attribute type) is not kept.
class NY80211_API AttrWiphyBands {
 public:
  class NY80211_API BandInfo {
   public:
    // FREQS and RATES are mandatory (AttrNotFound).
    explicit BandInfo(NestedAttr const& band);

    // "Channels ({}) / Non-HT Rates ([kbps] {})"
    std::string toString() const;

    BandAttrFreqs freqs;
    BandAttrRates rates;
  };

  AttrWiphyBands() = default;
  explicit AttrWiphyBands(std::vector<NestedAttr> const& bands);

  // "[{}]" with the bands joined by ", "
  std::string toString() const;

  std::vector<BandInfo> bands;
};

class NY80211_API WiPhyInfo {
 public:
  // Every attribute is mandatory: a missing one throws AttrNotFound and ends
  // the read, leaving the fields read before it assigned. The parts of a
  // split wiphy dump are not merged, so only a complete message reads.
  void readFrom(AttrStream const& attrs);

  // "[gen {}] wiphy '{}' / ID {:i} / antenna avail:used RX {}:{} TX {}:{} /
  // bands ([{}])"
  std::string toString() const;

  WiPhyID id;
  std::string name;
  std::uint32_t generation = 0;
  AttrWiphyBands bands;
  AttrWiphyAntenna antennaRx;       // configured
  AttrWiphyAntenna antennaTx;       // configured
  AttrWiphyAntenna antennaAvailRx;  // available
  AttrWiphyAntenna antennaAvailTx;  // available
};

}  // namespace Ny80211

template <>
struct fmt::formatter<Ny80211::AttrWiphyAntenna>
    : Ny80211::detail::ToStringFormatter<Ny80211::AttrWiphyAntenna> {};

template <>
struct fmt::formatter<Ny80211::BandAttrFreqs::BandChannelInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::BandAttrFreqs::BandChannelInfo> {};

template <>
struct fmt::formatter<Ny80211::BandAttrFreqs>
    : Ny80211::detail::ToStringFormatter<Ny80211::BandAttrFreqs> {};

template <>
struct fmt::formatter<Ny80211::BandAttrRates::BandRateInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::BandAttrRates::BandRateInfo> {};

template <>
struct fmt::formatter<Ny80211::BandAttrRates>
    : Ny80211::detail::ToStringFormatter<Ny80211::BandAttrRates> {};

template <>
struct fmt::formatter<Ny80211::AttrWiphyBands::BandInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::AttrWiphyBands::BandInfo> {};

template <>
struct fmt::formatter<Ny80211::AttrWiphyBands>
    : Ny80211::detail::ToStringFormatter<Ny80211::AttrWiphyBands> {};

template <>
struct fmt::formatter<Ny80211::WiPhyInfo> : Ny80211::detail::ToStringFormatter<Ny80211::WiPhyInfo> {
};
