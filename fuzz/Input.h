// What fuzz targets share: input taken apart, and what must hold.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace fuzz {

inline void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

/** Takes values from the front of an input; zeros and empty texts once it is used up. */
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest(reinterpret_cast<const char*>(data), size) {}

  bool IsEmpty() const { return rest.empty(); }

  template <class Number>
  Number Take() {
    Number number{};
    const std::string_view bytes = Cut(sizeof number);
    std::memcpy(&number, bytes.data(), bytes.size());
    return number;
  }

  /** Up to a line end, which is taken as well. */
  std::string Line() {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string line(Cut(end));
    Cut(1);
    return line;
  }

  std::string_view Rest() { return Cut(rest.size()); }

 private:
  std::string_view Cut(std::size_t size) {
    const std::string_view front = rest.substr(0, size);
    rest.remove_prefix(front.size());
    return front;
  }

  std::string_view rest;
};

}  // namespace fuzz
