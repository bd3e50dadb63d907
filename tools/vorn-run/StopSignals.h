// The signals that ask a program to end.
#pragma once

#include <vorn/Graph.h>

namespace vorn::run {

/**
 * Turns the first of SIGINT, SIGTERM and SIGHUP into a stop of a graph. Another one ends the program at once: it may be
 * the stop that hangs. A signal that was ignored before stays ignored. One at a time.
 */
class StopSignals {
 public:
  /** @param graph outlives this. */
  explicit StopSignals(Graph& graph);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
};

}  // namespace vorn::run
