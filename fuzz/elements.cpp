// Fuzz target: the 802.11 element parser and everything that prints or
// visits elements.
//   framed: [0] [band] elements... — walked from the start as a scan result's
//           are; every typed element is printed field by field and visited
//           by the collectors a BSS record derives its channel, SSID and
//           vendor data with (on the band given, any nl80211_band value).
//   raw:    [1] [ID] [Length] [extension ID] bytes... — one element from a
//           header built by hand over bytes that need not match it.
// Only Error may be thrown, and only by parsing and channel derivation.

#include "ny80211/Elements.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <linux/nl80211.h>

#include "FuzzInput.h"
#include "info/BssCollectors.h"
#include "ny80211/BssInfo.h"
#include "ny80211/Element.h"
#include "ny80211/Error.h"
#include "ny80211/NeighborReport.h"

namespace {

using namespace Ny80211;
using Span = nycpp::span<const std::byte>;

// Every field of every class through the library's texts and formatters.
class Printer final : public ElementVisitor {
 public:
  void visit(Elem::EhtOperation const& e) override {
    out("EHT {}", e.bytes().size());
    if (auto const& info = e.ehtOperationInfo()) {
      out(" {} {} {} {}", info->control, info->ccfs0, info->ccfs1,
          info->disabledSubchannelBitmap.value_or(0));
    }
  }
  void visit(Elem::ExtendedCaps const& e) override { out("caps {}", e.utf8Ssid()); }
  void visit(Elem::HeOperation const& e) override {
    if (auto const& vht = e.vhtOperationInfo()) {
      out("HE VHT {} {} {}", vht->channelWidth, vht->ccfs0, vht->ccfs1);
    }
    if (auto const& six = e.sixGhzOperationInfo()) {
      out("HE 6 GHz {} {} {} {} {}", six->primaryChannel, six->channelWidth, six->ccfs0, six->ccfs1,
          six->minimumRate);
    }
  }
  void visit(Elem::HtOperation const& e) override {
    out("HT {} {} {} {}", e.primaryChannel(), e.secondaryChannelOffset(), e.staChannelWidth(),
        e.ccfs2());
  }
  void visit(Elem::NeighborReport const& e) override {
    auto const& info = e.bssidInfo();
    out("{}{}{}{}{}", e.toString(), e.toTableRow(true, ssid_), info.toStringHex(),
        info.reachability(), info.capabilities());
    for (auto const id : e.subElements()) out("{}", id);
  }
  void visit(Elem::Ssid const& e) override {
    auto const& bytes = e.ssid();
    ssid_ = AttrSsid(bytes).toEscapedString();
    out("SSID '{}'", ssid_);
  }
  void visit(Elem::VendorSpecific const& e) override {
    auto const payload = e.payload();
    nycpp::span<const char> const chars(reinterpret_cast<char const*>(payload.data()),
                                        payload.size());
    out("vendor {} {}", e.oui(), chars);
  }
  void visit(Elem::VhtOperation const& e) override {
    out("VHT {} {} {}", e.channelWidth(), e.ccfs0(), e.ccfs1());
  }
  void visitEnd() override { out("end"); }

  template <class... Args>
  void out(fmt::format_string<Args...> pattern, Args&&... args) {
    fmt::format_to(std::back_inserter(text_), pattern, std::forward<Args>(args)...);
  }

 private:
  std::string ssid_;
  fmt::memory_buffer text_;
};

void visitAll(std::vector<std::unique_ptr<Element>> const& elements, ElementVisitor& visitor) {
  for (auto const& element : elements) element->accept(visitor);
  visitor.visitEnd();
}

void walk(nl80211_band band, Span bytes) {
  Printer printer;
  std::vector<std::unique_ptr<Element>> elements;
  // A header that does not fit ends the walk; a typed element that does not
  // parse is skipped, so that those behind it are reached too.
  while (!bytes.empty()) {
    Element::Header header;
    try {
      header.readFrom(bytes);
    } catch (Error const&) {
      break;
    }
    printer.out("{}", header.id);
    try {
      if (auto element = Element::make(header, bytes)) elements.push_back(std::move(element));
    } catch (Error const&) {
    }
    bytes = bytes.subspan(std::size_t{header.length} + 2);
  }

  visitAll(elements, printer);

  ChannelInfoCollector channels(band);
  try {
    visitAll(elements, channels);
    if (auto const& channel = channels.result()) printer.out("{}", *channel);
  } catch (Error const&) {
  }
  printer.out("{}", channels.channelType());
  SsidCollector ssids;
  visitAll(elements, ssids);
  QuentaVendorSpecificCollector vendor;
  visitAll(elements, vendor);
  if (vendor.vendorName) printer.out("{}", *vendor.vendorName);
}

void handMade(fuzz::Input& input) {
  Element::Header header;
  header.id.id = input.byte();
  header.length = input.byte();
  header.id.extId = input.byte();
  header.id.isExtension = header.id.id == 255;
  auto const rest = input.rest();
  try {
    auto const element =
        Element::make(header, Span(reinterpret_cast<std::byte const*>(rest.data()), rest.size()));
    if (element) {
      Printer printer;
      element->accept(printer);
    }
  } catch (Error const&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::logSink();
  fuzz::Input input(data, size);
  if (fuzz::isRaw(input)) {
    handMade(input);
    return 0;
  }
  auto const band = static_cast<nl80211_band>(input.byte() % (NUM_NL80211_BANDS + 1));
  auto const bytes = input.rest();
  walk(band, Span(reinterpret_cast<std::byte const*>(bytes.data()), bytes.size()));
  return 0;
}
