#pragma once
// What the subcommands of the ny80211 tool share: their table row, the exit
// statuses, the usage error, and the checks of the arguments they have in
// common. Only the library's public headers are used.
#include <cstddef>
#include <iosfwd>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "ny80211/Identifiers.h"

namespace Tool {

enum Status : int {
  ok = 0,
  failed = 1,  // the kernel refused, or the library failed
  usage = 2,   // the command line is wrong
};

// A wrong command line: reported with the subcommand's name, status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Where a run reads and writes: the process's streams, or a test's.
struct Io {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
};

// The arguments after the subcommand's name.
using Args = std::span<std::string const>;

struct Command {
  std::string_view name;
  std::string_view synopsis;  // the arguments, for the usage line
  std::string_view help;      // what it prints, for --help
  std::size_t minArgs;
  std::size_t maxArgs;
  void (*run)(Args args, Io& io);
};

// Runs one command line (without the program's name) and returns the exit
// status; every failure has been written to io.err.
int run(Args args, Io& io);

// The network interface named on the command line; UsageError "unknown
// interface '{}'" when there is none.
Ny80211::NetIfcID interfaceArg(std::string const& name);

// The subcommands, one family per file.
void dev(Args args, Io& io);       // info.cpp
void phy(Args args, Io& io);       // info.cpp
void scan(Args args, Io& io);      // scan.cpp
void stations(Args args, Io& io);  // station.cpp
void survey(Args args, Io& io);    // station.cpp
void events(Args args, Io& io);    // events.cpp
void param(Args args, Io& io);     // param.cpp
void decode(Args args, Io& io);    // decode.cpp

}  // namespace Tool
