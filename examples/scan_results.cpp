// scan_results [NAME]: prints the BSSs in the scan results of interface NAME
// (default wlan0) with the channel each one operates on, derived from the
// operation elements of its beacon or probe response.
#include <cstdio>
#include <exception>
#include <string>

#include <fmt/format.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "ny80211/BssInfo.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"

namespace {

int printBss(nl_msg* reply) {
  Ny80211::GenlMessage const message(reply);
  try {
    Ny80211::Cmd::ScanInfo const result(message.attributes());
    auto const& bss = result.bss;
    auto const channel = bss.channel ? bss.channel->toString() : std::string("<unknown>");
    fmt::print("{}  {:<32}  {:6.1f} dBm  {}\n", bss.bssid, bss.ssid.toEscapedString(),
               bss.signalMbm / 100.0, channel);
  } catch (Ny80211::Error const& e) {
    // One unreadable result must not hide the others.
    fmt::print("{}: {}\n", message.commandName(), e.what());
  }
  return NL_OK;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Ny80211::CommandSocket socket;
    socket.connect();
    Ny80211::NetIfcID const interface(std::string(argc > 1 ? argv[1] : "wlan0"));
    auto dump = Ny80211::Nl80211Command::dump(NL80211_CMD_GET_SCAN,
                                             fmt::format("dump scan {}", interface));
    interface.writeTo(dump.attributes());
    socket.sendMessage(dump, printBss);
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "scan_results: %s\n", e.what());
    return 1;
  }
}
