#include "trace/Trace.h"

#include <atomic>
#include <string>

#include "ny80211_cmd.h"
#include "ny80211_event.h"

namespace Ny80211::trace {

namespace {
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): setSink's, for every thread
std::atomic<Sink*> currentSink{nullptr};
}  // namespace

std::string_view name(Provider provider) noexcept {
  return provider == Provider::Cmd ? "ny80211_cmd" : "ny80211_event";
}

std::string_view name(Level level) noexcept {
  switch (level) {
    case Level::Err:
      return "log_err";
    case Level::Warn:
      return "log_warn";
    case Level::Info:
      return "log_info";
  }
  return "<unknown>";
}

bool enabled(Provider provider, Level level) noexcept {
  if (currentSink.load(std::memory_order_acquire) != nullptr) return true;
  if (provider == Provider::Cmd) {
    return level == Level::Err ? lttng_ust_tracepoint_enabled(ny80211_cmd, log_err)
                               : lttng_ust_tracepoint_enabled(ny80211_cmd, log_warn);
  }
  return level == Level::Err ? lttng_ust_tracepoint_enabled(ny80211_event, log_err)
                             : lttng_ust_tracepoint_enabled(ny80211_event, log_info);
}

void write(Provider provider, Level level, std::string const& text) noexcept {
  if (auto* sink = currentSink.load(std::memory_order_acquire)) sink->line(provider, level, text);
  char const* const cText = text.c_str();
  if (provider == Provider::Cmd) {
    if (level == Level::Err) {
      lttng_ust_tracepoint(ny80211_cmd, log_err, cText);
    } else {
      lttng_ust_tracepoint(ny80211_cmd, log_warn, cText);
    }
  } else if (level == Level::Err) {
    lttng_ust_tracepoint(ny80211_event, log_err, cText);
  } else {
    lttng_ust_tracepoint(ny80211_event, log_info, cText);
  }
}

Sink* setSink(Sink* sink) noexcept { return currentSink.exchange(sink, std::memory_order_acq_rel); }

}  // namespace Ny80211::trace
