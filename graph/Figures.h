// How far a graph has come, from what its blocks count.
#pragma once

#include "LiveGraph.h"

namespace vorn::graph {

struct Figures {
  bool areKnown = false;  ///< Whether any block counts.
  std::uint64_t frames = 0;
  std::uint64_t errorFrames = 0;
  double seconds = 0;            ///< Of audio.
  std::optional<double> length;  ///< Seconds until all sources have ended, when all of them know.
};

/** Of a route, where the source that is farthest counts; where no source counts, the sinks. Any time. */
Figures FiguresOf(const GraphPlan& plan, const LiveGraph& live, std::size_t route);

/** Of all routes: the longest audio, and all frames. */
Figures FiguresOf(const GraphPlan& plan, const LiveGraph& live);

}  // namespace vorn::graph
