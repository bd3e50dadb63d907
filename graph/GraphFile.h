// Reads a graph file: what the nodes, edges, clusters and attributes of the DOT text stand for, and what its $names
// are. A pure function of its arguments.
#pragma once

#include <map>
#include <string_view>

#include "GraphDescription.h"

namespace vorn::graph {

using Variables = std::map<std::string, std::string>;

/**
 * @param file how messages call the text. @param variables what $name stands for in values; each must be used.
 */
Result<GraphDescription> ReadGraphFile(std::string_view text, const std::string& file, const Variables& variables);

}  // namespace vorn::graph
