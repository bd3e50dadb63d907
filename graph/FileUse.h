// The files that the blocks of a graph read and write, as far as the plug-ins say which of their arguments are paths.
#pragma once

#include "GraphPlan.h"

namespace vorn::graph {

/** Refuses a file that is written by one block and read or written by another, under whatever names. */
std::optional<Error> CheckFiles(const GraphPlan& plan);

/** Whether a block writes to standard output: "-". */
bool WritesStandardOutput(const GraphPlan& plan);

}  // namespace vorn::graph
