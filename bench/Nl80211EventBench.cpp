// What an nl80211 event costs from its message to the queue, with nobody
// listening to the log: the library's decoder against libnl's
// genlmsg_parse of the same message and one plain notification.
#include <cstdint>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>

#include "Bench.h"
#include "EventRow.h"
#include "TestMessage.h"
#include "events/Decoders.h"
#include "ny80211/Events.h"

namespace {

using Ny80211::testing::hex;
using Ny80211::testing::TestMessage;

// A real interface, so that the name lookups of the events are real.
std::uint32_t const loopback = if_nametoindex("lo");

// An interface as nl80211 describes it, up to its channel.
void interface(nl_msg* msg) {
  nla_put_u32(msg, NL80211_ATTR_IFINDEX, loopback);
  nla_put_string(msg, NL80211_ATTR_IFNAME, "lo");
  nla_put_u32(msg, NL80211_ATTR_WIPHY, 0);
  nla_put_u32(msg, NL80211_ATTR_IFTYPE, NL80211_IFTYPE_AP);
  nla_put_u64(msg, NL80211_ATTR_WDEV, 0x100000002);
  nla_put(msg, NL80211_ATTR_MAC, 6, hex("02a0c5100001").data());
  nla_put_u32(msg, NL80211_ATTR_GENERATION, 21);
  nla_put_u8(msg, NL80211_ATTR_4ADDR, 0);
}

void txPower(nl_msg* msg) { nla_put_u32(msg, NL80211_ATTR_WIPHY_TX_POWER_LEVEL, 2000); }

void newInterface(nl_msg* msg) {
  interface(msg);
  txPower(msg);
}

// Up and beaconing on 40 MHz at 5180 MHz.
void newInterfaceWithChannel(nl_msg* msg) {
  interface(msg);
  nla_put_u32(msg, NL80211_ATTR_WIPHY_FREQ, 5180);
  nla_put_u32(msg, NL80211_ATTR_WIPHY_FREQ_OFFSET, 0);
  nla_put_u32(msg, NL80211_ATTR_WIPHY_CHANNEL_TYPE, NL80211_CHAN_HT40PLUS);
  nla_put_u32(msg, NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_40);
  nla_put_u32(msg, NL80211_ATTR_CENTER_FREQ1, 5190);
  txPower(msg);
  nla_put_string(msg, NL80211_ATTR_SSID, "Office-Guest");
}

// A full scan: a wildcard and one named SSID, 13 channels at 2.4 GHz and 26
// at 5 GHz, and the probe request's elements.
void triggerScan(nl_msg* msg) {
  nla_put_u32(msg, NL80211_ATTR_WIPHY, 0);
  nla_put_u32(msg, NL80211_ATTR_IFINDEX, loopback);
  nla_put_u64(msg, NL80211_ATTR_WDEV, 0x100000002);
  auto* const ssids = nla_nest_start(msg, NL80211_ATTR_SCAN_SSIDS);
  nla_put(msg, 0, 0, nullptr);
  nla_put_string(msg, 1, "Office-Guest");
  nla_nest_end(msg, ssids);
  std::vector<std::uint32_t> mhz;
  for (std::uint32_t ch = 1; ch <= 13; ++ch) mhz.push_back(2407 + 5 * ch);
  for (std::uint32_t ch = 36; ch <= 64; ch += 4) mhz.push_back(5000 + 5 * ch);
  for (std::uint32_t ch = 100; ch <= 144; ch += 4) mhz.push_back(5000 + 5 * ch);
  for (std::uint32_t ch = 149; ch <= 169; ch += 4) mhz.push_back(5000 + 5 * ch);
  auto* const freqs = nla_nest_start(msg, NL80211_ATTR_SCAN_FREQUENCIES);
  for (std::size_t i = 0; i < mhz.size(); ++i) nla_put_u32(msg, static_cast<int>(i), mhz[i]);
  nla_nest_end(msg, freqs);
  auto const ies =
      hex("0108 0c121824b048606c 2d1a ef0917ffff0000000000000000000000000000000000000000 "
          "7f080400080000000040 bf0c 9259820feaff0000eaff0000");
  nla_put(msg, NL80211_ATTR_IE, static_cast<int>(ies.size()), ies.data());
}

// To 80 MHz at 5500 MHz.
void channelSwitch(nl_msg* msg) {
  nla_put_u32(msg, NL80211_ATTR_IFINDEX, loopback);
  nla_put_u32(msg, NL80211_ATTR_WIPHY_FREQ, 5500);
  nla_put_u32(msg, NL80211_ATTR_WIPHY_FREQ_OFFSET, 0);
  nla_put_u32(msg, NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_80);
  nla_put_u32(msg, NL80211_ATTR_CENTER_FREQ1, 5530);
}

struct Kind {
  char const* row;
  std::uint8_t command;
  void (*fill)(nl_msg*);
  std::type_info const& event;
};

Kind const kinds[] = {
    {"nl80211-new-interface", NL80211_CMD_NEW_INTERFACE, newInterface,
     typeid(Ny80211::Event::IfcCreated)},
    {"nl80211-new-interface-channel", NL80211_CMD_NEW_INTERFACE, newInterfaceWithChannel,
     typeid(Ny80211::Event::IfcCreated)},
    {"nl80211-trigger-scan", NL80211_CMD_TRIGGER_SCAN, triggerScan,
     typeid(Ny80211::Event::ScanStarted)},
    {"nl80211-ch-switch", NL80211_CMD_CH_SWITCH_NOTIFY, channelSwitch,
     typeid(Ny80211::Event::ChannelSwitched)},
};

// The multicast as the kernel sends it, with a family number nl80211 often
// gets.
std::unique_ptr<TestMessage> build(Kind const& kind) {
  auto m = std::make_unique<TestMessage>(0, false);
  genlmsg_put(m->msg, 0, 0, 0x1c, 0, 0, kind.command, 1);
  kind.fill(m->msg);
  return m;
}

// Every attribute into a table by type, without a policy.
bool parse(nl_msg* msg) {
  nlattr* tb[NL80211_ATTR_MAX + 1];
  return genlmsg_parse(nlmsg_hdr(msg), 0, tb, NL80211_ATTR_MAX, nullptr) == 0 &&
         tb[NL80211_ATTR_IFINDEX] != nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  using Library = bench::DecoderWork<Ny80211::detail::Nl80211EventDecoder>;
  using Baseline = bench::ParseWork<bool (*)(nl_msg*)>;
  std::vector<bench::Row> rows;
  for (auto const& kind : kinds) {
    rows.push_back(
        {kind.row,
         [&kind] { return std::make_unique<Library>(build(kind)->msg, kind.event, kind.row); },
         [&kind] { return std::make_unique<Baseline>(build(kind)->msg, &parse, kind.row); }});
  }
  return bench::run(argc, argv, rows);
}
