// Fuzz target: the attribute formatter in each of its scopes, and with a
// scope that names no table.
//   framed: [0] [scope] [command] attributes... — a generic netlink message:
//           its whole stream, each top-level attribute alone, and the
//           stream's printToStream
//   raw:    [1] [scope] attribute... — one attribute as a caller hands it in:
//           the bytes hold its header, and its length may claim less than
//           the header but no more than the bytes
// The formatter never throws.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include <netlink/attr.h>

#include "FuzzInput.h"
#include "ny80211/AttrFmt.h"
#include "ny80211/Error.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;

AttrScope scopeOf(std::uint8_t byte) {
  switch (byte % 4) {
    case 0:
      return AttrScope::Nl80211;
    case 1:
      return AttrScope::Bss;
    case 2:
      return AttrScope::QcaWifiConfig;
    default:
      return static_cast<AttrScope>(byte);
  }
}

void formatMessage(AttrScope scope, fuzz::Message const& message) {
  std::optional<GenlMessage> genl;
  try {
    genl.emplace(message.get());
  } catch (Error const&) {
    return;
  }
  auto const& attrs = genl->attributes();
  std::string text = AttrFmt::Format({scope, attrs});
  attrs.forEachAttr([&](nlattr const* attr) { text += AttrFmt::Format({scope, attr}); });
  std::ostringstream out;
  attrs.printToStream(out, scope);
}

void formatAttribute(AttrScope scope, fuzz::Bytes const& bytes) {
  if (bytes.size() < NLA_HDRLEN) return;
  nlattr header{};
  std::memcpy(&header, bytes.data(), sizeof header);
  if (header.nla_len > bytes.size()) return;
  fuzz::Bytes const attr(bytes.begin(),
                         bytes.begin() + std::max<std::ptrdiff_t>(header.nla_len, NLA_HDRLEN));
  AttrFmt::Format({scope, reinterpret_cast<nlattr const*>(attr.data())});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::logSink();
  fuzz::Input input(data, size);
  auto const raw = fuzz::isRaw(input);
  auto const scope = scopeOf(input.byte());
  if (raw) {
    formatAttribute(scope, input.rest());
    return 0;
  }
  auto const command = input.byte();
  auto const message = fuzz::genlMessage(command, input.rest());
  formatMessage(scope, message);
  return 0;
}
