// Finds routes that sleep in FIFOs for ever, because each waits for another of them.
#pragma once

#include <vorn/FIFO.h>

#include "GraphPlan.h"

namespace vorn::graph {

class Standstill {
 public:
  /** The plan outlives it. */
  explicit Standstill(const GraphPlan& newPlan) : plan(newPlan), before(newPlan.fifos.size()) {}

  /**
   * Compares the FIFOs with what they were at the last call.
   *
   * @param now in the order of the plan's.
   * @return who waits for what, when some routes slept all the time in between, and nobody else can wake them.
   */
  std::optional<Error> Look(const std::vector<FIFOState>& now);

 private:
  struct Sleep {
    std::size_t fifo;
    std::size_t waitsFor;  ///< Route.
    bool reads;
  };

  using Sleeps = std::vector<std::optional<Sleep>>;  // by route

  Sleeps FindSleeps(const std::vector<FIFOState>& now) const;
  Error Describe(const Sleeps& sleeps, const std::vector<FIFOState>& now) const;

  const GraphPlan& plan;
  std::vector<FIFOState> before;
};

}  // namespace vorn::graph
