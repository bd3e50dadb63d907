// Counts how far the routes of a graph get before FIFOs stop them.
#pragma once

#include "GraphPlan.h"

namespace vorn::graph {

struct Wait {
  std::size_t fifo = 0;
  bool forRoom = false;  ///< Its writer waits; otherwise its reader does, for samples.

  bool operator==(const Wait&) const = default;
};

/**
 * Where a graph stands still for good. Its streams and FIFOs are settled.
 *
 * In every cycle of a route each of its sources gives one frame, and the sources that read a FIFO wait for theirs
 * before anything is written. Whatever is not known of a block counts in favour of the graph, so that each deadlock
 * that is found here happens, unless a stream of unknown length ends before.
 *
 * @param order of streams.
 * @return a circle of waits, each of which only the next one could end; empty: there is none.
 */
std::vector<Wait> FindDeadlock(const GraphPlan& plan, const std::vector<std::size_t>& order);

}  // namespace vorn::graph
