#pragma once
// A scan dump as nl80211 sends it: one NL80211_CMD_NEW_SCAN_RESULTS message
// per BSS, for fifty access points over 2.4 GHz (channels 1, 6 and 11 at 20
// and 40 MHz), 5 GHz (20 to 160 MHz) and 6 GHz (HE and EHT, 80 to 320 MHz),
// each with the elements its generation of access point sends.

#include <cstdint>
#include <memory>
#include <vector>

#include "TestMessage.h"

namespace bench::scan {

enum class Gen { Legacy, Ht, Vht, He, Eht };

// What an access point adds to the common elements and attributes.
enum Extra : unsigned {
  QuentaId = 1 << 0,    // the system vendor's identifier element
  QuentaName = 1 << 1,  // and its name element
  Status = 1 << 2,      // NL80211_BSS_STATUS: the BSS the interface is associated with
  Utf8 = 1 << 3,        // the UTF-8 SSID capability
  Wps = 1 << 4,
  Chains = 1 << 5,  // per-chain signal
  Parent = 1 << 6,  // parent TSF and BSSID
  Rnr = 1 << 7,     // a reduced neighbour report of a co-located 6 GHz BSS
  Sae = 1 << 8,     // WPA3 besides WPA2
};

struct Ap {
  std::uint32_t mhz;  // the primary channel
  unsigned width;     // MHz
  Gen gen;
  char const* ssid;
  unsigned extras;
};

struct Entry {
  Ap ap;
  std::unique_ptr<Ny80211::testing::TestMessage> message;
};

// Each message names ifindex as the interface.
std::vector<Entry> scanDump(std::uint32_t ifindex);

// The nl80211 width of an access point's channel, as its elements give it.
std::uint32_t nl80211Width(Ap const& ap);

}  // namespace bench::scan
