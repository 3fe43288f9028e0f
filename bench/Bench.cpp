#include "Bench.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <stdexcept>
#include <string_view>

#include <benchmark/benchmark.h>
#include <unistd.h>

// The items loop, as a function of its own with a plain name, so that
// callgrind can count it alone (--toggle-collect=ny80211_bench_items) and
// leave out start-up and the threads of other libraries.
extern "C" __attribute__((noinline, used)) void ny80211_bench_items(bench::Work* work,
                                                                    std::size_t items) {
  for (std::size_t i = 0; i < items; ++i) work->item();
}

namespace bench {

void check(bool ok, std::string const& what) {
  if (!ok) throw std::runtime_error(what);
}

namespace {

constexpr std::string_view library = "library", baseline = "baseline";

// The console output as usual; besides, the real and CPU time of every run.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // Coloured on a terminal only: the ratio lines are read by scripts.
  RatioReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}

  struct Times {
    double real = 0, cpu = 0;  // ns per item
  };

  void ReportRuns(std::vector<Run> const& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (auto const& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      times[run.benchmark_name()] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
    }
  }

  std::map<std::string, Times> times;
};

std::string side(Row const& row, std::string_view work) {
  return row.name + "/" + std::string(work);
}

void add(Row const& row, std::string_view work, std::shared_ptr<Work> const& w) {
  benchmark::RegisterBenchmark(side(row, work).c_str(), [w](benchmark::State& state) {
    auto const before = allocations();
    for (auto _ : state) w->item();
    state.SetItemsProcessed(state.iterations());
    state.counters["allocs/item"] = benchmark::Counter(static_cast<double>(allocations() - before),
                                                       benchmark::Counter::kAvgIterations);
  })->Unit(benchmark::kNanosecond);
}

int timed(int argc, char** argv, std::vector<Row> const& rows) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  for (auto const& row : rows) {
    add(row, library, row.library());
    add(row, baseline, row.baseline());
  }
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  // A row filtered out by --benchmark_filter has no ratio.
  for (auto const& row : rows) {
    auto const lib = reporter.times.find(side(row, library));
    auto const base = reporter.times.find(side(row, baseline));
    if (lib == reporter.times.end() || base == reporter.times.end()) continue;
    auto const& l = lib->second;
    auto const& b = base->second;
    std::printf("ratio %s: cpu %.2fx wall %.2fx (library %.0f ns/item, %.3g items/s per core)\n",
                row.name.c_str(), l.cpu / b.cpu, l.real / b.real, l.cpu, 1e9 / l.cpu);
  }
  return 0;
}

int usage(char const* program) {
  std::fprintf(stderr,
               "usage: %s [benchmark flags]\n"
               "       %s --items N --work library|baseline [--row NAME]\n"
               "       %s --list\n",
               program, program, program);
  return 2;
}

int counted(int argc, char** argv, std::vector<Row> const& rows) {
  std::size_t items = 0;
  std::string work, rowName = rows.front().name;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string_view const option = argv[i];
    if (option == "--items") {
      items = std::strtoull(argv[i + 1], nullptr, 10);
    } else if (option == "--work") {
      work = argv[i + 1];
    } else if (option == "--row") {
      rowName = argv[i + 1];
    } else {
      return usage(argv[0]);
    }
  }
  if (argc % 2 == 0 || items == 0 || (work != library && work != baseline)) return usage(argv[0]);
  for (auto const& row : rows) {
    if (row.name != rowName) continue;
    auto const w = work == library ? row.library() : row.baseline();
    auto const before = allocations();
    ny80211_bench_items(w.get(), items);
    auto const made = allocations() - before;
    std::printf("row %s work %s items %zu allocations %llu\n", row.name.c_str(), work.c_str(),
                items, static_cast<unsigned long long>(made));
    return 0;
  }
  std::fprintf(stderr, "%s: no row '%s'\n", argv[0], rowName.c_str());
  return 2;
}

}  // namespace

int run(int argc, char** argv, std::vector<Row> const& rows) {
  try {
    if (argc == 2 && std::string_view(argv[1]) == "--list") {
      for (auto const& row : rows) std::printf("%s\n", row.name.c_str());
      return 0;
    }
    for (int i = 1; i < argc; ++i) {
      if (std::string_view(argv[i]) == "--items") return counted(argc, argv, rows);
    }
    return timed(argc, argv, rows);
  } catch (std::exception const& e) {
    std::fprintf(stderr, "%s: %s\n", argv[0], e.what());
    return 1;
  }
}

}  // namespace bench
