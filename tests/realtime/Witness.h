// What a thread does besides arithmetic while it is watched: it asks for memory, takes locks, calls the system.
#pragma once

#include <string>

#include <vorn/Block.h>

namespace witness {

struct Deeds {
  unsigned long memory = 0;
  unsigned long locks = 0;
  long call = -1;  ///< The number of the last system call that was seen.

  /** Letters: m for memory, l for locks, s for the system. */
  std::string Text() const;
};

/** Watches the calling thread from now on. Where it is watched already, its next system call counts again. */
VORN_API void Watch();
/** No more: what the thread has done is in `seen`. One thread at a time. */
VORN_API void Rest();
VORN_API extern Deeds seen;

}  // namespace witness
