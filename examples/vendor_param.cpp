// vendor_param [PHY-INDEX [MASK]]: sets the transmit chain mask of a Qualcomm
// Atheros radio (default phy 0, mask 3) through the chip vendor's
// SET_WIFI_CONFIGURATION subcommand, then reads it back with
// GET_WIFI_CONFIGURATION.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/handlers.h>

#include "ny80211/AttrStream.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"
#include "ny80211/VendorCmd.h"

namespace {

namespace Qca = Ny80211::QcaCmd;
using RadioParam = Qca::WifiParamVendorData<Qca::RadioVendorParamTable>;

// The enclosing NL80211_CMD_VENDOR message for one radio parameter. The
// subcommand is the row's: a name alone does not tell set from get.
Ny80211::Nl80211Command radioParamCommand(Ny80211::WiPhyID const& phy, Qca::VendorCmd const& row,
                                          Ny80211::NestedAttr const& vendorData,
                                          std::string debugText) {
  Ny80211::Nl80211Command command(NL80211_CMD_VENDOR, std::move(debugText));
  auto& attrs = command.attributes();
  phy.writeTo(attrs);
  attrs.addU32(NL80211_ATTR_VENDOR_ID, Qca::vendorId);
  attrs.addU32(NL80211_ATTR_VENDOR_SUBCMD, row.vendorSubCmd);
  attrs.addNested(NL80211_ATTR_VENDOR_DATA, vendorData);
  return command;
}

// What the driver reads to us: the attributes of its vendor data, a 4-byte
// one also as a number.
int printReply(nl_msg* reply) {
  Ny80211::GenlMessage const message(reply);
  if (!message.attributes().has(NL80211_ATTR_VENDOR_DATA)) {
    fmt::print("  reply {} without vendor data\n", message.commandName());
    return NL_OK;
  }
  Ny80211::AttrStream const data(message.attributes().find(NL80211_ATTR_VENDOR_DATA));
  data.forEachAttr([](nlattr const* attr) {
    auto const length = nla_len(attr);
    if (length == 4) {
      std::uint32_t value = 0;
      std::memcpy(&value, nla_data(attr), sizeof value);
      fmt::print("  vendor attribute {}: {} (0x{:x})\n", nla_type(attr), value, value);
    } else {
      fmt::print("  vendor attribute {}: {} bytes\n", nla_type(attr), length);
    }
  });
  return NL_OK;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Ny80211::WiPhyID const phy(argc > 1 ? static_cast<unsigned int>(std::stoul(argv[1])) : 0u);
    unsigned int const mask =
        argc > 2 ? static_cast<unsigned int>(std::stoul(argv[2], nullptr, 0)) : 3u;

    auto setData = Ny80211::NestedAttr::build();
    RadioParam(setData, "txchainmask", mask);
    auto set = radioParamCommand(phy, *RadioParam::lookupVendorCmd("txchainmask", 1), setData,
                                 fmt::format("set txchainmask {} on phy {}", mask, phy.index()));

    auto getData = Ny80211::NestedAttr::build();
    RadioParam(getData, "get_txchainmask");
    auto get = radioParamCommand(phy, *RadioParam::lookupVendorCmd("get_txchainmask", 0), getData,
                                 fmt::format("get txchainmask of phy {}", phy.index()));

    for (auto const* command : {&set, &get}) {
      auto const& attrs = command->attributes();
      fmt::print("{}: {} vendor 0x{:06x} subcommand {}\n", command->debugInfoString(),
                 command->commandName(), attrs.getU32(NL80211_ATTR_VENDOR_ID),
                 attrs.getU32(NL80211_ATTR_VENDOR_SUBCMD));
    }

    Ny80211::CommandSocket socket;
    socket.connect();
    fmt::print("{}:\n", set.debugInfoString());
    socket.sendMessage(set, printReply);
    fmt::print("{}:\n", get.debugInfoString());
    socket.sendMessage(get, printReply);
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "vendor_param: %s\n", e.what());
    return 1;
  }
}
