// What a log line costs when nobody listens, against the same line formatted
// for a listener, and the platform formatters the lines are made of.
#include <string>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "nycpp/span.h"
#include "quenta_share/MacAddress.h"
#include "trace/Trace.h"

namespace {

class DiscardingSink : public Ny80211::trace::Sink {
 public:
  void line(Ny80211::trace::Provider, Ny80211::trace::Level,
            std::string_view text) noexcept override {
    benchmark::DoNotOptimize(text.data());
  }
};

MacAddress const station(MacAddress::Bytes{0x02, 0x00, 0x00, 0x00, 0x01, 0x00});

void logLine() {
  Ny80211::trace::eventInfo("{}: station {} authorized on channel {:3} (AID {})", "wlan0", station,
                            36, 1);
}

void BM_LogLineNobodyListens(benchmark::State& state) {
  for (auto _ : state) logLine();
}
BENCHMARK(BM_LogLineNobodyListens);

void BM_LogLineToASink(benchmark::State& state) {
  DiscardingSink sink;
  auto* previous = Ny80211::trace::setSink(&sink);
  for (auto _ : state) logLine();
  Ny80211::trace::setSink(previous);
}
BENCHMARK(BM_LogLineToASink);

void BM_EscapeSsid(benchmark::State& state) {
  std::string const ssid("Guest\x01Network\\5GHz-\xff\xfe-0123456789");  // 32 bytes
  nycpp::span<const char> chars(ssid.data(), ssid.size());
  for (auto _ : state) benchmark::DoNotOptimize(fmt::format("{}", chars));
}
BENCHMARK(BM_EscapeSsid);

void BM_MacAddressToString(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(station.ToString());
}
BENCHMARK(BM_MacAddressToString);

}  // namespace
