#include <vector>

#include <gtest/gtest.h>

#include "TraceCapture.h"
#include "trace/Trace.h"

// Counts how often it is formatted.
struct Counted {
  int* calls;
};

template <>
struct fmt::formatter<Counted> : fmt::formatter<int> {
  auto format(Counted counted, fmt::format_context& ctx) const { return formatter<int>::format(++*counted.calls, ctx); }
};

namespace {

using namespace Ny80211::trace;
using Ny80211::testing::TraceCapture;
using Ny80211::testing::TraceLine;

TEST(Trace, LinesAreFormattedOnlyForAListenerAndReachTheInnermostSinkWithProviderAndLevel) {
  // No sink, and no LTTng session has enabled the providers in this process.
  EXPECT_FALSE(enabled(Provider::Cmd, Level::Err) || enabled(Provider::Event, Level::Info));
  int calls = 0;
  eventInfo("{}", Counted{&calls});
  EXPECT_EQ(calls, 0);
  TraceCapture outer;
  {
    TraceCapture inner;
    cmdErr("event receive failed ({})", -33);
    cmdWarn("{} rejected", "NL80211_CMD_TRIGGER_SCAN");
    eventErr("cannot decode");
    eventInfo("{:>5}|{}", 42, Counted{&calls});
    EXPECT_EQ(inner.lines(), (std::vector<TraceLine>{{Provider::Cmd, Level::Err, "event receive failed (-33)"},
                                                     {Provider::Cmd, Level::Warn, "NL80211_CMD_TRIGGER_SCAN rejected"},
                                                     {Provider::Event, Level::Err, "cannot decode"},
                                                     {Provider::Event, Level::Info, "   42|1"}}));
  }
  eventInfo("outer");  // the previous sink is back
  EXPECT_EQ(outer.lines(), (std::vector<TraceLine>{{Provider::Event, Level::Info, "outer"}}));
}

}  // namespace
