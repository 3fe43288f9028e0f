#pragma once
// The library's log: every line is one preformatted text sent to an LTTng-UST
// tracepoint of provider ny80211_cmd (log_err, log_warn) or ny80211_event
// (log_err, log_info). Lines are formatted only when someone listens.

#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Ny80211::trace {

enum class Provider { Cmd, Event };
enum class Level { Err, Warn, Info };

std::string_view name(Provider provider) noexcept;  // "ny80211_cmd", "ny80211_event"
std::string_view name(Level level) noexcept;        // "log_err", "log_warn", "log_info"

// True when the tracepoint is enabled in an LTTng session or a sink is set.
bool enabled(Provider provider, Level level) noexcept;
void write(Provider provider, Level level, std::string const& text) noexcept;

// Receives a copy of every line, in addition to LTTng. For tests: it lets
// them see exactly which lines were written at which provider and level.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual void line(Provider provider, Level level, std::string_view text) noexcept = 0;
};
// Installs the sink (nullptr removes it) and returns the previous one.
Sink* setSink(Sink* sink) noexcept;

namespace detail {
template <Provider P, Level L, class... Args>
void log(fmt::format_string<Args...> pattern, Args&&... args) {
  if (enabled(P, L)) write(P, L, fmt::format(pattern, std::forward<Args>(args)...));
}
}  // namespace detail

// The four lines the providers declare.
template <class... Args>
void cmdErr(fmt::format_string<Args...> pattern, Args&&... args) {
  detail::log<Provider::Cmd, Level::Err>(pattern, std::forward<Args>(args)...);
}
template <class... Args>
void cmdWarn(fmt::format_string<Args...> pattern, Args&&... args) {
  detail::log<Provider::Cmd, Level::Warn>(pattern, std::forward<Args>(args)...);
}
template <class... Args>
void eventErr(fmt::format_string<Args...> pattern, Args&&... args) {
  detail::log<Provider::Event, Level::Err>(pattern, std::forward<Args>(args)...);
}
template <class... Args>
void eventInfo(fmt::format_string<Args...> pattern, Args&&... args) {
  detail::log<Provider::Event, Level::Info>(pattern, std::forward<Args>(args)...);
}

}  // namespace Ny80211::trace
