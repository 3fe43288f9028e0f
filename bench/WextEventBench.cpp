// What a wireless-extension event of the chip driver costs from its link
// message to the queue, with nobody listening to the log: the library's
// decoder against a walk by hand of the same message (netlink header,
// ifinfomsg, attributes up to IFLA_WIRELESS, the event's header and its ath
// event number) and one plain notification.
#include <cstdint>
#include <cstring>
#include <memory>
#include <typeinfo>
#include <vector>

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/msg.h>

#include "Bench.h"
#include "EventRow.h"
#include "TestMessage.h"
#include "WextMessage.h"
#include "events/Decoders.h"
#include "ny80211/WextEvents.h"

namespace {

using Ny80211::testing::WextMessage;
namespace Event = Ny80211::Event;

// Payloads as the driver lays them out, in host order (little-endian here).
struct Kind {
  char const* row;
  std::uint16_t athEvent;
  char const* payload;
  std::type_info const& event;
};

Kind const kinds[] = {
    // 5260 MHz
    {"wext-radar", Event::RadarDetected::athEvent, "8c14", typeid(Event::RadarDetected)},
    // Station, channel 36, AID 258, PHY mode 11axa HE160, chains 4:3, 256-QAM, VLAN 10
    {"wext-sta-authorized", Event::StaAuthorized::athEvent,
     "021122334455 24 00 0201 1f00 43 80 0a00", typeid(Event::StaAuthorized)},
    // Two codes, then the station
    {"wext-sta-assoc", Event::StaAssocIndication::athEvent,
     "00000000 00000000 021122334455 0000 0000000000000000", typeid(Event::StaAssocIndication)},
    // Station, channel 149, AID 5, reason 34
    {"wext-sta-leave", Event::StaLeave::athEvent, "021122334455 95 00 0500 0000 22000000",
     typeid(Event::StaLeave)},
};

std::unique_ptr<WextMessage> build(Kind const& kind) {
  return std::make_unique<WextMessage>(Ny80211::testing::WextFields{
      .athEvent = kind.athEvent, .payload = Ny80211::testing::hex(kind.payload)});
}

// The event number of a custom wireless event in a link message, or 0.
std::uint16_t athEventOf(nl_msg* msg) {
  auto const* header = nlmsg_hdr(msg);
  if (header->nlmsg_type != RTM_NEWLINK || header->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) {
    return 0;
  }
  auto* const info = static_cast<ifinfomsg*>(NLMSG_DATA(header));
  int length = static_cast<int>(header->nlmsg_len - NLMSG_LENGTH(sizeof(ifinfomsg)));
  char const* name = nullptr;
  rtattr const* wireless = nullptr;
  for (auto* attr = IFLA_RTA(info); RTA_OK(attr, length); attr = RTA_NEXT(attr, length)) {
    if (attr->rta_type == IFLA_IFNAME) name = static_cast<char const*>(RTA_DATA(attr));
    if (attr->rta_type == IFLA_WIRELESS) wireless = attr;
  }
  // iw_event: length, command, then (64-bit layout) the iw_point's length
  // at 8 and flags, the ath event number, at 10.
  if (name == nullptr || wireless == nullptr || RTA_PAYLOAD(wireless) < 16) return 0;
  auto const* event = static_cast<std::uint8_t const*>(RTA_DATA(wireless));
  std::uint16_t command = 0;
  std::uint16_t number = 0;
  std::memcpy(&command, event + 2, sizeof command);
  std::memcpy(&number, event + 10, sizeof number);
  return command == Event::AthWextEvent::customEventID ? number : 0;
}

}  // namespace

int main(int argc, char** argv) {
  using Library = bench::DecoderWork<Ny80211::detail::WextEventDecoder>;
  std::vector<bench::Row> rows;
  for (auto const& kind : kinds) {
    auto const parse = [number = kind.athEvent](nl_msg* msg) { return athEventOf(msg) == number; };
    using Baseline = bench::ParseWork<decltype(parse)>;
    rows.push_back(
        {kind.row,
         [&kind] { return std::make_unique<Library>(build(kind)->msg, kind.event, kind.row); },
         [&kind, parse] { return std::make_unique<Baseline>(build(kind)->msg, parse, kind.row); }});
  }
  return bench::run(argc, argv, rows);
}
