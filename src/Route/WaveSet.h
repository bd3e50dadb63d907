// The blocks of one wave of a frame cycle.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "Route/FramePlan.h"

namespace vorn {

/** A set in the pointer order of the blocks. Room is made beforehand. */
class WaveSet {
 public:
  using Element = const FramePlan::Visit*;

  /** Room for `room` additions after each Clear(). May lose what is in. Throws, and changes nothing then. */
  void MakeRoom(std::size_t room) {
    if (room <= capacity) return;
    slots = std::make_unique<Element[]>(2 * room);  // so that graphs which grow seldom need another
    capacity = 2 * room;
    Clear();
  }
  void Clear() {
    count = 0;
    isInOrder = true;
  }
  bool IsEmpty() const { return count == 0; }
  void Add(Element added) {
    if (count > 0) {
      if (slots[count - 1] == added) return;  // where the outputs of a wave lead to one block
      isInOrder = isInOrder && IsBefore(slots[count - 1], added);
    }
    slots[count++] = added;
  }

  /** Brings what was added in any order, and maybe several times, into order. */
  void Arrange() {
    if (isInOrder) return;
    std::sort(begin(), end(), IsBefore);
    count = static_cast<std::size_t>(std::unique(begin(), end()) - begin());
  }

  /** The only element, which is taken out; null where there is none or more. */
  Element TakeSingle() {
    if (count != 1) return nullptr;
    Clear();
    return slots[0];
  }

  Element* begin() { return slots.get(); }
  Element* end() { return slots.get() + count; }

 private:
  static bool IsBefore(Element a, Element b) { return a->block < b->block; }

  std::unique_ptr<Element[]> slots;
  std::size_t capacity = 0;
  std::size_t count = 0;
  bool isInOrder = true;  // strictly
};

}  // namespace vorn
