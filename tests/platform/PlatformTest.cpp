// What the library relies on of the stand-ins for the firmware's libraries and no test of the library shows. Their
// event loop and publisher run under the event sockets' tests, spans and addresses print in every record's text.
#include <gtest/gtest.h>

#include "ny80211/Channel.h"
#include "ny80211/Error.h"
#include "quenta_common/MHz.h"

namespace {

using Ny80211::Channel;
using quenta_common::MHz;

// The firmware's channel numbers agree with the library's for every frequency, off the raster too; its band of
// every channel's frequency takes the library back to that frequency.
TEST(Frequency, AgreesWithTheChannelConversions) {
  for (std::uint32_t f = 0; f <= 80000; ++f) {
    std::uint8_t number = 0;
    try {
      number = Channel().freqToindex(f).Get();
    } catch (Ny80211::Error const&) {
    }
    ASSERT_EQ(MHz(f).GetChannelNumber(), number) << f << " MHz";
  }
  int checked = 0;
  for (auto band : {NL80211_BAND_2GHZ, NL80211_BAND_5GHZ, NL80211_BAND_60GHZ, NL80211_BAND_6GHZ}) {
    for (unsigned n = 1; n <= 255; ++n) {
      try {
        MHz const f = Channel().indexToFreq(n, band);
        // 5 GHz numbers from 197 up land on the 6 GHz raster and read back as 6 GHz.
        EXPECT_EQ(f.GetBand(), band == NL80211_BAND_5GHZ && n >= 197 ? NL80211_BAND_6GHZ : band) << f.Get();
        EXPECT_EQ(Channel().indexToFreq(f.GetChannelNumber(), f.GetBand()).Get(), f.Get());
        ++checked;
      } catch (Ny80211::Error const&) {
      }
    }
  }
  EXPECT_EQ(checked, 14 + 255 + 6 + 253);
}

}  // namespace
