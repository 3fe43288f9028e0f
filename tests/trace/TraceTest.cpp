#include <gtest/gtest.h>

#include "TraceCapture.h"
#include "trace/Trace.h"

struct Counted {
  int* calls;
};

template <>
struct fmt::formatter<Counted> : fmt::formatter<int> {
  template <class Context>
  auto format(Counted const& counted, Context& ctx) const {
    return fmt::formatter<int>::format(++*counted.calls, ctx);
  }
};

namespace {

using Ny80211::testing::TraceCapture;
using Ny80211::testing::TraceLine;
using Ny80211::trace::Level;
using Ny80211::trace::Provider;

TEST(Trace, EachLineReachesTheSinkWithItsProviderAndLevel) {
  TraceCapture capture;
  Ny80211::trace::cmdErr("event receive failed ({})", -33);
  Ny80211::trace::cmdWarn("{} rejected", "NL80211_CMD_TRIGGER_SCAN");
  Ny80211::trace::eventErr("cannot decode");
  Ny80211::trace::eventInfo("{:>5}|", 42);
  EXPECT_EQ(capture.lines(), (std::vector<TraceLine>{{Provider::Cmd, Level::Err, "event receive failed (-33)"},
                                                     {Provider::Cmd, Level::Warn, "NL80211_CMD_TRIGGER_SCAN rejected"},
                                                     {Provider::Event, Level::Err, "cannot decode"},
                                                     {Provider::Event, Level::Info, "   42|"}}));
}

TEST(Trace, NestedCapturesRestoreThePreviousSink) {
  TraceCapture outer;
  {
    TraceCapture inner;
    Ny80211::trace::eventInfo("inner");
    EXPECT_EQ(inner.lines().size(), 1u);
  }
  Ny80211::trace::eventInfo("outer");
  ASSERT_EQ(outer.lines().size(), 1u);
  EXPECT_EQ(outer.lines()[0].text, "outer");
}

TEST(Trace, NothingIsFormattedWhenNoOneListens) {
  // No sink, and no LTTng session has enabled the providers in this process.
  ASSERT_FALSE(Ny80211::trace::enabled(Provider::Cmd, Level::Err));
  ASSERT_FALSE(Ny80211::trace::enabled(Provider::Event, Level::Info));
  int calls = 0;
  Ny80211::trace::eventInfo("{}", Counted{&calls});
  EXPECT_EQ(calls, 0);
  TraceCapture capture;
  Ny80211::trace::eventInfo("{}", Counted{&calls});
  EXPECT_EQ(calls, 1);
}

TEST(Trace, NamesOfProvidersAndLevels) {
  EXPECT_EQ(Ny80211::trace::name(Provider::Cmd), "ny80211_cmd");
  EXPECT_EQ(Ny80211::trace::name(Provider::Event), "ny80211_event");
  EXPECT_EQ(Ny80211::trace::name(Level::Err), "log_err");
  EXPECT_EQ(Ny80211::trace::name(Level::Warn), "log_warn");
  EXPECT_EQ(Ny80211::trace::name(Level::Info), "log_info");
}

}  // namespace
