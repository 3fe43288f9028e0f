#pragma once
// The scan table both examples print: one line per BSS in the scan results of
// an interface, with the channel derived from the operation elements of its
// beacon or probe response.
#include <iterator>
#include <string>

#include <fmt/format.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "ny80211/BssInfo.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"

namespace Example {

// Dumps the scan results of interface into one text, which a caller prints
// in one piece so that lines other threads print don't land inside it.
// Throws what the command socket throws.
inline std::string scanTable(Ny80211::CommandSocket& socket, Ny80211::NetIfcID const& interface) {
  auto dump =
      Ny80211::Nl80211Command::dump(NL80211_CMD_GET_SCAN, fmt::format("dump scan {}", interface));
  interface.writeTo(dump.attributes());
  fmt::memory_buffer table;
  socket.sendMessage(dump, [&table](nl_msg* reply) {
    Ny80211::GenlMessage const message(reply);
    try {
      Ny80211::Cmd::ScanInfo const result(message.attributes());
      auto const& bss = result.bss;
      auto const channel = bss.channel ? bss.channel->toString() : std::string("<unknown>");
      fmt::format_to(std::back_inserter(table), "{}  {:<32}  {:6.1f} dBm  {}\n", bss.bssid,
                     bss.ssid.toEscapedString(), bss.signalMbm / 100.0, channel);
    } catch (Ny80211::Error const& e) {
      // One unreadable result must not hide the others.
      fmt::format_to(std::back_inserter(table), "{}: {}\n", message.commandName(), e.what());
    }
    return NL_OK;
  });
  return fmt::to_string(table);
}

}  // namespace Example
