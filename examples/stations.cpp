// stations [NAME]: the stations associated with an interface (default
// wlan0) as a table, then the channel survey of its radio, one channel a line.
#include <cstdio>
#include <exception>
#include <string>

#include <fmt/format.h>

#include "StationTable.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"

int main(int argc, char** argv) {
  try {
    Ny80211::CommandSocket socket;
    socket.connect();
    Ny80211::NetIfcID const interface(std::string(argc > 1 ? argv[1] : "wlan0"));
    fmt::print("{}", Example::stationsAndSurvey(socket, interface));
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "stations: %s\n", e.what());
    return 1;
  }
}
