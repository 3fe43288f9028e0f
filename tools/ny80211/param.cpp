// param get|set TARGET NAME [VALUE...]: a driver parameter by its name in
// the chip vendor's tables, sent as NL80211_CMD_VENDOR. The library's lookup
// ends the process on an unknown name or a wrong number of values, so every
// such mistake is caught here first, against the exported tables.
#include <charconv>
#include <cstdint>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <linux/nl80211.h>
#include <netlink/handlers.h>

#include "Tool.h"
#include "ny80211/AttrFmt.h"
#include "ny80211/AttrStream.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"
#include "ny80211/VendorCmd.h"

namespace Tool {
namespace {

namespace Qca = Ny80211::QcaCmd;

Qca::VendorCmd const* find(Qca::VendorCmdTable const& table, std::string const& name) {
  for (auto const& row : std::span(table.rows, table.rowCount)) {
    if (name == row.name) return &row;
  }
  return nullptr;
}

unsigned int parseValue(std::string const& text, std::string const& name) {
  int const base = text.starts_with("0x") || text.starts_with("0X") ? 16 : 10;
  auto const* first = text.data() + (base == 16 ? 2 : 0);
  auto const* last = text.data() + text.size();
  unsigned int value = 0;
  auto const [end, error] = std::from_chars(first, last, value, base);
  if (first == last || error != std::errc() || end != last) {
    throw UsageError(
        fmt::format("bad value '{}' for '{}' (an unsigned 32-bit number)", text, name));
  }
  return value;
}

// What the command line asks for, checked against the tables: the rows the
// name has in each table (at most one a table), for the action asked.
struct Request {
  bool set = false;
  std::string target;
  std::string name;
  Qca::VendorCmd const* radio = nullptr;
  Qca::VendorCmd const* vap = nullptr;
  std::vector<unsigned int> values;
};

Request parse(Args args) {
  Request request{args[0] == "set", args[1], args[2], nullptr, nullptr, {}};
  if (!request.set && args[0] != "get") {
    throw UsageError(fmt::format("unknown action '{}' (get or set)", args[0]));
  }
  request.radio = find(Qca::g_radio_vendor_param_table, request.name);
  request.vap = find(Qca::g_vap_vendor_param_table, request.name);
  if (request.radio == nullptr && request.vap == nullptr) {
    throw UsageError(fmt::format("unknown parameter '{}'", request.name));
  }
  // Only the row's subcommand tells set from get, never the name.
  auto const subCmd =
      request.set ? Qca::subCmdSetWifiConfiguration : Qca::subCmdGetWifiConfiguration;
  auto const keepIf = [&request](auto const& holds) {
    if (request.radio != nullptr && !holds(*request.radio)) request.radio = nullptr;
    if (request.vap != nullptr && !holds(*request.vap)) request.vap = nullptr;
    return request.radio != nullptr || request.vap != nullptr;
  };
  if (!keepIf([subCmd](auto const& row) { return row.vendorSubCmd == subCmd; })) {
    throw UsageError(fmt::format("'{}' is a {} parameter, not a {} one", request.name,
                                 request.set ? "get" : "set", args[0]));
  }
  auto const expected = (request.radio != nullptr ? request.radio : request.vap)->valueCount;
  for (auto const& text : args.subspan(3)) request.values.push_back(parseValue(text, request.name));
  auto const count = request.values.size();
  if (!keepIf([count](auto const& row) { return row.valueCount == count; })) {
    throw UsageError(fmt::format("'{}' takes {} value{}, not {}", request.name, expected,
                                 expected == 1 ? "" : "s", count));
  }
  return request;
}

// Writes the generic attributes of the row's parameter into data.
template <class Table>
void writeParam(Ny80211::NestedAttr& data, Request const& request) {
  using Data = Qca::WifiParamVendorData<Table>;
  auto const& v = request.values;
  switch (v.size()) {
    case 0:
      Data(data, request.name);
      break;
    case 1:
      Data(data, request.name, v[0]);
      break;
    case 2:
      Data(data, request.name, v[0], v[1]);
      break;
    default:
      Data(data, request.name, v[0], v[1], v[2]);
      break;
  }
}

}  // namespace

void param(Args args, Io& io) {
  auto const request = parse(args);
  // A radio parameter goes to a radio, an interface parameter to an
  // interface; for the few names in both tables the target decides.
  std::optional<Ny80211::WiPhyID> radio;
  std::optional<Ny80211::VapID> vap;
  if (request.radio != nullptr) {
    try {
      radio.emplace(request.target);
    } catch (Ny80211::Error const&) {
    }
  }
  if (!radio && request.vap != nullptr) {
    try {
      vap.emplace(request.target);
    } catch (Ny80211::Error const&) {
    }
  }
  if (!radio && !vap) {
    throw UsageError(request.vap == nullptr
                         ? fmt::format("unknown radio '{}' ('{}' is a radio parameter)",
                                       request.target, request.name)
                     : request.radio == nullptr
                         ? fmt::format("unknown interface '{}' ('{}' is an interface parameter)",
                                       request.target, request.name)
                         : fmt::format("unknown radio or interface '{}'", request.target));
  }

  auto const* row = radio ? request.radio : request.vap;
  Ny80211::Nl80211Command command(
      NL80211_CMD_VENDOR,
      fmt::format("{} {}{}{} on {}", args[0], request.name, request.values.empty() ? "" : " ",
                  fmt::join(request.values, " "), request.target));
  auto& attrs = command.attributes();
  auto data = Ny80211::NestedAttr::build();
  if (radio) {
    radio->writeTo(attrs);
    writeParam<Qca::RadioVendorParamTable>(data, request);
  } else {
    vap->writeTo(attrs);
    writeParam<Qca::VapVendorParamTable>(data, request);
  }
  attrs.addU32(NL80211_ATTR_VENDOR_ID, Qca::vendorId);
  attrs.addU32(NL80211_ATTR_VENDOR_SUBCMD, row->vendorSubCmd);
  attrs.addNested(NL80211_ATTR_VENDOR_DATA, data);

  Ny80211::CommandSocket socket;
  socket.connect();
  // What the driver answers, decoded as any nl80211 message.
  socket.sendMessage(command, [&io](nl_msg* reply) {
    Ny80211::GenlMessage const message(reply);
    io.out << Ny80211::AttrFmt::Format({Ny80211::AttrScope::Nl80211, message.attributes()});
    return NL_OK;
  });
}

}  // namespace Tool
