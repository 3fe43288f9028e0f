#pragma once
// Channel: an IEEE 802.11 channel number with its centre frequency, and the
// conversions between the two for the 2.4, 5, 60 and 6 GHz bands.
// ChannelInfo: an operating channel as nl80211 reports it (primary channel,
// centre segments, width).

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "ny80211/Export.h"
#include "ny80211/KernelEnum.h"
#include "quenta_common/ChannelNumber.h"
#include "quenta_common/MHz.h"

namespace Ny80211 {

class AttrStream;

class NY80211_API Channel {
 public:
  // Unset: channel 0 at 0 MHz, which no conversion produces.
  Channel() = default;
  // Throws Error when the band has no such channel.
  Channel(nl80211_band band, quenta_common::ChannelNumber const& number);
  // Keeps the frequency as given, off the channel raster too; throws Error
  // when it has no channel number.
  explicit Channel(quenta_common::MHz const& frequency);

  // Throws Error "cannot convert channel index {} in band {} to frequency".
  quenta_common::MHz indexToFreq(quenta_common::ChannelNumber const& number,
                                 nl80211_band band) const;
  // The number is not checked against the band's range: a frequency just below
  // a band's base gives a wrapped-around number. Throws Error "cannot convert
  // {} MHz to channel index".
  quenta_common::ChannelNumber freqToindex(quenta_common::MHz const& frequency) const;

  // "5180 MHz (# 36)"
  std::string toString() const;

  quenta_common::ChannelNumber number;
  quenta_common::MHz frequency;
};

class NY80211_API ChannelInfo {
 public:
  ChannelInfo() = default;
  // Each channel is built from its number on the band; throws Error as
  // Channel does.
  ChannelInfo(nl80211_band band, quenta_common::ChannelNumber const& primary,
              nl80211_chan_width width, quenta_common::ChannelNumber const& center1,
              std::optional<quenta_common::ChannelNumber> const& center2);
  // The band is the one of the primary's frequency; the primary is rebuilt
  // from its number, so an off-raster frequency is put back on the raster.
  ChannelInfo(Channel const& primary, nl80211_chan_width width,
              quenta_common::ChannelNumber const& center1,
              std::optional<quenta_common::ChannelNumber> const& center2);

  // Reads WIPHY_FREQ, CENTER_FREQ1 and CHANNEL_WIDTH (AttrNotFound when
  // missing), the optional WIPHY_CHANNEL_TYPE and CENTER_FREQ2. An absent
  // CENTER_FREQ2 leaves center2 as it was; read into a fresh object.
  void readFrom(AttrStream const& attrs);
  // Empty when a mandatory attribute is missing; other failures throw.
  static std::optional<ChannelInfo> tryReadFrom(AttrStream const& attrs);

  // "primary {} / center {} [/ center2 {}]/ width {}"
  std::string toString() const;

  Channel primary;
  Channel center1;
  std::optional<Channel> center2;  // 80+80 MHz only
  KernelEnum<nl80211_chan_width> width = NL80211_CHAN_WIDTH_20_NOHT;
  // The legacy nl80211_channel_type, when the kernel sent one; not printed.
  std::optional<std::uint32_t> channelType;
};

namespace detail {

// "20 MHz (non-HT)", "80+80 MHz", ...; "<unknown>" for widths without a text.
NY80211_API std::string_view chanWidthText(std::uint32_t width);

// Formats a record's toString() as a string, so that width, fill and alignment
// apply to the whole text.
template <class T>
struct ToStringFormatter : fmt::formatter<fmt::string_view> {
  template <class Context>
  auto format(T const& value, Context& ctx) const {
    auto const text = value.toString();
    return fmt::formatter<fmt::string_view>::format(fmt::string_view(text), ctx);
  }
};

// Formats a value through its text function as a string (an enum's name
// table, say), so that width, fill and alignment apply.
template <class T, auto Text>
struct TextFormatter : fmt::formatter<fmt::string_view> {
  template <class Context>
  auto format(T const& value, Context& ctx) const {
    auto const text = Text(value);
    return fmt::formatter<fmt::string_view>::format(fmt::string_view(text.data(), text.size()),
                                                    ctx);
  }
  // The same text for a value as the kernel sent it.
  template <class Context>
  auto format(KernelEnum<T> const& value, Context& ctx) const {
    auto const text = Text(value.raw());
    return fmt::formatter<fmt::string_view>::format(fmt::string_view(text.data(), text.size()),
                                                    ctx);
  }
};

}  // namespace detail
}  // namespace Ny80211

template <>
struct fmt::formatter<Ny80211::Channel> : Ny80211::detail::ToStringFormatter<Ny80211::Channel> {};

template <>
struct fmt::formatter<Ny80211::ChannelInfo>
    : Ny80211::detail::ToStringFormatter<Ny80211::ChannelInfo> {};

template <>
struct fmt::formatter<nl80211_chan_width>
    : Ny80211::detail::TextFormatter<nl80211_chan_width, &Ny80211::detail::chanWidthText> {};

// A kernel value prints as its enumeration does.
template <class E>
struct fmt::formatter<Ny80211::KernelEnum<E>> : fmt::formatter<E> {};
