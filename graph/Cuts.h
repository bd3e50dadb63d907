// Cuts links, so that the two sides of each run in threads of their own.
#pragma once

#include "GraphDescription.h"

namespace vorn::graph {

/**
 * Puts a FIFO with its writer and reader in the place of each edge that says `cut`, and the blocks that are still
 * joined into routes of their own.
 */
std::optional<Error> Cut(GraphDescription& graph);

}  // namespace vorn::graph
