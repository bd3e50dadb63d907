// The same for programs: JSON texts.
#pragma once

#include "LiveGraph.h"

namespace vorn::graph {

std::string JsonOf(const GraphPlan& plan);
std::string JsonOf(const Graph::Result& result);
std::string JsonOf(const GraphPlan& plan, const LiveGraph& live, const Graph::Result& result);

}  // namespace vorn::graph
