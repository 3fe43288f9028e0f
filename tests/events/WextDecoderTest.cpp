#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/NotificationQueue.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <netlink/handlers.h>

#include "TraceCapture.h"
#include "WextMessage.h"
#include "events/Decoders.h"
#include "ny80211/Error.h"
#include "ny80211/RtNetlinkMessage.h"
#include "ny80211/WextEvents.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::TraceCapture;
using Ny80211::testing::TraceLine;
using Ny80211::testing::WextFields;
using Ny80211::testing::WextMessage;
using ::testing::ThrowsMessage;
using Bytes = std::vector<std::uint8_t>;
using trace::Level;
using trace::Provider;

constexpr std::array<std::uint8_t, 6> staBytes{0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
MacAddress const sta(staBytes);
constexpr char const* staText = "02:11:22:33:44:55";

template <class T>
void put(Bytes& bytes, std::size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

// Payloads as the driver lays them out, in host order. Bytes the events do
// not read are 0xEE, so that reading one shows.
Bytes frequency(std::uint16_t mhz) {
  Bytes p(2);
  put(p, 0, mhz);
  return p;
}
Bytes station(std::uint32_t first, std::uint32_t second) {
  Bytes p(24, 0xEE);
  put(p, 0, first);
  put(p, 4, second);
  put(p, 8, staBytes);
  return p;
}
Bytes authorized(std::uint8_t channel, std::uint16_t aid, std::uint16_t phyMode, std::uint8_t chains, std::uint8_t qam,
                 std::uint16_t vlan) {
  Bytes p(16, 0xEE);
  put(p, 0, staBytes);
  put(p, 6, channel);
  put(p, 8, aid);
  put(p, 10, phyMode);
  put(p, 12, chains);
  put(p, 13, qam);
  put(p, 14, vlan);
  return p;
}
Bytes leave(std::uint8_t channel, std::uint16_t aid, std::uint32_t reason) {
  Bytes p(16, 0xEE);
  put(p, 0, staBytes);
  put(p, 6, channel);
  put(p, 8, aid);
  put(p, 12, reason);
  return p;
}
Event::NeighborRequest::Block block() {
  Event::NeighborRequest::Block b;
  for (std::size_t i = 0; i < b.size(); ++i) b[i] = std::byte(3 * i + 1);
  return b;
}
Bytes neighbor() {
  Bytes p(72, 0xEE);
  put(p, 0, staBytes);
  put(p, 8, block());
  return p;
}

struct Decoded {
  std::vector<Poco::AutoPtr<Event::WextEvent>> events;
  std::vector<TraceLine> lines;
};

// One message through the decoder, with what it logged and published; first
// with nobody listening, which must publish the same.
Decoded decode(WextFields const& fields) {
  Poco::NotificationQueue quiet, queue;
  WextMessage const message(fields);
  EXPECT_EQ(detail::WextEventDecoder(NyEvent::Publisher(quiet))(message.msg), NL_OK);
  Decoded out;
  {
    TraceCapture const capture;
    EXPECT_EQ(detail::WextEventDecoder(NyEvent::Publisher(queue))(message.msg), NL_OK);
    out.lines = capture.lines();
  }
  while (auto* notification = queue.dequeueNotification()) {
    Poco::AutoPtr<Poco::Notification> const owned(notification);
    auto event = owned.cast<Event::WextEvent>();
    EXPECT_FALSE(event.isNull()) << owned->name();
    if (!event.isNull()) out.events.push_back(event);
  }
  std::vector<std::string> texts, quietTexts;
  for (auto const& event : out.events) texts.push_back(event->toString());
  while (auto* notification = quiet.dequeueNotification()) {
    Poco::AutoPtr<Poco::Notification> const owned(notification);
    quietTexts.push_back(owned.cast<Event::WextEvent>()->toString());
  }
  EXPECT_EQ(quietTexts, texts);
  return out;
}

using Check = std::function<void(Event::WextEvent const&)>;

// Checks that the event is a T, then its fields.
template <class T, class F>
Check as(F checkFields) {
  return [checkFields](Event::WextEvent const& e) {
    auto* event = dynamic_cast<T const*>(&e);
    ASSERT_NE(event, nullptr) << typeid(e).name();
    checkFields(*event);
  };
}

template <class T>
Check frequencyIs(std::uint32_t mhz) {
  return as<T>([mhz](T const& e) { EXPECT_EQ(e.frequency().Get(), mhz); });
}

struct Case {
  WextFields fields;
  std::string text;
  Check check;
};

TEST(WextDecoder, EveryAthEventWithItsFieldsAndText) {
  using std::tuple;
  auto const s = "ath0: STA " + std::string(staText);
  std::vector<Case> const cases = {
      {{.athEvent = 1, .payload = frequency(5500)},
       "ath0: CAC started, or CAC completed status reset, on 5500 MHz (channel 100)",
       frequencyIs<Event::CacReset>(5500)},
      {{.athEvent = 7, .payload = station(0, 15)}, s + " authenticated", as<Event::StaAuthConfirm>([](auto& e) {
         EXPECT_EQ(tuple(e.sta(), e.status()), tuple(sta, 0));
       })},
      {{.athEvent = 7, .payload = station(15, 0)},
       s + " authentication result: challenge failure (15)",
       as<Event::StaAuthConfirm>([](auto& e) { EXPECT_EQ(e.status(), 15u); })},
      {{.athEvent = 8, .payload = station(0, 1)}, "ath0: STA (re)associated", as<Event::StaAssocConfirm>([](auto& e) {
         EXPECT_EQ(e.status(), 0u);
       })},
      {{.athEvent = 8, .payload = station(17, 1)},
       "ath0: STA (re)association result: too many STAs (17)",
       as<Event::StaAssocConfirm>([](auto& e) { EXPECT_EQ(e.status(), 17u); })},
      // The confirm's reason is the first code, the indication's the second.
      {{.athEvent = 9, .payload = station(4, 1)},
       s + " deauthenticated, reason: inactivity (4)",
       as<Event::StaDeauthConfirm>([](auto& e) { EXPECT_EQ(tuple(e.sta(), e.reason()), tuple(sta, 4)); })},
      {{.athEvent = 10, .payload = station(0, 1)},
       s + " authentication indication",
       as<Event::StaAuthIndication>([](auto& e) { EXPECT_EQ(tuple(e.sta(), e.status()), tuple(sta, 0)); })},
      {{.athEvent = 10, .payload = station(1, 0)},
       s + " authentication indication, status: unspecified error (1)",
       as<Event::StaAuthIndication>([](auto& e) { EXPECT_EQ(e.status(), 1u); })},
      {{.athEvent = 19, .payload = station(4, 3)},
       s + " deauthentication indication, reason: STA is leaving (3)",
       as<Event::StaDeauthIndication>([](auto& e) { EXPECT_EQ(tuple(e.sta(), e.reason()), tuple(sta, 3)); })},
      {{.athEvent = 20, .payload = station(4, 252)},
       s + " disassociation indication, reason: local clean-up (252)",
       as<Event::StaDisassocIndication>([](auto& e) { EXPECT_EQ(tuple(e.sta(), e.reason()), tuple(sta, 252)); })},
      {{.athEvent = 21, .payload = station(1, 2)},
       s + " association indication",
       as<Event::StaAssocIndication>([](auto& e) { EXPECT_EQ(e.sta(), sta); })},
      {{.athEvent = 22, .payload = station(1, 2), .ifName = "wlan1"},
       "wlan1: STA " + std::string(staText) + " reassociation indication",
       as<Event::StaReassocIndication>([](auto& e) { EXPECT_EQ(e.sta(), sta); })},
      {{.athEvent = 24, .payload = station(1, 2)},
       s + " key set done indication",
       as<Event::KeySetDoneIndication>([](auto& e) { EXPECT_EQ(e.sta(), sta); })},
      {{.athEvent = 30, .payload = authorized(36, 258, 31, 0x43, 0x80, 4094)},
       s + " authorized (channel 36 / VLAN 4094 / AID 258 / PHY mode 11axa HE160 / RX:TX chains "
           "4:3 / 256-QAM)",
       as<Event::StaAuthorized>([](auto& e) {
         EXPECT_EQ(tuple(e.sta(), e.channel(), e.aid(), e.phyMode(), e.rxChains(), e.txChains(), e.qam256(), e.vlan()),
                   tuple(sta, 36, 258, IEEE80211_MODE_11AXA_HE160, 4, 3, true, 4094));
       })},
      {{.athEvent = 30, .payload = authorized(1, 1, 44, 0x12, 0, 0)},
       s + " authorized (channel 1 / VLAN 0 / AID 1 / PHY mode <unknown> / RX:TX chains 1:2)",
       as<Event::StaAuthorized>([](auto& e) { EXPECT_EQ(tuple(+e.phyMode(), e.qam256()), tuple(44, false)); })},
      {{.athEvent = 31, .payload = leave(149, 5, 34)},
       s + " left (channel 149 / AID 5), reason: too many missing ACKs (34)",
       as<Event::StaLeave>(
           [](auto& e) { EXPECT_EQ(tuple(e.sta(), e.channel(), e.aid(), e.reason()), tuple(sta, 149, 5, 34)); })},
      {{.athEvent = 35, .payload = {'w', 'i', 'f', 'i', '2', 0, 'x', 'y', 0, 0, 0, 0, 0, 0, 0, 0}},
       "CAC expired for ifc wifi2",
       as<Event::CacExpired>([](auto& e) { EXPECT_EQ(e.cacIfName(), "wifi2"); })},
      {{.athEvent = 35, .payload = Bytes(16, 'a')},
       "CAC expired for ifc aaaaaaaaaaaaaaa",
       as<Event::CacExpired>([](auto& e) { EXPECT_EQ(e.cacIfName().size(), 15u); })},
      {{.athEvent = 41, .payload = station(0, 8)},
       s + " disassociated, reason: STA is leaving (8)",
       as<Event::StaDisassocConfirm>(
           [](auto& e) { EXPECT_EQ(tuple(e.sta(), e.status(), e.reason()), tuple(sta, 0, 8)); })},
      {{.athEvent = 41, .payload = station(37, 1)},
       s + " disassociation result: refused (37), reason: unspecified (1)",
       as<Event::StaDisassocConfirm>([](auto& e) { EXPECT_EQ(tuple(e.status(), e.reason()), tuple(37, 1)); })},
      {{.athEvent = 44, .payload = frequency(5260)},
       "ath0: radar detected on 5260 MHz (channel 52)",
       frequencyIs<Event::RadarDetected>(5260)},
      {{.athEvent = 45, .payload = frequency(5280)},
       "ath0: CAC timer started on 5280 MHz (channel 56)",
       frequencyIs<Event::CacStarted>(5280)},
      {{.athEvent = 46, .payload = frequency(5300)},
       "ath0: CAC timer completed on 5300 MHz (channel 60)",
       frequencyIs<Event::CacCompleted>(5300)},
      {{.athEvent = 47, .payload = frequency(5320)},
       "ath0: NOL started on 5320 MHz (channel 64)",
       frequencyIs<Event::NolStarted>(5320)},
      {{.athEvent = 48, .payload = frequency(5600)},
       "ath0: NOL finished on 5600 MHz (channel 120)",
       frequencyIs<Event::NolFinished>(5600)},
      {{.athEvent = 50, .payload = neighbor()},
       s + " requests neighbor report",
       as<Event::NeighborRequest>([](auto& e) { EXPECT_EQ(tuple(e.sta(), e.block()), tuple(sta, block())); })},
      {{.athEvent = 51, .payload = frequency(5745)},
       "ath0: PreCAC started on 5745 MHz (channel 149)",
       frequencyIs<Event::PreCacStarted>(5745)},
      {{.athEvent = 52, .payload = frequency(5825)},
       "ath0: PreCAC completed on 5825 MHz (channel 165)",
       frequencyIs<Event::PreCacCompleted>(5825)},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.text);
    auto const out = decode(c.fields);
    EXPECT_EQ(out.lines, (std::vector<TraceLine>{{Provider::Event, Level::Info, c.text}}));
    ASSERT_EQ(out.events.size(), 1u);
    EXPECT_EQ(out.events[0]->toString(), c.text);
    EXPECT_EQ(out.events[0]->ifName(), *c.fields.ifName);
    c.check(*out.events[0]);
  }
}

// Exactly one line, at the provider and level given, and no event.
void expectFailure(WextFields const& fields, Provider provider, std::string const& text) {
  auto const out = decode(fields);
  EXPECT_EQ(out.lines, (std::vector<TraceLine>{{provider, Level::Err, text}}));
  EXPECT_TRUE(out.events.empty());
}

TEST(WextDecoder, PayloadSizesMustMatchTheEvent) {
  expectFailure({.athEvent = 44, .payload = {0x8c, 0x14, 0, 0}}, Provider::Event,
                "Error processing WEXT event with ath ID 44: ath event payload size mismatch (2 "
                "!= 4)");
  struct Size {
    std::uint16_t ath;
    std::size_t size;
  };
  for (auto const& [ath, size] :
       {Size{1, 2}, {7, 24},  {8, 24},  {9, 24}, {10, 24}, {19, 24}, {20, 24}, {21, 24}, {22, 24}, {24, 24}, {30, 16},
        {31, 16},   {35, 16}, {41, 24}, {44, 2}, {45, 2},  {46, 2},  {47, 2},  {48, 2},  {50, 72}, {51, 2},  {52, 2}}) {
    for (auto const received : {size - 1, size + 1}) {
      SCOPED_TRACE(fmt::format("ath {} with {} bytes", ath, received));
      expectFailure({.athEvent = ath, .payload = Bytes(received, 1)}, Provider::Event,
                    fmt::format("Error processing WEXT event with ath ID {}: ath event payload "
                                "size mismatch ({} != {})",
                                ath, size, received));
    }
  }
}

TEST(WextDecoder, OtherLinkMessagesAndUnknownEventsAreIgnoredSilently) {
  struct Case {
    char const* what = nullptr;
    WextFields fields;
  };
  auto const radar = frequency(5260);
  for (auto const& c : {
           Case{"link message without IFLA_WIRELESS", {.wireless = false}},
           Case{"RTM_DELLINK", {.athEvent = 44, .payload = radar, .type = RTM_DELLINK}},
           Case{"SIOCGIWAP", {.athEvent = 44, .payload = radar, .wextCommand = 0x8B15}},
           Case{"SIOCGIWAP of 4 bytes", {.athEvent = 44, .wextCommand = 0x8B15, .wirelessSize = 4}},
           Case{"ath 0", {.athEvent = 0, .payload = radar}},
           Case{"ath 2", {.athEvent = 2, .payload = radar}},
           Case{"ath 53", {.athEvent = 53, .payload = radar}},
           Case{"ath 65535", {.athEvent = 0xffff, .payload = radar}},
           // Too short for an ifinfomsg: no link message, so no event.
           Case{"link message of 8 bytes", {.athEvent = 44, .payload = radar, .linkSize = 8}},
           Case{"link message of 0 bytes", {.athEvent = 44, .payload = radar, .linkSize = 0}},
           // Header, ifinfomsg, IFLA_IFNAME, then part of IFLA_WIRELESS.
           Case{"cut inside IFLA_WIRELESS", {.athEvent = 44, .payload = radar, .linkSize = 16 + 12 + 4 + 10}},
       }) {
    SCOPED_TRACE(c.what);
    auto const out = decode(c.fields);
    EXPECT_TRUE(out.lines.empty());
    EXPECT_TRUE(out.events.empty());
  }
}

TEST(WextDecoder, MalformedMessagesAreNeverReadPastTheirEnd) {
  auto const radar = frequency(5260);
  struct Case {
    WextFields fields;
    Provider provider;
    std::string text;
  };
  for (auto const& c : {
           Case{{.athEvent = 44, .payload = radar, .wirelessSize = 0},
                Provider::Cmd,
                "error processing wext event: wext event too short (0 < 4)"},
           Case{{.athEvent = 44, .payload = radar, .wirelessSize = 2},
                Provider::Cmd,
                "error processing wext event: wext event too short (2 < 4)"},
           Case{{.athEvent = 44, .payload = radar, .wirelessSize = 10},
                Provider::Cmd,
                "error processing wext event: wext event too short (10 < 16)"},
           Case{{.athEvent = 44, .payload = radar, .wirelessSize = 17},
                Provider::Event,
                "Error processing WEXT event with ath ID 44: wext event too short (17 < 18)"},
           Case{{.athEvent = 50, .payload = neighbor(), .wirelessSize = 40},
                Provider::Event,
                "Error processing WEXT event with ath ID 50: wext event too short (40 < 88)"},
           Case{{.athEvent = 7, .payload = {1, 2}, .payloadLength = 24},
                Provider::Event,
                "Error processing WEXT event with ath ID 7: wext event too short (18 < 40)"},
       }) {
    SCOPED_TRACE(c.text);
    expectFailure(c.fields, c.provider, c.text);
  }
}

TEST(WextDecoder, ConstructorsRefuseOtherEvents) {
  WextMessage const ap({.athEvent = 7, .payload = station(0, 0), .wextCommand = 0x8B15});
  EXPECT_THAT([&] { Event::StaAuthConfirm{RtNetlinkMessage(ap.msg)}; },
              ThrowsMessage<Error>("unexpected wext event ID (35605 != 35842)"));
  WextMessage const assoc({.athEvent = 8, .payload = station(0, 0)});
  EXPECT_THAT([&] { Event::StaAuthConfirm{RtNetlinkMessage(assoc.msg)}; },
              ThrowsMessage<Error>("unexpected ath event ID (8 != 7)"));
  WextMessage const radar({.athEvent = 44, .payload = frequency(5260)});
  EXPECT_THAT([&] { Event::CacStarted{RtNetlinkMessage(radar.msg)}; },
              ThrowsMessage<Error>("unexpected ath event ID (44 != 45)"));
  WextMessage const link({.wireless = false});
  EXPECT_THAT([&] { Event::RadarDetected{RtNetlinkMessage(link.msg)}; }, ThrowsMessage<Error>("not a wext event"));
}

}  // namespace
