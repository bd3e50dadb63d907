#include "Connections.h"

#include <algorithm>
#include <bit>

#include "StreamText.h"

namespace vorn::graph {
namespace {

class Connector {
 public:
  explicit Connector(GraphPlan& newPlan)
      : plan(newPlan), graph(plan.graph), usedOuts(graph.nodes.size()), usedIns(graph.nodes.size()) {}

  std::optional<Error> Connect() {
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
    FifoPlan& fifo = *std::ranges::find(plan.fifos, node, &FifoPlan::node);
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
    return CheckUser(edge, user, writes, who);
  }

  std::optional<Error> CheckUser(const Edge& edge, std::size_t user, bool writes, const std::string& fifo) const {
    const BlockInfo* info = plan.blocks[user].plugIn.info;
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
                                "; join routes by a FIFO: a node with shape=ellipse"};
    }
    if (auto error = Use(usedOuts, edge.from, "output")) return error;
    if (auto error = Use(usedIns, edge.to, "input")) return error;
    plan.links.push_back({from.route, edge.from.node, edge.from.port.value_or(UNASSIGNED), edge.to.node,
                          edge.to.port.value_or(UNASSIGNED), edge.stream, edge.at});
    plan.links.back().stream.linked = 1;
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
  for (const LinkPlan& link : plan.links) {
    if ((input ? link.to : link.from) != node) continue;
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
  const BlockInfo* info = plan.blocks[node].plugIn.info;
  if (!info) return std::nullopt;
  const auto uses = [&](std::size_t FifoPlan::*user) {
    return std::ranges::find(plan.fifos, node, user) != plan.fifos.end();
  };
  const bool reads = info->flags & BLOCK_READS_FIFO && !uses(&FifoPlan::reader);
  const bool writes = info->flags & BLOCK_WRITES_FIFO && !uses(&FifoPlan::writer);
  if (!reads && !writes) return std::nullopt;
  const std::string& name = plan.graph.nodes[node].name;
  return Error{plan.graph.nodes[node].at, "block " + Quoted(name) +
                                              " has no FIFO; add 'f [shape=ellipse]' and an edge " +
                                              (reads ? "'f -> " + name + "'" : "'" + name + " -> f'")};
}

/** What the file says of first or last, against the links and the plug-in. @param open nothing: it follows from them. */
std::optional<Error> CheckOpenEnd(const GraphPlan& plan, std::size_t node, bool input, std::optional<bool> open) {
  const std::size_t LinkPlan::*const end = input ? &LinkPlan::to : &LinkPlan::from;
  const BlockInfo* info = plan.blocks[node].plugIn.info;
  const bool isOpen = std::ranges::find(plan.links, node, end) == plan.links.end();
  const bool mustBeClosed = info && (input ? info->minInputs : info->minOutputs) > 0;
  if (!open || (*open ? !mustBeClosed : !isOpen)) return std::nullopt;
  const std::string which = input ? "first" : "last";
  const std::string kind = input ? "input" : "output";
  const Node& block = plan.graph.nodes[node];
  return Error{block.at, "block " + Quoted(block.name) + ": " + which +
                             (*open ? "=true, but it needs an " + kind : "=false, but no " + kind + " is linked") +
                             "; leave '" + which + "' out"};
}

class Order {
 public:
  explicit Order(GraphPlan& newPlan)
      : plan(newPlan), waitsFor(plan.graph.nodes.size()), feeds(plan.graph.nodes.size()) {
    for (const LinkPlan& link : plan.links) Add(link.from, link.to);
  }

  Result<std::vector<std::size_t>> Make() {
    if (!Visit().empty()) return Cycle();
    for (const FifoPlan& fifo : plan.fifos) Add(fifo.writer, fifo.reader);
    for (auto rest = Visit(); !rest.empty(); rest = Visit()) {
      FifoPlan* opened = PrefilledInto(rest);
      if (!opened) return FifoCycle(rest);
      opened->closesCycle = true;
      std::erase(waitsFor[opened->reader], opened->writer);
      std::erase(feeds[opened->writer], opened->reader);
    }
    return order;
  }

 private:
  void Add(std::size_t from, std::size_t to) {
    feeds[from].push_back(to);
    waitsFor[to].push_back(from);
  }

  /** Puts into order what can be. @return what waits for itself, and what waits for that. */
  std::vector<std::size_t> Visit() {
    order.clear();
    std::vector<std::size_t> missing(waitsFor.size());
    for (std::size_t i = 0; i < waitsFor.size(); ++i) {
      missing[i] = waitsFor[i].size();
      if (missing[i] == 0 && !plan.graph.nodes[i].isFifo) order.push_back(i);
    }
    for (std::size_t i = 0; i < order.size(); ++i) {
      for (const std::size_t next : feeds[order[i]]) {
        if (--missing[next] == 0) order.push_back(next);
      }
    }
    std::vector<std::size_t> rest;
    for (std::size_t i = 0; i < missing.size(); ++i) {
      if (missing[i] > 0) rest.push_back(i);
    }
    return rest;
  }

  /** From anything that is left, back along what it waits for, until a block comes again. */
  Error Cycle() {
    const auto rest = Visit();
    std::vector<std::size_t> path{rest.front()};
    while (std::ranges::count(path, path.back()) == 1) {
      path.push_back(*std::ranges::find_if(
          waitsFor[path.back()], [&](std::size_t from) { return std::ranges::find(rest, from) != rest.end(); }));
    }
    path.erase(path.begin(), std::ranges::find(path, path.back()));
    const auto closing = std::ranges::find_if(
        plan.links, [&](const LinkPlan& link) { return link.from == path[1] && link.to == path[0]; });
    std::ranges::reverse(path);
    std::string text;
    for (const std::size_t node : path) text += (text.empty() ? "" : " -> ") + plan.graph.nodes[node].name;
    return {closing->at, text + " is a cycle; close it by a FIFO with a prefill, or not at all"};
  }

  FifoPlan* PrefilledInto(const std::vector<std::size_t>& rest) {
    const auto isIn = [&](std::size_t node) { return std::ranges::find(rest, node) != rest.end(); };
    const auto found = std::ranges::find_if(plan.fifos, [&](const FifoPlan& fifo) {
      return !fifo.closesCycle && plan.graph.nodes[fifo.node].prefill > 0 && isIn(fifo.reader) && isIn(fifo.writer);
    });
    return found == plan.fifos.end() ? nullptr : &*found;
  }

  Error FifoCycle(const std::vector<std::size_t>& rest) const {
    for (const FifoPlan& fifo : plan.fifos) {
      if (std::ranges::find(rest, fifo.reader) == rest.end()) continue;
      const Node& node = plan.graph.nodes[fifo.node];
      return {node.at,
              "FIFO " + Quoted(node.name) + " closes a cycle, in which everybody would wait; give it a prefill"};
    }
    return {plan.graph.at, "a cycle"};
  }

  GraphPlan& plan;
  std::vector<std::vector<std::size_t>> waitsFor;  // by node
  std::vector<std::vector<std::size_t>> feeds;
  std::vector<std::size_t> order;
};

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
    plan.blocks[i].first = node.first.value_or(std::ranges::find(plan.links, i, &LinkPlan::to) == plan.links.end());
    plan.blocks[i].last = node.last.value_or(std::ranges::find(plan.links, i, &LinkPlan::from) == plan.links.end());
  }
  return std::nullopt;
}

Result<std::vector<std::size_t>> OrderOfStreams(GraphPlan& plan) { return Order(plan).Make(); }

}  // namespace vorn::graph
