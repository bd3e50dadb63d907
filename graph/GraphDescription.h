// What a graph is, as its author wrote it: the readers make one of these from a one-liner or a graph file, and
// everything after them works on it. Plain data; every piece knows where it was written, so that any later complaint
// can say so.
#pragma once

#include <vorn/Graph.h>
#include <vorn/kit/Streams.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vorn::graph {

using Origin = Graph::Place;
using Error = Graph::Error;

template <class T>
using Result = std::variant<T, Error>;

/** For messages. */
inline std::string Quoted(const std::string& name) { return "'" + name + "'"; }

struct Word {
  std::string text;
  Origin at;
};

struct Attribute {
  std::string name;
  std::string value;
  Origin at;
  Origin valueAt;
};

struct Node {
  static constexpr std::size_t NO_ROUTE = ~std::size_t{0};

  std::string name;
  Origin at;
  bool isFifo = false;

  // A block:
  std::size_t route = NO_ROUTE;  ///< Index among the routes.
  Word plugIn;                   ///< Short name or file name of the plug-in.
  std::vector<Word> args;
  std::vector<Attribute> parameters;
  std::optional<bool> first;  ///< Nothing: it follows from the edges.
  std::optional<bool> last;

  // A FIFO, in samples:
  std::optional<long> capacity;
  long prefill = 0;
};

/** One end of an edge. */
struct End {
  std::size_t node = 0;
  std::optional<std::size_t> port;  ///< Nothing: the lowest that is free.
  Origin at;
};

struct Edge {
  End from;
  End to;
  Stream stream;  ///< What the edge says; the rest is not known.
  Origin at;
  bool isCut = false;  ///< Its two ends are to run in threads of their own: see Cuts.h.
};

struct RouteDescription {
  std::string name;  ///< RouteA to RouteZ.
  Stream defaults;
  Origin at;
};

struct GraphDescription {
  Origin at;
  std::vector<RouteDescription> routes;
  std::vector<Node> nodes;
  std::vector<Edge> edges;
};

}  // namespace vorn::graph
