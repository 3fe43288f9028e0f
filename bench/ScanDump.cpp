#include "ScanDump.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "TestMessage.h"

namespace bench::scan {

namespace {

using Ny80211::testing::Bytes;
using Ny80211::testing::hex;
using Ny80211::testing::TestMessage;

constexpr Ap aps[] = {
    // 2.4 GHz
    {2412, 20, Gen::Ht, "HomeNet-2G", Wps},
    {2412, 40, Gen::He, "Office-Guest", Wps | Chains},
    {2437, 20, Gen::Legacy, "printer-setup", 0},
    {2437, 20, Gen::Ht, "FRITZ!Box 7590 XY", Wps},
    {2437, 40, Gen::He, "Quenta-Corp", QuentaId | QuentaName | Sae},
    {2437, 20, Gen::He, "Caf\xc3\xa9 G\xc3\xa4ste", Utf8},
    {2462, 20, Gen::Ht, "TP-Link_4F2A", Wps},
    {2462, 40, Gen::He, "lab-iot", Wps | Chains},
    {2462, 20, Gen::Ht, "", 0},
    {2412, 20, Gen::Eht, "Warehouse", Sae},
    {2437, 40, Gen::Ht, "DIRECT-xy-HP M479", Wps},
    {2462, 20, Gen::He, "Quenta-Corp", QuentaId | QuentaName | Sae | Status},
    {2412, 20, Gen::Ht, "eduroam", Wps},
    {2462, 40, Gen::Eht, "Meeting-Room-3", Sae | Parent},
    // 5 GHz
    {5180, 20, Gen::Vht, "HomeNet-5G", Wps},
    {5180, 80, Gen::He, "Office-Guest", Rnr | Chains},
    {5200, 40, Gen::Vht, "eduroam", 0},
    {5220, 80, Gen::Vht, "TP-Link_4F2A_5G", Wps},
    {5240, 160, Gen::He, "Quenta-Corp", QuentaId | QuentaName | Sae | Rnr},
    {5260, 80, Gen::He, "lab-iot", 0},
    {5280, 20, Gen::Ht, "old-5g-bridge", 0},
    {5300, 160, Gen::Eht, "Warehouse", Sae | Rnr},
    {5320, 40, Gen::Vht, "FRITZ!Box 7590 XY", Wps},
    {5500, 80, Gen::He, "Meeting-Room-3", Sae | Parent},
    {5520, 160, Gen::He, "Quenta-Lab", QuentaId | Sae},
    {5540, 40, Gen::Vht, "Caf\xc3\xa9 G\xc3\xa4ste", Utf8},
    {5580, 80, Gen::Vht, "Guest", Wps},
    {5600, 160, Gen::Eht, "Quenta-Corp", QuentaId | QuentaName | Sae | Status | Rnr},
    {5660, 80, Gen::He, "Office", Chains},
    {5700, 20, Gen::Vht, "camera-net", Wps},
    {5745, 80, Gen::He, "HomeNet-5G", Wps},
    {5765, 80, Gen::Vht, "Telekom-AB12", Wps},
    {5785, 40, Gen::Vht, "Vodafone-1234", Wps},
    {5805, 80, Gen::Eht, "Warehouse", Sae},
    {5825, 20, Gen::Ht, "shop-pos", 0},
    {5180, 160, Gen::He, "Office-Guest", Chains | Rnr},
    {5500, 160, Gen::Vht, "cinema-5g", Wps},
    {5745, 40, Gen::He, "", 0},
    // 6 GHz: WPA3 only
    {5955, 80, Gen::He, "Office-Guest", 0},
    {5975, 160, Gen::He, "Quenta-Corp", QuentaId | QuentaName},
    {6135, 320, Gen::Eht, "Warehouse", 0},
    {6215, 80, Gen::He, "lab-iot", Chains},
    {6295, 160, Gen::Eht, "Meeting-Room-3", Parent},
    {6455, 320, Gen::Eht, "Quenta-Lab", QuentaId},
    {6615, 160, Gen::He, "HomeNet-6G", 0},
    {6695, 80, Gen::Eht, "Office", 0},
    {6775, 320, Gen::Eht, "Quenta-Corp", QuentaId | QuentaName},
    {6935, 80, Gen::He, "cinema-6g", 0},
    {7015, 160, Gen::Eht, "Telekom-AB12", 0},
    {6135, 80, Gen::He, "Guest", 0},
};
static_assert(std::size(aps) == 50);

enum class Band { B2g, B5g, B6g };

Band bandOf(std::uint32_t mhz) {
  if (mhz < 2500) return Band::B2g;
  return mhz < 5950 ? Band::B5g : Band::B6g;
}

std::uint8_t channelOf(std::uint32_t mhz) {
  switch (bandOf(mhz)) {
    case Band::B2g:
      return static_cast<std::uint8_t>((mhz - 2407) / 5);
    case Band::B5g:
      return static_cast<std::uint8_t>((mhz - 5000) / 5);
    case Band::B6g:
      break;
  }
  return static_cast<std::uint8_t>((mhz - 5950) / 5);
}

// The centre channel of the block of the given width that holds the primary.
std::uint8_t center(std::uint32_t mhz, unsigned width) {
  int const ch = channelOf(mhz);
  if (width == 20) return static_cast<std::uint8_t>(ch);
  switch (bandOf(mhz)) {
    case Band::B2g:  // 40 MHz: above on 1 and 6, below on 11
      return static_cast<std::uint8_t>(ch <= 7 ? ch + 2 : ch - 2);
    case Band::B5g: {
      // Blocks start at 36 and again at 149.
      int const base = ch < 149 ? 36 : 149;
      int const span = static_cast<int>(width) / 5;
      return static_cast<std::uint8_t>(base + (ch - base) / span * span + span / 2 - 2);
    }
    case Band::B6g:
      break;
  }
  int const span = static_cast<int>(width) / 5;
  return static_cast<std::uint8_t>(1 + (ch - 1) / span * span + span / 2 - 2);
}

// The HT secondary channel offset: 1 above, 3 below, 0 none.
std::uint8_t secondaryOffset(Ap const& ap) {
  if (ap.width == 20) return 0;
  return center(ap.mhz, 40) > channelOf(ap.mhz) ? 1 : 3;
}

class Elements {
 public:
  Elements& add(std::uint8_t id, Bytes const& body) {
    bytes.push_back(id);
    bytes.push_back(static_cast<std::uint8_t>(body.size()));
    bytes.insert(bytes.end(), body.begin(), body.end());
    return *this;
  }
  Elements& ext(std::uint8_t extId, Bytes const& body) {
    Bytes withId{extId};
    withId.insert(withId.end(), body.begin(), body.end());
    return add(255, withId);
  }
  Bytes bytes;
};

Bytes operator+(Bytes a, Bytes const& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes htOperation(Ap const& ap) {
  // Primary channel; secondary offset and any-width; the rest without a
  // third segment; an empty basic MCS set.
  auto const wide = ap.width > 20 ? 0x04 : 0x00;
  return Bytes{channelOf(ap.mhz), static_cast<std::uint8_t>(secondaryOffset(ap) | wide)} +
         hex("0400 0000 00000000000000000000000000000000");
}

Bytes vhtOperation(Ap const& ap) {
  if (ap.width <= 40) return Bytes{0, center(ap.mhz, ap.width), 0, 0xfc, 0xff};
  auto const seg1 = ap.width == 160 ? center(ap.mhz, 160) : std::uint8_t{0};
  return Bytes{1, center(ap.mhz, 80), seg1, 0xfc, 0xff};
}

Bytes heCapabilities(Ap const& ap) {
  // MAC, PHY (the first octet the widths), one or two MCS maps, PPE
  // thresholds (present, as PHY bit 63 says).
  std::uint8_t const widths = bandOf(ap.mhz) == Band::B2g ? 0x02 : ap.width >= 160 ? 0x0c : 0x04;
  auto caps = hex("0d0018120010") + Bytes{widths} + hex("2002c00f5381881f4381") + hex("faff faff");
  if (ap.width >= 160) caps = caps + hex("faff faff");
  // PPE thresholds for two spatial streams.
  return caps + hex("7b1cc7711cc771");
}

Bytes heOperation(Ap const& ap) {
  // Parameters (RTS threshold off, 6 GHz information in 6 GHz), BSS colour,
  // basic HE-MCS set, then the 6 GHz operation information.
  if (bandOf(ap.mhz) != Band::B6g) return hex("f43f00 21 fcff");
  auto const width = std::min(ap.width, 160u);
  std::uint8_t const control = width == 80 ? 2 : 3;
  auto const seg1 = width == 160 ? center(ap.mhz, 160) : std::uint8_t{0};
  return hex("f43f02 21 fcff") +
         Bytes{channelOf(ap.mhz), control, center(ap.mhz, std::min(width, 80u)), seg1, 0x06};
}

Bytes ehtCapabilities(Ap const& ap) {
  auto caps = hex("8200 e2ff3f0000000000 00") + hex("222222");
  if (ap.width >= 160) caps = caps + hex("222222");
  if (ap.width == 320) caps = caps + hex("222222");
  return caps;
}

Bytes ehtOperation(Ap const& ap) {
  std::uint8_t control = 0, seg0 = center(ap.mhz, ap.width), seg1 = 0;
  switch (ap.width) {
    case 40:
      control = 1;
      break;
    case 80:
      control = 2;
      break;
    case 160:
      control = 3, seg0 = center(ap.mhz, 80), seg1 = center(ap.mhz, 160);
      break;
    case 320:
      control = 4, seg0 = center(ap.mhz, 160), seg1 = center(ap.mhz, 320);
      break;
    default:
      break;
  }
  // Information present; the basic EHT-MCS and NSS set; the information.
  return hex("01 44444400") + Bytes{control, seg0, seg1};
}

Bytes rsn(Ap const& ap) {
  // CCMP; PSK, PSK and SAE, or SAE alone with protected management frames.
  if (bandOf(ap.mhz) == Band::B6g) return hex("0100 000fac04 0100000fac04 0100000fac08 cc00");
  if (ap.extras & Sae) return hex("0100 000fac04 0100000fac04 0200000fac02000fac08 8c00");
  return hex("0100 000fac04 0100000fac04 0100000fac02 0c00");
}

// WPS as a probe response carries it: version, state, response type, UUID,
// manufacturer, model, model number, serial number, device type, device name,
// configuration methods, RF bands, the WFA extension.
Bytes const wps =
    hex("0050f204 104a000110 1044000102 103b000103 10470010 7a6c1c0e94b24f6b9a3e5d2c41f08e17"
        "10210007 4578616d706c65 10230006 41582d363030 10240004 312e3030 10420008 3030303030303031"
        "10540008 0006 0050f204 0001 10110008 41502d4c6f626279 100800022008 103c000103"
        "1049000600372a000120");

// In the order of a probe response; ID 255 are extensions.
Bytes elements(Ap const& ap, std::size_t index) {
  auto const band = bandOf(ap.mhz);
  bool const ht = ap.gen >= Gen::Ht, he = ap.gen >= Gen::He, eht = ap.gen >= Gen::Eht;
  bool const sae = (ap.extras & Sae) || band == Band::B6g;
  std::string_view const ssid(ap.ssid);
  Elements e;
  e.add(0, Bytes(ssid.begin(), ssid.end()));
  e.add(1, band == Band::B2g ? hex("82848b960c121824") : hex("8c129824b048606c"));
  if (band != Band::B6g) e.add(3, {channelOf(ap.mhz)});
  e.add(5, hex("00010000"));
  if (band == Band::B2g) e.add(7, hex("555320 010b1e"));
  if (band == Band::B5g) e.add(7, hex("555320 24041e 34041e 640c1e 95051e"));
  if (band == Band::B6g) e.add(7, hex("555320 c9011e"));
  // Power constraint and TPC report.
  if (band != Band::B2g) e.add(32, {0x00}).add(35, hex("1400"));
  if (ht) e.add(11, hex("0500 2a 127a"));
  if (band == Band::B2g) e.add(42, {0x00}).add(50, hex("3048606c"));
  e.add(48, rsn(ap));
  if (sae) e.add(54, hex("a1b2 01"));  // fast transition
  if (ht) e.add(70, hex("7208010000"));
  if (ht && band != Band::B6g) {
    e.add(45, hex("ef09 17 ffff0000000000000000000000000000 0000 00000000 00"));
    e.add(61, htOperation(ap));
  }
  if (ht && band == Band::B2g) {
    e.add(72, {0x00});  // 20/40 coexistence
    e.add(74, hex("1400 0a00 2c01 c800 1400 0500 1900"));
  }
  if (ht) e.add(59, hex("51 515354737475767778797a7b7c7d7e7f808182"));
  auto capabilities = hex("04000800000000400040");
  if (ap.extras & Utf8) capabilities[6] |= 0x01;  // bit 48: UTF-8 SSID
  e.add(127, capabilities);
  if (sae) {
    // Interworking, advertisement protocol (ANQP), roaming consortium.
    e.add(107, hex("10 0208 02a0c5ff0001")).add(108, hex("7f00")).add(111, hex("00 03 506f9a"));
  }
  if (ap.gen >= Gen::Vht && band == Band::B5g) {
    e.add(191, hex("9259820f eaff0000eaff0000"));
    e.add(192, vhtOperation(ap));
  }
  if (he && band != Band::B2g) e.add(195, hex("02 3c3c3c"));
  if (he && band == Band::B6g) e.add(195, hex("19 fcfcfcfc"));
  if (ap.extras & Rnr) {
    // One TBTT information field of 13 octets for a BSS on 6 GHz channel 37.
    e.add(201, hex("000d 83 25 ff 02a0c5100001 7e1f0b9c 42 ee"));
  }
  if (he) {
    e.ext(35, heCapabilities(ap)).ext(36, heOperation(ap));
    e.ext(38, hex("03 a4 08 20 a4 08 40 43 08 60 32 08 00"));
    e.ext(39, hex("05"));
    if (band == Band::B6g) e.ext(59, hex("bd00"));
  }
  if (eht) {
    // A basic multi-link element: the AP's MLD address and link.
    e.ext(107, hex("b001 0d 02a0c5ff0001 01 00 0000 0000"));
    e.ext(108, ehtCapabilities(ap)).ext(106, ehtOperation(ap));
  }
  if (sae) e.add(244, {0x20});
  e.add(221, hex("0050f2 0201 01 80 00 03a40000 27a40000 42435e00 62322f00"));
  if (ap.extras & Wps) e.add(221, wps).add(221, hex("001018 0200001c0000"));
  e.add(221, hex("00037f 01010000ff7f"));
  if (ht) e.add(221, hex("8cfdf0 01 01 02 01 00 02 01 01"));
  if (sae) {
    // Hotspot 2.0; an enterprise vendor's version and AP name elements.
    e.add(221, hex("506f9a 10 10")).add(221, hex("004096 03 05"));
    e.add(221, hex("000b86 01 04 08 1e 41502d3531352d3033"));
  }
  // The system vendor's identifier (16 octets) and name, version 1.
  if (ap.extras & QuentaId) {
    e.add(221, hex("025154 04 0100 5a0c1e0f 9b2d4c71 88e0a6b3") +
                   Bytes{0xc4, 0x19, 0x70, static_cast<std::uint8_t>(index)});
  }
  if (ap.extras & QuentaName) {
    std::string_view const name = "AP-Floor2-East";
    e.add(221, hex("025154 08 0100") + Bytes(name.begin(), name.end()));
  }
  return e.bytes;
}

std::unique_ptr<TestMessage> message(Ap const& ap, std::size_t index, std::uint32_t ifindex) {
  auto m = std::make_unique<TestMessage>(0, false);
  auto* const msg = m->msg;
  // In the order nl80211 writes a scan result.
  genlmsg_put(msg, 4321, 77, 0x1c, 0, NLM_F_MULTI, NL80211_CMD_NEW_SCAN_RESULTS, 1);
  nla_put_u32(msg, NL80211_ATTR_GENERATION, 118);
  nla_put_u32(msg, NL80211_ATTR_IFINDEX, ifindex);
  nla_put_u64(msg, NL80211_ATTR_WDEV, 0x100000001);
  auto* const bss = nla_nest_start(msg, NL80211_ATTR_BSS);
  auto const i = static_cast<std::uint8_t>(index);
  std::uint8_t const bssid[6] = {0x02, 0xa0, 0xc5, static_cast<std::uint8_t>(i * 7), i, 0x10};
  nla_put(msg, NL80211_BSS_BSSID, sizeof bssid, bssid);
  nla_put_flag(msg, NL80211_BSS_PRESP_DATA);
  auto const ies = elements(ap, index);
  std::uint64_t const tsf = 86'400'000'000ull + index * 1'234'567;
  nla_put_u64(msg, NL80211_BSS_TSF, tsf);
  nla_put(msg, NL80211_BSS_INFORMATION_ELEMENTS, static_cast<int>(ies.size()), ies.data());
  nla_put_u64(msg, NL80211_BSS_BEACON_TSF, tsf - 20'480);
  nla_put(msg, NL80211_BSS_BEACON_IES, static_cast<int>(ies.size()), ies.data());
  nla_put_u16(msg, NL80211_BSS_BEACON_INTERVAL, 100);
  nla_put_u16(msg, NL80211_BSS_CAPABILITY, bandOf(ap.mhz) == Band::B2g ? 0x1431 : 0x1111);
  nla_put_u32(msg, NL80211_BSS_FREQUENCY, ap.mhz);
  nla_put_u32(msg, NL80211_BSS_FREQUENCY_OFFSET, 0);
  nla_put_u32(msg, NL80211_BSS_CHAN_WIDTH, NL80211_BSS_CHAN_WIDTH_20);
  nla_put_u32(msg, NL80211_BSS_SEEN_MS_AGO, static_cast<std::uint32_t>(40 + index * 97 % 4000));
  nla_put_u64(msg, NL80211_BSS_LAST_SEEN_BOOTTIME, 3'600'000'000'000ull + index * 1'000'003);
  if (ap.extras & Parent) {
    nla_put_u64(msg, NL80211_BSS_PARENT_TSF, tsf - 1'000);
    nla_put(msg, NL80211_BSS_PARENT_BSSID, 6, hex("02a0c5000001").data());
  }
  if (ap.extras & Chains) {
    auto* const chains = nla_nest_start(msg, NL80211_BSS_CHAIN_SIGNAL);
    for (std::uint8_t chain = 0; chain < 4; ++chain) {
      nla_put_u8(msg, chain, static_cast<std::uint8_t>(-50 - chain - static_cast<int>(index % 20)));
    }
    nla_nest_end(msg, chains);
  }
  nla_put_u32(msg, NL80211_BSS_SIGNAL_MBM,
              static_cast<std::uint32_t>(-100 * (45 + static_cast<int>(index * 13 % 45))));
  if (ap.extras & Status) nla_put_u32(msg, NL80211_BSS_STATUS, NL80211_BSS_STATUS_ASSOCIATED);
  nla_nest_end(msg, bss);
  return m;
}

}  // namespace

std::vector<Entry> scanDump(std::uint32_t ifindex) {
  std::vector<Entry> dump;
  for (std::size_t i = 0; i < std::size(aps); ++i) {
    dump.push_back({aps[i], message(aps[i], i, ifindex)});
  }
  return dump;
}

std::uint32_t nl80211Width(Ap const& ap) {
  switch (ap.width) {
    case 40:
      return NL80211_CHAN_WIDTH_40;
    case 80:
      return NL80211_CHAN_WIDTH_80;
    case 160:
      return NL80211_CHAN_WIDTH_160;
    case 320:
      return NL80211_CHAN_WIDTH_320;
    default:
      return NL80211_CHAN_WIDTH_20;
  }
}

}  // namespace bench::scan
