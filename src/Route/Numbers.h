// The numbers in use behind one stem of names: lnk_0, lnk_1 and so on.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

class Numbers {
 public:
  static constexpr std::size_t LAST = 4294967294;  // of blocks and of links

  /** The lowest that is free. Throws std::bad_alloc where there is no room to take it. */
  std::size_t Lowest() {
    if (lowest == taken.size()) taken.push_back(false);
    return lowest;
  }
  /** Takes what Lowest() gave. */
  void Take(std::size_t number) {
    taken[number] = true;
    while (lowest < taken.size() && taken[lowest]) ++lowest;
  }
  void Release(std::size_t number) {
    taken[number] = false;
    lowest = std::min(lowest, number);
  }

 private:
  std::vector<bool> taken;
  std::size_t lowest = 0;  // all below are taken
};

/** What stands before the number of a name. */
inline std::string_view StemOf(std::string_view name) { return name.substr(0, name.rfind('_') + 1); }
inline std::size_t NumberOf(const std::string& name) { return std::strtoul(&name[StemOf(name).size()], nullptr, 10); }

}  // namespace vorn
