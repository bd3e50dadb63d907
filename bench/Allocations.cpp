// Counts every allocation of the process: what a program defines itself, the C library and all others call too.
#include <atomic>
#include <cerrno>
#include <cstddef>

#include "Measure.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {
std::atomic<unsigned long> count{0};
void Count() { count.fetch_add(1, std::memory_order_relaxed); }
}  // namespace

unsigned long bench::Allocations() { return count.load(std::memory_order_relaxed); }

#pragma GCC visibility push(default)
extern "C" {
void* malloc(std::size_t size) { return Count(), __libc_malloc(size); }
void* calloc(std::size_t items, std::size_t size) { return Count(), __libc_calloc(items, size); }
void* realloc(void* old, std::size_t size) { return Count(), __libc_realloc(old, size); }
void* memalign(std::size_t alignment, std::size_t size) { return Count(), __libc_memalign(alignment, size); }
void* aligned_alloc(std::size_t alignment, std::size_t size) { return Count(), __libc_memalign(alignment, size); }
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = (Count(), __libc_memalign(alignment, size));
  return *memory != nullptr ? 0 : ENOMEM;
}
}
#pragma GCC visibility pop
