#include <optional>
#include <string>
#include <utility>

#include <linux/nl80211.h>

#include "elements/ElementWalk.h"
#include "info/BssCollectors.h"
#include "ny80211/AttrStream.h"
#include "ny80211/BssInfo.h"
#include "ny80211/Element.h"
#include "ny80211/Error.h"
#include "trace/Trace.h"

namespace Ny80211 {

Oui const QuentaOui(Oui::Bytes{0x02, 0x51, 0x54});

namespace {

// One pass over the elements feeds the three collectors. A failing channel
// conversion ends only the channel's part; its text is kept for the log line,
// which follows any line about a broken element as it always has.
class BssElements final : public ElementVisitor {
 public:
  explicit BssElements(nl80211_band band) : channels(band) {}

  void visit(Elem::EhtOperation const& element) override { toChannels(element); }
  void visit(Elem::HeOperation const& element) override { toChannels(element); }
  void visit(Elem::HtOperation const& element) override { toChannels(element); }
  void visit(Elem::VhtOperation const& element) override { toChannels(element); }
  void visit(Elem::ExtendedCaps const& element) override { ssids.visit(element); }
  void visit(Elem::Ssid const& element) override { ssids.visit(element); }
  void visit(Elem::VendorSpecific const& element) override { vendor.visit(element); }
  void visitEnd() override {
    if (!channelError) guarded([&] { channels.visitEnd(); });
  }

  ChannelInfoCollector channels;
  SsidCollector ssids;
  QuentaVendorSpecificCollector vendor;
  std::optional<std::string> channelError;

  template <class F>
  void guarded(F&& f) {
    try {
      f();
    } catch (Error const& e) {
      channelError = e.what();
    }
  }

 private:
  template <class E>
  void toChannels(E const& element) {
    if (!channelError) guarded([&] { channels.visit(element); });
  }
};

}  // namespace

void AttrBss::readFrom(AttrStream const& attrs) {
  bssid = attrs.getMac(NL80211_BSS_BSSID);
  frequency = quenta_common::MHz(attrs.getU32(NL80211_BSS_FREQUENCY));
  chanWidth = attrs.getU32(NL80211_BSS_CHAN_WIDTH);
  seenMsAgo = attrs.getU32(NL80211_BSS_SEEN_MS_AGO);
  signalMbm = static_cast<std::int32_t>(attrs.getU32(NL80211_BSS_SIGNAL_MBM));
  beaconInterval = attrs.getU16(NL80211_BSS_BEACON_INTERVAL);
  capability = attrs.getU16(NL80211_BSS_CAPABILITY);
  status = attrs.tryGetU32(NL80211_BSS_STATUS);
  lastSeenBoottime = attrs.getU64(NL80211_BSS_LAST_SEEN_BOOTTIME);

  // The elements are read where they lie, in the message.
  auto const band = frequency.GetBand();
  BssElements elements(band);
  auto const ies = attrs.getBytes(NL80211_BSS_INFORMATION_ELEMENTS);
  if (auto const broken = detail::walkElements(ies, elements)) {
    trace::cmdErr("broken element @ ({}/{}): {}", broken->offset, ies.size(), broken->error);
  }
  elements.visitEnd();

  if (!elements.channelError) {
    elements.guarded([&] {
      if (elements.channels.sawOperation()) {
        channel = elements.channels.result();
      } else {
        auto const number = frequency.GetChannelNumber();
        channel = ChannelInfo(band, number, NL80211_CHAN_WIDTH_20, number, std::nullopt);
      }
    });
  }
  if (elements.channelError) {
    trace::cmdErr("could not process channel information for BSSID {}: {}", bssid,
                  *elements.channelError);
  }
  channelType = elements.channels.channelType();

  ssid = AttrSsid(elements.ssids.ssid);
  utf8Ssid = elements.ssids.utf8Ssid;
  vendorId = elements.vendor.vendorId;
  vendorName = std::move(elements.vendor.vendorName);
}

std::string AttrBss::getRawSSID() const {
  auto const& bytes = ssid.bytes();
  return std::string(reinterpret_cast<char const*>(bytes.data()), bytes.size());
}

namespace Cmd {

// The BSS is read in place, from a view of its nest.
ScanInfo::ScanInfo(AttrStream const& attrs) {
  bss.readFrom(AttrStream(attrs.find(NL80211_ATTR_BSS)));
  ifc = NetIfcID(attrs.getU32(NL80211_ATTR_IFINDEX));
}

}  // namespace Cmd
}  // namespace Ny80211
