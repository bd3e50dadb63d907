// Takes the place of the operators of this program: counts what a thread allocates, and fails one allocation of any
// thread.
#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

namespace testkit {

inline thread_local long allocations = 0;
inline std::atomic<long> allocationsLeft{-1};  // the next but this many fails, and no other

}  // namespace testkit

[[gnu::noinline]] void* operator new(std::size_t size) {
  ++testkit::allocations;
  const bool fails = testkit::allocationsLeft >= 0 && testkit::allocationsLeft-- == 0;
  void* const memory = fails ? nullptr : std::malloc(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
