// Who is linked to whom: ends and ports of the edges, and what is first and last.
#pragma once

#include "GraphPlan.h"

namespace vorn::graph {

/** Sorts the edges of plan.graph into links, with their ports, and FIFOs, with their two users. */
std::optional<Error> Connect(GraphPlan& plan);

/** First and last, and whether every block has the links it needs. After Connect. */
std::optional<Error> CheckEnds(GraphPlan& plan);

}  // namespace vorn::graph
