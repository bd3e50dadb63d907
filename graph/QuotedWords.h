// Splits a text into words at blanks, as a shell would: "double" and 'single' quotes hold blanks together, and a
// backslash takes the next character as it is (not between single quotes).
#pragma once

#include <string_view>

#include "GraphDescription.h"

namespace vorn::graph {

struct SplitWord : Word {
  bool isQuoted = false;  ///< Some of it was quoted, so it is no operator.
};

/** @param start where the text begins, in the file it stands in. */
Result<std::vector<SplitWord>> SplitWords(std::string_view text, const Origin& start);

}  // namespace vorn::graph
