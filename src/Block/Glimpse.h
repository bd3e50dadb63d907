// A look at what another thread writes whenever it likes, without a lock.
#pragma once

namespace vorn {

/**
 * Of frame buffers, and of who stands at a FIFO's ends. Who looks takes what he gets, a mixture of two frames included;
 * each word is read once, and is the old one or the new.
 */
template <class Word>
__attribute__((no_sanitize("thread"))) Word Glimpse(const Word& word) {
  return static_cast<const volatile Word&>(word);
}

}  // namespace vorn
