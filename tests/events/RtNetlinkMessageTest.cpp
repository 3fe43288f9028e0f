#include <cstdint>
#include <cstring>
#include <string>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

#include "WextMessage.h"
#include "ny80211/Error.h"
#include "ny80211/RtNetlinkMessage.h"

namespace {

using namespace Ny80211;
using Ny80211::testing::WextFields;
using Ny80211::testing::WextMessage;
using ::testing::ThrowsMessage;

std::uint16_t word(std::uint16_t const* words, std::size_t index) {
  std::uint16_t value = 0;
  std::memcpy(&value, words + index, sizeof value);
  return value;
}

TEST(RtNetlinkMessage, FindsTheNameAndTheWirelessEvent) {
  WextMessage const message({.athEvent = 44, .payload = {0x8c, 0x14}, .ifName = "wlan1"});
  RtNetlinkMessage const view(message.msg);
  ASSERT_TRUE(view.isWextEvent());
  EXPECT_EQ(view.getIfName(), "wlan1");
  EXPECT_EQ(view.wextEventSize(), 18u);
  EXPECT_EQ(word(view.getWextEvent(), 0), 18);
  EXPECT_EQ(view.wextEventID(), 0x8C02);
  EXPECT_EQ(word(view.getWextEventData(), 0), 2);   // payload length
  EXPECT_EQ(word(view.getWextEventData(), 1), 44);  // ath event
  EXPECT_EQ(view.getWextEventData(), view.getWextEvent() + 4);
}

TEST(RtNetlinkMessage, OnlyLinkMessagesWithTheAttributesCarryThem) {
  struct Case {
    char const* what;
    WextFields fields;
    bool wext;
    std::string name;
  };
  for (auto const& c : {Case{"RTM_DELLINK", {.athEvent = 44, .type = RTM_DELLINK}, false, ""},
                        Case{"RTM_GETLINK", {.type = RTM_GETLINK}, false, ""},
                        Case{"no IFLA_WIRELESS", {.wireless = false}, false, "ath0"},
                        Case{"no IFLA_IFNAME", {.athEvent = 44, .ifName = {}}, true, ""},
                        // Too short for its ifinfomsg: nothing is read.
                        Case{"link message of 0 bytes", {.athEvent = 44, .linkSize = 0}, false, ""},
                        Case{"link message of 8 bytes", {.athEvent = 44, .linkSize = 8}, false, ""},
                        Case{"link message of 15 bytes", {.athEvent = 44, .linkSize = 15}, false, ""},
                        Case{"RTM_DELLINK of 0 bytes", {.type = RTM_DELLINK, .linkSize = 0}, false, ""}}) {
    SCOPED_TRACE(c.what);
    WextMessage const message(c.fields);
    RtNetlinkMessage const view(message.msg);
    EXPECT_EQ(view.isWextEvent(), c.wext);
    EXPECT_EQ(view.getIfName(), c.name);
    if (!c.wext) {
      EXPECT_EQ(view.wextEventSize(), 0u);
      EXPECT_THAT([&] { view.getWextEvent(); }, ThrowsMessage<Error>("not a wext event"));
      EXPECT_THAT([&] { view.wextEventID(); }, ThrowsMessage<Error>("not a wext event"));
    }
  }
}

TEST(RtNetlinkMessage, ANameWithoutItsNulEndsWithItsAttribute) {
  // Eight characters fill the attribute exactly; the event's header follows.
  nl_msg* msg = nlmsg_alloc_simple(RTM_NEWLINK, 0);
  ifinfomsg info{};
  nlmsg_append(msg, &info, sizeof info, NLMSG_ALIGNTO);
  nla_put(msg, IFLA_IFNAME, 8, "wlan0123");
  auto const event = WextMessage::iwEvent({.athEvent = 1, .payload = {1, 2}});
  nla_put(msg, IFLA_WIRELESS, static_cast<int>(event.size()), event.data());
  EXPECT_EQ(RtNetlinkMessage(msg).getIfName(), "wlan0123");
  nlmsg_free(msg);
}

TEST(RtNetlinkMessage, TruncatedWirelessPayloads) {
  WextMessage const three({.athEvent = 44, .payload = {1, 2}, .wirelessSize = 3});
  EXPECT_THAT([&] { RtNetlinkMessage(three.msg).wextEventID(); }, ThrowsMessage<Error>("wext event too short (3 < 4)"));
  WextMessage const fifteen({.athEvent = 44, .payload = {1, 2}, .wirelessSize = 15});
  RtNetlinkMessage const fifteenView(fifteen.msg);
  EXPECT_EQ(fifteenView.wextEventID(), 0x8C02);
  EXPECT_THAT([&] { fifteenView.getWextEventData(); }, ThrowsMessage<Error>("wext event too short (15 < 16)"));
  WextMessage const sixteen({.athEvent = 44, .payload = {1, 2}, .wirelessSize = 16});
  EXPECT_EQ(word(RtNetlinkMessage(sixteen.msg).getWextEventData(), 1), 44);
}

}  // namespace
