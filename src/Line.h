// One formatted piece of text, without memory of its own: for reports, and for where no memory may be left.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>

namespace vorn {

/** As printf; cut at 255 characters. */
__attribute__((format(printf, 1, 2))) inline std::array<char, 256> Line(const char* format, ...) {
  std::array<char, 256> line;
  va_list args;
  va_start(args, format);
  std::vsnprintf(line.data(), line.size(), format, args);
  va_end(args);
  return line;
}

}  // namespace vorn
