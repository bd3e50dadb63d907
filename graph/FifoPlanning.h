// What FIFOs carry, how large they are, and whether the routes that they join can run.
#pragma once

#include "GraphPlan.h"

namespace vorn::graph {

/** The stream that comes to a FIFO, as far as it is settled. */
Stream StreamInto(const GraphPlan& plan, const FifoPlan& fifo);

/** Settles streams and sizes of the FIFOs. @param order of the streams, which are all settled. @return why it cannot run. */
std::optional<Error> PlanFifos(GraphPlan& plan, const std::vector<std::size_t>& order);

}  // namespace vorn::graph
