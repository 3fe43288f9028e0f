// Fuzz target: one reply of the scan dump (a generic netlink message, either
// mode), read as Cmd::ScanInfo (the BSS record with its element walk and
// channel derivation, then the interface), and every field of the record
// printed. Only Error may be thrown, and only by the read.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>

#include <fmt/format.h>

#include "FuzzInput.h"
#include "ny80211/BssInfo.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;

void print(Cmd::ScanInfo const& scan) {
  auto const& bss = scan.bss;
  fmt::memory_buffer text;
  auto const to = std::back_inserter(text);
  fmt::format_to(to, "{:i} {} {} {} {} {} {} {} {} '{}' {} {} {}", scan.ifc, bss.bssid,
                 bss.frequency, bss.chanWidth, bss.seenMsAgo, bss.lastSeenBoottime, bss.signalMbm,
                 bss.beaconInterval, bss.capability, bss.ssid.toEscapedString(),
                 bss.getRawSSID().size(), bss.utf8Ssid, bss.channelType);
  if (bss.channel) fmt::format_to(to, " {}", *bss.channel);
  if (bss.status) fmt::format_to(to, " {}", *bss.status);
  if (bss.vendorId) fmt::format_to(to, " {}", bss.vendorId->size());
  if (bss.vendorName) fmt::format_to(to, " {}", *bss.vendorName);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::logSink();
  fuzz::Input input(data, size);
  auto const message = fuzz::genlInput(input);
  if (!message) return 0;
  std::optional<Cmd::ScanInfo> scan;
  try {
    GenlMessage const genl(message.get());
    scan.emplace(genl.attributes());
  } catch (Error const&) {
    return 0;
  }
  print(*scan);
  return 0;
}
