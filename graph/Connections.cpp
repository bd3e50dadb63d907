#include "Connections.h"

#include <algorithm>
#include <bit>

#include "Arguments.h"
#include "StreamText.h"

namespace vorn::graph {
namespace {

class Connector {
 public:
  explicit Connector(GraphPlan& newPlan)
      : plan(newPlan), graph(plan.graph), usedOuts(graph.nodes.size()), usedIns(graph.nodes.size()) {}

  std::optional<Error> Connect() {
    plan.routes.resize(graph.routes.size());
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
      if (graph.nodes[i].isFifo) plan.fifos.push_back({i});
    }
    for (const Edge& edge : graph.edges) {
      if (auto error = Sort(edge)) return error;
    }
    for (const FifoPlan& fifo : plan.fifos) {
      if (auto error = CheckUsers(fifo)) return error;
    }
    return AssignPorts();
  }

 private:
  const Node& NodeOf(std::size_t index) const { return graph.nodes[index]; }

  std::optional<Error> Sort(const Edge& edge) {
    const bool fromFifo = NodeOf(edge.from.node).isFifo;
    const bool toFifo = NodeOf(edge.to.node).isFifo;
    if (fromFifo && toFifo) return Error{edge.at, "a FIFO leads to a block, not to another FIFO"};
    if (fromFifo || toFifo) return JoinFifo(edge, toFifo);
    return AddLink(edge);
  }

  std::optional<Error> JoinFifo(const Edge& edge, bool writes) {
    const std::size_t node = writes ? edge.to.node : edge.from.node;
    const auto found = std::ranges::find(plan.fifos, node, &FifoPlan::node);
    const auto index = static_cast<std::size_t>(found - plan.fifos.begin());
    FifoPlan& fifo = *found;
    std::size_t& user = writes ? fifo.writer : fifo.reader;
    const std::string who = Quoted(NodeOf(node).name);
    if (edge.from.port || edge.to.port) return Error{edge.at, "FIFO " + who + " is not joined by a port; leave it out"};
    if (edge.stream.frame > 0) return Error{edge.at, "FIFO " + who + " has no frames; give rate, format or channels"};
    if (user != FifoPlan::NOBODY) {
      return Error{edge.at,
                   "FIFO " + who + " has a second " + (writes ? "writer" : "reader") + "; it takes one of each"};
    }
    if (const auto difference = Compare(fifo.stream, edge.stream); difference.Any()) {
      return Error{edge.at, "FIFO " + who + " is " + Describe(edge.stream, difference) + " here and " +
                                Describe(fifo.stream, difference) + " on its other side"};
    }
    user = writes ? edge.from.node : edge.to.node;
    fifo.stream.Complete(edge.stream);
    if (auto error = CheckUser(edge, user, writes, who)) return error;
    BlockPlan& block = plan.blocks[user];
    (writes ? block.writes : block.reads) = index;
    block.waits = block.plugIn.info && FlagOf(block, "blocking", true);
    RoutePlan& route = plan.routes[NodeOf(user).route];
    (writes ? route.writes : route.reads).push_back(index);
    return std::nullopt;
  }

  std::optional<Error> CheckUser(const Edge& edge, std::size_t user, bool writes, const std::string& fifo) const {
    const BlockPlan& block = plan.blocks[user];
    if (const std::size_t other = writes ? block.writes : block.reads; other != BlockPlan::NO_FIFO) {
      return Error{edge.at, "block " + Quoted(NodeOf(user).name) + (writes ? " writes to" : " reads from") + " FIFO " +
                                Quoted(NodeOf(plan.fifos[other].node).name) + " already; a block takes one"};
    }
    const BlockInfo* info = block.plugIn.info;
    if (!info || info->flags & (writes ? BLOCK_WRITES_FIFO : BLOCK_READS_FIFO)) return std::nullopt;
    return Error{edge.at, "block " + Quoted(NodeOf(user).name) + (writes ? " writes to" : " reads from") +
                              " no FIFO; put a '" + (writes ? "fifosink' before " : "fifosource' behind ") + fifo};
  }

  std::optional<Error> CheckUsers(const FifoPlan& fifo) const {
    for (const auto& [user, what] : {std::pair{fifo.writer, "writer"}, std::pair{fifo.reader, "reader"}}) {
      if (user == FifoPlan::NOBODY) {
        return Error{NodeOf(fifo.node).at, "FIFO " + Quoted(NodeOf(fifo.node).name) + " has no " + what +
                                               "; expected 'writer -> " + NodeOf(fifo.node).name + " -> reader'"};
      }
    }
    return std::nullopt;
  }

  std::optional<Error> AddLink(const Edge& edge) {
    const Node& from = NodeOf(edge.from.node);
    const Node& to = NodeOf(edge.to.node);
    if (from.route != to.route) {
      return Error{edge.at, Quoted(from.name) + " is in " + graph.routes[from.route].name + " and " + Quoted(to.name) +
                                " in " + graph.routes[to.route].name +
                                "; join routes by a FIFO, or write [cut=true] to have one made"};
    }
    if (auto error = Use(usedOuts, edge.from, "output")) return error;
    if (auto error = Use(usedIns, edge.to, "input")) return error;
    plan.links.push_back({from.route, edge.from.node, edge.from.port.value_or(UNASSIGNED), edge.to.node,
                          edge.to.port.value_or(UNASSIGNED), edge.stream, edge.at});
    plan.links.back().stream.linked = 1;
    plan.blocks[edge.from.node].outs.push_back(plan.links.size() - 1);
    plan.blocks[edge.to.node].ins.push_back(plan.links.size() - 1);
    return std::nullopt;
  }

  std::optional<Error> Use(std::vector<std::uint32_t>& used, const End& end, const char* kind) const {
    if (!end.port) return std::nullopt;
    const std::uint32_t bit = 1U << *end.port;
    if (used[end.node] & bit) {
      return Error{end.at, std::string(kind) + ' ' + std::to_string(*end.port) + " of " +
                               Quoted(NodeOf(end.node).name) + " has a link already; an endpoint takes one"};
    }
    used[end.node] |= bit;
    return std::nullopt;
  }

  /** The lowest that no edge names, in the order of the edges. */
  std::optional<Error> AssignPorts() {
    for (LinkPlan& link : plan.links) {
      if (!Assign(usedOuts[link.from], link.out)) return TooMany(link, link.from, "output");
      if (!Assign(usedIns[link.to], link.in)) return TooMany(link, link.to, "input");
    }
    return std::nullopt;
  }

  static bool Assign(std::uint32_t& used, std::size_t& port) {
    if (port != UNASSIGNED) return true;
    if (used == ALL) return false;
    for (port = 0; used >> port & 1U;) ++port;
    used |= 1U << port;
    return true;
  }

  Error TooMany(const LinkPlan& link, std::size_t node, const char* kind) const {
    return {link.at,
            Quoted(NodeOf(node).name) + " has no " + kind + " left; a block has " + std::to_string(Endpoint::COUNT)};
  }

  static constexpr std::size_t UNASSIGNED = ~std::size_t{0};
  static constexpr std::uint32_t ALL = ~std::uint32_t{0};

  GraphPlan& plan;
  const GraphDescription& graph;
  std::vector<std::uint32_t> usedOuts;  // by node, one bit a port
  std::vector<std::uint32_t> usedIns;
};

/** Those that a block cannot do without are its first ones, whatever else is linked. */
std::optional<Error> CheckFirstInputs(const GraphPlan& plan, std::size_t node, std::uint32_t least,
                                      std::uint32_t linked) {
  const auto missing = static_cast<std::uint32_t>(std::countr_one(linked));
  if (missing >= least) return std::nullopt;
  const Node& which = plan.graph.nodes[node];
  return Error{which.at, "block " + Quoted(which.name) + " needs input " + std::to_string(missing) +
                             ", but only others are linked"};
}

/** The ports of one side of a block against what its plug-in says of them. */
std::optional<Error> CheckSide(const GraphPlan& plan, std::size_t node, bool input) {
  const BlockInfo* info = plan.blocks[node].plugIn.info;
  if (!info) return std::nullopt;
  const std::string who = "block " + Quoted(plan.graph.nodes[node].name);
  const std::string kind = input ? "input" : "output";
  const std::uint32_t least = input ? info->minInputs : info->minOutputs;
  const std::uint32_t most = input ? info->maxInputs : info->maxOutputs;
  std::uint32_t linked = 0;
  std::uint32_t ports = 0;  // one bit each
  for (const std::size_t index : input ? plan.blocks[node].ins : plan.blocks[node].outs) {
    const LinkPlan& link = plan.links[index];
    ++linked;
    const std::size_t port = input ? link.in : link.out;
    ports |= 1U << port;
    if (port < most) continue;
    return Error{link.at,
                 who + " has no " + kind + ' ' + std::to_string(port) + "; it has " +
                     (most == 0 ? "none" : std::to_string(most) + (most == 1 ? ", number 0" : ", from number 0"))};
  }
  if (linked >= least) return input ? CheckFirstInputs(plan, node, least, ports) : std::nullopt;
  return Error{plan.graph.nodes[node].at,
               who + " needs " + std::to_string(least) + ' ' + kind + (least == 1 ? "" : "s") +
                   (linked == 0 ? std::string(", but nothing ") + (input ? "leads to it" : "takes from it")
                                : ", but " + std::to_string(linked) + " is linked")};
}

std::optional<Error> CheckFifoUse(const GraphPlan& plan, std::size_t node) {
  const BlockPlan& block = plan.blocks[node];
  const BlockInfo* info = block.plugIn.info;
  if (!info) return std::nullopt;
  const bool reads = info->flags & BLOCK_READS_FIFO && block.reads == BlockPlan::NO_FIFO;
  const bool writes = info->flags & BLOCK_WRITES_FIFO && block.writes == BlockPlan::NO_FIFO;
  if (!reads && !writes) return std::nullopt;
  const std::string& name = plan.graph.nodes[node].name;
  return Error{plan.graph.nodes[node].at, "block " + Quoted(name) +
                                              " has no FIFO; add 'f [shape=ellipse]' and an edge " +
                                              (reads ? "'f -> " + name + "'" : "'" + name + " -> f'")};
}

/** What the file says of first or last, against the links and the plug-in. @param open nothing: it follows from them. */
std::optional<Error> CheckOpenEnd(const GraphPlan& plan, std::size_t node, bool input, std::optional<bool> open) {
  const BlockInfo* info = plan.blocks[node].plugIn.info;
  const bool isOpen = (input ? plan.blocks[node].ins : plan.blocks[node].outs).empty();
  const bool mustBeClosed = info && (input ? info->minInputs : info->minOutputs) > 0;
  if (!open || (*open ? !mustBeClosed : !isOpen)) return std::nullopt;
  const std::string which = input ? "first" : "last";
  const std::string kind = input ? "input" : "output";
  const Node& block = plan.graph.nodes[node];
  return Error{block.at, "block " + Quoted(block.name) + ": " + which +
                             (*open ? "=true, but it needs an " + kind : "=false, but no " + kind + " is linked") +
                             "; leave '" + which + "' out"};
}

}  // namespace

std::optional<Error> Connect(GraphPlan& plan) { return Connector(plan).Connect(); }

std::optional<Error> CheckEnds(GraphPlan& plan) {
  for (std::size_t i = 0; i < plan.graph.nodes.size(); ++i) {
    const Node& node = plan.graph.nodes[i];
    if (node.isFifo) continue;
    if (auto error = CheckFifoUse(plan, i)) return error;
    if (auto error = CheckSide(plan, i, true)) return error;
    if (auto error = CheckSide(plan, i, false)) return error;
    if (auto error = CheckOpenEnd(plan, i, true, node.first)) return error;
    if (auto error = CheckOpenEnd(plan, i, false, node.last)) return error;
    BlockPlan& block = plan.blocks[i];
    block.first = node.first.value_or(block.ins.empty());
    block.last = node.last.value_or(block.outs.empty());
    if (block.first) plan.routes[node.route].firsts.push_back(i);
  }
  return std::nullopt;
}

}  // namespace vorn::graph
