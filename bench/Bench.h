#pragma once
// The frame every paired benchmark program shares. A program lists rows; each
// row is one workload done by the library and by a baseline, one item at a
// time. Run without arguments (or with Google Benchmark's flags) it times
// both sides of every row and ends with a "ratio ROW: ..." line per row.
// With --items N it does exactly N items of one side of one row, without
// Google Benchmark, so that a tool can count what they cost:
//
//   PROGRAM --items N --work library|baseline [--row NAME]
//   PROGRAM --list      (the rows' names, one a line)

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// One side of one row. item() does the next item; inputs that come in a
// series (the BSS of a dump) are cycled through.
class Work {
 public:
  virtual ~Work() = default;
  virtual void item() = 0;
};

struct Row {
  std::string name;
  // Each builds its inputs and checks, once, that its side gets them right;
  // a failed check throws.
  std::function<std::unique_ptr<Work>()> library;
  std::function<std::unique_ptr<Work>()> baseline;
};

// A Row side that makes a W.
template <class W>
std::unique_ptr<Work> make() {
  return std::make_unique<W>();
}

int run(int argc, char** argv, std::vector<Row> const& rows);

// Heap allocations (malloc, calloc, realloc, aligned_alloc; operator new goes
// through malloc) made by the process so far, by any thread.
std::uint64_t allocations() noexcept;

// Throws std::runtime_error with the text unless ok.
void check(bool ok, std::string const& what);

}  // namespace bench
