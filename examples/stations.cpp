// stations [NAME]: the stations associated with an interface (default
// wlan0) as a table, then the channel survey of its radio, one channel a line.
#include <cstdio>
#include <exception>
#include <string>

#include <fmt/format.h>
#include <netlink/handlers.h>

#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"
#include "ny80211/StationInfo.h"
#include "ny80211/SurveyInfo.h"

namespace {

// Reads each reply as Record and prints what print makes of it; one
// unreadable reply must not hide the others.
template <class Record, class Print>
auto each(Print print) {
  return [print](nl_msg* reply) {
    Ny80211::GenlMessage const message(reply);
    try {
      Record record;
      record.readFrom(message.attributes());
      print(record);
    } catch (Ny80211::Error const& e) {
      fmt::print("{}: {}\n", message.commandName(), e.what());
    }
    return NL_OK;
  };
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Ny80211::CommandSocket socket;
    socket.connect();
    Ny80211::NetIfcID const interface(std::string(argc > 1 ? argv[1] : "wlan0"));

    auto stations = Ny80211::Cmd::dumpStations(interface);
    fmt::print("stations of {}:\n{}", interface, Ny80211::StationInfo::getTableHeader());
    socket.sendMessage(stations, each<Ny80211::StationInfo>([](auto const& station) {
                         fmt::print("{}", station.toTableRow());
                       }));
    fmt::print("{}\n", Ny80211::StationInfo::getTableDivider());

    auto survey = Ny80211::Cmd::dumpSurvey(interface);
    fmt::print("survey of {}:\n", interface);
    socket.sendMessage(survey, each<Ny80211::SurveyInfo>([](auto const& channel) {
                         fmt::print("{}\n", channel);
                       }));
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "stations: %s\n", e.what());
    return 1;
  }
}
