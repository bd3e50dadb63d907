// A graph with every question answered: what is left is to build it.
#pragma once

#include "GraphDescription.h"
#include "PlugIns.h"

namespace vorn::graph {

struct BlockPlan {
  static constexpr std::size_t NO_FIFO = ~std::size_t{0};

  PlugIn plugIn;
  bool first = false;
  bool last = false;
  bool follows = false;           ///< Nothing comes out of its FIFO but what goes round in a loop: see FollowLoop.
  std::vector<std::string> args;  ///< Parameters included, as name=value.

  std::vector<std::size_t> ins;  ///< Links, in the order of the edges.
  std::vector<std::size_t> outs;
  std::size_t reads = NO_FIFO;
  std::size_t writes = NO_FIFO;
  bool waits = false;     ///< For its FIFO, as far as is known.
  bool takesAny = false;  ///< A reader: waits for one sample; otherwise for a frame.
};

/** What feeds a route, and what it feeds. */
struct RoutePlan {
  std::vector<std::size_t> firsts;  ///< Nodes.
  std::vector<std::size_t> reads;   ///< FIFOs, those within the route included.
  std::vector<std::size_t> writes;
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
  Stream stream{};  ///< What its edges say of it, then settled; the frame is the longer one of the next two.
  long writtenFrame = 0;
  long readFrame = 0;
  long capacity = 0;
  long prefill = 0;
  bool closesCycle = false;  ///< Must be read before it is written.
  bool isFedByLoop = false;  ///< It closes a cycle that no source feeds: what is in it goes round for ever.
};

struct GraphPlan {
  GraphDescription graph;
  std::vector<RoutePlan> routes;  ///< By route.
  std::vector<BlockPlan> blocks;  ///< By node; that of a FIFO is empty.
  std::vector<LinkPlan> links;    ///< In the order of the edges.
  std::vector<FifoPlan> fifos;    ///< In the order of the nodes.
};

}  // namespace vorn::graph
