// A resolved graph as people and programs read it.
#pragma once

#include "GraphPlan.h"

namespace vorn::graph {

/** One line a link and a FIFO, with their streams. */
std::string TableOf(const GraphPlan& plan);

/** A graph file of the same graph with nothing left open: reading it gives this plan again. */
std::string DotOf(const GraphPlan& plan);

}  // namespace vorn::graph
