// What one BSS of a scan dump costs: the scan result the library reads from
// a reply (GenlMessage, Cmd::ScanInfo), against a bare walk of the same
// message that reads the same fixed fields and picks out the SSID and the
// HT, VHT, HE and EHT Operation elements without allocating.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>

#include "Bench.h"
#include "ScanDump.h"
#include "TraceCapture.h"
#include "ny80211/BssInfo.h"
#include "ny80211/GenlMessage.h"

namespace {

using bench::check;
using bench::scan::Ap;
using bench::scan::Entry;

// A real interface, so that the name lookup of the interface is real.
std::uint32_t const loopback = if_nametoindex("lo");

class Dump : public bench::Work {
 protected:
  Entry const& next() {
    auto const& entry = dump_[next_];
    next_ = (next_ + 1) % dump_.size();
    return entry;
  }
  std::vector<Entry> const& dump() const { return dump_; }

 private:
  std::vector<Entry> const dump_ = bench::scan::scanDump(loopback);
  std::size_t next_ = 0;
};

class Library final : public Dump {
 public:
  Library() {
    Ny80211::testing::TraceCapture const lines;
    for (auto const& entry : dump()) {
      Ny80211::GenlMessage const message(entry.message->msg);
      Ny80211::Cmd::ScanInfo const info(message.attributes());
      auto const& ap = entry.ap;
      auto const& bss = info.bss;
      std::string const ssid = ap.ssid;
      check(bss.getRawSSID() == ssid && bss.frequency.Get() == ap.mhz, "the SSID of " + ssid);
      check(bss.channel && bss.channel->width.raw() == bench::scan::nl80211Width(ap),
            "the channel of " + ssid);
      check(bss.status.has_value() == ((ap.extras & bench::scan::Status) != 0) &&
                bss.vendorId.has_value() == ((ap.extras & bench::scan::QuentaId) != 0) &&
                bss.vendorName.has_value() == ((ap.extras & bench::scan::QuentaName) != 0) &&
                bss.utf8Ssid == ((ap.extras & bench::scan::Utf8) != 0),
            "the status and vendor data of " + ssid);
      check(info.ifc.name() == "lo", "the interface name");
    }
    check(lines.lines().empty(), "the library logged while it read the dump");
  }

  void item() override {
    Ny80211::GenlMessage const message(next().message->msg);
    Ny80211::Cmd::ScanInfo const info(message.attributes());
    benchmark::DoNotOptimize(&info);
  }
};

// What the walk found: values, and pointers into the message.
struct Walked {
  std::uint32_t ifindex = 0, frequency = 0, chanWidth = 0, seenMsAgo = 0, signalMbm = 0;
  std::uint32_t status = 0;
  bool hasStatus = false;
  std::uint16_t beaconInterval = 0, capability = 0;
  std::uint64_t tsf = 0, lastSeenBoottime = 0;
  std::uint8_t const* bssid = nullptr;
  std::uint8_t const* ssid = nullptr;
  std::uint8_t ssidLength = 0;
  // Element bodies, from the octet after the Length (the extension ID for
  // HE and EHT).
  std::uint8_t const *ht = nullptr, *vht = nullptr, *he = nullptr, *eht = nullptr;
};

// A value only from a payload that holds it.
template <class T>
void read(nlattr const* attr, T& value) {
  if (nla_len(attr) >= static_cast<int>(sizeof value))
    std::memcpy(&value, nla_data(attr), sizeof value);
}

void walkElements(std::uint8_t const* ies, int length, Walked& out) {
  for (int at = 0; at + 2 <= length;) {
    std::uint8_t const id = ies[at], size = ies[at + 1];
    auto const* body = ies + at + 2;
    if (at + 2 + size > length) break;
    switch (id) {
      case 0:
        out.ssid = body, out.ssidLength = size;
        break;
      case 61:
        if (size == 22) out.ht = body;
        break;
      case 192:
        if (size == 5) out.vht = body;
        break;
      case 255:
        if (size >= 7 && body[0] == 36) out.he = body;
        if (size >= 6 && body[0] == 106) out.eht = body;
        break;
      default:
        break;
    }
    at += 2 + size;
  }
}

Walked walk(nl_msg* msg) {
  Walked out;
  auto* const genl = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
  nlattr* bss = nullptr;
  nlattr* attr = nullptr;
  int rest = 0;
  nla_for_each_attr(attr, genlmsg_attrdata(genl, 0), genlmsg_attrlen(genl, 0), rest) {
    if (nla_type(attr) == NL80211_ATTR_IFINDEX) read(attr, out.ifindex);
    if (nla_type(attr) == NL80211_ATTR_BSS) bss = attr;
  }
  if (bss == nullptr) return out;
  std::uint8_t const* ies = nullptr;
  int iesLength = 0;
  nla_for_each_nested(attr, bss, rest) {
    switch (nla_type(attr)) {
      case NL80211_BSS_BSSID:
        if (nla_len(attr) >= 6) out.bssid = static_cast<std::uint8_t const*>(nla_data(attr));
        break;
      case NL80211_BSS_FREQUENCY:
        read(attr, out.frequency);
        break;
      case NL80211_BSS_TSF:
        read(attr, out.tsf);
        break;
      case NL80211_BSS_BEACON_INTERVAL:
        read(attr, out.beaconInterval);
        break;
      case NL80211_BSS_CAPABILITY:
        read(attr, out.capability);
        break;
      case NL80211_BSS_INFORMATION_ELEMENTS:
        ies = static_cast<std::uint8_t const*>(nla_data(attr));
        iesLength = nla_len(attr);
        break;
      case NL80211_BSS_SIGNAL_MBM:
        read(attr, out.signalMbm);
        break;
      case NL80211_BSS_STATUS:
        read(attr, out.status), out.hasStatus = true;
        break;
      case NL80211_BSS_SEEN_MS_AGO:
        read(attr, out.seenMsAgo);
        break;
      case NL80211_BSS_CHAN_WIDTH:
        read(attr, out.chanWidth);
        break;
      case NL80211_BSS_LAST_SEEN_BOOTTIME:
        read(attr, out.lastSeenBoottime);
        break;
      default:
        break;
    }
  }
  walkElements(ies, iesLength, out);
  return out;
}

class Baseline final : public Dump {
 public:
  Baseline() {
    for (auto const& entry : dump()) {
      auto const walked = walk(entry.message->msg);
      std::string_view const ssid = entry.ap.ssid;
      check(walked.ssid != nullptr && std::string_view(reinterpret_cast<char const*>(walked.ssid),
                                                       walked.ssidLength) == ssid,
            "the walk's SSID of " + std::string(ssid));
      check(walked.frequency == entry.ap.mhz && walked.ifindex == loopback &&
                walked.lastSeenBoottime != 0 &&
                walked.hasStatus == ((entry.ap.extras & bench::scan::Status) != 0),
            "the walk's fields of " + std::string(ssid));
      check((walked.ht || walked.he) == (entry.ap.gen != bench::scan::Gen::Legacy),
            "the walk's operation elements of " + std::string(ssid));
    }
  }

  void item() override {
    auto const walked = walk(next().message->msg);
    benchmark::DoNotOptimize(walked);
  }
};

}  // namespace

int main(int argc, char** argv) {
  return bench::run(argc, argv, {{"bss", bench::make<Library>, bench::make<Baseline>}});
}
