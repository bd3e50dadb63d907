// A list that is mostly short.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorn {

/** Up to N elements lie in the object itself, so that they are read along with what stands beside it. */
template <class T, std::uint32_t N>
class Few {
 public:
  Few() = default;
  ~Few() {
    if (elements != few) delete[] elements;
  }
  Few(const Few&) = delete;
  Few& operator=(const Few&) = delete;

  /** Loses what is in, if that takes more memory. Throws std::bad_alloc, and changes nothing then. */
  void MakeRoom(std::size_t newRoom) {
    if (newRoom <= room) return;
    T* const many = new T[newRoom];
    if (elements != few) delete[] elements;
    elements = many;
    room = static_cast<std::uint32_t>(newRoom);
  }
  void Clear() { count = 0; }
  /** There has to be room. */
  void Add(const T& added) { elements[count++] = added; }

  std::size_t Size() const { return count; }
  const T& Front() const { return *elements; }
  const T* begin() const { return elements; }
  const T* end() const { return elements + count; }

 private:
  T* elements = few;
  std::uint32_t count = 0;
  std::uint32_t room = N;
  T few[N];
};

}  // namespace vorn
