// The blocks of one wave of a frame cycle.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

namespace vorn {

class Block;

/** A set in pointer order. Room is made beforehand, so that adding a block is one store. */
class WaveSet {
 public:
  /** Room for `room` additions after each Clear(). Loses what is in. */
  void MakeRoom(std::size_t room) {
    slots = std::make_unique<Block*[]>(room);
    Clear();
  }
  void Clear() { count = 0; }
  bool IsEmpty() const { return count == 0; }
  void Add(Block* block) { slots[count++] = block; }

  /** Brings what was added in any order, and maybe several times, into order. */
  void Arrange() {
    if (count < 2) return;
    std::sort(begin(), end());
    count = static_cast<std::size_t>(std::unique(begin(), end()) - begin());
  }

  Block** begin() { return slots.get(); }
  Block** end() { return slots.get() + count; }

 private:
  std::unique_ptr<Block*[]> slots;
  std::size_t count = 0;
};

}  // namespace vorn
