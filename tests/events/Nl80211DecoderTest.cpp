#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
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

#include "LinkPeer.h"
#include "TestMessage.h"
#include "TraceCapture.h"
#include "events/Decoders.h"
#include "ny80211/Error.h"
#include "ny80211/Events.h"
#include "ny80211/GenlMessage.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::Attrs;
using Ny80211::testing::Bytes;
using Ny80211::testing::bytesOf;
using Ny80211::testing::outcome;
using Ny80211::testing::replaced;
using Ny80211::testing::TestMessage;
using Ny80211::testing::TraceCapture;
using Ny80211::testing::TraceLine;
using ::testing::ThrowsMessage;
using trace::Level;
using trace::Provider;

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
    for (auto const& [type, list] :
         {std::pair{NL80211_ATTR_SCAN_FREQUENCIES, freqs}, std::pair{NL80211_ATTR_SCAN_SSIDS, ssids}}) {
      auto* nest = nla_nest_start(m.msg, type);
      for (std::size_t i = 0; i < list.size(); ++i) m.put(static_cast<int>(i), list[i]);
      nla_nest_end_keep_empty(m.msg, nest);
    }
  };
}

Bytes mhz(std::uint32_t value) { return bytesOf(value); }

Attrs attrsOf(Fill const& fill) {
  TestMessage m;
  fill(m);
  Attrs attrs;
  m.stream().forEachAttr([&](nlattr const* a) {
    auto const* data = static_cast<std::uint8_t const*>(nla_data(a));
    attrs.emplace_back(a->nla_type, Bytes(data, data + nla_len(a)));
  });
  return attrs;
}
Fill put(Attrs const& attrs) {
  return [attrs](TestMessage& m) { m.put(attrs); };
}
std::string textOf(Poco::AutoPtr<Poco::Notification> const& event) {
  return event.isNull() ? "<none>" : event.cast<Event::Nl80211Event>()->toString();
}

class Nl80211Decoder : public ::testing::Test {
 protected:
  // Decodes one message, first with nobody listening, which must publish
  // the same; what was published, or null.
  Poco::AutoPtr<Poco::Notification> feed(TestMessage const& m) {
    auto* const listener = trace::setSink(nullptr);
    EXPECT_EQ(decoder(m.msg), NL_OK);
    Poco::AutoPtr<Poco::Notification> const quiet(queue.dequeueNotification());
    trace::setSink(listener);
    EXPECT_EQ(decoder(m.msg), NL_OK);
    Poco::AutoPtr<Poco::Notification> published(queue.dequeueNotification());
    EXPECT_EQ(queue.size(), 0);
    EXPECT_EQ(textOf(quiet), textOf(published));
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
  std::string const ifcText = "[gen 5] AP 'wlan0' / ID 7 / wiphy ID 1 / MAC 02:00:00:00:01:00 / TX power 20 dBm";
  Decoded const cases[] = {
      {"new wiphy", NL80211_CMD_NEW_WIPHY, wiphy, typeid(Event::WiPhyCreated),
       "wiphy created: [gen 7] wiphy 'phy3' / ID 3 / antenna avail:used RX 11:1 TX 1111:11 / "
       "bands ([])"},
      {"new interface", NL80211_CMD_NEW_INTERFACE, ifc, typeid(Event::IfcCreated), "ifc created: " + ifcText},
      {"deleted interface", NL80211_CMD_DEL_INTERFACE, ifc, typeid(Event::IfcDeleted), "ifc deleted: " + ifcText},
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
       typeid(Event::RegDomainChanged), "regdomain (type intersection) for phy 2 changed by country IE"},
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
      {"scan finished", NL80211_CMD_NEW_SCAN_RESULTS, scan({mhz(5955)}, {}), typeid(Event::ScanFinished),
       "scan finished for VAP lo, scanned freqs [5955]"},
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
    auto const& notification = *published;
    EXPECT_EQ(typeid(notification), c.type);
    EXPECT_EQ(published.cast<Event::Nl80211Event>()->toString(), c.text);
    EXPECT_EQ(lines.lines(), (std::vector<TraceLine>{{Provider::Event, Level::Info, c.text}}));
    // The same attributes in the reverse order give the same event.
    auto attrs = attrsOf(c.fill);
    std::reverse(attrs.begin(), attrs.end());
    TestMessage reversed(0, false);
    event(reversed, c.command, put(attrs));
    EXPECT_EQ(textOf(feed(reversed)), c.text);
  }
}

TEST_F(Nl80211Decoder, KeepsWhatTheTextLeavesOut) {
  TestMessage started(0, false);
  event(started, NL80211_CMD_TRIGGER_SCAN, scan({mhz(2412), mhz(5180)}, {{'l', 'a', 'b'}, {}, {0, 0xff}}));
  auto const scanStarted = feed(started).cast<Event::ScanStarted>();
  ASSERT_FALSE(scanStarted.isNull());
  EXPECT_EQ(scanStarted->vap().index(), lo);
  EXPECT_EQ(scanStarted->freqs(), (std::vector<quenta_common::MHz>{2412, 5180}));
  std::vector<std::vector<std::byte>> const ssids{
      {std::byte{'l'}, std::byte{'a'}, std::byte{'b'}}, {}, {std::byte{0}, std::byte{0xff}}};
  EXPECT_EQ(scanStarted->ssids(), ssids);
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
      {"global regulatory change",
       NL80211_CMD_REG_CHANGE,
       [](TestMessage& m) {
         m.put(NL80211_ATTR_REG_INITIATOR, Bytes{NL80211_REGDOM_SET_BY_CORE});
         m.put(NL80211_ATTR_REG_TYPE, Bytes{NL80211_REGDOM_TYPE_WORLD});
       },
       {failed("Error processing nl80211 event NL80211_CMD_REG_CHANGE: attribute not found "
               "(type 1)")}},
      {"empty 4-address flag",
       NL80211_CMD_NEW_INTERFACE,
       [](TestMessage& m) {
         ifc(m);
         m.put(NL80211_ATTR_4ADDR, {});
       },
       {failed("Error processing nl80211 event NL80211_CMD_NEW_INTERFACE: attribute (type 83) "
               "payload too small for data type (0 < 1)")}},
      {"short wdev",
       NL80211_CMD_STOP_AP,
       [](TestMessage& m) { m.u32(NL80211_ATTR_WIPHY, 2).u32(NL80211_ATTR_IFINDEX, 7).u32(NL80211_ATTR_WDEV, 1); },
       {failed("Error processing nl80211 event NL80211_CMD_STOP_AP: attribute (type 153) "
               "payload too small for data type (4 < 8)")}},
      {"channel switch without channel",
       NL80211_CMD_CH_SWITCH_NOTIFY,
       [](TestMessage& m) { m.u32(NL80211_ATTR_IFINDEX, lo); },
       {failed("Error processing nl80211 event NL80211_CMD_CH_SWITCH_NOTIFY: attribute not "
               "found (type 38)")}},
      {"trigger scan without SSIDs",
       NL80211_CMD_TRIGGER_SCAN,
       [](TestMessage& m) {
         m.u32(NL80211_ATTR_IFINDEX, lo);
         nla_put_nested(m.msg, NL80211_ATTR_SCAN_FREQUENCIES, TestMessage::nestBody().msg);
       },
       {failed("Error processing nl80211 event NL80211_CMD_TRIGGER_SCAN: attribute not found "
               "(type 45)")}},
      {"short scan frequency",
       NL80211_CMD_NEW_SCAN_RESULTS,
       scan({mhz(2412), {0x6c, 0x09}}, {}),
       {failed("Error processing nl80211 event NL80211_CMD_NEW_SCAN_RESULTS: attribute (type 1) "
               "payload too small for data type (2 < 4)")}},
      {"unknown command", NL80211_CMD_NEW_STATION, ifc, {}},
      {"runt message",
       -1,
       [](TestMessage&) {},
       {{Provider::Cmd, Level::Err, "error processing nl80211 event (ID 0): message too short (16 < 20)"}}},
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
    QueueWatch(QueueWatch const&) = delete;
    QueueWatch& operator=(QueueWatch const&) = delete;
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

struct Reader {
  std::uint8_t command;
  Fill base;
  std::function<std::string(GenlMessage const&)> read;
};

std::map<std::string, Reader> const readers{
    {"channel",
     {0, channel,
      [](GenlMessage const& m) {
        auto const c = ChannelInfo::tryReadFrom(m.attributes());
        if (!c) return std::string("none");
        return c->toString() + (c->channelType ? fmt::format(" / type {}", *c->channelType) : "");
      }}},
    {"switch",
     {NL80211_CMD_CH_SWITCH_NOTIFY, channel,
      [](GenlMessage const& m) { return Event::ChannelSwitched(m).toString(); }}},
    {"interface",
     {NL80211_CMD_NEW_INTERFACE, ifc,
      [](GenlMessage const& m) {
        Event::IfcCreated const e(m);
        return e.toString() + (e.fourAddr() ? " / 4addr" : "");
      }}},
    {"band channel",
     {0, [](TestMessage& m) { m.u32(NL80211_FREQUENCY_ATTR_FREQ, 5260).u32(NL80211_FREQUENCY_ATTR_MAX_TX_POWER, 0); },
      [](GenlMessage const& m) { return BandAttrFreqs::BandChannelInfo(NestedAttr(m.attributes())).toString(); }}},
};

struct AttrRow {
  char const* record;
  int type;
  std::vector<char const*> payloads;  // hex, in message order; none: absent
  std::string read;
};

TEST(Nl80211Records, AbsentShortAndRepeatedAttributes) {
  auto const small = [](int type, int size, int needed) {
    return fmt::format("Error: attribute (type {}) payload too small for data type ({} < {})", type, size, needed);
  };
  std::string const ch = "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / width 80 MHz";
  std::string const ch2 =
      "primary 5180 MHz (# 36) / center 5210 MHz (# 42) / center2 5775 MHz "
      "(#155)/ width 80 MHz";
  std::string const created = "ifc created: [gen 5] AP 'wlan0' / ID 7 / wiphy ID 1 / MAC 02:00:00:00:01:00 ";
  std::string const power = "/ TX power 20 dBm";
  AttrRow const rows[] = {
      {"channel", NL80211_ATTR_WIPHY_FREQ, {}, "none"},
      {"channel", NL80211_ATTR_WIPHY_FREQ, {"6c14"}, small(38, 2, 4)},
      {"channel",
       NL80211_ATTR_WIPHY_FREQ,
       {"6c090000", "6c140000"},
       "primary 2412 MHz (#  1) / center 5210 MHz (# 42) / width 80 MHz"},
      {"channel", NL80211_ATTR_CENTER_FREQ1, {}, "none"},
      {"channel", NL80211_ATTR_CENTER_FREQ1, {"5a14"}, small(160, 2, 4)},
      {"channel", NL80211_ATTR_CHANNEL_WIDTH, {}, "none"},
      {"channel", NL80211_ATTR_CHANNEL_WIDTH, {"03"}, small(159, 1, 4)},
      {"channel", NL80211_ATTR_WIPHY_CHANNEL_TYPE, {}, ch},
      {"channel", NL80211_ATTR_WIPHY_CHANNEL_TYPE, {"03000000"}, ch + " / type 3"},
      {"channel", NL80211_ATTR_WIPHY_CHANNEL_TYPE, {""}, small(39, 0, 4)},
      {"channel", NL80211_ATTR_CENTER_FREQ2, {"8f160000"}, ch2},
      {"channel", NL80211_ATTR_CENTER_FREQ2, {"8f16"}, small(161, 2, 4)},
      {"switch", NL80211_ATTR_CENTER_FREQ1, {}, "AttrNotFound: attribute not found (type 160)"},
      {"switch", NL80211_ATTR_WIPHY_CHANNEL_TYPE, {"0300"}, small(39, 2, 4)},
      {"switch", NL80211_ATTR_IFINDEX, {"9f860100", "01000000"}, "VAP <ifindex 99999> switched to channel: " + ch},
      {"interface", NL80211_ATTR_4ADDR, {}, created + power},
      {"interface", NL80211_ATTR_4ADDR, {"00"}, created + power},
      {"interface", NL80211_ATTR_4ADDR, {"02"}, created + power + " / 4addr"},
      {"interface", NL80211_ATTR_4ADDR, {"00", "01"}, created + power},
      {"interface", NL80211_ATTR_SSID, {""}, created + "/ SSID '' " + power},
      {"interface", NL80211_ATTR_SSID, {"6c6162", "6f6c64"}, created + "/ SSID 'lab' " + power},
      {"interface", NL80211_ATTR_WIPHY_FREQ, {"6c14"}, small(38, 2, 4)},
      {"interface", NL80211_ATTR_WIPHY_FREQ, {"3e170000"}, "Error: cannot convert 5950 MHz to channel index"},
      {"interface",
       NL80211_ATTR_IFINDEX,
       {"08000000", "07000000"},
       "ifc created: [gen 5] AP 'wlan0' / ID 8 / wiphy ID 1 / MAC 02:00:00:00:01:00 " + power},
      {"band channel",
       NL80211_FREQUENCY_ATTR_RADAR,
       {"01000000"},
       "freq 5260 MHz (# 52) / max TX power 0 dBm / flags [radar]"},
  };
  for (auto const& r : rows) {
    auto const& reader = readers.at(r.record);
    TestMessage m(0, false);
    event(m, reader.command, put(replaced(attrsOf(reader.base), r.type, r.payloads)));
    GenlMessage const message(m.msg);
    EXPECT_EQ(outcome([&] { return reader.read(message); }), r.read)
        << r.record << ", attribute " << r.type << " x" << r.payloads.size();
  }
}

TEST_F(Nl80211Decoder, NamesTheInterfaceAsTheKernelDoesAtEachDecode) {
  std::vector<std::string> texts, expected;
  auto const made = Ny80211::testing::withVethPair([&](Ny80211::testing::LinkPeer& peer, unsigned index) {
    auto const on = [&](std::uint8_t command, Fill const& fill) {
      TestMessage m(0, false);
      event(m, command, put(replaced(attrsOf(fill), NL80211_ATTR_IFINDEX, {})));
      m.u32(NL80211_ATTR_IFINDEX, index);
      return feed(m);
    };
    for (auto const& name : {std::string("v0"), std::string("w0"), fmt::format("<ifindex {}>", index)}) {
      if (name == "w0") peer.renameLink(index, "w0");
      if (name != "v0" && name != "w0") peer.deleteLink("w0");
      auto const created = on(NL80211_CMD_NEW_INTERFACE, ifc).cast<Event::IfcCreated>();
      texts.push_back(fmt::format("{} / {} / {}", NetIfcID(index), created.isNull() ? "" : created->info().ifc.name(),
                                  textOf(on(NL80211_CMD_CH_SWITCH_NOTIFY, channel))));
      expected.push_back(
          fmt::format("netifc {0} / {0} / VAP {0} switched to channel: primary 5180 MHz (# 36) / "
                      "center 5210 MHz (# 42) / width 80 MHz",
                      name));
    }
  });
  if (!made) GTEST_SKIP() << "needs root and veth links for a network namespace";
  EXPECT_EQ(texts, expected);
}

}  // namespace
