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
#include "ny80211/Socket.h"

namespace {

int printInterface(nl_msg* reply) {
  Ny80211::GenlMessage const message(reply);
  auto const& attrs = message.attributes();
  try {
    fmt::print("{:>3}  {:<16} wiphy {}  {}\n", attrs.getU32(NL80211_ATTR_IFINDEX),
               attrs.getString(NL80211_ATTR_IFNAME), attrs.getU32(NL80211_ATTR_WIPHY),
               attrs.getMac(NL80211_ATTR_MAC));
  } catch (Ny80211::Error const& e) {
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
