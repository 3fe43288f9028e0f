// dev and phy: the interfaces and the radios, as the library's records print
// them.
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ostream.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "Tool.h"
#include "ny80211/AttrFmt.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/InterfaceInfo.h"
#include "ny80211/Socket.h"
#include "ny80211/WiPhyInfo.h"

namespace Tool {
namespace {

// What a read that failed lacked. AttrNotFound tells the type only in its
// text; the name is added when the type is one of the message's own level
// (a nested attribute's type would name something else).
std::string whatIsMissing(Ny80211::AttrStream const& attrs, Ny80211::Error const& e) {
  int type = 0;
  if (dynamic_cast<Ny80211::AttrNotFound const*>(&e) == nullptr ||
      std::sscanf(e.what(), "attribute not found (type %d)", &type) != 1 || attrs.has(type)) {
    return e.what();
  }
  auto const* info =
      Ny80211::AttrFmt::GetFmtInfo(type, Ny80211::AttrFmt::GetTable(Ny80211::AttrScope::Nl80211));
  if (info == nullptr) return e.what();
  return fmt::format("{} missing ({})", info->name, e.what());
}

}  // namespace

void dev(Args, Io& io) {
  Ny80211::CommandSocket socket;
  socket.connect();
  auto dump = Ny80211::Nl80211Command::dump(NL80211_CMD_GET_INTERFACE, "dump interfaces");
  socket.sendMessage(dump, [&io](nl_msg* reply) {
    Ny80211::GenlMessage const message(reply);
    try {
      Ny80211::InterfaceInfo info;
      info.readFrom(message.attributes());
      fmt::print(io.out, "{}\n", info);
    } catch (Ny80211::Error const& e) {
      // One unreadable reply must not hide the others.
      fmt::print(io.out, "{}: {}\n", message.commandName(), whatIsMissing(message.attributes(), e));
    }
    return NL_OK;
  });
}

void phy(Args, Io& io) {
  Ny80211::CommandSocket socket;
  socket.connect();
  // The plain dump gives every radio, but one message each of fixed size:
  // a radio that no longer fits comes without its bands. So the dump only
  // lists them, and each is asked for by itself.
  std::vector<unsigned int> indices;
  auto dump = Ny80211::Nl80211Command::dump(NL80211_CMD_GET_WIPHY, "dump wiphys");
  socket.sendMessage(dump, [&indices](nl_msg* reply) {
    Ny80211::GenlMessage const message(reply);
    if (auto const index = message.attributes().tryGetU32(NL80211_ATTR_WIPHY)) {
      indices.push_back(*index);
    }
    return NL_OK;
  });
  for (auto const index : indices) {
    Ny80211::WiPhyID const id(index);
    Ny80211::Nl80211Command get(NL80211_CMD_GET_WIPHY, fmt::format("get wiphy {}", index));
    id.writeTo(get.attributes());
    socket.sendMessage(get, [&io, index](nl_msg* reply) {
      Ny80211::GenlMessage const message(reply);
      Ny80211::WiPhyInfo info;
      try {
        info.readFrom(message.attributes());
        fmt::print(io.out, "{}\n", info);
      } catch (Ny80211::Error const& e) {
        // The name is one of the first fields read; the index is known.
        fmt::print(io.out, "wiphy '{}' / ID {}: {}\n", info.name.empty() ? "<?>" : info.name, index,
                   whatIsMissing(message.attributes(), e));
      }
      return NL_OK;
    });
  }
}

}  // namespace Tool
