#pragma once

#include <string>
#include <string_view>

#include "Shell.h"

namespace vrdb {

/** The console's graph text with all names quoted: a block named after a path is no plain word of that language. */
std::string QuoteNames(std::string_view graph);

/** Writes the graph to `file` in the form that its ending asks for. The file is whole, or as it was before. */
Result WriteGraph(const std::string& graph, const std::string& file);

}  // namespace vrdb
