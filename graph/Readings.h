// What the blocks of a graph measured.
#pragma once

#include "LiveGraph.h"

namespace vorn::graph {

using Reading = Graph::Reading;

/** Of one block, in the order of its table. Empty for a block that is not made with the kit. */
std::vector<Reading> ReadingsOf(const GraphPlan& plan, const LiveGraph& live, std::size_t node);

}  // namespace vorn::graph
