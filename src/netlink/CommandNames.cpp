#include <array>
#include <string_view>

#include <fmt/format.h>

#include "ny80211/GenlMessage.h"

namespace Ny80211 {

namespace {
// Indexed by command number, as enum nl80211_commands.
constexpr std::string_view commandNames[] = {
#include "CommandNames.inc"
};
}  // namespace

std::string cmd_fmt(std::uint8_t command) {
  if (command < std::size(commandNames)) return std::string(commandNames[command]);
  return fmt::format("<command type {}>", command);
}

}  // namespace Ny80211
