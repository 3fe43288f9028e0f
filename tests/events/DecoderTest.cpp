// The two event decoders: from a received message to the event they log and publish, or to the one line that says
// why there is none; the rtnetlink view the wireless-extension one reads through; the texts of the codes events carry.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/NotificationQueue.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "TestMessage.h"
#include "TraceCapture.h"
#include "WextMessage.h"
#include "events/Decoders.h"
#include "ny80211/CodeTexts.h"
#include "ny80211/Events.h"
#include "ny80211/GenlMessage.h"
#include "ny80211/RtNetlinkMessage.h"
#include "ny80211/WextEvents.h"

namespace {

using namespace Ny80211;
using namespace Ny80211::Event;
using namespace Ny80211::testing;
using trace::Level;
using trace::Provider;

// The lines logged, each with the number of events queued when it was written.
struct QueueWatch : TraceCapture {
  explicit QueueWatch(Poco::NotificationQueue const& q) : queue(q) {}
  void line(Provider provider, Level level, std::string_view text) noexcept override {
    queued.push_back(queue.size());
    TraceCapture::line(provider, level, text);
  }
  Poco::NotificationQueue const& queue;
  std::vector<int> queued;
};

// One message through a decoder as its socket runs it, first with nobody listening, which must publish the same.
// The outcome is the one line logged: the text of the event published, before it was queued; or why there is none,
// "Error..." from the event side, "error..." from the socket's plumbing; or, empty, silence. Of type, if given.
template <class Decoder, class E>
Poco::AutoPtr<E> decode(nl_msg* msg, std::string const& outcome, std::type_info const* type) {
  Poco::NotificationQueue quiet, queue;
  EXPECT_EQ(Decoder(NyEvent::Publisher(quiet))(msg), NL_OK);
  QueueWatch const watch(queue);
  EXPECT_EQ(Decoder(NyEvent::Publisher(queue))(msg), NL_OK);
  Poco::AutoPtr<E> event = Poco::AutoPtr<Poco::Notification>(queue.dequeueNotification()).cast<E>();
  Poco::AutoPtr<E> const silent = Poco::AutoPtr<Poco::Notification>(quiet.dequeueNotification()).cast<E>();
  auto const text = [](Poco::AutoPtr<E> const& e) { return e.isNull() ? std::string("<none>") : e->toString(); };
  EXPECT_EQ(text(silent), text(event));
  bool const failed = outcome.empty() || outcome.starts_with("Error") || outcome.starts_with("error");
  EXPECT_EQ(text(event), failed ? "<none>" : outcome);
  TraceLine const line{outcome[0] == 'e' ? Provider::Cmd : Provider::Event, failed ? Level::Err : Level::Info, outcome};
  auto const lines = outcome.empty() ? std::vector<TraceLine>{} : std::vector{line};
  EXPECT_EQ(watch.lines(), lines);
  EXPECT_EQ(watch.queued, std::vector<int>(lines.size(), 0));
  auto const* published = event.get();
  EXPECT_TRUE(type == nullptr || (published != nullptr && typeid(*published) == *type)) << outcome;
  return event;
}

// A received nl80211 event: the generic header with the command (none: no room for it), then the attributes.
Poco::AutoPtr<Nl80211Event> nl80211(std::optional<std::uint8_t> command, Attrs const& attrs, std::string const& outcome,
                                    std::type_info const* type = nullptr) {
  TestMessage m(0, false);
  if (command) genlmsg_put(m.msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, *command, 0);
  m.put(attrs);
  return decode<detail::Nl80211EventDecoder, Nl80211Event>(m.msg, outcome, type);
}

unsigned const lo = if_nametoindex("lo");
Bytes u32(std::uint32_t value) { return bytesOf(value); }
// The attributes fill writes, as a list that rows can reorder or replace.
Attrs attrsOf(std::function<void(TestMessage&)> const& fill) {
  TestMessage m;
  fill(m);
  Attrs attrs;
  m.stream().forEachAttr([&](nlattr const* a) {
    auto const* data = static_cast<std::uint8_t const*>(nla_data(a));
    attrs.emplace_back(a->nla_type, Bytes(data, data + nla_len(a)));
  });
  return attrs;
}
Attrs const wiphy = attrsOf([](TestMessage& m) {
  m.u32(NL80211_ATTR_WIPHY, 3).put(NL80211_ATTR_WIPHY_NAME, Bytes{'p', 'h', 'y', '3', 0});
  m.u32(NL80211_ATTR_GENERATION, 7);
  nla_nest_end_keep_empty(m.msg, nla_nest_start(m.msg, NL80211_ATTR_WIPHY_BANDS));
  m.u32(NL80211_ATTR_WIPHY_ANTENNA_RX, 1).u32(NL80211_ATTR_WIPHY_ANTENNA_TX, 3);
  m.u32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_RX, 3).u32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_TX, 15);
});
Attrs const ifc = attrsOf([](TestMessage& m) {
  m.u32(NL80211_ATTR_IFINDEX, 7).put(NL80211_ATTR_IFNAME, Bytes{'w', 'l', 'a', 'n', '0', 0});
  m.u32(NL80211_ATTR_WIPHY, 1).u32(NL80211_ATTR_IFTYPE, NL80211_IFTYPE_AP).put(NL80211_ATTR_MAC, hex("020000000100"));
  m.put(NL80211_ATTR_WDEV, hex("0200000001000000"));
  m.u32(NL80211_ATTR_GENERATION, 5).u32(NL80211_ATTR_WIPHY_TX_POWER_LEVEL, 2000);
});
Attrs const channel = attrsOf([](TestMessage& m) {
  m.u32(NL80211_ATTR_IFINDEX, lo).u32(NL80211_ATTR_WIPHY_FREQ, 5180).u32(NL80211_ATTR_CENTER_FREQ1, 5210);
  m.u32(NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_80);
});
Attrs const ifcOnChannel = attrsOf([](TestMessage& m) { m.put(ifc).put(replaced(channel, NL80211_ATTR_IFINDEX, {})); });
Attrs regChange(std::uint8_t initiator, std::uint8_t type) {
  return {{NL80211_ATTR_WIPHY, u32(2)}, {NL80211_ATTR_REG_INITIATOR, {initiator}}, {NL80211_ATTR_REG_TYPE, {type}}};
}
// A scan notification: nests of entries typed by position, as nl80211 sends.
Attrs scan(std::vector<Bytes> const& freqs, std::vector<Bytes> const& ssids = {}) {
  return attrsOf([&](TestMessage& m) {
    m.u32(NL80211_ATTR_IFINDEX, lo);
    for (auto const& [type, list] :
         {std::pair{NL80211_ATTR_SCAN_FREQUENCIES, freqs}, {NL80211_ATTR_SCAN_SSIDS, ssids}}) {
      auto* nest = nla_nest_start(m.msg, type);
      for (std::size_t i = 0; i < list.size(); ++i) m.put(static_cast<int>(i), list[i]);
      nla_nest_end_keep_empty(m.msg, nest);
    }
  });
}

std::string const ifcText = "[gen 5] AP 'wlan0' / ID 7 / wiphy ID 1 / MAC 02:00:00:00:01:00 ";
std::string const chText = "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 MHz";
std::string created(std::string const& middle) { return "ifc created: " + ifcText + middle + "/ TX power 20 dBm"; }

// One message of each event: command, attributes, class, text.
std::vector<std::tuple<std::uint8_t, Attrs, std::type_info const*, std::string>> const known{
    {NL80211_CMD_NEW_WIPHY, wiphy, &typeid(WiPhyCreated),
     "wiphy created: [gen 7] wiphy 'phy3' / ID 3 / antenna avail:used RX 11:1 TX 1111:11 / bands ([])"},
    {NL80211_CMD_NEW_INTERFACE, ifcOnChannel, &typeid(IfcCreated), created("/ channel (" + chText + ") ")},
    {NL80211_CMD_DEL_INTERFACE, ifc, &typeid(IfcDeleted), "ifc deleted: " + ifcText + "/ TX power 20 dBm"},
    {NL80211_CMD_STOP_AP, replaced(ifc, NL80211_ATTR_WIPHY, {"02000000"}), &typeid(ApStopped),
     "AP stopped (phy 2 / ifc 7 / wdev 4294967298)"},
    {NL80211_CMD_REG_CHANGE, regChange(NL80211_REGDOM_SET_BY_COUNTRY_IE, NL80211_REGDOM_TYPE_INTERSECTION),
     &typeid(RegDomainChanged), "regdomain (type intersection) for phy 2 changed by country IE"},
    {NL80211_CMD_REG_CHANGE, regChange(4, 0xff), &typeid(RegDomainChanged),
     "regdomain (type <unknown>) for phy 2 changed by <unknown>"},
    {NL80211_CMD_CH_SWITCH_NOTIFY, channel, &typeid(ChannelSwitched), "VAP lo switched to channel: " + chText},
    {NL80211_CMD_TRIGGER_SCAN, scan({u32(2412), u32(5180)}, {{'l', 'a', 'b'}}), &typeid(ScanStarted),
     "scan started for VAP lo, scanned freqs [2412, 5180]"},
    {NL80211_CMD_NEW_SCAN_RESULTS, scan({u32(5955)}), &typeid(ScanFinished),
     "scan finished for VAP lo, scanned freqs [5955]"},
    {NL80211_CMD_SCAN_ABORTED, scan({}), &typeid(ScanAborted), "scan aborted for VAP lo, scanned freqs []"},
};

TEST(Nl80211Decoder, PublishesEachKnownEventInAnyAttributeOrder) {
  for (auto const& [command, attrs, type, text] : known) {
    nl80211(command, attrs, text, type);
    nl80211(command, Attrs(attrs.rbegin(), attrs.rend()), text, type);
  }
  // What the texts leave out: the SSIDs scanned and the 4-address flag.
  auto const started = nl80211(NL80211_CMD_TRIGGER_SCAN, scan({u32(2412)}, {{'l', 'a', 'b'}, {}, {0, 0xff}}),
                               "scan started for VAP lo, scanned freqs [2412]");
  std::vector<std::vector<std::byte>> const ssids{
      {std::byte{'l'}, std::byte{'a'}, std::byte{'b'}}, {}, {std::byte{0}, std::byte{0xff}}};
  EXPECT_EQ(started.cast<ScanStarted>()->ssids(), ssids);
  for (auto const& [payloads, set] : std::vector<std::pair<std::vector<char const*>, bool>>{
           {{}, false}, {{"00"}, false}, {{"02"}, true}, {{"00", "01"}, false}}) {
    auto const event = nl80211(NL80211_CMD_NEW_INTERFACE, replaced(ifc, NL80211_ATTR_4ADDR, payloads), created(""));
    EXPECT_EQ(event.cast<IfcCreated>()->fourAddr(), set);
  }
}

// Variants of the known messages: the first of repeated attributes counts, optional ones may be absent, and a
// malformed message is logged, not published.
TEST(Nl80211Decoder, AbsentShortAndRepeatedAttributes) {
  // Command, attribute type, its payloads in hex in message order (none: absent), outcome.
  using Row = std::tuple<std::uint8_t, int, std::vector<char const*>, std::string>;
  auto const error = [](char const* command, std::string const& why) {
    return fmt::format("Error processing nl80211 event NL80211_CMD_{}: {}", command, why);
  };
  auto const small = [](int type, int size, int needed) {
    return fmt::format("attribute (type {}) payload too small for data type ({} < {})", type, size, needed);
  };
  auto const ifcError = [&](std::string const& why) { return error("NEW_INTERFACE", why); };
  std::uint8_t const newIfc = NL80211_CMD_NEW_INTERFACE, chSwitch = NL80211_CMD_CH_SWITCH_NOTIFY;
  Row const rows[] = {
      {newIfc, NL80211_ATTR_CHANNEL_WIDTH, {}, created("")},
      {newIfc, NL80211_ATTR_WIPHY_FREQ, {"6c14"}, ifcError(small(38, 2, 4))},
      {newIfc, NL80211_ATTR_WIPHY_FREQ, {"3e170000"}, ifcError("cannot convert 5950 MHz to channel index")},
      {newIfc, NL80211_ATTR_WIPHY_CHANNEL_TYPE, {""}, ifcError(small(39, 0, 4))},
      {newIfc, NL80211_ATTR_4ADDR, {""}, ifcError(small(83, 0, 1))},
      {chSwitch, NL80211_ATTR_IFINDEX, {"9f860100", "01000000"}, "VAP <ifindex 99999> switched to channel: " + chText},
      {chSwitch, NL80211_ATTR_WIPHY_FREQ, {}, error("CH_SWITCH_NOTIFY", "attribute not found (type 38)")},
      {chSwitch, NL80211_ATTR_WIPHY_CHANNEL_TYPE, {"0300"}, error("CH_SWITCH_NOTIFY", small(39, 2, 4))},
      {NL80211_CMD_STOP_AP, NL80211_ATTR_WDEV, {"01000000"}, error("STOP_AP", small(153, 4, 8))},
      {NL80211_CMD_REG_CHANGE, NL80211_ATTR_WIPHY, {}, error("REG_CHANGE", "attribute not found (type 1)")},
      {NL80211_CMD_TRIGGER_SCAN, NL80211_ATTR_SCAN_SSIDS, {}, error("TRIGGER_SCAN", "attribute not found (type 45)")},
      {NL80211_CMD_NEW_STATION, 0, {}, ""},  // no event
  };
  for (auto const& [command, type, payloads, outcome] : rows) {
    auto const base =
        std::find_if(known.begin(), known.end(), [c = command](auto const& k) { return std::get<0>(k) == c; });
    nl80211(command, replaced(base != known.end() ? std::get<1>(*base) : ifc, type, payloads), outcome);
  }
  nl80211(NL80211_CMD_NEW_SCAN_RESULTS, scan({u32(2412), hex("6c09")}), error("NEW_SCAN_RESULTS", small(1, 2, 4)));
  nl80211(std::nullopt, {}, "error processing nl80211 event (ID 0): message too short (16 < 20)");
  // Events refuse another command's message before they read an attribute.
  auto const refused = [](std::uint8_t command, std::string (*make)(GenlMessage const&)) {
    TestMessage m(0, false);
    genlmsg_put(m.msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, command, 0);
    return outcome([&] { return make(GenlMessage(m.msg)); });
  };
  EXPECT_EQ(refused(NL80211_CMD_NEW_SCAN_RESULTS, [](auto const& m) { return ScanStarted(m).toString(); }),
            "Error: unexpected nl80211 event ID 34");
  EXPECT_EQ(refused(NL80211_CMD_NEW_INTERFACE, [](auto const& m) { return IfcDeleted(m).toString(); }),
            "Error: unexpected nl80211 event ID 7");
}

// Payloads in host order. Bytes the events do not read are 0xEE, so that reading one shows.
Poco::AutoPtr<WextEvent> wext(WextFields const& fields, std::string const& outcome,
                              std::type_info const* type = nullptr) {
  return decode<detail::WextEventDecoder, WextEvent>(WextMessage(fields).msg, outcome, type);
}
Bytes mhz(std::uint16_t value) { return bytesOf(value); }
Bytes sta(std::string const& rest) { return hex("021122334455" + rest); }
Bytes codes(std::uint8_t first, std::uint8_t second) {
  return hex(fmt::format("{:02x}000000 {:02x}000000 021122334455 eeeeeeeeeeeeeeeeeeee", first, second));
}
Bytes neighbor() {
  Bytes payload = sta("eeee");
  for (int i = 0; i < 64; ++i) payload.push_back(static_cast<std::uint8_t>(3 * i + 1));
  return payload;
}

TEST(WextDecoder, EveryAthEventWithItsClassAndText) {
  using Row = std::tuple<std::uint16_t, Bytes, std::type_info const*, std::string>;
  std::string const s = "ath0: STA 02:11:22:33:44:55";
  Row const rows[] = {
      {1, mhz(5500), &typeid(CacReset), "ath0: CAC started, or CAC completed status reset, on 5500 MHz (channel 100)"},
      {7, codes(0, 15), &typeid(StaAuthConfirm), s + " authenticated"},
      {7, codes(15, 0), &typeid(StaAuthConfirm), s + " authentication result: challenge failure (15)"},
      {8, codes(0, 1), &typeid(StaAssocConfirm), "ath0: STA (re)associated"},
      {8, codes(17, 1), &typeid(StaAssocConfirm), "ath0: STA (re)association result: too many STAs (17)"},
      // The confirm's reason is the first code, the indication's the second.
      {9, codes(4, 1), &typeid(StaDeauthConfirm), s + " deauthenticated, reason: inactivity (4)"},
      {10, codes(0, 1), &typeid(StaAuthIndication), s + " authentication indication"},
      {10, codes(1, 0), &typeid(StaAuthIndication), s + " authentication indication, status: unspecified error (1)"},
      {19, codes(4, 3), &typeid(StaDeauthIndication), s + " deauthentication indication, reason: STA is leaving (3)"},
      {20, codes(4, 252), &typeid(StaDisassocIndication),
       s + " disassociation indication, reason: local clean-up (252)"},
      {21, codes(1, 2), &typeid(StaAssocIndication), s + " association indication"},
      {22, codes(1, 2), &typeid(StaReassocIndication), s + " reassociation indication"},
      {24, codes(1, 2), &typeid(KeySetDoneIndication), s + " key set done indication"},
      // channel, pad, AID, PHY mode, RX:TX chains, 256-QAM, VLAN
      {30, sta("24 ee 0201 1f00 43 80 fe0f"), &typeid(StaAuthorized),
       s + " authorized (channel 36 / VLAN 4094 / AID 258 / PHY mode 11axa HE160 / RX:TX chains 4:3 / 256-QAM)"},
      {30, sta("01 ee 0100 2c00 12 00 0000"), &typeid(StaAuthorized),
       s + " authorized (channel 1 / VLAN 0 / AID 1 / PHY mode <unknown> / RX:TX chains 1:2)"},
      // channel, pad, AID, pad, reason
      {31, sta("95 ee 0500 eeee 22000000"), &typeid(StaLeave),
       s + " left (channel 149 / AID 5), reason: too many missing ACKs (34)"},
      {35, hex("7769666932 00 7879 0000000000000000"), &typeid(CacExpired), "CAC expired for ifc wifi2"},
      {35, Bytes(16, 'a'), &typeid(CacExpired), "CAC expired for ifc aaaaaaaaaaaaaaa"},
      {41, codes(0, 8), &typeid(StaDisassocConfirm), s + " disassociated, reason: STA is leaving (8)"},
      {41, codes(37, 1), &typeid(StaDisassocConfirm),
       s + " disassociation result: refused (37), reason: unspecified (1)"},
      {44, mhz(5260), &typeid(RadarDetected), "ath0: radar detected on 5260 MHz (channel 52)"},
      {45, mhz(5280), &typeid(CacStarted), "ath0: CAC timer started on 5280 MHz (channel 56)"},
      {46, mhz(5300), &typeid(CacCompleted), "ath0: CAC timer completed on 5300 MHz (channel 60)"},
      {47, mhz(5320), &typeid(NolStarted), "ath0: NOL started on 5320 MHz (channel 64)"},
      {48, mhz(5600), &typeid(NolFinished), "ath0: NOL finished on 5600 MHz (channel 120)"},
      {50, neighbor(), &typeid(NeighborRequest), s + " requests neighbor report"},
      {51, mhz(5745), &typeid(PreCacStarted), "ath0: PreCAC started on 5745 MHz (channel 149)"},
      {52, mhz(5825), &typeid(PreCacCompleted), "ath0: PreCAC completed on 5825 MHz (channel 165)"},
  };
  for (auto const& [ath, payload, type, text] : rows) {
    auto const event = wext({.athEvent = ath, .payload = payload}, text, type);
    if (auto const* request = dynamic_cast<NeighborRequest const*>(event.get())) {
      EXPECT_EQ(std::memcmp(request->block().data(), payload.data() + 8, 64), 0);
    }
  }
}

// Other link messages and unknown events publish and log nothing; malformed ones are logged, never read past.
TEST(WextDecoder, PublishesNothingElse) {
  auto const radar = mhz(5260);
  std::string const view = "error processing wext event: wext event too short ";
  std::string const ath = "Error processing WEXT event with ath ID ";
  std::pair<WextFields, std::string> const rows[] = {
      {{.athEvent = 44, .payload = radar, .type = RTM_DELLINK}, ""},
      {{.athEvent = 44, .payload = radar, .wextCommand = 0x8B15}, ""},  // SIOCGIWAP
      {{.athEvent = 44, .wextCommand = 0x8B15, .wirelessSize = 4}, ""},
      {{.athEvent = 2, .payload = radar}, ""},
      {{.athEvent = 53, .payload = radar}, ""},
      // Header, ifinfomsg, IFLA_IFNAME, then part of IFLA_WIRELESS.
      {{.athEvent = 44, .payload = radar, .linkSize = 16 + 12 + 4 + 10}, ""},
      {{.athEvent = 44, .payload = radar, .wirelessSize = 0}, view + "(0 < 4)"},
      {{.athEvent = 44, .payload = radar, .wirelessSize = 10}, view + "(10 < 16)"},
      {{.athEvent = 44, .payload = radar, .wirelessSize = 17}, ath + "44: wext event too short (17 < 18)"},
      {{.athEvent = 50, .payload = neighbor(), .wirelessSize = 40}, ath + "50: wext event too short (40 < 88)"},
      {{.athEvent = 7, .payload = {1, 2}, .payloadLength = 24}, ath + "7: wext event too short (18 < 40)"},
      {{.athEvent = 44, .payload = {0x8c, 0x14, 0, 0}}, ath + "44: ath event payload size mismatch (2 != 4)"},
  };
  for (auto const& [fields, line] : rows) wext(fields, line);
}

TEST(WextEvents, RefuseOtherEventsAndFindTheirInterface) {
  auto const refused = [](WextFields const& fields, std::string (*make)(RtNetlinkMessage const&)) {
    WextMessage const message(fields);
    return outcome([&] { return make(RtNetlinkMessage(message.msg)); });
  };
  auto const authConfirm = [](RtNetlinkMessage const& m) { return StaAuthConfirm(m).toString(); };
  auto const cacStarted = [](RtNetlinkMessage const& m) { return CacStarted(m).toString(); };
  EXPECT_EQ(refused({.athEvent = 7, .wextCommand = 0x8B15}, authConfirm),
            "Error: unexpected wext event ID (35605 != 35842)");
  EXPECT_EQ(refused({.athEvent = 8}, authConfirm), "Error: unexpected ath event ID (8 != 7)");
  EXPECT_EQ(refused({.athEvent = 44, .payload = mhz(5260)}, cacStarted), "Error: unexpected ath event ID (44 != 45)");
  EXPECT_EQ(refused({.wireless = false}, cacStarted), "Error: not a wext event");
  EXPECT_EQ(refused({.athEvent = 45, .payload = mhz(5260), .ifName = {}}, cacStarted),
            ": CAC timer started on 5260 MHz (channel 52)");

  // Without IFLA_WIRELESS the view has no event, not even of 0 bytes, which a wireless payload may have. The first
  // of each attribute counts, in any order; a name without its NUL ends with its attribute.
  WextMessage const link({.wireless = false}), empty({.wirelessSize = 0});
  RtNetlinkMessage const none(link.msg), bare(empty.msg);
  EXPECT_EQ(fmt::format("{} {}", none.wextEventSize(), outcome([&] { return none.getWextEvent(), "read"; })),
            "0 Error: not a wext event");
  EXPECT_EQ(fmt::format("{} {}", bare.wextEventSize(), outcome([&] { return bare.getWextEvent(), "read"; })), "0 read");
  nl_msg* msg = nlmsg_alloc_simple(RTM_NEWLINK, 0);
  ifinfomsg info{};
  nlmsg_append(msg, &info, sizeof info, NLMSG_ALIGNTO);
  auto const event = WextMessage::iwEvent({.athEvent = 45, .payload = mhz(5260)});
  nla_put(msg, IFLA_WIRELESS, static_cast<int>(event.size()), event.data());
  nla_put(msg, IFLA_IFNAME, 8, "wlan0123");
  nla_put(msg, IFLA_IFNAME, 5, "wlan");
  EXPECT_EQ(outcome([&] { return cacStarted(RtNetlinkMessage(msg)); }),
            "wlan0123: CAC timer started on 5260 MHz (channel 52)");
  nlmsg_free(msg);
}

template <class Enum>
std::string named(std::uint32_t value) {
  return fmt::format("{}", static_cast<Enum>(value));
}
// As the kernel's value arrives: past the enumeration's values, only a KernelEnum may hold it.
template <class Enum>
std::string raw(std::uint32_t value) {
  return fmt::format("{}", KernelEnum<Enum>::fromRaw(value));
}
// "code text" for each code, joined.
template <class Text>
std::string texts(Text text, std::initializer_list<std::uint32_t> codes) {
  std::vector<std::string> out;
  for (auto const code : codes) out.push_back(fmt::format("{} {}", code, text(code)));
  return fmt::format("{}", fmt::join(out, ", "));
}

// Each table's edges and the gaps between its codes; texts that formatters pad to a width.
TEST(CodeTexts, EachTablesTextsAndWidths) {
  EXPECT_EQ(texts(ieee80211_reason_to_string, {0,  1,  3,  8,  9,  10, 11, 12, 15,  16,  17,  18,        22,
                                               23, 31, 32, 36, 39, 40, 45, 46, 251, 252, 253, 0xffffffff}),
            "0 <unknown>, 1 unspecified, 3 STA is leaving, 8 STA is leaving, 9 not authenticated, 10 <unknown>, "
            "11 <unknown>, 12 BSS transition management, 15 kick out, 16 <unknown>, 17 <unknown>, "
            "18 invalid group cipher, 22 RSN required, 23 <unknown>, 31 <unknown>, 32 QoS, 36 STA is leaving, "
            "39 timeout, 40 <unknown>, 45 cipher suite not supported, 46 <unknown>, 251 <unknown>, 252 local clean-up, "
            "253 <unknown>, 4294967295 <unknown>");
  EXPECT_EQ(texts(ieee80211_status_to_string,
                  {0, 1, 2, 9, 10, 16, 17, 22, 23, 24, 25, 34, 38, 45, 46, 76, 104, 105, 106, 0xffffffff}),
            "0 success, 1 unspecified error, 2 <unknown>, 9 <unknown>, 10 capabilities mismatch, 16 timeout, "
            "17 too many STAs, 22 too many STAs, 23 rates, 24 <unknown>, 25 missing Short Slot Time support, "
            "34 excessive frame loss and/or poor channel condition, 38 invalid parameter(s), "
            "45 invalid RSNE capabilities, 46 <unknown>, 76 Anti-Clogging Token is required, 104 missing VHT support, "
            "105 radar detected, 106 <unknown>, 4294967295 <unknown>");
  // The driver's order, where the 2.4 and 5 GHz modes interleave.
  EXPECT_EQ(
      texts(named<ieee80211_phymode>, {0, 1, 5, 13, 14, 21, 22, 23, 32, 33, 34, 36, 37, 39, 40, 43, 44, 0xffffffff}),
      "0 auto, 1 11a, 5 11a turbo, 13 11ng HT40, 14 11na HT40, 21 11ac VHT80+80, 22 11axa HE20, 23 11axg HE20, "
      "32 11axa HE80+80, 33 11bea EHT20, 34 11beg EHT20, 36 11bea EHT40-, 37 11beg EHT40+, 39 11bea EHT40, "
      "40 11beg EHT40, 43 11bea EHT320, 44 <unknown>, 4294967295 <unknown>");
  EXPECT_EQ(texts(raw<nl80211_reg_initiator>, {0, 1, 2, 3, 4}), "0 core, 1 user, 2 driver, 3 country IE, 4 <unknown>");
  EXPECT_EQ(texts(raw<nl80211_reg_type>, {0, 1, 2, 3, 4}),
            "0 country, 1 world, 2 custom world, 3 intersection, 4 <unknown>");
  EXPECT_EQ(fmt::format("[{:^8}]", NL80211_REGDOM_SET_BY_USER), "[  user  ]");
  EXPECT_EQ(fmt::format("[{:<12}]", IEEE80211_MODE_11A), "[11a         ]");
  EXPECT_EQ(fmt::format("[{:*>11}]", static_cast<ieee80211_phymode>(44)), "[**<unknown>]");
}

}  // namespace
