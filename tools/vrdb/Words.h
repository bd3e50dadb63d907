#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vrdb {

using Words = std::vector<std::string>;

struct SplitLine {
  Words words;
  std::string error;  ///< what the console cannot carry; empty: nothing
};

/**
 * Splits a line as the console does: at blanks, every other character taken as it stands. A word that begins with '#'
 * ends the line. What looks as if a blank was meant to be kept, by quotes or a backslash, is an error.
 */
SplitLine Split(std::string_view line);

/** Says why the console cannot carry these words as they are, or nothing. */
std::string CannotCarry(const Words& words);

std::string Join(const Words& words, std::string_view between = " ");

}  // namespace vrdb
