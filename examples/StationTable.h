#pragma once
// The station table and the channel survey of an interface, as the stations
// example and the event_monitor daemon print them.
#include <iterator>
#include <string>

#include <fmt/format.h>
#include <netlink/handlers.h>

#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"
#include "ny80211/StationInfo.h"
#include "ny80211/SurveyInfo.h"

namespace Example {

// Sends command and appends, per reply, what line makes of the reply read as
// a Record; one unreadable reply must not hide the others.
template <class Record, class Line>
void appendReplies(Ny80211::CommandSocket& socket, Ny80211::GenlMessage& command,
                   fmt::memory_buffer& out, Line const& line) {
  socket.sendMessage(command, [&](nl_msg* reply) {
    Ny80211::GenlMessage const message(reply);
    try {
      Record record;
      record.readFrom(message.attributes());
      fmt::format_to(std::back_inserter(out), "{}", line(record));
    } catch (Ny80211::Error const& e) {
      fmt::format_to(std::back_inserter(out), "{}: {}\n", message.commandName(), e.what());
    }
    return NL_OK;
  });
}

// The stations of interface as a table, then its radio's survey one channel
// a line, in one text that a caller prints in one piece. Throws what the
// command socket throws.
inline std::string stationsAndSurvey(Ny80211::CommandSocket& socket,
                                     Ny80211::NetIfcID const& interface) {
  fmt::memory_buffer out;
  fmt::format_to(std::back_inserter(out), "stations of {}:\n{}", interface,
                 Ny80211::StationInfo::getTableHeader());
  auto stations = Ny80211::Cmd::dumpStations(interface);
  appendReplies<Ny80211::StationInfo>(socket, stations, out,
                                      [](auto const& station) { return station.toTableRow(); });
  fmt::format_to(std::back_inserter(out), "{}\nsurvey of {}:\n",
                 Ny80211::StationInfo::getTableDivider(), interface);
  auto survey = Ny80211::Cmd::dumpSurvey(interface);
  appendReplies<Ny80211::SurveyInfo>(socket, survey, out,
                                     [](auto const& channel) { return channel.toString() + "\n"; });
  return fmt::to_string(out);
}

}  // namespace Example
