// A graph as the generator makes it: what stands in its file, and what each block makes of its streams.
#pragma once

#include <algorithm>
#include <functional>

#include "Signal.h"

namespace randomgraphs {

struct Feed {
  std::size_t node;
  std::size_t port;
};

struct Node;
/** What leaves each output, of what comes into each input; what a sink gets. */
using Law = std::function<Signals(const Node&, const Signals&)>;

struct Node {
  std::string block;  ///< Empty for a FIFO.
  std::string args = {};
  Law law = {};
  std::size_t route = 0;
  std::vector<Feed> in = {};                               ///< By input; of nodes before this one, or of a loop.
  vorn::SampleFormat format = vorn::SampleFormat::S16_LE;  ///< of what leaves; of what comes into a sink
  unsigned channels = 1;
  long amount = 0;         ///< by which the stream is later; of a source, how many samples it plays
  long contents = 0;       ///< of a file that is played
  std::size_t tap = 0;     ///< of a file that is played: a sink that gets the same; 0 for none
  long loop = 0;           ///< of a sum: the last input is the sum itself, so many samples later; 0 for none
  std::string links = {};  ///< Attributes of the links that leave it.
  long capacity = 0;       ///< of a FIFO; 0: left to the planner
  bool isCutOff = false;   ///< from the node that its one link comes from
};

/** How a run ends. */
enum class Ending { BY_ITSELF, DURATION, SIGNAL };

struct Graph {
  std::vector<Node> nodes;
  long frame = 480;                ///< the default of the file
  std::vector<std::size_t> order;  ///< in which the nodes stand in the file
  Ending ending = Ending::BY_ITSELF;
  long endMicros = 0;  ///< after which duration, or how long after the first samples were written
};

std::string NameOf(std::size_t node);
/** Of the file that a `filesource` plays or a `filesink` writes. */
std::string FileOf(std::size_t node);

/** The graph file. */
std::string DotText(const Graph& graph);

/** The nodes of that block. */
std::vector<std::size_t> NodesOf(const Graph& graph, const std::string& block);

/** What every sink must receive, by node. */
std::map<std::size_t, Signal> ExpectedAtSinks(const Graph& graph);

}  // namespace randomgraphs
