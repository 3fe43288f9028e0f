// scan IFACE: the scan table of the examples (examples/ScanTable.h), each BSS
// with the channel its operation elements give.
#include <ostream>

#include "ScanTable.h"
#include "Tool.h"
#include "ny80211/Socket.h"

namespace Tool {

void scan(Args args, Io& io) {
  auto const interface = interfaceArg(args[0]);
  Ny80211::CommandSocket socket;
  socket.connect();
  io.out << Example::scanTable(socket, interface);
}

}  // namespace Tool
