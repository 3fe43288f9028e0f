#include "ny80211/Channel.h"

#include <iterator>

#include <fmt/format.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Error.h"

namespace Ny80211 {

using quenta_common::ChannelNumber;
using quenta_common::MHz;

Channel::Channel(nl80211_band band, ChannelNumber const& number)
    : number(number), frequency(indexToFreq(number, band)) {}

Channel::Channel(MHz const& frequency) : number(freqToindex(frequency)), frequency(frequency) {}

MHz Channel::indexToFreq(ChannelNumber const& number, nl80211_band band) const {
  unsigned const n = number.Get();
  if (n != 0) {
    switch (band) {
      case NL80211_BAND_2GHZ:
        if (n == 14) return 2484;
        if (n <= 13) return 2407 + 5 * n;
        break;
      case NL80211_BAND_5GHZ:
        // Channels 182-196 are the 4.9 GHz public-safety channels.
        if (n >= 182 && n <= 196) return 4000 + 5 * n;
        return 5000 + 5 * n;
      case NL80211_BAND_60GHZ:
        if (n <= 6) return 56160 + 2160 * n;
        break;
      case NL80211_BAND_6GHZ:
        // Channel 2 sits below the 6 GHz raster's base.
        if (n == 2) return 5935;
        if (n <= 253) return 5950 + 5 * n;
        break;
      default:
        break;
    }
  }
  throw Error(fmt::format("cannot convert channel index {} in band {} to frequency", n,
                          static_cast<unsigned>(band)));
}

ChannelNumber Channel::freqToindex(MHz const& frequency) const {
  // The ranges are compared on the unsigned value, so that no frequency above
  // 60 GHz wraps around into a lower band; the quotients are signed, and a
  // frequency below a band's base gives a negative one, kept as it is.
  std::uint32_t const f = frequency.Get();
  auto const quotient = [f](std::int32_t base, std::int32_t spacing) {
    return (static_cast<std::int32_t>(f) - base) / spacing;
  };
  std::int32_t n = 0;
  if (f == 2484) return 14;
  if (f == 5935) return 2;
  if (f <= 2483) {
    n = quotient(2407, 5);
  } else if (f >= 4910 && f <= 4980) {
    n = quotient(4000, 5);
  } else if (f <= 5949) {
    n = quotient(5000, 5);
  } else if (f <= 45000) {
    n = quotient(5950, 5);
  } else if (f >= 58320 && f <= 70200) {
    n = quotient(56160, 2160);
  }
  if (n == 0) throw Error(fmt::format("cannot convert {} MHz to channel index", f));
  return ChannelNumber(static_cast<std::uint8_t>(n));
}

std::string Channel::toString() const { return fmt::format("{:4} MHz (#{:3})", frequency, number); }

ChannelInfo::ChannelInfo(nl80211_band band, ChannelNumber const& primaryNumber,
                         nl80211_chan_width width, ChannelNumber const& center1Number,
                         std::optional<ChannelNumber> const& center2Number)
    : primary(band, primaryNumber), center1(band, center1Number), width(width) {
  if (center2Number) center2 = Channel(band, *center2Number);
}

ChannelInfo::ChannelInfo(Channel const& primary, nl80211_chan_width width,
                         ChannelNumber const& center1, std::optional<ChannelNumber> const& center2)
    : ChannelInfo(primary.frequency.GetBand(), primary.number, width, center1, center2) {}

namespace {

// The one reading of the channel attributes. A missing mandatory one throws
// AttrNotFound, or only ends the read (false) when `tolerant`; each frequency
// is converted as soon as it is read, so a bad primary throws even when a
// later attribute is missing.
bool readChannel(ChannelInfo& info, AttrStream const& attrs, bool tolerant) {
  auto const mandatory = [&](int type) {
    return tolerant ? attrs.tryFind(type) : attrs.find(type);
  };
  auto const* freq = mandatory(NL80211_ATTR_WIPHY_FREQ);
  if (freq == nullptr) return false;
  info.primary = Channel(MHz(getU32(freq)));
  auto const* center1 = mandatory(NL80211_ATTR_CENTER_FREQ1);
  if (center1 == nullptr) return false;
  info.center1 = Channel(MHz(getU32(center1)));
  auto const* width = mandatory(NL80211_ATTR_CHANNEL_WIDTH);
  if (width == nullptr) return false;
  info.width = KernelEnum<nl80211_chan_width>::fromRaw(getU32(width));
  info.channelType = attrs.tryGetU32(NL80211_ATTR_WIPHY_CHANNEL_TYPE);
  // Unlike the channel type, an absent second segment leaves center2 alone;
  // callers read into fresh objects.
  if (auto const f2 = attrs.tryGetU32(NL80211_ATTR_CENTER_FREQ2)) info.center2 = Channel(MHz(*f2));
  return true;
}

}  // namespace

void ChannelInfo::readFrom(AttrStream const& attrs) { readChannel(*this, attrs, false); }

std::optional<ChannelInfo> ChannelInfo::tryReadFrom(AttrStream const& attrs) {
  ChannelInfo info;
  if (!readChannel(info, attrs, true)) return std::nullopt;
  return info;
}

std::string ChannelInfo::toString() const {
  fmt::memory_buffer out;
  fmt::format_to(std::back_inserter(out), "primary {} / center {} ", primary, center1);
  // No blank after the second centre: the width follows it directly.
  if (center2) fmt::format_to(std::back_inserter(out), "/ center2 {}", *center2);
  fmt::format_to(std::back_inserter(out), "/ width {}", width);
  return fmt::to_string(out);
}

namespace detail {

std::string_view chanWidthText(std::uint32_t width) {
  switch (width) {
    case NL80211_CHAN_WIDTH_20_NOHT:
      return "20 MHz (non-HT)";
    case NL80211_CHAN_WIDTH_20:
      return "20 MHz (HT)";
    case NL80211_CHAN_WIDTH_40:
      return "40 MHz";
    case NL80211_CHAN_WIDTH_80:
      return "80 MHz";
    case NL80211_CHAN_WIDTH_80P80:
      return "80+80 MHz";
    case NL80211_CHAN_WIDTH_160:
      return "160 MHz";
    case NL80211_CHAN_WIDTH_5:
      return "5 MHz (OFDM)";
    case NL80211_CHAN_WIDTH_10:
      return "10 MHz (OFDM)";
    default:
      return "<unknown>";
  }
}

}  // namespace detail
}  // namespace Ny80211
