// A graph as the generator makes it: what stands in its file, and what each block does to the samples.
#pragma once

#include <vorn/Block.h>

namespace randomgraphs {

/** What a block does to a stream, in the words of the model. */
enum class Work {
  FILE,      ///< plays a file whose sample k vouches for itself
  TONE,      ///< `tone square`
  SAME,      ///< passes samples on: gain 0, level, reframe, tee, an end of a FIFO
  SILENCE,   ///< as many, all zero
  DELAY,     ///< `amount` zeros, then the stream
  SUM,       ///< mix
  REMAP,     ///< as `map` says
  CONVERT,   ///< to `format`
  RESAMPLE,  ///< from one rate to another: only the count is known
  FIFO,      ///< `amount` zeros, then the stream
  LOOP,      ///< reads a FIFO that its own output fills; see Node::loop
  FILE_SINK,
  NULL_SINK,
};

/** A channel of an input, or its inverse. */
struct Term {
  std::size_t input;
  std::size_t channel;
  bool inverted;
};
/** By output and channel: the terms that are added. */
using ChannelMap = std::vector<std::vector<std::vector<Term>>>;

struct Feed {
  std::size_t node;
  std::size_t port;
};

struct Node {
  Work work;
  std::string block;  ///< Empty for a FIFO.
  std::string args = {};
  std::size_t route = 0;
  std::vector<Feed> in = {};                               ///< By input; always of nodes before this one, but for LOOP.
  vorn::SampleFormat format = vorn::SampleFormat::S16_LE;  ///< of what leaves; of what comes into a sink
  unsigned channels = 1;
  long amount = 0;
  std::array<unsigned, 2> rates = {};  ///< of RESAMPLE
  long period = 0;                     ///< of TONE, in samples
  bool endless = false;                ///< FILE: starts over and over
  std::size_t tap = 0;                 ///< FILE: a sink that gets the same; 0 for none
  std::vector<bool> muted = {};        ///< SUM: by input
  ChannelMap map = {};
  /** SUM: the last input is the sum itself, so many samples later; 0 for none. Such a loop adds nothing to its length. */
  long loop = 0;
  std::string links = {};  ///< Attributes of the links that leave it.
  long capacity = 0;       ///< FIFO; 0: left to the planner
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
/** Of the file that a FILE plays or a FILE_SINK writes. */
std::string FileOf(std::size_t node);

/** The graph file. */
std::string DotText(const Graph& graph);
std::string MapText(const ChannelMap& map);

/** The sinks of these kinds. */
std::vector<std::size_t> NodesOf(const Graph& graph, Work work);

}  // namespace randomgraphs
