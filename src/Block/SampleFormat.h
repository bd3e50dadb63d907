// Text names of the sample formats.
#pragma once

#include <vorn/Block.h>

namespace vorn {

/** The name of one of the nine formats; "?" for any other value. */
inline const char* FormatToString(SampleFormat format) {
  static constexpr const char* s_tbl[] = {"BYTE",    "S16_LE",  "S16_BE",   "S32_LE",  "S32_BE",
                                          "S24_3LE", "S24_3BE", "FLOAT_LE", "FLOAT_BE"};
  const auto index = static_cast<std::size_t>(format);
  return index < std::size(s_tbl) ? s_tbl[index] : "?";
}

}  // namespace vorn
