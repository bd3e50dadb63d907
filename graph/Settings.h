// What the command line changes in a graph.
#pragma once

#include "GraphDescription.h"
#include "PlugIns.h"

namespace vorn::graph {

/** Carries out `node.parameter=value`: it takes the place of what the graph says, in whatever way it says it. */
std::optional<Error> ApplySetting(GraphDescription& graph, PlugIns& plugIns, const std::string& setting);

}  // namespace vorn::graph
