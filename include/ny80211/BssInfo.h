#pragma once
// Records of a BSS as nl80211 scan results and interface messages describe
// it. AttrSsid: an SSID as received, printable without ambiguity in logs.
// AttrBss: one BSS of a scan result; Cmd::ScanInfo: one scan-dump reply.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ny80211/AttrStream.h"
#include "ny80211/Channel.h"
#include "ny80211/Export.h"
#include "ny80211/Identifiers.h"
#include "nycpp/span.h"
#include "quenta_common/MHz.h"
#include "quenta_share/MacAddress.h"

namespace Ny80211 {

// BSS records

// The SSID bytes exactly as received: any byte, any length (no limit of 32 is
// enforced, so what a peer sent is what a log shows).
class NY80211_API AttrSsid {
 public:
  AttrSsid() = default;
  explicit AttrSsid(std::vector<std::byte> const& bytes);
  explicit AttrSsid(nycpp::span<const std::byte> bytes) : bytes_(bytes.begin(), bytes.end()) {}

  std::vector<std::byte> const& bytes() const noexcept { return bytes_; }

  // Printable ASCII as it is; a backslash, any other byte, and a blank at
  // either end as "\xNN" (lower-case hex), so that a backslash always starts
  // an escape and edge blanks stay visible.
  std::string toEscapedString() const;

 private:
  std::vector<std::byte> bytes_;
};

// The system vendor's own OUI, under which its access points announce their
// identifier and name (a locally administered value).
NY80211_API extern Oui const QuentaOui;

// One BSS of a scan result (NL80211_ATTR_BSS). Of the information elements it
// keeps only what it derives from them: the SSID, the UTF-8 flag, the
// operating channel and the system vendor's data.
class NY80211_API AttrBss {
 public:
  AttrBss() = default;
  explicit AttrBss(NestedAttr const& bss) { readFrom(bss); }

  // AttrNotFound for a missing mandatory attribute, Error for a short one.
  // Broken elements and channels that cannot be derived are logged, never
  // thrown: the record keeps what was read before them.
  void readFrom(AttrStream const& attrs);

  // The SSID bytes unchanged, NUL bytes included.
  std::string getRawSSID() const;

  MacAddress bssid;
  std::optional<ChannelInfo> channel;
  quenta_common::MHz frequency;
  std::uint32_t chanWidth = 0;  // the nl80211 scan width, as sent
  std::uint32_t seenMsAgo = 0;
  std::uint64_t lastSeenBoottime = 0;  // ns
  std::int32_t signalMbm = 0;
  std::uint16_t beaconInterval = 0;  // TU
  std::uint16_t capability = 0;
  AttrSsid ssid;
  bool utf8Ssid = false;
  std::optional<std::uint32_t> status;
  std::uint32_t channelType = 0;  // nl80211_channel_type from the HT Operation element
  std::optional<std::array<std::byte, 16>> vendorId;
  std::optional<std::string> vendorName;
};

namespace Cmd {

// One reply of the scan dump: the BSS (read first) and the interface.
class NY80211_API ScanInfo {
 public:
  explicit ScanInfo(AttrStream const& attrs);

  AttrBss bss;
  NetIfcID ifc;
};

}  // namespace Cmd

}  // namespace Ny80211
