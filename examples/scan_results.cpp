// scan_results [NAME]: prints the BSSs in the scan results of interface NAME
// (default wlan0) with the channel each one operates on, derived from the
// operation elements of its beacon or probe response.
#include <cstdio>
#include <exception>
#include <string>

#include "ScanTable.h"
#include "ny80211/Identifiers.h"
#include "ny80211/Socket.h"

int main(int argc, char** argv) {
  try {
    Ny80211::CommandSocket socket;
    socket.connect();
    Ny80211::NetIfcID const interface(std::string(argc > 1 ? argv[1] : "wlan0"));
    std::fputs(Example::scanTable(socket, interface).c_str(), stdout);
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "scan_results: %s\n", e.what());
    return 1;
  }
}
