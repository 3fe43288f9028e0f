#include <array>
#include <cstddef>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "quenta_share/MacAddress.h"

namespace {

TEST(Address, BuiltFromWireOrderBytesAndPrintedLowerCaseHex) {
  MacAddress const mac(MacAddress::Bytes{0x02, 0x00, 0x00, 0x00, 0x01, 0x00});
  EXPECT_EQ(mac.ToString(), "02:00:00:00:01:00");
  EXPECT_EQ(fmt::format("[{:>19}]", mac), "[  02:00:00:00:01:00]");
  std::vector<std::byte> const wire{std::byte{0xAB}, std::byte{0xCD}, std::byte{0xEF}};
  Oui const oui{nycpp::span<const std::byte>(wire)};
  EXPECT_EQ(oui[0], 0xab);
  EXPECT_EQ(fmt::format("{}", oui), "ab:cd:ef");
  // The default is all zero.
  EXPECT_TRUE(MacAddress().IsZero());
  EXPECT_FALSE(mac.IsZero());
  EXPECT_EQ(MacAddress().ToString(), "00:00:00:00:00:00");
  EXPECT_EQ(Oui().ToString(), "00:00:00");
}

TEST(Address, CopiesCompareByteWiseAndOnlySixBytesMakeAnAddress) {
  MacAddress const a(MacAddress::Bytes{0, 0, 0, 0, 0, 1});
  MacAddress const b(MacAddress::Bytes{0, 0, 0, 0, 1, 0});
  MacAddress copy = a;
  EXPECT_EQ(copy, a);
  EXPECT_NE(a, b);
  EXPECT_LT(a, b);  // first byte that differs decides, as on the wire
  std::array<std::uint8_t, 5> const five{};
  EXPECT_THAT([&] { MacAddress{nycpp::span<const std::uint8_t>(five)}; },
              ::testing::ThrowsMessage<std::invalid_argument>("address of 5 bytes where 6 are expected"));
}

}  // namespace
