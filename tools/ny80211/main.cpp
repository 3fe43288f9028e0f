// ny80211: what the daemons see of nl80211 and the driver, decoded by the
// same library. The subcommand table, the dispatch and --help; each family
// of subcommands is in its own file.
#include <algorithm>
#include <array>
#include <exception>
#include <ostream>
#include <string>

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "Tool.h"
#include "ny80211/Error.h"

namespace Tool {
namespace {

constexpr std::size_t any = static_cast<std::size_t>(-1);

// The first line of a help is the command's summary in the overview.
constexpr std::array commands{
    Command{"dev", "", "every wireless interface, one a line", 0, 0, dev},
    Command{"phy", "",
            "the radios, one a line\n"
            "a record that cannot be read names the attribute it lacks",
            0, 0, phy},
    Command{"scan", "IFACE", "the scan results of IFACE with the channel each BSS operates on", 1,
            1, scan},
    Command{"stations", "IFACE", "the stations associated with IFACE, as a table", 1, 1, stations},
    Command{"survey", "IFACE", "the channel survey of the radio of IFACE, one channel a line", 1, 1,
            survey},
    Command{"events", "[GROUP...]",
            "live events, one a line, until SIGINT or SIGTERM\n"
            "the nl80211 multicast GROUPs (default: config scan regulatory mlme) and always the\n"
            "driver's wireless-extension events",
            0, any, events},
    Command{"param", "get|set TARGET NAME [VALUE...]",
            "sets or reads a driver parameter by its name\n"
            "NAME as the chip vendor's tables have it: a radio parameter takes a radio as TARGET\n"
            "(phy0), an interface parameter an interface (wlan0); get takes the name of the get\n"
            "row (get_txchainmask); VALUEs are unsigned numbers, decimal or 0x hex",
            3, 6, param},
    Command{"decode", "",
            "renders netlink messages given in hex on standard input as nl80211 attributes\n"
            "blanks and line ends between bytes are skipped",
            0, 0, decode},
};

std::string usageLine(Command const& command) {
  return fmt::format("usage: ny80211 {}{}{}", command.name, command.synopsis.empty() ? "" : " ",
                     command.synopsis);
}

void printOverview(std::ostream& out) {
  fmt::print(out, "usage: ny80211 COMMAND [ARG...]  (ny80211 COMMAND --help for one)\n\n");
  for (auto const& command : commands) {
    auto const head = fmt::format("{} {}", command.name, command.synopsis);
    auto const summary = command.help.substr(0, command.help.find('\n'));
    fmt::print(out, "  {:<36} {}\n", head, summary);
  }
  fmt::print(out,
             "\nexit status: 0 done, 1 the kernel refused or the library failed, 2 usage error\n");
}

bool isHelp(std::string const& arg) { return arg == "--help" || arg == "-h"; }

}  // namespace

Ny80211::NetIfcID interfaceArg(std::string const& name) {
  try {
    return Ny80211::NetIfcID(name);
  } catch (Ny80211::Error const&) {
    throw UsageError(fmt::format("unknown interface '{}'", name));
  }
}

int run(Args args, Io& io) {
  if (args.empty()) {
    fmt::print(io.err, "usage: ny80211 COMMAND [ARG...]  (ny80211 --help lists them)\n");
    return usage;
  }
  if (isHelp(args[0]) || args[0] == "help") {
    printOverview(io.out);
    return ok;
  }
  auto const* command = std::find_if(commands.begin(), commands.end(),
                                     [&](Command const& c) { return c.name == args[0]; });
  if (command == commands.end()) {
    fmt::print(io.err, "ny80211: unknown command '{}' (ny80211 --help lists them)\n", args[0]);
    return usage;
  }
  auto const rest = args.subspan(1);
  if (std::any_of(rest.begin(), rest.end(), isHelp)) {
    fmt::print(io.out, "{}\n{}\n", usageLine(*command), command->help);
    return ok;
  }
  // Errors name the subcommand they come from.
  auto const fail = [&](int status, char const* text) {
    fmt::print(io.err, "ny80211 {}: {}\n", command->name, text);
    return status;
  };
  try {
    if (rest.size() < command->minArgs) {
      throw UsageError(fmt::format("missing argument ({})", usageLine(*command)));
    }
    if (rest.size() > command->maxArgs) {
      throw UsageError(fmt::format("unexpected argument '{}' ({})", rest[command->maxArgs],
                                   usageLine(*command)));
    }
    command->run(rest, io);
    return ok;
  } catch (UsageError const& e) {
    return fail(usage, e.what());
  } catch (std::exception const& e) {
    // CmdFailure carries the kernel's text, every other Error its own.
    return fail(failed, e.what());
  }
}

}  // namespace Tool
