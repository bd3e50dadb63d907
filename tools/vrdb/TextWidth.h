/** How much room text takes on a terminal. */
#pragma once

#include <wchar.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "support/Printable.h"

namespace vrdb {

/** Columns of the character that the text begins with; `bytes` is what it is made of. Takes a UTF-8 locale for more than 1. */
inline std::size_t FirstWidth(std::string_view text, std::size_t& bytes) {
  bytes = std::max<std::size_t>(support::CharacterBytes(text), 1);
  if (bytes == 1) return 1;
  wint_t character = static_cast<unsigned char>(text[0]) & (0x7Fu >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) character = character << 6 | (static_cast<unsigned char>(text[i]) & 0x3Fu);
  const int width = wcwidth(static_cast<wchar_t>(character));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

/** As much of the text as fits into `columns`, which are reduced by what it takes. */
inline std::string_view Fitting(std::string_view text, std::size_t& columns) {
  std::size_t end = 0;
  for (std::size_t bytes = 0; end < text.size(); end += bytes) {
    const std::size_t width = FirstWidth(text.substr(end), bytes);
    if (width > columns) break;
    columns -= width;
  }
  return text.substr(0, end);
}

inline std::size_t Width(std::string_view text) {
  std::size_t left = text.size() * 2;
  const std::size_t most = left;
  Fitting(text, left);
  return most - left;
}

}  // namespace vrdb
