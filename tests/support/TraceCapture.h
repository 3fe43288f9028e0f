#pragma once
// Records every log line the library writes while it lives, with its provider
// and level; the lines still go to LTTng as well.

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "trace/Trace.h"

namespace Ny80211::testing {

struct TraceLine {
  trace::Provider provider;
  trace::Level level;
  std::string text;
  bool operator==(TraceLine const&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, TraceLine const& line) {
  return out << trace::name(line.provider) << '/' << trace::name(line.level) << ": \"" << line.text << '"';
}

class TraceCapture : public trace::Sink {
 public:
  TraceCapture() : previous_(trace::setSink(this)) {}
  ~TraceCapture() override { trace::setSink(previous_); }
  TraceCapture(TraceCapture const&) = delete;
  TraceCapture& operator=(TraceCapture const&) = delete;

  void line(trace::Provider provider, trace::Level level, std::string_view text) noexcept override {
    std::lock_guard lock(mutex_);
    lines_.push_back({provider, level, std::string(text)});
  }

  std::vector<TraceLine> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  trace::Sink* previous_;
  mutable std::mutex mutex_;
  std::vector<TraceLine> lines_;
};

}  // namespace Ny80211::testing
