// Whose code the calling thread runs, so that a crash can be told with a name: see Route::Here().
//
// Pointers of each thread, which a signal handler on the same thread reads. The block is set before its code is
// entered, and replaced when other code is: one store a block, and nothing to undo where something throws.
#pragma once

#include <atomic>

namespace vorn {

class Block;

struct Whereabouts {
  /** Puts back where the thread was, which may be in a block of another route. */
  class Excursion {
   public:
    ~Excursion() {
      block.store(itsBlock, std::memory_order_relaxed);
      file.store(itsFile, std::memory_order_relaxed);
    }

   private:
    const Block* const itsBlock = block.load(std::memory_order_relaxed);
    const char* const itsFile = file.load(std::memory_order_relaxed);
  };

  static void InRoute(const char* name) { route.store(name, std::memory_order_relaxed); }
  static void InBlock(const Block& which) { block.store(&which, std::memory_order_relaxed); }
  /** In the code of a plug-in that makes a block. */
  static void InFile(const char* name) { file.store(name, std::memory_order_relaxed); }
  /** In the library's or the client's code. */
  static void Outside() {
    block.store(nullptr, std::memory_order_relaxed);
    file.store(nullptr, std::memory_order_relaxed);
  }
  /** Name of the block, else the file; null for neither. */
  static const char* Name();

  // The model makes an access a plain move, also in a library that is loaded later.
  [[gnu::tls_model("initial-exec")]] static thread_local constinit std::atomic<const char*> route;
  [[gnu::tls_model("initial-exec")]] static thread_local constinit std::atomic<const Block*> block;
  [[gnu::tls_model("initial-exec")]] static thread_local constinit std::atomic<const char*> file;
};

}  // namespace vorn
