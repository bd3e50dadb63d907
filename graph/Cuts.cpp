#include "Cuts.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <set>

namespace vorn::graph {
namespace {

class Cutter {
 public:
  explicit Cutter(GraphDescription& newGraph) : graph(newGraph), joined(graph.nodes.size()) {
    std::iota(joined.begin(), joined.end(), std::size_t{0});
  }

  std::optional<Error> Cut() {
    for (const Edge& edge : graph.edges) {
      const bool isInRoute = NodeOf(edge.from).route == NodeOf(edge.to).route;
      if (!edge.isCut && isInRoute) joined[PartOf(edge.from.node)] = PartOf(edge.to.node);
    }
    for (const Edge& edge : graph.edges) {
      if (!edge.isCut) continue;
      if (auto error = CheckSides(edge)) return error;
      for (const End& end : {edge.from, edge.to}) {
        if (auto error = GiveRoute(end.node, edge.at)) return error;
      }
    }
    for (std::size_t i = 0; i < joined.size(); ++i) {
      const auto route = routes.find(PartOf(i));
      if (route != routes.end()) graph.nodes[i].route = route->second;
    }
    Replace();
    return std::nullopt;
  }

 private:
  const Node& NodeOf(const End& end) const { return graph.nodes[end.node]; }

  /** One node stands for all that are joined. */
  std::size_t PartOf(std::size_t node) {
    while (joined[node] != node) node = joined[node] = joined[joined[node]];
    return node;
  }

  std::optional<Error> CheckSides(const Edge& edge) {
    if (NodeOf(edge.from).isFifo || NodeOf(edge.to).isFifo)
      return Error{edge.at, "a FIFO joins threads as it is; leave 'cut' out"};
    if (PartOf(edge.from.node) != PartOf(edge.to.node)) return std::nullopt;
    const std::string from = Quoted(NodeOf(edge.from).name), to = Quoted(NodeOf(edge.to).name);
    return Error{edge.at, "blocks " + from + " and " + to + " are joined on another way too; cut that as well"};
  }

  /** The first part of a route stays there. */
  std::optional<Error> GiveRoute(std::size_t node, const Origin& at) {
    const std::size_t old = graph.nodes[node].route;
    const auto [part, isNew] = routes.emplace(PartOf(node), old);
    if (!isNew || kept.insert(old).second) return std::nullopt;
    RouteDescription route{"RouteA", graph.routes[old].defaults, at};
    while (std::ranges::find(graph.routes, route.name, &RouteDescription::name) != graph.routes.end()) {
      if (++route.name.back() > 'Z') return Error{at, "a graph has 26 routes, cuts included; this would be one more"};
    }
    part->second = graph.routes.size();
    graph.routes.push_back(route);
    return std::nullopt;
  }

  void Replace() {
    std::vector<Edge> edges;
    for (const Edge& edge : graph.edges) {
      if (!edge.isCut) {
        edges.push_back(edge);
        continue;
      }
      const std::string name = FreeName();
      const End sink = Add(name + "_sink", "fifosink", NodeOf(edge.from).route, edge.at);
      const End fifo = Add(name, "", Node::NO_ROUTE, edge.at);
      const End source = Add(name + "_source", "fifosource", NodeOf(edge.to).route, edge.at);
      edges.push_back({edge.from, sink, edge.stream, edge.at});
      edges.push_back({sink, fifo, {}, edge.at});
      edges.push_back({fifo, source, {}, edge.at});
      edges.push_back({source, edge.to, edge.stream, edge.at});
    }
    graph.edges = std::move(edges);
  }

  std::string FreeName() {
    const auto isTaken = [this](const std::string& name) {
      return std::ranges::any_of(graph.nodes, [&](const Node& node) { return node.name.starts_with(name); });
    };
    std::string name;
    do name = "cut" + std::to_string(cuts++);
    while (isTaken(name));
    return name;
  }

  End Add(const std::string& name, const char* plugIn, std::size_t route, const Origin& at) {
    Node node;
    node.name = name;
    node.at = at;
    node.isFifo = route == Node::NO_ROUTE;
    node.route = route;
    node.plugIn = {plugIn, at};
    graph.nodes.push_back(node);
    return {graph.nodes.size() - 1, std::nullopt, at};
  }

  GraphDescription& graph;
  std::vector<std::size_t> joined;            // by node: another one of its part, or itself
  std::map<std::size_t, std::size_t> routes;  // by part, of those that a cut ends
  std::set<std::size_t> kept;                 // routes that have a part already
  std::size_t cuts = 0;
};

}  // namespace

std::optional<Error> Cut(GraphDescription& graph) { return Cutter(graph).Cut(); }

}  // namespace vorn::graph
