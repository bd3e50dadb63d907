// The same for programs: JSON texts.
#pragma once

#include "LiveGraph.h"

namespace vorn::graph {

std::string JsonOf(const GraphPlan& plan);
std::string JsonOf(const Graph::Result& result);
std::string JsonOf(const GraphPlan& plan, const LiveGraph& live, const Graph::Result& result);
/** A result with what a replay found. */
std::string WithReplay(const std::string& result, const std::vector<Graph::Comparison>& comparisons,
                       const std::string& limit);

}  // namespace vorn::graph
