// What the program changes in a graph that it has read.
#pragma once

#include "GraphDescription.h"
#include "PlugIns.h"

namespace vorn::graph {

/** Carries out `node.parameter=value`: it takes the place of what the graph says, in whatever way it says it.
 * @param source what messages put in front of the setting. */
std::optional<Error> ApplySetting(GraphDescription& graph, PlugIns& plugIns, const std::string& setting,
                                  const std::string& source);

/** Carries out `parameter=value` for every block that has the parameter. */
std::optional<Error> ApplyToAll(GraphDescription& graph, PlugIns& plugIns, const std::string& setting,
                                const std::string& source);

}  // namespace vorn::graph
