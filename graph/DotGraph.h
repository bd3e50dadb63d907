// Reads the DOT language, or as much of it as a graph of blocks needs, into nodes, edges and attributes. What they mean
// is GraphFile's affair; this reader makes sure that they are the ones Graphviz draws. What it does not know it
// refuses.
#pragma once

#include <string_view>

#include "GraphDescription.h"

namespace vorn::graph {

struct DotNode {
  std::string name;
  Origin at;
  std::vector<Attribute> attributes;
  std::optional<std::size_t> cluster;
};

struct DotEdge {
  End from;
  End to;
  Origin at;
  std::vector<Attribute> attributes;
};

struct DotCluster {
  std::string name;  ///< Without cluster_.
  Origin at;
  std::vector<Attribute> attributes;
};

struct DotGraph {
  std::vector<Attribute> attributes;
  std::vector<DotCluster> clusters;
  std::vector<DotNode> nodes;  ///< As they are met.
  std::vector<DotEdge> edges;
};

/** @param file how messages call the text. */
Result<DotGraph> ReadDot(std::string_view text, const std::string& file);

}  // namespace vorn::graph
