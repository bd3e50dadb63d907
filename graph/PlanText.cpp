#include "PlanText.h"

#include <algorithm>

#include "StreamText.h"
#include "support/GraphText.h"
#include "support/TextTable.h"

namespace vorn::graph {
namespace {

using support::DotId, support::NodeId;
using support::Row;

std::string FormatOf(const Stream& stream) { return FormatName(static_cast<SampleFormat>(stream.format)); }

std::string Millis(long samples, std::uint32_t rate) {
  const long tenths = (samples * 10'000 + rate / 2) / rate;
  return std::to_string(tenths / 10) + (tenths % 10 ? '.' + std::to_string(tenths % 10) : "") + " ms";
}

std::string Frame(const Stream& stream) {
  return std::to_string(stream.frame) + " samples (" + Millis(stream.frame, stream.rate) + ")";
}

Row RowOf(const GraphPlan& plan, const LinkPlan& link) {
  const auto& nodes = plan.graph.nodes;
  return {plan.graph.routes[link.route].name,
          nodes[link.from].name + ':' + std::to_string(link.out),
          nodes[link.to].name + ':' + std::to_string(link.in),
          std::to_string(link.stream.rate) + " Hz",
          FormatOf(link.stream),
          std::to_string(link.stream.channels) + " ch",
          Frame(link.stream)};
}

Row RowOf(const GraphPlan& plan, const FifoPlan& fifo) {
  const auto& nodes = plan.graph.nodes;
  std::string size = std::to_string(fifo.capacity) + " samples (" + Millis(fifo.capacity, fifo.stream.rate) + ")";
  if (fifo.prefill > 0) size += ", " + std::to_string(fifo.prefill) + " of them silence";
  return {nodes[fifo.node].name,
          nodes[fifo.writer].name,
          nodes[fifo.reader].name,
          std::to_string(fifo.stream.rate) + " Hz",
          FormatOf(fifo.stream),
          std::to_string(fifo.stream.channels) + " ch",
          size};
}

class DotWriter {
 public:
  explicit DotWriter(const GraphPlan& newPlan) : plan(newPlan), nodes(plan.graph.nodes) {}

  std::string Write() {
    dot =
        "digraph vorn {\n  rankdir=LR\n  fontname=Helvetica\n  node [shape=box, fontname=Helvetica]\n"
        "  edge [fontname=Helvetica, fontsize=9]\n";
    for (std::size_t i = 0; i < plan.graph.routes.size(); ++i) Route(i);
    for (const FifoPlan& fifo : plan.fifos) Fifo(fifo);
    return dot + "}\n";
  }

 private:
  void Route(std::size_t route) {
    const std::string& name = plan.graph.routes[route].name;
    dot += "  subgraph cluster_" + name + " {\n    label=" + name + '\n';
    for (const Node& node : nodes) {
      if (!node.isFifo && node.route == route) Block(node);
    }
    for (const LinkPlan& link : plan.links) {
      if (link.route == route) Link(link);
    }
    dot += "  }\n";
  }

  void Block(const Node& node) {
    dot += "    " + NodeId(node.name) + " [block=" + DotId(node.plugIn.text);
    support::BlockText told;
    for (const Word& arg : node.args) told.AddArgument(arg.text);
    for (const Attribute& parameter : node.parameters) told.AddParameter(parameter.name, parameter.value);
    dot += told.ToString() + Flag("first", node.first) + Flag("last", node.last) + Label(node) + "]\n";
  }

  /** Names the plug-in, where the node has another name and both need no quotes. */
  static std::string Label(const Node& node) {
    const std::string& plugIn = node.plugIn.text;
    const bool isPlain = DotId(node.name) == node.name && DotId(plugIn) == plugIn;
    return isPlain && node.name != plugIn ? ", label=\"" + node.name + "\\n" + plugIn + '"' : "";
  }

  static std::string Flag(const std::string& name, std::optional<bool> flag) {
    return flag ? ", " + name + (*flag ? "=true" : "=false") : "";
  }

  void Link(const LinkPlan& link) {
    dot += "    " + NodeId(nodes[link.from].name) + Port(link.from, link.out, &LinkPlan::from) + " -> " +
           NodeId(nodes[link.to].name) + Port(link.to, link.in, &LinkPlan::to) + " [" + Fields(link.stream) +
           ", frame=" + std::to_string(link.stream.frame) + ", label=\"" + Label(link.stream) + "\"]\n";
  }

  static std::string Label(const Stream& stream) {
    return std::to_string(stream.rate) + " Hz\\n" + FormatOf(stream) + "\\n" + std::to_string(stream.channels) + " ch";
  }

  /** Graphviz warns of ports, so they are left out where there is one link only. */
  std::string Port(std::size_t node, std::size_t port, std::size_t LinkPlan::*end) const {
    if (port == 0 && std::ranges::count(plan.links, node, end) == 1) return "";
    return ':' + std::to_string(port);
  }

  static std::string Fields(const Stream& stream) {
    return "rate=" + std::to_string(stream.rate) + ", format=" + FormatOf(stream) +
           ", channels=" + std::to_string(stream.channels);
  }

  void Fifo(const FifoPlan& fifo) {
    const std::string name = NodeId(nodes[fifo.node].name);
    dot += "  " + name + " [shape=ellipse, capacity=" + std::to_string(fifo.capacity) +
           ", prefill=" + std::to_string(fifo.prefill) + "]\n  " + NodeId(nodes[fifo.writer].name) + " -> " + name +
           " -> " + NodeId(nodes[fifo.reader].name) + " [" + Fields(fifo.stream) + "]\n";
  }

  const GraphPlan& plan;
  const std::vector<Node>& nodes;
  std::string dot;
};

}  // namespace

std::string TableOf(const GraphPlan& plan) {
  std::vector<Row> rows{{"ROUTE", "FROM", "TO", "RATE", "FORMAT", "CHANNELS", "FRAME"}};
  for (const LinkPlan& link : plan.links) rows.push_back(RowOf(plan, link));
  if (!plan.fifos.empty()) rows.push_back({"FIFO", "WRITER", "READER", "RATE", "FORMAT", "CHANNELS", "CAPACITY"});
  for (const FifoPlan& fifo : plan.fifos) rows.push_back(RowOf(plan, fifo));

  std::string table;
  for (const std::string& line : support::TextTable(rows)) table += line + '\n';
  return table;
}

std::string DotOf(const GraphPlan& plan) { return DotWriter(plan).Write(); }

}  // namespace vorn::graph
