// A smaller graph that still fails.
#pragma once

#include <functional>

#include "Graph.h"

namespace randomgraphs {

/** Leaves out blocks for as long as what is left fails. @param fails tries a graph. */
Graph Shrunk(Graph graph, const std::function<bool(const Graph&)>& fails);

}  // namespace randomgraphs
