// A graph with every question answered: what is left is to build it.
#pragma once

#include "GraphDescription.h"
#include "PlugIns.h"

namespace vorn::graph {

struct BlockPlan {
  PlugIn plugIn;
  bool first = false;
  bool last = false;
  std::vector<std::string> args;  ///< Parameters included, as name=value.
};

struct LinkPlan {
  std::size_t route;
  std::size_t from;  ///< Node.
  std::size_t out;   ///< Port.
  std::size_t to;
  std::size_t in;
  Stream stream;  ///< What the edge says, then settled.
  Origin at;
};

struct FifoPlan {
  static constexpr std::size_t NOBODY = ~std::size_t{0};

  std::size_t node;
  std::size_t writer = NOBODY;  ///< Node.
  std::size_t reader = NOBODY;
  Stream stream{};  ///< What its edges say of it, then settled; the frame is its writer's.
  long capacity = 0;
  long prefill = 0;
  bool closesCycle = false;  ///< Must be read before it is written.
};

struct GraphPlan {
  GraphDescription graph;
  std::vector<BlockPlan> blocks;  ///< By node; that of a FIFO is empty.
  std::vector<LinkPlan> links;    ///< In the order of the edges.
  std::vector<FifoPlan> fifos;    ///< In the order of the nodes.
};

}  // namespace vorn::graph
