// What every sink of a graph must receive, worked out stream by stream without frames, cycles or threads.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "Graph.h"

namespace randomgraphs {

/** A whole stream. Full scale is -1 to 1, channels are interleaved. */
struct Signal {
  long samples = 0;
  unsigned channels = 1;
  std::shared_ptr<const std::vector<double>> levels;  ///< None where only the count is known.
};

/** The first so many samples of a NOISE. */
using NoiseOf = std::function<Signal(const Node&, long samples)>;

/** What a FILE holds, in one round. */
Signal FileContents(const Graph& graph, std::size_t node);

/**
 * By sink.
 *
 * @param lengths of sources that were stopped before their end, by node.
 */
std::map<std::size_t, Signal> ExpectedAtSinks(const Graph& graph, const std::map<std::size_t, long>& lengths,
                                              const NoiseOf& noise);

}  // namespace randomgraphs
