// For programs and libraries that take the place of functions of the C library, and call them.
#pragma once

#include <dlfcn.h>

#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* memory, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* memory);
}

namespace testkit {

template <class Function>
Function* Next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace testkit

// The function whose place is taken, as `real`.
#define REAL(function) static const auto real = testkit::Next(&function, #function)
