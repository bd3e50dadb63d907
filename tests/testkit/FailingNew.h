// Takes the place of the operators of this program: counts what a thread allocates, and fails one allocation of any
// thread.
#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

namespace testkit {

inline thread_local long allocations = 0;
inline std::atomic<long> allocationsLeft{-1};  // the next but this many fails, and no other

/** Throws for the one that fails. */
inline void CountAllocation() {
  ++allocations;
  if (allocationsLeft >= 0 && allocationsLeft-- == 0) throw std::bad_alloc();
}

inline void* OrThrow(void* memory) { return memory ? memory : throw std::bad_alloc(); }

}  // namespace testkit

[[gnu::noinline]] void* operator new(std::size_t size) {
  testkit::CountAllocation();
  return testkit::OrThrow(std::malloc(size));
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
  testkit::CountAllocation();
  const auto line = static_cast<std::size_t>(alignment);
  return testkit::OrThrow(std::aligned_alloc(line, (size + line - 1) / line * line));
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
