#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include <Poco/AutoPtr.h>
#include <Poco/NotificationQueue.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <net/if.h>

#include "TestMessage.h"
#include "TraceCapture.h"
#include "events/Decoders.h"
#include "ny80211/Error.h"
#include "ny80211/Events.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::Bytes;
using Ny80211::testing::bytesOf;
using Ny80211::testing::TestMessage;
using Ny80211::testing::TraceCapture;
using Ny80211::testing::TraceLine;
using trace::Level;
using trace::Provider;
using ::testing::ThrowsMessage;

using Fill = std::function<void(TestMessage&)>;

// A received nl80211 event: the generic header with the command, then fill's
// attributes.
void event(TestMessage& m, std::uint8_t command, Fill const& fill) {
  genlmsg_put(m.msg, NL_AUTO_PORT, NL_AUTO_SEQ, 0, 0, 0, command, 0);
  fill(m);
}

unsigned const lo = if_nametoindex("lo");

void wiphy(TestMessage& m) {
  m.u32(NL80211_ATTR_WIPHY, 3).put(NL80211_ATTR_WIPHY_NAME, Bytes{'p', 'h', 'y', '3', 0});
  m.u32(NL80211_ATTR_GENERATION, 7);
  nla_nest_end_keep_empty(m.msg, nla_nest_start(m.msg, NL80211_ATTR_WIPHY_BANDS));
  m.u32(NL80211_ATTR_WIPHY_ANTENNA_RX, 1).u32(NL80211_ATTR_WIPHY_ANTENNA_TX, 3);
  m.u32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_RX, 3).u32(NL80211_ATTR_WIPHY_ANTENNA_AVAIL_TX, 15);
}

void ifc(TestMessage& m) {
  m.u32(NL80211_ATTR_IFINDEX, 7).put(NL80211_ATTR_IFNAME, Bytes{'w', 'l', 'a', 'n', '0', 0});
  m.u32(NL80211_ATTR_WIPHY, 1).u32(NL80211_ATTR_IFTYPE, NL80211_IFTYPE_AP);
  m.put(NL80211_ATTR_WDEV, bytesOf<std::uint64_t>(0x100000002));
  m.put(NL80211_ATTR_MAC, Bytes{2, 0, 0, 0, 1, 0});
  m.u32(NL80211_ATTR_GENERATION, 5).u32(NL80211_ATTR_WIPHY_TX_POWER_LEVEL, 2000);
}

void channel(TestMessage& m) {
  m.u32(NL80211_ATTR_IFINDEX, lo).u32(NL80211_ATTR_WIPHY_FREQ, 5180);
  m.u32(NL80211_ATTR_CENTER_FREQ1, 5210).u32(NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_80);
}

// A scan notification: nests of entries typed by position, as nl80211 sends.
Fill scan(std::vector<Bytes> const& freqs, std::vector<Bytes> const& ssids) {
  return [=](TestMessage& m) {
    m.u32(NL80211_ATTR_IFINDEX, lo);
    for (auto const& [type, list] : {std::pair{NL80211_ATTR_SCAN_FREQUENCIES, freqs},
                                     std::pair{NL80211_ATTR_SCAN_SSIDS, ssids}}) {
      auto* nest = nla_nest_start(m.msg, type);
      for (std::size_t i = 0; i < list.size(); ++i) m.put(static_cast<int>(i), list[i]);
      nla_nest_end_keep_empty(m.msg, nest);
    }
  };
}

Bytes mhz(std::uint32_t value) { return bytesOf(value); }

class Nl80211Decoder : public ::testing::Test {
 protected:
  // Decodes one message; what was published, or null.
  Poco::AutoPtr<Poco::Notification> feed(TestMessage const& m) {
    EXPECT_EQ(decoder(m.msg), NL_OK);
    Poco::AutoPtr<Poco::Notification> published(queue.dequeueNotification());
    EXPECT_EQ(queue.size(), 0);
    return published;
  }

  Poco::NotificationQueue queue;
  detail::Nl80211EventDecoder const decoder{NyEvent::Publisher(queue)};
};

struct Decoded {
  char const* what;
  std::uint8_t command;
  Fill fill;
  std::type_info const& type;
  std::string text;
};

TEST_F(Nl80211Decoder, PublishesEachKnownEventAfterLoggingItsText) {
  std::string const ifcText =
      "[gen 5] AP 'wlan0' / ID 7 / wiphy ID 1 / MAC 02:00:00:00:01:00 / TX power 20 dBm";
  Decoded const cases[] = {
      {"new wiphy", NL80211_CMD_NEW_WIPHY, wiphy, typeid(Event::WiPhyCreated),
       "wiphy created: [gen 7] wiphy 'phy3' / ID 3 / antenna avail:used RX 11:1 TX 1111:11 / "
       "bands ([])"},
      {"new interface", NL80211_CMD_NEW_INTERFACE, ifc, typeid(Event::IfcCreated),
       "ifc created: " + ifcText},
      {"deleted interface", NL80211_CMD_DEL_INTERFACE, ifc, typeid(Event::IfcDeleted),
       "ifc deleted: " + ifcText},
      {"AP stopped", NL80211_CMD_STOP_AP,
       [](TestMessage& m) {
         m.u32(NL80211_ATTR_WIPHY, 2).u32(NL80211_ATTR_IFINDEX, 7);
         m.put(NL80211_ATTR_WDEV, bytesOf<std::uint64_t>(0x100000002));
       },
       typeid(Event::ApStopped), "AP stopped (phy 2 / ifc 7 / wdev 4294967298)"},
      {"regulatory change", NL80211_CMD_REG_CHANGE,
       [](TestMessage& m) {
         m.u32(NL80211_ATTR_WIPHY, 2);
         m.put(NL80211_ATTR_REG_INITIATOR, Bytes{NL80211_REGDOM_SET_BY_COUNTRY_IE});
         m.put(NL80211_ATTR_REG_TYPE, Bytes{NL80211_REGDOM_TYPE_INTERSECTION});
       },
       typeid(Event::RegDomainChanged),
       "regdomain (type intersection) for phy 2 changed by country IE"},
      {"regulatory values past the enumerations", NL80211_CMD_REG_CHANGE,
       [](TestMessage& m) {
         m.u32(NL80211_ATTR_WIPHY, 2);
         m.put(NL80211_ATTR_REG_INITIATOR, Bytes{4});
         m.put(NL80211_ATTR_REG_TYPE, Bytes{0xff});
       },
       typeid(Event::RegDomainChanged), "regdomain (type <unknown>) for phy 2 changed by <unknown>"},
      {"channel switch", NL80211_CMD_CH_SWITCH_NOTIFY, channel, typeid(Event::ChannelSwitched),
       "VAP lo switched to channel: primary 5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 "
       "MHz"},
      {"scan started", NL80211_CMD_TRIGGER_SCAN, scan({mhz(2412), mhz(5180)}, {{'l', 'a', 'b'}}),
       typeid(Event::ScanStarted), "scan started for VAP lo, scanned freqs [2412, 5180]"},
      {"scan finished", NL80211_CMD_NEW_SCAN_RESULTS, scan({mhz(5955)}, {}),
       typeid(Event::ScanFinished), "scan finished for VAP lo, scanned freqs [5955]"},
      {"scan aborted", NL80211_CMD_SCAN_ABORTED, scan({}, {}), typeid(Event::ScanAborted),
       "scan aborted for VAP lo, scanned freqs []"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    TraceCapture lines;
    TestMessage m(0, false);
    event(m, c.command, c.fill);
    auto const published = feed(m);
    ASSERT_FALSE(published.isNull());
    EXPECT_EQ(typeid(*published), c.type);
    EXPECT_EQ(published.cast<Event::Nl80211Event>()->toString(), c.text);
    EXPECT_EQ(lines.lines(), (std::vector<TraceLine>{{Provider::Event, Level::Info, c.text}}));
  }
}

TEST_F(Nl80211Decoder, KeepsWhatTheTextLeavesOut) {
  TestMessage started(0, false);
  event(started, NL80211_CMD_TRIGGER_SCAN,
        scan({mhz(2412), mhz(5180)}, {{'l', 'a', 'b'}, {}, {0, 0xff}}));
  auto const scanStarted = feed(started).cast<Event::ScanStarted>();
  ASSERT_FALSE(scanStarted.isNull());
  EXPECT_EQ(scanStarted->vap().index(), lo);
  EXPECT_EQ(scanStarted->freqs(), (std::vector<quenta_common::MHz>{2412, 5180}));
  std::vector<std::vector<std::byte>> const ssids{
      {std::byte{'l'}, std::byte{'a'}, std::byte{'b'}}, {}, {std::byte{0}, std::byte{0xff}}};
  EXPECT_EQ(scanStarted->ssids(), ssids);

  // The 4-address flag: absent is false, any non-zero byte true.
  std::pair<Bytes, bool> const flags[] = {{{}, false}, {{0}, false}, {{1}, true}, {{2}, true}};
  for (auto const& [payload, expected] : flags) {
    TestMessage m(0, false);
    event(m, NL80211_CMD_NEW_INTERFACE, ifc);
    if (!payload.empty()) m.put(NL80211_ATTR_4ADDR, payload);
    auto const created = feed(m).cast<Event::IfcCreated>();
    ASSERT_FALSE(created.isNull());
    EXPECT_EQ(created->fourAddr(), expected) << payload.size();
    EXPECT_EQ(created->info().wdev.id(), 0x100000002u);
  }
}

struct Rejected {
  char const* what;
  int command;  // -1: no room for the generic header
  Fill fill;
  std::vector<TraceLine> lines;
};

TraceLine failed(std::string text) { return {Provider::Event, Level::Err, std::move(text)}; }

TEST_F(Nl80211Decoder, PublishesNothingForBadOrUnknownMessages) {
  Rejected const cases[] = {
      {"global regulatory change", NL80211_CMD_REG_CHANGE,
       [](TestMessage& m) {
         m.put(NL80211_ATTR_REG_INITIATOR, Bytes{NL80211_REGDOM_SET_BY_CORE});
         m.put(NL80211_ATTR_REG_TYPE, Bytes{NL80211_REGDOM_TYPE_WORLD});
       },
       {failed("Error processing nl80211 event NL80211_CMD_REG_CHANGE: attribute not found "
               "(type 1)")}},
      {"empty 4-address flag", NL80211_CMD_NEW_INTERFACE,
       [](TestMessage& m) {
         ifc(m);
         m.put(NL80211_ATTR_4ADDR, {});
       },
       {failed("Error processing nl80211 event NL80211_CMD_NEW_INTERFACE: attribute (type 83) "
               "payload too small for data type (0 < 1)")}},
      {"short wdev", NL80211_CMD_STOP_AP,
       [](TestMessage& m) {
         m.u32(NL80211_ATTR_WIPHY, 2).u32(NL80211_ATTR_IFINDEX, 7).u32(NL80211_ATTR_WDEV, 1);
       },
       {failed("Error processing nl80211 event NL80211_CMD_STOP_AP: attribute (type 153) "
               "payload too small for data type (4 < 8)")}},
      {"channel switch without channel", NL80211_CMD_CH_SWITCH_NOTIFY,
       [](TestMessage& m) { m.u32(NL80211_ATTR_IFINDEX, lo); },
       {failed("Error processing nl80211 event NL80211_CMD_CH_SWITCH_NOTIFY: attribute not "
               "found (type 38)")}},
      {"trigger scan without SSIDs", NL80211_CMD_TRIGGER_SCAN,
       [](TestMessage& m) {
         m.u32(NL80211_ATTR_IFINDEX, lo);
         nla_put_nested(m.msg, NL80211_ATTR_SCAN_FREQUENCIES, TestMessage::nestBody().msg);
       },
       {failed("Error processing nl80211 event NL80211_CMD_TRIGGER_SCAN: attribute not found "
               "(type 45)")}},
      {"short scan frequency", NL80211_CMD_NEW_SCAN_RESULTS, scan({mhz(2412), {0x6c, 0x09}}, {}),
       {failed("Error processing nl80211 event NL80211_CMD_NEW_SCAN_RESULTS: attribute (type 1) "
               "payload too small for data type (2 < 4)")}},
      {"unknown command", NL80211_CMD_NEW_STATION, ifc, {}},
      {"runt message", -1, [](TestMessage&) {},
       {{Provider::Cmd, Level::Err,
         "error processing nl80211 event (ID 0): message too short (16 < 20)"}}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    TraceCapture lines;
    TestMessage m(0, false);
    if (c.command >= 0) event(m, static_cast<std::uint8_t>(c.command), c.fill);
    EXPECT_TRUE(feed(m).isNull());
    EXPECT_EQ(lines.lines(), c.lines);
  }
}

TEST_F(Nl80211Decoder, LogsEachEventBeforeItIsQueued) {
  // Sees the queue at the moment each line is written.
  struct QueueWatch : trace::Sink {
    explicit QueueWatch(Poco::NotificationQueue& q) : queue(q), previous(trace::setSink(this)) {}
    ~QueueWatch() override { trace::setSink(previous); }
    void line(Provider, Level, std::string_view text) noexcept override {
      seen.emplace_back(std::string(text), queue.size());
    }
    Poco::NotificationQueue& queue;
    trace::Sink* previous;
    std::vector<std::pair<std::string, int>> seen;
  } watch(queue);
  TestMessage first(0, false), second(0, false);
  event(first, NL80211_CMD_TRIGGER_SCAN, scan({mhz(2412)}, {}));
  event(second, NL80211_CMD_SCAN_ABORTED, scan({}, {}));
  decoder(first.msg);
  decoder(second.msg);
  using Seen = std::vector<std::pair<std::string, int>>;
  EXPECT_EQ(watch.seen, (Seen{{"scan started for VAP lo, scanned freqs [2412]", 0},
                              {"scan aborted for VAP lo, scanned freqs []", 1}}));
  Poco::AutoPtr<Poco::Notification> got(queue.dequeueNotification());
  EXPECT_FALSE(got.cast<Event::ScanStarted>().isNull());
  got = queue.dequeueNotification();
  EXPECT_FALSE(got.cast<Event::ScanAborted>().isNull());
}

TEST(Nl80211Event, RefusesAMessageOfAnotherCommand) {
  struct Row {
    std::uint8_t command;
    std::function<void(GenlMessage const&)> make;
  };
  Row const rows[] = {
      {NL80211_CMD_NEW_SCAN_RESULTS, [](auto const& m) { Event::ScanStarted{m}; }},
      {NL80211_CMD_NEW_INTERFACE, [](auto const& m) { Event::IfcDeleted{m}; }},
  };
  for (auto const& r : rows) {
    // No attributes at all: the command is checked before any is read.
    TestMessage m(0, false);
    event(m, r.command, [](TestMessage&) {});
    GenlMessage const message(m.msg);
    EXPECT_THAT([&] { r.make(message); },
                ThrowsMessage<Error>(fmt::format("unexpected nl80211 event ID {}", r.command)));
  }
}

}  // namespace
