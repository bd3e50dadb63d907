// printf into a string.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace support {

[[gnu::format(printf, 1, 2)]] inline std::string Format(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::va_list again;
  va_copy(again, args);
  std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, args)), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  va_end(args);
  return text;
}

}  // namespace support
