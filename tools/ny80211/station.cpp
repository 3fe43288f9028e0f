// stations IFACE and survey IFACE: the station table and the channel survey,
// read reply by reply as the examples do (examples/StationTable.h).
#include <ostream>
#include <string>

#include <fmt/format.h>

#include "StationTable.h"
#include "Tool.h"
#include "ny80211/Socket.h"
#include "ny80211/StationInfo.h"
#include "ny80211/SurveyInfo.h"

namespace Tool {

void stations(Args args, Io& io) {
  auto const interface = interfaceArg(args[0]);
  Ny80211::CommandSocket socket;
  socket.connect();
  fmt::memory_buffer table;
  auto dump = Ny80211::Cmd::dumpStations(interface);
  Example::appendReplies<Ny80211::StationInfo>(
      socket, dump, table, [](auto const& station) { return station.toTableRow(); });
  io.out << Ny80211::StationInfo::getTableHeader() << fmt::to_string(table)
         << Ny80211::StationInfo::getTableDivider() << '\n';
}

void survey(Args args, Io& io) {
  auto const interface = interfaceArg(args[0]);
  Ny80211::CommandSocket socket;
  socket.connect();
  fmt::memory_buffer lines;
  auto dump = Ny80211::Cmd::dumpSurvey(interface);
  Example::appendReplies<Ny80211::SurveyInfo>(
      socket, dump, lines, [](auto const& channel) { return channel.toString() + "\n"; });
  io.out << fmt::to_string(lines);
}

}  // namespace Tool
