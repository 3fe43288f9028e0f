// What reading a radio's description costs: WiPhyInfo from a whole
// NL80211_CMD_NEW_WIPHY message of a two-band radio (2.4 GHz with 13
// channels and 12 bit rates, 5 GHz with 26 channels and 8 bit rates),
// against libnl's nla_parse walk of the same message reading the same values.
#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>

#include "Bench.h"
#include "TestMessage.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/WiPhyInfo.h"

namespace {

using bench::check;
using Ny80211::testing::hex;
using Ny80211::testing::TestMessage;

struct ChannelRow {
  std::uint32_t mhz;
  std::uint32_t maxPowerMbm;
  bool disabled, noIR, radar;
  std::uint32_t dfsState;  // radar channels only
};

std::vector<ChannelRow> channels(bool fiveGhz) {
  std::vector<ChannelRow> rows;
  if (!fiveGhz) {
    // 12 and 13 passive only.
    for (std::uint32_t ch = 1; ch <= 13; ++ch)
      rows.push_back({2407 + 5 * ch, 2000, false, ch >= 12, false, 0});
    return rows;
  }
  auto const add = [&rows](std::uint32_t ch, std::uint32_t power) {
    bool const radar = ch >= 52 && ch <= 144;
    // Channels 100 to 112 passed their CAC: available.
    std::uint32_t const state = ch >= 100 && ch <= 112 ? NL80211_DFS_AVAILABLE : NL80211_DFS_USABLE;
    rows.push_back({5000 + 5 * ch, power, ch == 169, radar || ch == 169, radar, state});
  };
  for (std::uint32_t ch = 36; ch <= 64; ch += 4) add(ch, ch < 52 ? 2300 : 2400);
  for (std::uint32_t ch = 100; ch <= 144; ch += 4) add(ch, 2400);
  for (std::uint32_t ch = 149; ch <= 169; ch += 4) add(ch, 3000);
  return rows;
}

constexpr std::uint32_t rates2g[] = {10, 20, 55, 110, 60, 90, 120, 180, 240, 360, 480, 540};
constexpr std::uint32_t rates5g[] = {60, 90, 120, 180, 240, 360, 480, 540};

// HT and VHT capabilities, and the HE capabilities of the AP interface type.
void capabilities(TestMessage& m, bool fiveGhz) {
  m.put(NL80211_BAND_ATTR_HT_MCS_SET, hex("ffffffff000000000000000000000000"));
  nla_put_u16(m.msg, NL80211_BAND_ATTR_HT_CAPA, 0x19ef);
  nla_put_u8(m.msg, NL80211_BAND_ATTR_HT_AMPDU_FACTOR, 3);
  nla_put_u8(m.msg, NL80211_BAND_ATTR_HT_AMPDU_DENSITY, 5);
  if (fiveGhz) {
    m.put(NL80211_BAND_ATTR_VHT_MCS_SET, hex("aaff0000aaff0020"));
    m.u32(NL80211_BAND_ATTR_VHT_CAPA, 0x339b79fa);
  }
  auto* const iftypeData = nla_nest_start(m.msg, NL80211_BAND_ATTR_IFTYPE_DATA);
  auto* const entry = nla_nest_start(m.msg, 1);
  auto* const iftypes = nla_nest_start(m.msg, NL80211_BAND_IFTYPE_ATTR_IFTYPES);
  nla_put_flag(m.msg, NL80211_IFTYPE_AP);
  nla_nest_end(m.msg, iftypes);
  m.put(NL80211_BAND_IFTYPE_ATTR_HE_CAP_MAC, hex("0d0018120010"));
  m.put(NL80211_BAND_IFTYPE_ATTR_HE_CAP_PHY, hex("4c2002c00f5381881f4381"));
  m.put(NL80211_BAND_IFTYPE_ATTR_HE_CAP_MCS_SET, hex("aaffaaffaaffaaff"));
  m.put(NL80211_BAND_IFTYPE_ATTR_HE_CAP_PPE, hex("7b1cc7711cc7711cc771"));
  nla_nest_end(m.msg, entry);
  nla_nest_end(m.msg, iftypeData);
}

void channelList(TestMessage& m, bool fiveGhz) {
  auto* const freqs = nla_nest_start(m.msg, NL80211_BAND_ATTR_FREQS);
  int index = 0;
  for (auto const& c : channels(fiveGhz)) {
    auto* const channel = nla_nest_start(m.msg, index++);
    m.u32(NL80211_FREQUENCY_ATTR_FREQ, c.mhz).u32(NL80211_FREQUENCY_ATTR_OFFSET, 0);
    if (c.disabled) nla_put_flag(m.msg, NL80211_FREQUENCY_ATTR_DISABLED);
    if (c.noIR) {
      nla_put_flag(m.msg, NL80211_FREQUENCY_ATTR_NO_IR);
      nla_put_flag(m.msg, __NL80211_FREQUENCY_ATTR_NO_IBSS);
    }
    if (c.radar) {
      nla_put_flag(m.msg, NL80211_FREQUENCY_ATTR_RADAR);
      m.u32(NL80211_FREQUENCY_ATTR_DFS_STATE, c.dfsState);
      m.u32(NL80211_FREQUENCY_ATTR_DFS_TIME, 81'250)
          .u32(NL80211_FREQUENCY_ATTR_DFS_CAC_TIME, 60'000);
    }
    m.u32(NL80211_FREQUENCY_ATTR_MAX_TX_POWER, c.maxPowerMbm);
    nla_nest_end(m.msg, channel);
  }
  nla_nest_end(m.msg, freqs);
}

void rateList(TestMessage& m, bool fiveGhz) {
  auto* const rates = nla_nest_start(m.msg, NL80211_BAND_ATTR_RATES);
  int index = 0;
  for (auto const rate : fiveGhz ? std::span<std::uint32_t const>(rates5g)
                                 : std::span<std::uint32_t const>(rates2g)) {
    auto* const entry = nla_nest_start(m.msg, index++);
    m.u32(NL80211_BITRATE_ATTR_RATE, rate);
    // 2, 5.5 and 11 Mbps
    if (!fiveGhz && rate >= 20 && rate <= 110) {
      nla_put_flag(m.msg, NL80211_BITRATE_ATTR_2GHZ_SHORTPREAMBLE);
    }
    nla_nest_end(m.msg, entry);
  }
  nla_nest_end(m.msg, rates);
}

// The radio as nl80211 announces it in one (unsplit) message.
std::unique_ptr<TestMessage> newWiphy() {
  auto m = std::make_unique<TestMessage>(0, false);
  auto* const msg = m->msg;
  genlmsg_put(msg, 0, 0, 0x1c, 0, 0, NL80211_CMD_NEW_WIPHY, 1);
  m->u32(NL80211_ATTR_WIPHY, 0);
  nla_put_string(msg, NL80211_ATTR_WIPHY_NAME, "phy0");
  m->u32(NL80211_ATTR_GENERATION, 5);
  nla_put_u8(msg, NL80211_ATTR_WIPHY_RETRY_SHORT, 7);
  nla_put_u8(msg, NL80211_ATTR_WIPHY_RETRY_LONG, 4);
  m->u32(NL80211_ATTR_WIPHY_FRAG_THRESHOLD, 0xffffffff);
  m->u32(NL80211_ATTR_WIPHY_RTS_THRESHOLD, 0xffffffff);
  nla_put_u8(msg, NL80211_ATTR_WIPHY_COVERAGE_CLASS, 0);
  nla_put_u8(msg, NL80211_ATTR_MAX_NUM_SCAN_SSIDS, 16);
  nla_put_u16(msg, NL80211_ATTR_MAX_SCAN_IE_LEN, 2285);
  nla_put_flag(msg, NL80211_ATTR_SUPPORT_AP_UAPSD);
  m->put(NL80211_ATTR_CIPHER_SUITES,
         hex("01ac0f00 05ac0f00 02ac0f00 04ac0f00 0aac0f00 09ac0f00 08ac0f00 06ac0f00"));
  m->u32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_TX, 15).u32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_RX, 15);
  m->u32(NL80211_ATTR_WIPHY_ANTENNA_TX, 3).u32(NL80211_ATTR_WIPHY_ANTENNA_RX, 3);
  auto* const iftypes = nla_nest_start(msg, NL80211_ATTR_SUPPORTED_IFTYPES);
  for (int type : {NL80211_IFTYPE_STATION, NL80211_IFTYPE_AP, NL80211_IFTYPE_AP_VLAN,
                   NL80211_IFTYPE_MONITOR, NL80211_IFTYPE_MESH_POINT}) {
    nla_put_flag(msg, type);
  }
  nla_nest_end(msg, iftypes);
  // Each band in the order nl80211 writes it.
  auto* const bands = nla_nest_start(msg, NL80211_ATTR_WIPHY_BANDS);
  for (int type : {NL80211_BAND_2GHZ, NL80211_BAND_5GHZ}) {
    bool const fiveGhz = type == NL80211_BAND_5GHZ;
    auto* const band = nla_nest_start(msg, type);
    capabilities(*m, fiveGhz);
    channelList(*m, fiveGhz);
    rateList(*m, fiveGhz);
    nla_nest_end(msg, band);
  }
  nla_nest_end(msg, bands);
  return m;
}

class Library final : public bench::Work {
 public:
  Library() {
    Ny80211::GenlMessage const message(message_->msg);
    Ny80211::WiPhyInfo info;
    info.readFrom(message.attributes());
    auto const& b = info.bands.bands;
    check(info.name == "phy0" && info.antennaRx.mask == 3 && info.antennaAvailTx.mask == 15 &&
              b.size() == 2 && b[0].freqs.channels.size() == 13 &&
              b[1].freqs.channels.size() == 26 && b[0].rates.rates.size() == 12 &&
              b[1].rates.rates.size() == 8 && b[1].freqs.channels[4].radar &&
              b[1].freqs.channels[4].maxTxPower == 2400 && b[1].rates.rates[7].bitrate == 54000,
          "the library's reading of the wiphy");
  }

  void item() override {
    Ny80211::GenlMessage const message(message_->msg);
    Ny80211::WiPhyInfo info;
    info.readFrom(message.attributes());
    benchmark::DoNotOptimize(&info);
  }

 private:
  std::unique_ptr<TestMessage> const message_ = newWiphy();
};

// The same values as WiPhyInfo, in place.
struct Parsed {
  struct Channel {
    std::uint32_t mhz = 0, maxTxPower = 0;
    bool disabled = false, noIR = false, radar = false;
  };
  struct Band {
    std::array<Channel, 64> channels;
    std::array<std::uint64_t, 32> rates{};  // kbps
    std::size_t channelCount = 0, rateCount = 0;
  };
  std::uint32_t wiphy = 0, generation = 0;
  char const* name = nullptr;
  std::uint32_t antennaRx = 0, antennaTx = 0, antennaAvailRx = 0, antennaAvailTx = 0;
  std::array<Band, 4> bands;
  std::size_t bandCount = 0;
};

// A value only from an attribute that is there and holds one; 0 otherwise.
std::uint32_t u32(nlattr const* attr) {
  return attr != nullptr && nla_len(attr) >= 4 ? nla_get_u32(attr) : 0;
}

void parseBand(nlattr* band, Parsed::Band& out) {
  nlattr* tb[NL80211_BAND_ATTR_MAX + 1];
  nla_parse_nested(tb, NL80211_BAND_ATTR_MAX, band, nullptr);
  nlattr* entry = nullptr;
  int rest = 0;
  out.channelCount = out.rateCount = 0;
  if (tb[NL80211_BAND_ATTR_FREQS] != nullptr) {
    nla_for_each_nested(entry, tb[NL80211_BAND_ATTR_FREQS], rest) {
      if (out.channelCount == out.channels.size()) break;
      nlattr* f[NL80211_FREQUENCY_ATTR_MAX + 1];
      nla_parse_nested(f, NL80211_FREQUENCY_ATTR_MAX, entry, nullptr);
      out.channels[out.channelCount++] = {
          u32(f[NL80211_FREQUENCY_ATTR_FREQ]), u32(f[NL80211_FREQUENCY_ATTR_MAX_TX_POWER]),
          f[NL80211_FREQUENCY_ATTR_DISABLED] != nullptr, f[NL80211_FREQUENCY_ATTR_NO_IR] != nullptr,
          f[NL80211_FREQUENCY_ATTR_RADAR] != nullptr};
    }
  }
  if (tb[NL80211_BAND_ATTR_RATES] != nullptr) {
    nla_for_each_nested(entry, tb[NL80211_BAND_ATTR_RATES], rest) {
      if (out.rateCount == out.rates.size()) break;
      nlattr* r[NL80211_BITRATE_ATTR_MAX + 1];
      nla_parse_nested(r, NL80211_BITRATE_ATTR_MAX, entry, nullptr);
      out.rates[out.rateCount++] = std::uint64_t{u32(r[NL80211_BITRATE_ATTR_RATE])} * 100;
    }
  }
}

void parse(nl_msg* msg, Parsed& out) {
  nlattr* tb[NL80211_ATTR_MAX + 1];
  genlmsg_parse(nlmsg_hdr(msg), 0, tb, NL80211_ATTR_MAX, nullptr);
  out.wiphy = u32(tb[NL80211_ATTR_WIPHY]);
  out.generation = u32(tb[NL80211_ATTR_GENERATION]);
  out.name = tb[NL80211_ATTR_WIPHY_NAME] != nullptr ? nla_get_string(tb[NL80211_ATTR_WIPHY_NAME])
                                                    : nullptr;
  out.antennaRx = u32(tb[NL80211_ATTR_WIPHY_ANTENNA_RX]);
  out.antennaTx = u32(tb[NL80211_ATTR_WIPHY_ANTENNA_TX]);
  out.antennaAvailRx = u32(tb[NL80211_ATTR_WIPHY_ANTENNA_AVAIL_RX]);
  out.antennaAvailTx = u32(tb[NL80211_ATTR_WIPHY_ANTENNA_AVAIL_TX]);
  out.bandCount = 0;
  if (tb[NL80211_ATTR_WIPHY_BANDS] == nullptr) return;
  nlattr* band = nullptr;
  int rest = 0;
  nla_for_each_nested(band, tb[NL80211_ATTR_WIPHY_BANDS], rest) {
    if (out.bandCount == out.bands.size()) break;
    parseBand(band, out.bands[out.bandCount++]);
  }
}

class Baseline final : public bench::Work {
 public:
  Baseline() {
    parse(message_->msg, parsed_);
    auto const& b = parsed_.bands;
    check(parsed_.name == std::string("phy0") && parsed_.antennaRx == 3 && parsed_.bandCount == 2 &&
              b[0].channelCount == 13 && b[1].channelCount == 26 && b[0].rateCount == 12 &&
              b[1].rateCount == 8 && b[1].channels[4].radar && b[1].rates[7] == 54000,
          "the baseline's reading of the wiphy");
  }

  void item() override {
    parse(message_->msg, parsed_);
    benchmark::DoNotOptimize(&parsed_);
  }

 private:
  std::unique_ptr<TestMessage> const message_ = newWiphy();
  Parsed parsed_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::run(argc, argv, {{"wiphy", bench::make<Library>, bench::make<Baseline>}});
}
