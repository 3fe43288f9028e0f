// interfaces [NAME]: asks nl80211 for one interface (by the index of NAME,
// default wlan0), then dumps all wireless interfaces.
#include <cstdio>
#include <exception>
#include <string>

#include <fmt/format.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/InterfaceInfo.h"
#include "ny80211/Socket.h"

namespace {

int printInterface(nl_msg* reply) {
  Ny80211::GenlMessage const message(reply);
  try {
    Ny80211::InterfaceInfo info;
    info.readFrom(message.attributes());
    fmt::print("{}\n", info);
  } catch (Ny80211::Error const& e) {
    // One unreadable reply must not hide the others.
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
    Ny80211::Nl80211Command get(NL80211_CMD_GET_INTERFACE, fmt::format("get {}", interface));
    interface.writeTo(get.attributes());
    fmt::print("{}:\n", get.debugInfoString());
    socket.sendMessage(get, printInterface);

    auto dump = Ny80211::Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump interfaces");
    fmt::print("{}:\n", dump.debugInfoString());
    socket.sendMessage(dump, printInterface);
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "interfaces: %s\n", e.what());
    return 1;
  }
}
