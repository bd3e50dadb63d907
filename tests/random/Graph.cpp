#include "Graph.h"

#include <sstream>

namespace randomgraphs {
namespace {

bool IsFifo(const Node& node) { return node.block.empty(); }

void WriteNode(std::ostream& to, const Graph& graph, std::size_t index) {
  const Node& node = graph.nodes[index];
  to << "    " << NameOf(index) << " [block=" << node.block;
  if (!node.args.empty()) to << ", args=\"" << node.args << '"';
  to << "]\n";
}

void WriteFifo(std::ostream& to, const Node& fifo, std::size_t index) {
  to << "  " << NameOf(index) << " [shape=ellipse";
  if (fifo.capacity > 0) to << ", capacity=" << fifo.capacity;
  if (fifo.amount > 0) to << ", prefill=" << fifo.amount;
  to << "]\n";
}

void WriteRoute(std::ostream& to, const Graph& graph, std::size_t route) {
  bool isEmpty = true;
  for (const std::size_t i : graph.order) {
    if (IsFifo(graph.nodes[i]) || graph.nodes[i].route != route) continue;
    if (isEmpty) to << "  subgraph cluster_Route" << static_cast<char>('A' + route) << " {\n";
    isEmpty = false;
    WriteNode(to, graph, i);
  }
  if (!isEmpty) to << "  }\n";
}

void WriteLinks(std::ostream& to, const Graph& graph, std::size_t index) {
  const Node& node = graph.nodes[index];
  for (std::size_t i = 0; i < node.in.size(); ++i) {
    const Feed& feed = node.in[i];
    const bool joinsFifo = IsFifo(node) || IsFifo(graph.nodes[feed.node]);
    to << "  " << NameOf(feed.node);
    if (!joinsFifo) to << ':' << feed.port;
    to << " -> " << NameOf(index);
    if (!joinsFifo) to << ':' << i;
    to << " [" << graph.nodes[feed.node].links << (node.isCutOff ? " cut=true" : "") << "]\n";
  }
}

}  // namespace

std::string NameOf(std::size_t node) { return "n" + std::to_string(node); }
std::string FileOf(std::size_t node) { return NameOf(node) + ".raw"; }

std::string DotText(const Graph& graph) {
  std::ostringstream text;
  text << "digraph {\n  frame=" << graph.frame << "\n  node [shape=box]\n";
  for (std::size_t route = 0; route < 26; ++route) WriteRoute(text, graph, route);
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
    if (IsFifo(graph.nodes[i])) WriteFifo(text, graph.nodes[i], i);
  }
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) WriteLinks(text, graph, i);
  text << "}\n";
  return text.str();
}

std::vector<std::size_t> NodesOf(const Graph& graph, const std::string& block) {
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
    if (graph.nodes[i].block == block) found.push_back(i);
  }
  return found;
}

std::map<std::size_t, Signal> ExpectedAtSinks(const Graph& graph) {
  std::vector<Signals> outputs;
  for (const Node& node : graph.nodes) {
    Signals in;
    for (const Feed& feed : node.in) {
      if (feed.node < outputs.size()) in.push_back(outputs[feed.node][feed.port]);  // else it is a loop
    }
    outputs.push_back(node.law(node, in));
  }
  std::map<std::size_t, Signal> sinks;
  for (const char* block : {"filesink", "null"}) {
    for (const std::size_t sink : NodesOf(graph, block)) sinks[sink] = outputs[sink][0];
  }
  return sinks;
}

}  // namespace randomgraphs
