// Counts the process's heap allocations by standing in for glibc's allocation
// entry points: the executable's definitions come first in symbol lookup, so
// the library, libnl, Poco and libstdc++'s operator new all call these, which
// count and hand over to glibc's own allocator. free stays glibc's.
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Bench.h"

// glibc's names for its own allocator are reserved ones.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* pointer, std::size_t size) noexcept;
void* __libc_memalign(std::size_t alignment, std::size_t size) noexcept;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): as global as malloc
std::atomic<std::uint64_t> count{0};

void counted() noexcept { count.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
  counted();
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  counted();
  return __libc_calloc(count, size);
}

void* realloc(void* pointer, std::size_t size) noexcept {
  counted();
  return __libc_realloc(pointer, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  counted();
  return __libc_memalign(alignment, size);
}

}  // extern "C"

std::uint64_t bench::allocations() noexcept { return count.load(std::memory_order_relaxed); }
