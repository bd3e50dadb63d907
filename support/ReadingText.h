// A measurement as people read it: with the digits that mean something.
#pragma once

#include <cmath>
#include <cstdlib>
#include <string>

#include "support/Format.h"

namespace support {

/** -21.0 in decibels and the like, 19999 for a count, four digits of anything else. */
inline std::string ReadingText(double value, const std::string& unit) {
  const bool isLevel = unit.rfind("dB", 0) == 0 || unit == "LU" || unit == "LUFS";
  if (isLevel) return Format("%.1f", value);
  const bool isCount = value == std::floor(value) || std::fabs(value) >= 1000;  // no exponents, please
  return Format(isCount ? "%.0f" : "%.4g", value);
}

/** The same of a value's text, which stays as it is where it is no number. */
inline std::string ReadingText(const std::string& value, const std::string& unit) {
  char* end = nullptr;
  const double number = std::strtod(value.c_str(), &end);
  return value.empty() || *end != '\0' || !std::isfinite(number) ? value : ReadingText(number, unit);
}

}  // namespace support
