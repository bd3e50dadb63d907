// Who is linked to whom: ends and ports of the edges, what is first and last, and the order in which streams flow.
#pragma once

#include "GraphPlan.h"

namespace vorn::graph {

/** Sorts the edges of plan.graph into links, with their ports, and FIFOs, with their two users. */
std::optional<Error> Connect(GraphPlan& plan);

/** First and last, and whether every block has the links it needs. After Connect. */
std::optional<Error> CheckEnds(GraphPlan& plan);

/**
 * The blocks in an order in which every stream is known before it is needed.
 *
 * Where FIFOs close a cycle, the reader of one with a prefill comes before its writer, and the FIFO is marked. A cycle
 * of links is an error, and so is one of FIFOs without any prefill.
 */
Result<std::vector<std::size_t>> OrderOfStreams(GraphPlan& plan);

}  // namespace vorn::graph
