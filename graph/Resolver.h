// From what was written to what is built: which plug-ins, which are first and last, which ports, which streams; and
// whether all of it can work. Nothing is built for it.
#pragma once

#include <functional>

#include "GraphPlan.h"

namespace vorn::graph {

/**
 * Asks a block that cannot be described beforehand for the streams that it makes; only known fields are set. Called for
 * blocks without inputs whose plug-in does not describe itself.
 */
using AskForStreams = std::function<Result<std::vector<Stream>>(std::size_t node, const BlockPlan& plan)>;

/**
 * The stream of a link is, field by field: what the edge says; what the block it leaves says; what came into that
 * block; the defaults of its route; 48000 Hz, S16_LE, 2 channels, 10 ms.
 */
Result<GraphPlan> Resolve(GraphDescription graph, PlugIns& plugIns, const AskForStreams& ask);

}  // namespace vorn::graph
