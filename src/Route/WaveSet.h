// The blocks of one wave of a frame cycle.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "Route/FramePlan.h"

namespace vorn {

/** A set in the order of the plan. Room is made beforehand. */
class WaveSet {
 public:
  using Element = const FramePlan::Visit*;

  /** Room for `room` additions after each Clear(). Loses what is in. Throws, and changes nothing then. */
  void MakeRoom(std::size_t room) {
    slots = std::make_unique<Element[]>(room);
    Clear();
  }
  void Clear() {
    count = 0;
    isInOrder = true;
  }
  bool IsEmpty() const { return count == 0; }
  void Add(Element added) {
    isInOrder = isInOrder && (count == 0 || slots[count - 1] < added);
    slots[count++] = added;
  }

  /** Brings what was added in any order, and maybe several times, into order. */
  void Arrange() {
    if (isInOrder) return;
    std::sort(begin(), end());
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
  std::unique_ptr<Element[]> slots;
  std::size_t count = 0;
  bool isInOrder = true;  // strictly
};

}  // namespace vorn
