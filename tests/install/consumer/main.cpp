#include <fmt/format.h>

#include "ny80211/Version.h"
#include "quenta_common/MHz.h"

int main() {
  fmt::print("ny80211 {} ({} MHz is channel {})\n", Ny80211::version(), quenta_common::MHz(5180),
             quenta_common::MHz(5180).GetChannelNumber());
}
