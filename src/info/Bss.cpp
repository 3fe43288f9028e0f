#include <memory>
#include <vector>

#include <linux/nl80211.h>

#include "info/BssCollectors.h"
#include "ny80211/AttrStream.h"
#include "ny80211/BssInfo.h"
#include "ny80211/Element.h"
#include "ny80211/Error.h"
#include "trace/Trace.h"

namespace Ny80211 {

Oui const QuentaOui(Oui::Bytes{0x02, 0x51, 0x54});

namespace {

// Every element that parses, in order, up to the first broken one.
std::vector<std::unique_ptr<Element>> parseElements(std::vector<std::byte> const& ies) {
  std::vector<std::unique_ptr<Element>> elements;
  std::size_t pos = 0;
  auto const len = ies.size();
  while (pos < len) {
    Element::Header header;
    try {
      nycpp::span<const std::byte> const rest(ies.data() + pos, len - pos);
      header.readFrom(rest);
      if (auto element = Element::make(header, rest)) elements.push_back(std::move(element));
    } catch (Error const& e) {
      trace::cmdErr("broken element @ ({}/{}): {}", pos, len, e.what());
      break;
    }
    pos += header.length + 2u;
  }
  return elements;
}

void visitAll(std::vector<std::unique_ptr<Element>> const& elements, ElementVisitor& visitor) {
  for (auto const& element : elements) element->accept(visitor);
  visitor.visitEnd();
}

}  // namespace

void AttrBss::readFrom(AttrStream const& attrs) {
  bssid = attrs.getMac(NL80211_BSS_BSSID);
  frequency = quenta_common::MHz(attrs.getU32(NL80211_BSS_FREQUENCY));
  chanWidth = attrs.getU32(NL80211_BSS_CHAN_WIDTH);
  seenMsAgo = attrs.getU32(NL80211_BSS_SEEN_MS_AGO);
  signalMbm = static_cast<std::int32_t>(attrs.getU32(NL80211_BSS_SIGNAL_MBM));
  beaconInterval = attrs.getU16(NL80211_BSS_BEACON_INTERVAL);
  capability = attrs.getU16(NL80211_BSS_CAPABILITY);
  try {
    status = attrs.getU32(NL80211_BSS_STATUS);
  } catch (AttrNotFound const&) {
    status.reset();
  }
  lastSeenBoottime = attrs.getU64(NL80211_BSS_LAST_SEEN_BOOTTIME);

  // The parsed elements point into this copy: both go when the read ends.
  auto const payload = attrs.getBytes(NL80211_BSS_INFORMATION_ELEMENTS);
  std::vector<std::byte> const ies(payload.data(), payload.data() + payload.size());
  auto const elements = parseElements(ies);

  auto const band = frequency.GetBand();
  ChannelInfoCollector channels(band);
  try {
    visitAll(elements, channels);
    if (channels.sawOperation()) {
      channel = channels.result();
    } else {
      auto const number = frequency.GetChannelNumber();
      channel = ChannelInfo(band, number, NL80211_CHAN_WIDTH_20, number, std::nullopt);
    }
  } catch (Error const& e) {
    trace::cmdErr("could not process channel information for BSSID {}: {}", bssid, e.what());
  }
  channelType = channels.channelType();

  SsidCollector ssids;
  visitAll(elements, ssids);
  ssid = AttrSsid(ssids.ssid);
  utf8Ssid = ssids.utf8Ssid;

  QuentaVendorSpecificCollector vendor;
  visitAll(elements, vendor);
  vendorId = vendor.vendorId;
  vendorName = vendor.vendorName;
}

std::string AttrBss::getRawSSID() const {
  auto const& bytes = ssid.bytes();
  return std::string(reinterpret_cast<char const*>(bytes.data()), bytes.size());
}

namespace Cmd {

ScanInfo::ScanInfo(AttrStream const& attrs)
    : bss(NestedAttr(AttrStream(attrs.find(NL80211_ATTR_BSS)))),
      ifc(attrs.getU32(NL80211_ATTR_IFINDEX)) {}

}  // namespace Cmd
}  // namespace Ny80211
