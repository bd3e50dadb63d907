// How far a graph has come, from what its blocks count.
#pragma once

#include "LiveGraph.h"

namespace vorn::graph {

using Figures = Graph::Figures;

/** Of a route, where the source that is farthest counts; where no source counts, the sinks. Any time. */
Figures FiguresOf(const GraphPlan& plan, const LiveGraph& live, std::size_t route);

/** Of all routes: the longest audio, and all frames. */
Figures FiguresOf(const GraphPlan& plan, const LiveGraph& live);

}  // namespace vorn::graph
