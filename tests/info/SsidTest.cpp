#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ny80211/BssInfo.h"

namespace {

using Ny80211::AttrSsid;

AttrSsid ssidOf(std::string const& text) {
  std::vector<std::byte> bytes(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) bytes[i] = static_cast<std::byte>(text[i]);
  return AttrSsid(bytes);
}

TEST(AttrSsid, KeepsEveryByteAndEscapesWhatALogCouldNotShow) {
  struct Row {
    std::string ssid;
    char const* text;
  };
  for (auto const& r : {Row{"", ""},
                        {" ", "\\x20"},
                        {"two words", "two words"},
                        {"  x  ", "\\x20 x \\x20"},
                        {"a\\x", "a\\x5cx"},
                        {" !~", "\\x20!~"},
                        {std::string("\0\x1f\x7f\x80\xff", 5), "\\x00\\x1f\\x7f\\x80\\xff"}}) {
    EXPECT_EQ(ssidOf(r.ssid).toEscapedString(), r.text) << r.text;
  }
  EXPECT_EQ(ssidOf(std::string(40, '\0')).bytes().size(), 40u);  // no length limit, NULs kept
}

}  // namespace
