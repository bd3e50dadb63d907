// What the command line changes in a graph.
#ifndef VORN_RUN_SETTINGS_H
#define VORN_RUN_SETTINGS_H

#include "GraphDescription.h"
#include "PlugIns.h"

namespace vorn::run {

/** Carries out `node.parameter=value`: it takes the place of what the graph says, in whatever way it says it. */
std::optional<Error> ApplySetting(GraphDescription& graph, PlugIns& plugIns, const std::string& setting);

}  // namespace vorn::run

#endif
