// In which order streams flow through blocks and FIFOs, and where they go round.
#pragma once

#include "GraphPlan.h"

namespace vorn::graph {

/**
 * The blocks in an order in which every stream is known before it is needed. After Connect.
 *
 * Where FIFOs close a cycle, the reader of one of them comes before its writer, and that FIFO is marked: one with a
 * prefill, or one whose reader does not wait, if there is any. Blocks that read what goes round in such a cycle, and
 * nothing else, are marked too. A cycle of links is an error.
 */
Result<std::vector<std::size_t>> OrderOfStreams(GraphPlan& plan);

}  // namespace vorn::graph
