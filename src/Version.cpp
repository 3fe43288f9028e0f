#include "ny80211/Version.h"

namespace Ny80211 {

char const* version() noexcept { return NY80211_VERSION_TEXT; }

}  // namespace Ny80211
