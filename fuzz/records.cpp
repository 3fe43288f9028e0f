// Fuzz target: the wiphy, interface, station and survey records, all read
// from the same generic netlink message (either mode) and printed, whole or
// as far as the read got. Only Error may be thrown, and only by the reads.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>

#include <fmt/format.h>

#include "FuzzInput.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/InterfaceInfo.h"
#include "ny80211/StationInfo.h"
#include "ny80211/SurveyInfo.h"
#include "ny80211/WiPhyInfo.h"

namespace {

using namespace Ny80211;

template <class Record>
Record readAndPrint(AttrStream const& attrs) {
  Record record;
  try {
    record.readFrom(attrs);
  } catch (Error const&) {
  }
  fmt::memory_buffer text;
  fmt::format_to(std::back_inserter(text), "{}", record);
  return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::logSink();
  fuzz::Input input(data, size);
  auto const message = fuzz::genlInput(input);
  if (!message) return 0;
  std::optional<GenlMessage> genl;
  try {
    genl.emplace(message.get());
  } catch (Error const&) {
    return 0;
  }
  readAndPrint<WiPhyInfo>(genl->attributes());
  readAndPrint<InterfaceInfo>(genl->attributes());
  auto const station = readAndPrint<StationInfo>(genl->attributes());
  fmt::memory_buffer row;
  fmt::format_to(std::back_inserter(row), "{}", station.toTableRow());
  readAndPrint<SurveyInfo>(genl->attributes());
  return 0;
}
