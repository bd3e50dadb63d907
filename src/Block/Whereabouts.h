// Whose code the calling thread runs, so that a crash can be told with a name: see Route::Here().
//
// Two pointers a thread, which a signal handler on the same thread reads. The name of a block is set before its code is
// entered, and replaced when other code is: one store a block, and nothing to undo where something throws.
#pragma once

#include <atomic>

namespace vorn {

struct Whereabouts {
  static void InRoute(const char* route) { routeName.store(route, std::memory_order_relaxed); }
  /** @param block the name of a block, or the file that one is made from; null: the library's or the client's code. */
  static void InBlock(const char* block) { blockName.store(block, std::memory_order_relaxed); }

  // The model makes an access a plain move, also in a library that is loaded later.
  [[gnu::tls_model("initial-exec")]] static thread_local constinit std::atomic<const char*> routeName;
  [[gnu::tls_model("initial-exec")]] static thread_local constinit std::atomic<const char*> blockName;
};

}  // namespace vorn
