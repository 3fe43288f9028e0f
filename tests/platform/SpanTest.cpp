#include <array>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "nycpp/span.h"

namespace {

TEST(Span, ViewsContainersAndSubRangesInsideOnly) {
  std::vector<int> values{1, 2, 3, 4, 5};
  nycpp::span<int> all(values);
  nycpp::span<const int> constant = all;  // span<T> → span<const T>
  EXPECT_EQ(constant.data(), values.data());
  auto middle = all.subspan(1, 3);
  EXPECT_EQ(middle.data(), values.data() + 1);
  EXPECT_EQ(middle.size(), 3u);
  EXPECT_EQ(all.subspan(5).size(), 0u);  // an empty tail is still a range
  EXPECT_EQ(all.first(2).size(), 2u);
  EXPECT_EQ(all.last(2).data(), values.data() + 3);
  middle[0] = 20;
  EXPECT_EQ(values[1], 20);
  // Ranges outside the span are refused.
  std::array<std::byte, 4> bytes{};
  nycpp::span<const std::byte> span(bytes);
  EXPECT_THROW(span.subspan(5), std::out_of_range);
  EXPECT_THROW(span.subspan(2, 3), std::out_of_range);
  EXPECT_THROW(span.subspan(1, nycpp::span<int>::npos - 1), std::out_of_range);  // no wrap-around
  EXPECT_THROW(span.first(5), std::out_of_range);
  EXPECT_THROW(span.last(5), std::out_of_range);
  EXPECT_NO_THROW(span.subspan(4, 0));
}

TEST(SpanFormat, EveryByteVisibleAndUnambiguous) {
  std::pair<std::string, char const*> const cases[] = {
      {"", ""},
      {" Home~", " Home~"},
      {std::string("a\0b", 3), "a\\x00b"},  // NUL inside, not an end
      {"\\x41", "\\x5cx41"},                // a literal escape stays distinct from byte 0x41
      {"\t\n\x7f", "\\x09\\x0a\\x7f"},
      {"\xc3\xa9\xff", "\\xc3\\xa9\\xff"},
  };
  for (auto const& [bytes, text] : cases) {
    EXPECT_EQ(fmt::format("{}", nycpp::span<const char>(bytes.data(), bytes.size())), text);
  }
  // Width applies to the escaped text.
  std::string ssid("a\x01", 2);
  nycpp::span<const char> chars(ssid.data(), ssid.size());
  EXPECT_EQ(fmt::format("[{:>8}]", chars), "[   a\\x01]");
  EXPECT_EQ(fmt::format("[{:*<7}]", chars), "[a\\x01**]");
  std::string mutableText = "ok";
  EXPECT_EQ(fmt::format("{}", nycpp::span<char>(mutableText)), "ok");
  // Joined, each span is one escaped text (fmt's range formatting stays out).
  std::vector<nycpp::span<const char>> const parts{chars, nycpp::span<const char>("b\\", 2)};
  EXPECT_EQ(fmt::format("{}", fmt::join(parts, "|")), "a\\x01|b\\x5c");
}

}  // namespace
