// What the blocks of a graph measured.
#pragma once

#include "LiveGraph.h"

namespace vorn::graph {

struct Reading {
  std::string name;
  std::string unit;  ///< Empty: none.
  double value;      ///< NaN where there is nothing to say.
};

/** Of one block, in the order of its table. Empty for a block that is not made with the kit. */
std::vector<Reading> ReadingsOf(const GraphPlan& plan, const LiveGraph& live, std::size_t node);

/** "block 'meter': peak -6.5 dBFS, rms -23.1 dBFS", without what only says how far a block came. Empty: nothing. */
std::string ReadingsText(const GraphPlan& plan, const LiveGraph& live, std::size_t node);

}  // namespace vorn::graph
