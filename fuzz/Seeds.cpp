// Writes the seed corpus of the fuzz targets: realistic messages and
// elements, each in the input format of its target (FuzzInput.h), one file
// each under DIR/<target>/. Run as: fuzz_seeds fuzz/corpus

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include "TestMessage.h"
#include "WextMessage.h"
#include "ny80211/VendorCmd.h"
#include "ny80211/WextEvents.h"

namespace {

using namespace Ny80211;
using testing::Bytes;
using testing::bytesOf;
using testing::TestMessage;
using testing::WextMessage;

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): set by main, once
std::filesystem::path root;

Bytes operator+(Bytes a, Bytes const& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes text(std::string_view s, bool nul = true) {
  Bytes bytes(s.begin(), s.end());
  if (nul) bytes.push_back(0);
  return bytes;
}

void write(std::string const& target, std::string const& name, Bytes const& bytes) {
  auto const dir = root / target;
  std::filesystem::create_directories(dir);
  std::ofstream(dir / name, std::ios::binary)
      .write(reinterpret_cast<char const*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// A whole netlink message, and its bytes from offset on.
Bytes messageBytes(nl_msg* msg, std::size_t offset = 0) {
  auto const* header = nlmsg_hdr(msg);
  auto const* bytes = reinterpret_cast<std::uint8_t const*>(header);
  return Bytes(bytes + offset, bytes + header->nlmsg_len);
}

// TestMessage::nest indexes a generic netlink message; nests go into nests
// too.
void nest(TestMessage& outer, int type, TestMessage const& inner) {
  nla_put_nested(outer.msg, type, inner.msg);
}

// Elements as access points send them.
namespace ie {
Bytes const ssid = Bytes{0, 9} + text("quenta-ap", false);
Bytes const rsn{48,   20,   1, 0, 0, 0x0f, 0xac, 4,    1, 0,    0,
                0x0f, 0xac, 4, 1, 0, 0,    0x0f, 0xac, 2, 0x0c, 0};
// UTF-8 SSID is bit 48.
Bytes const extCaps{127, 8, 0x04, 0, 0x08, 0, 0, 0, 0x01, 0x40};
Bytes const wmm{221, 7, 0x00, 0x50, 0xf2, 2, 0, 1, 0};
Bytes ht(std::uint8_t primary, std::uint8_t offsetAndWidth) {
  Bytes e(24, 0);
  e[0] = 61, e[1] = 22, e[2] = primary, e[3] = offsetAndWidth;
  return e;
}
Bytes vht(std::uint8_t width, std::uint8_t ccfs0, std::uint8_t ccfs1) {
  return {192, 5, width, ccfs0, ccfs1, 0xfc, 0xff};
}
// HE Operation with VHT Operation Information, and with 6 GHz Operation
// Information.
Bytes const heVht{255, 10, 36, 0x00, 0x40, 0x00, 0x01, 0xfc, 0xff, 1, 42, 0};
Bytes he6(std::uint8_t primary, std::uint8_t control, std::uint8_t ccfs0, std::uint8_t ccfs1) {
  return {255, 12, 36, 0x00, 0x00, 0x02, 0x01, 0xfc, 0xff, primary, control, ccfs0, ccfs1, 6};
}
// EHT Operation with its information and a disabled-subchannel bitmap.
Bytes eht(std::uint8_t control, std::uint8_t ccfs0, std::uint8_t ccfs1) {
  return {255, 11, 106, 0x03, 0xfc, 0xff, 0xff, 0xff, control, ccfs0, ccfs1, 0x02, 0x00};
}
// The system vendor's identifier (kind 4) and name (kind 8), version 1.
Bytes const vendorId = Bytes{221, 22, 0x02, 0x51, 0x54, 4, 1, 0} + Bytes(16, 0xa5);
Bytes const vendorName = Bytes{221, 10, 0x02, 0x51, 0x54, 8, 1, 0} + text("AP-1", false);
// A neighbour on 5 GHz channel 36, with a candidate preference and an empty
// measurement report.
Bytes const neighbor{52,   18,   0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0x8f, 0x38,
                     0x00, 0x00, 115,  36,   9,    3,    1,    0xff, 39,   0};
}  // namespace ie

struct ElementSet {
  char const* name;
  nl80211_band band;
  std::uint32_t mhz;
  Bytes ies;
};

std::vector<ElementSet> const elementSets = {
    {"ht20-2ghz", NL80211_BAND_2GHZ, 2437,
     ie::ssid + ie::rsn + ie::ht(6, 0) + ie::extCaps + ie::wmm},
    {"ht40-5ghz", NL80211_BAND_5GHZ, 5180, ie::ssid + ie::rsn + ie::ht(36, 0x05) + ie::wmm},
    {"vht80-5ghz", NL80211_BAND_5GHZ, 5180,
     ie::ssid + ie::ht(36, 0x05) + ie::vht(1, 42, 0) + ie::extCaps},
    {"vht160-5ghz", NL80211_BAND_5GHZ, 5180, ie::ssid + ie::ht(36, 0x05) + ie::vht(1, 42, 50)},
    {"he-vht-5ghz", NL80211_BAND_5GHZ, 5180, ie::ssid + ie::ht(36, 0x05) + ie::heVht},
    {"he-eht-6ghz", NL80211_BAND_6GHZ, 6135, ie::ssid + ie::he6(37, 2, 39, 0) + ie::eht(4, 47, 31)},
    {"quenta-vendor", NL80211_BAND_5GHZ, 5500, ie::ssid + ie::vendorId + ie::vendorName},
    {"neighbor-report", NL80211_BAND_5GHZ, 5180, ie::ssid + ie::neighbor + ie::neighbor},
    {"broken-tail", NL80211_BAND_2GHZ, 2412, ie::ssid + Bytes{61, 22, 1}},
};

void elements() {
  for (auto const& set : elementSets) {
    write("elements", set.name, Bytes{0, static_cast<std::uint8_t>(set.band)} + set.ies);
  }
  // Headers made by hand: one claiming more than the bytes, one right.
  write("elements", "hand-made-short", Bytes{1, 61, 22, 0} + Bytes(10, 0));
  write("elements", "hand-made-neighbor", Bytes{1, 52, 18, 0} + ie::neighbor);
}

// A generic netlink message of the command: a framed seed of it, and a raw
// one unless the target reads single attributes in raw mode.
template <class Fill>
void genl(std::string const& target, std::string const& name, std::uint8_t command, Fill fill,
          Bytes const& prefix = {}, bool raw = true) {
  auto m = TestMessage::nestBody();
  genlmsg_put(m.msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0x1c, 0, 0, command, 0);
  fill(m);
  write(target, name,
        Bytes{0} + prefix + Bytes{command} + messageBytes(m.msg, NLMSG_HDRLEN + GENL_HDRLEN));
  if (raw) write(target, name + "-raw", Bytes{1} + prefix + messageBytes(m.msg));
}

// The attributes of a scan result's BSS.
void bssAttrs(TestMessage& bss, ElementSet const& set, bool status) {
  bss.put(NL80211_BSS_BSSID, {0x02, 0, 0, 0, 0x01, 0});
  bss.u32(NL80211_BSS_FREQUENCY, set.mhz).u32(NL80211_BSS_CHAN_WIDTH, 0);
  bss.u32(NL80211_BSS_SEEN_MS_AGO, 112);
  bss.u32(NL80211_BSS_SIGNAL_MBM, static_cast<std::uint32_t>(-2700));
  bss.put(NL80211_BSS_BEACON_INTERVAL, bytesOf<std::uint16_t>(100));
  bss.put(NL80211_BSS_CAPABILITY, bytesOf<std::uint16_t>(0x0411));
  if (status) bss.u32(NL80211_BSS_STATUS, 1);
  bss.put(NL80211_BSS_LAST_SEEN_BOOTTIME, bytesOf<std::uint64_t>(14544000000));
  bss.put(NL80211_BSS_INFORMATION_ELEMENTS, set.ies);
}

void scanResult(TestMessage& m, ElementSet const& set, bool status) {
  auto bss = TestMessage::nestBody();
  bssAttrs(bss, set, status);
  m.u32(NL80211_ATTR_GENERATION, 41).u32(NL80211_ATTR_IFINDEX, 1);
  nest(m, NL80211_ATTR_BSS, bss);
}

void bss() {
  for (auto const& set : elementSets) {
    bool const status = set.band == NL80211_BAND_6GHZ;
    genl("bss", set.name, NL80211_CMD_NEW_SCAN_RESULTS,
         [&](TestMessage& m) { scanResult(m, set, status); });
  }
}

// nl80211's nests of entries typed by position.
void list(TestMessage& m, int type, std::vector<Bytes> const& entries) {
  auto entriesNest = TestMessage::nestBody();
  for (std::size_t i = 0; i < entries.size(); ++i) entriesNest.put(static_cast<int>(i), entries[i]);
  nest(m, type, entriesNest);
}

void band(TestMessage& bands, int type, std::vector<std::uint32_t> const& mhz,
          std::vector<std::uint32_t> const& rates) {
  auto freqList = TestMessage::nestBody();
  for (std::size_t i = 0; i < mhz.size(); ++i) {
    auto freq = TestMessage::nestBody();
    freq.u32(NL80211_FREQUENCY_ATTR_FREQ, mhz[i]).u32(NL80211_FREQUENCY_ATTR_MAX_TX_POWER, 2000);
    if (mhz[i] >= 5260) {
      freq.put(NL80211_FREQUENCY_ATTR_RADAR, {});
      freq.put(NL80211_FREQUENCY_ATTR_NO_IR, {});
    }
    if (mhz[i] == 2484) freq.put(NL80211_FREQUENCY_ATTR_DISABLED, {});
    nest(freqList, static_cast<int>(i), freq);
  }
  auto rateList = TestMessage::nestBody();
  for (std::size_t i = 0; i < rates.size(); ++i) {
    auto rate = TestMessage::nestBody();
    rate.u32(NL80211_BITRATE_ATTR_RATE, rates[i]);
    nest(rateList, static_cast<int>(i), rate);
  }
  auto b = TestMessage::nestBody();
  nest(b, NL80211_BAND_ATTR_FREQS, freqList);
  nest(b, NL80211_BAND_ATTR_RATES, rateList);
  nest(bands, type, b);
}

void wiphy(TestMessage& m) {
  m.u32(NL80211_ATTR_WIPHY, 0).put(NL80211_ATTR_WIPHY_NAME, text("phy0"));
  m.u32(NL80211_ATTR_GENERATION, 7);
  auto bands = TestMessage::nestBody();
  band(bands, NL80211_BAND_2GHZ, {2412, 2437, 2462, 2484}, {10, 20, 55, 110, 60, 540});
  band(bands, NL80211_BAND_5GHZ, {5180, 5200, 5260, 5500}, {60, 120, 240, 540});
  nest(m, NL80211_ATTR_WIPHY_BANDS, bands);
  m.u32(NL80211_ATTR_WIPHY_ANTENNA_RX, 3).u32(NL80211_ATTR_WIPHY_ANTENNA_TX, 3);
  m.u32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_RX, 3).u32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_TX, 15);
}

void ifc(TestMessage& m, nl80211_iftype type) {
  m.u32(NL80211_ATTR_IFINDEX, 1).put(NL80211_ATTR_IFNAME, text("wlan0"));
  m.u32(NL80211_ATTR_WIPHY, 0).u32(NL80211_ATTR_IFTYPE, type);
  m.put(NL80211_ATTR_WDEV, bytesOf<std::uint64_t>(0x100000001));
  m.put(NL80211_ATTR_MAC, {0x02, 0, 0, 0, 0, 0});
  m.u32(NL80211_ATTR_GENERATION, 5).u32(NL80211_ATTR_WIPHY_TX_POWER_LEVEL, 2000);
}

void apChannel(TestMessage& m) {
  m.put(NL80211_ATTR_SSID, text("quenta-ap", false));
  m.u32(NL80211_ATTR_WIPHY_FREQ, 5180).u32(NL80211_ATTR_WIPHY_CHANNEL_TYPE, NL80211_CHAN_HT40PLUS);
  m.u32(NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_80).u32(NL80211_ATTR_CENTER_FREQ1, 5210);
  m.put(NL80211_ATTR_MLD_ADDR, {0x02, 0, 0, 0, 0, 0x10});
}

// A rate nest of each generation the kernel sends.
void rate(TestMessage& r, int mcsType, std::uint8_t mcs, int widthFlag) {
  r.u32(NL80211_RATE_INFO_BITRATE32, 8667);
  r.put(NL80211_RATE_INFO_BITRATE, bytesOf<std::uint16_t>(8667));
  if (mcsType != 0) r.put(mcsType, {mcs});
  if (mcsType == NL80211_RATE_INFO_VHT_MCS) r.put(NL80211_RATE_INFO_VHT_NSS, {2});
  if (mcsType == NL80211_RATE_INFO_HE_MCS) {
    r.put(NL80211_RATE_INFO_HE_NSS, {2});
    r.put(NL80211_RATE_INFO_HE_GI, {1});
  }
  if (widthFlag != 0) r.put(widthFlag, {});
  r.put(NL80211_RATE_INFO_SHORT_GI, {});
}

void station(TestMessage& m, int txMcs, int rxMcs) {
  m.u32(NL80211_ATTR_IFINDEX, 1).put(NL80211_ATTR_MAC, {0x02, 0, 0, 0, 1, 0});
  m.u32(NL80211_ATTR_GENERATION, 3);
  auto info = TestMessage::nestBody();
  info.u32(NL80211_STA_INFO_INACTIVE_TIME, 144).u32(NL80211_STA_INFO_CONNECTED_TIME, 12);
  info.u32(NL80211_STA_INFO_RX_BYTES, 608);
  info.put(NL80211_STA_INFO_RX_BYTES64, bytesOf<std::uint64_t>(608));
  info.u32(NL80211_STA_INFO_TX_BYTES, 539).u32(NL80211_STA_INFO_RX_PACKETS, 7);
  info.u32(NL80211_STA_INFO_TX_PACKETS, 5).u32(NL80211_STA_INFO_TX_RETRIES, 0);
  info.u32(NL80211_STA_INFO_TX_FAILED, 0).u32(NL80211_STA_INFO_BEACON_LOSS, 0);
  info.put(NL80211_STA_INFO_RX_DROP_MISC, bytesOf<std::uint64_t>(2));
  info.put(NL80211_STA_INFO_SIGNAL, {0xe5});
  info.put(NL80211_STA_INFO_SIGNAL_AVG, {0xe4});
  auto chains = TestMessage::nestBody();
  chains.put(0, {0xe5});
  chains.put(1, {0xe3});
  nest(info, NL80211_STA_INFO_CHAIN_SIGNAL, chains);
  auto tx = TestMessage::nestBody();
  rate(tx, txMcs, 7, NL80211_RATE_INFO_80_MHZ_WIDTH);
  nest(info, NL80211_STA_INFO_TX_BITRATE, tx);
  auto rx = TestMessage::nestBody();
  rate(rx, rxMcs, 11, NL80211_RATE_INFO_160_MHZ_WIDTH);
  nest(info, NL80211_STA_INFO_RX_BITRATE, rx);
  info.u32(NL80211_STA_INFO_EXPECTED_THROUGHPUT, 9704);
  info.put(NL80211_STA_INFO_STA_FLAGS, bytesOf<std::uint64_t>(0xaa000000feull));
  nest(m, NL80211_ATTR_STA_INFO, info);
}

void survey(TestMessage& m) {
  m.u32(NL80211_ATTR_IFINDEX, 1);
  auto info = TestMessage::nestBody();
  info.u32(NL80211_SURVEY_INFO_FREQUENCY, 5180);
  info.put(NL80211_SURVEY_INFO_NOISE, {0xa4});
  info.put(NL80211_SURVEY_INFO_IN_USE, {});
  for (int type :
       {NL80211_SURVEY_INFO_TIME, NL80211_SURVEY_INFO_TIME_BUSY, NL80211_SURVEY_INFO_TIME_EXT_BUSY,
        NL80211_SURVEY_INFO_TIME_RX, NL80211_SURVEY_INFO_TIME_TX, NL80211_SURVEY_INFO_TIME_SCAN,
        NL80211_SURVEY_INFO_TIME_BSS_RX}) {
    info.put(type, bytesOf<std::uint64_t>(116 + type));
  }
  nest(m, NL80211_ATTR_SURVEY_INFO, info);
}

void records() {
  genl("records", "wiphy-2-bands", NL80211_CMD_NEW_WIPHY, wiphy);
  genl("records", "interface-ap", NL80211_CMD_NEW_INTERFACE, [](TestMessage& m) {
    ifc(m, NL80211_IFTYPE_AP);
    apChannel(m);
  });
  genl("records", "interface-station", NL80211_CMD_NEW_INTERFACE,
       [](TestMessage& m) { ifc(m, NL80211_IFTYPE_STATION); });
  genl("records", "station-vht-he", NL80211_CMD_NEW_STATION,
       [](TestMessage& m) { station(m, NL80211_RATE_INFO_VHT_MCS, NL80211_RATE_INFO_HE_MCS); });
  genl("records", "station-legacy-ht", NL80211_CMD_NEW_STATION,
       [](TestMessage& m) { station(m, 0, NL80211_RATE_INFO_MCS); });
  genl("records", "survey", NL80211_CMD_NEW_SURVEY_RESULTS, survey);
}

void scan(TestMessage& m) {
  m.u32(NL80211_ATTR_IFINDEX, 1);
  list(m, NL80211_ATTR_SCAN_FREQUENCIES,
       {bytesOf<std::uint32_t>(2412), bytesOf<std::uint32_t>(5180)});
  list(m, NL80211_ATTR_SCAN_SSIDS, {{}, text("quenta-ap", false)});
}

void nl80211Events() {
  auto const target = "nl80211_events";
  genl(target, "scan-started", NL80211_CMD_TRIGGER_SCAN, scan);
  genl(target, "scan-finished", NL80211_CMD_NEW_SCAN_RESULTS, scan);
  genl(target, "scan-aborted", NL80211_CMD_SCAN_ABORTED, scan);
  genl(target, "reg-change", NL80211_CMD_REG_CHANGE, [](TestMessage& m) {
    m.u32(NL80211_ATTR_WIPHY, 0).put(NL80211_ATTR_REG_INITIATOR, {NL80211_REGDOM_SET_BY_USER});
    m.put(NL80211_ATTR_REG_TYPE, {NL80211_REGDOM_TYPE_COUNTRY});
    m.put(NL80211_ATTR_REG_ALPHA2, text("DE"));
  });
  genl(target, "channel-switched", NL80211_CMD_CH_SWITCH_NOTIFY, [](TestMessage& m) {
    m.u32(NL80211_ATTR_IFINDEX, 1);
    apChannel(m);
  });
  genl(target, "ifc-created", NL80211_CMD_NEW_INTERFACE, [](TestMessage& m) {
    ifc(m, NL80211_IFTYPE_AP);
    m.put(NL80211_ATTR_4ADDR, {1});
  });
  genl(target, "ifc-deleted", NL80211_CMD_DEL_INTERFACE,
       [](TestMessage& m) { ifc(m, NL80211_IFTYPE_MONITOR); });
  genl(target, "ap-stopped", NL80211_CMD_STOP_AP, [](TestMessage& m) {
    m.u32(NL80211_ATTR_WIPHY, 0).u32(NL80211_ATTR_IFINDEX, 1);
    m.put(NL80211_ATTR_WDEV, bytesOf<std::uint64_t>(0x100000001));
  });
  genl(target, "wiphy-created", NL80211_CMD_NEW_WIPHY, wiphy);
  genl(target, "new-station", NL80211_CMD_NEW_STATION, [](TestMessage& m) {
    m.u32(NL80211_ATTR_IFINDEX, 1).put(NL80211_ATTR_MAC, {0x02, 0, 0, 0, 0, 0x20});
  });
}

// A link message: framed, the attributes after the ifinfomsg; raw (one for
// each payload layout), the whole message.
void wext(std::string const& name, testing::WextFields const& fields, bool raw) {
  WextMessage const m(fields);
  write("wext_events", name,
        Bytes{0} + messageBytes(m.msg, NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(ifinfomsg))));
  if (raw) write("wext_events", name + "-raw", Bytes{1} + messageBytes(m.msg));
}

template <class Event>
void ath(std::string const& name, Bytes const& payload, bool raw = false) {
  wext(name, {.athEvent = Event::athEvent, .payload = payload}, raw);
}

void wextEvents() {
  using namespace Event;
  Bytes const frequency{0x8c, 0x14};  // 5260 MHz
  // First code, second code, the station's address, unused.
  Bytes const station = bytesOf<std::uint32_t>(0) + bytesOf<std::uint32_t>(3) +
                        Bytes{0x02, 0, 0, 0, 0, 0x20} + Bytes(10, 0);
  // Address, channel, unused, AID, PHY mode, chains, 256-QAM, VLAN.
  Bytes const authorized = Bytes{0x02, 0, 0, 0, 0, 0x20, 36, 0} + bytesOf<std::uint16_t>(1) +
                           bytesOf<std::uint16_t>(IEEE80211_MODE_11AXA_HE80) + Bytes{0x22, 1} +
                           bytesOf<std::uint16_t>(10);
  Bytes const leave = Bytes{0x02, 0, 0, 0, 0, 0x20, 36, 0} + bytesOf<std::uint16_t>(1) +
                      Bytes{0, 0} + bytesOf<std::uint32_t>(8);
  Bytes name = text("ath0", false);
  name.resize(16, 0);
  ath<CacReset>("cac-reset", frequency);
  ath<RadarDetected>("radar-detected", frequency, true);
  ath<CacStarted>("cac-started", frequency);
  ath<CacCompleted>("cac-completed", frequency);
  ath<NolStarted>("nol-started", frequency);
  ath<NolFinished>("nol-finished", frequency);
  ath<PreCacStarted>("pre-cac-started", frequency);
  ath<PreCacCompleted>("pre-cac-completed", frequency);
  ath<StaAuthConfirm>("sta-auth-confirm", station, true);
  ath<StaAssocConfirm>("sta-assoc-confirm", station);
  ath<StaDeauthConfirm>("sta-deauth-confirm", station);
  ath<StaAuthIndication>("sta-auth-indication", station);
  ath<StaDeauthIndication>("sta-deauth-indication", station);
  ath<StaDisassocIndication>("sta-disassoc-indication", station);
  ath<StaAssocIndication>("sta-assoc-indication", station);
  ath<StaReassocIndication>("sta-reassoc-indication", station);
  ath<KeySetDoneIndication>("key-set-done", station);
  ath<StaDisassocConfirm>("sta-disassoc-confirm", station);
  ath<StaAuthorized>("sta-authorized", authorized, true);
  ath<StaLeave>("sta-leave", leave, true);
  ath<CacExpired>("cac-expired", name, true);
  ath<NeighborRequest>("neighbor-request", Bytes{0x02, 0, 0, 0, 0, 0x20, 0, 0} + Bytes(64, 0x5a),
                       true);
  wext("link-up", {.wireless = false}, true);
  wext("other-wext-command", {.payload = Bytes(6, 0), .wextCommand = 0x8B15}, false);
}

// An error reply as the kernel sends it, with the extended acknowledgement's
// attributes when it has any; framed from its parts and raw as a whole.
void error(std::string const& name, std::int32_t code, Bytes const& quoted, bool capped,
           TestMessage const* tlvs) {
  int const flags = (tlvs != nullptr ? NLM_F_ACK_TLVS : 0) | (capped ? NLM_F_CAPPED : 0);
  auto* msg = nlmsg_alloc();
  auto* header = nlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, NLMSG_ERROR, sizeof(nlmsgerr), flags);
  auto* err = static_cast<nlmsgerr*>(nlmsg_data(header));
  err->error = code;
  err->msg.nlmsg_len = static_cast<std::uint32_t>(NLMSG_HDRLEN + quoted.size());
  err->msg.nlmsg_type = 0x1c;
  err->msg.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
  if (!capped && !quoted.empty()) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): nlmsg_append only reads it
    nlmsg_append(msg, const_cast<std::uint8_t*>(quoted.data()), quoted.size(), 0);
  }
  Bytes attrs;
  if (tlvs != nullptr) attrs = messageBytes(tlvs->msg, NLMSG_HDRLEN);
  if (!attrs.empty()) nlmsg_append(msg, attrs.data(), attrs.size(), 0);
  write("netlink_error", name,
        Bytes{0, static_cast<std::uint8_t>((tlvs != nullptr ? 1 : 0) | (capped ? 2 : 0))} +
            bytesOf(code) + Bytes{static_cast<std::uint8_t>(quoted.size())} + quoted + attrs);
  write("netlink_error", name + "-raw", Bytes{1} + messageBytes(msg));
  nlmsg_free(msg);
}

void netlinkError() {
  // A request's generic netlink header and one u32 attribute.
  Bytes const request = Bytes{NL80211_CMD_GET_INTERFACE, 0, 0, 0, 8, 0, NL80211_ATTR_IFINDEX, 0} +
                        bytesOf<std::uint32_t>(99);
  auto message = TestMessage::nestBody();
  nla_put_string(message.msg, NLMSGERR_ATTR_MSG, "Invalid interface index");
  nla_put_u32(message.msg, NLMSGERR_ATTR_OFFS, 24);
  auto offsetOnly = TestMessage::nestBody();
  nla_put_u32(offsetOnly.msg, NLMSGERR_ATTR_OFFS, 20);
  error("no-device", -19, request, false, nullptr);
  error("ext-ack-message", -22, request, false, &message);
  error("ext-ack-capped", -22, request, true, &message);
  error("ext-ack-offset-only", -95, request, true, &offsetOnly);
}

// attr_fmt: the scope byte (0 nl80211, 1 BSS, 2 QCA configuration, 3 a
// number that names no table), then the command and attributes (framed) or
// one attribute (raw).
void attrFmtRaw(std::string const& name, std::uint8_t scope, TestMessage const& m, int type,
                int familyHeader = GENL_HDRLEN) {
  auto const* attr = nlmsg_find_attr(nlmsg_hdr(m.msg), familyHeader, type);
  auto const* bytes = reinterpret_cast<std::uint8_t const*>(attr);
  write("attr_fmt", name, Bytes{1, scope} + Bytes(bytes, bytes + attr->nla_len));
}

void attrFmt() {
  auto const target = "attr_fmt";
  Bytes const nl80211{0}, bss{1}, config{2}, noTable{3};
  genl(target, "wiphy", NL80211_CMD_NEW_WIPHY, wiphy, nl80211, false);
  genl(target, "no-table", NL80211_CMD_NEW_WIPHY, wiphy, noTable, false);
  genl(
      target, "interface", NL80211_CMD_NEW_INTERFACE,
      [](TestMessage& m) {
        ifc(m, NL80211_IFTYPE_AP);
        apChannel(m);
      },
      nl80211, false);
  genl(
      target, "scan-result", NL80211_CMD_NEW_SCAN_RESULTS,
      [](TestMessage& m) { scanResult(m, elementSets[2], true); }, nl80211, false);
  genl(
      target, "bss-scope", 0, [](TestMessage& m) { bssAttrs(m, elementSets[5], true); }, bss,
      false);
  genl(
      target, "config-scope", 0,
      [](TestMessage& m) {
        m.u32(QcaCmd::attrConfigGenericCommand, QcaCmd::genericParamCommand);
        m.u32(QcaCmd::attrConfigGenericValue, 360).u32(QcaCmd::attrConfigGenericFlags, 0);
      },
      config, false);

  // A driver parameter set: generic command, parameter, value; and the vendor
  // data of another subcommand, printed in hex.
  auto configData = TestMessage::nestBody();
  configData.u32(QcaCmd::attrConfigGenericCommand, QcaCmd::genericParamCommand);
  configData.u32(QcaCmd::attrConfigGenericValue, 360).u32(QcaCmd::attrConfigGenericLength, 4);
  configData.put(QcaCmd::attrConfigGenericData, bytesOf<std::uint32_t>(1));
  auto const setConfig = [&](TestMessage& m) {
    m.u32(NL80211_ATTR_IFINDEX, 1).u32(NL80211_ATTR_VENDOR_ID, QcaCmd::vendorId);
    m.u32(NL80211_ATTR_VENDOR_SUBCMD, QcaCmd::subCmdSetWifiConfiguration);
    nest(m, NL80211_ATTR_VENDOR_DATA, configData);
  };
  genl(target, "vendor-set-config", NL80211_CMD_VENDOR, setConfig, nl80211, false);
  genl(
      target, "vendor-tx-vdev-status", NL80211_CMD_VENDOR,
      [](TestMessage& m) {
        m.u32(NL80211_ATTR_VENDOR_ID, QcaCmd::vendorId).u32(NL80211_ATTR_VENDOR_SUBCMD, 196);
        m.put(NL80211_ATTR_VENDOR_DATA, {1, 0, 0, 0, 8, 0, 1, 0});
      },
      nl80211, false);

  TestMessage scan;
  scanResult(scan, elementSets[5], true);
  attrFmtRaw("bss-attribute-raw", 0, scan, NL80211_ATTR_BSS);
  TestMessage vendor;
  setConfig(vendor);
  attrFmtRaw("vendor-data-raw", 0, vendor, NL80211_ATTR_VENDOR_DATA);
  attrFmtRaw("config-value-raw", 2, configData, QcaCmd::attrConfigGenericValue, 0);
  attrFmtRaw("no-table-raw", 3, vendor, NL80211_ATTR_VENDOR_ID);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  root = argv[1];
  elements();
  bss();
  records();
  nl80211Events();
  wextEvents();
  netlinkError();
  attrFmt();
  return 0;
}
