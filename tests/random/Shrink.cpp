#include "Shrink.h"

#include <algorithm>
#include <optional>

namespace randomgraphs {
namespace {

bool IsSink(const Node& node) { return node.work == Work::FILE_SINK || node.work == Work::NULL_SINK; }

/** Whether a line may do as well. What is in a loop says how late the loop is. */
bool MayBeLine(const Graph& graph, const Node& node) {
  if (node.in.size() != 1 || node.block.starts_with("fifo")) return false;
  const bool isLate = node.work == Work::DELAY && NodesOf(graph, Work::LOOP).empty();
  return node.work == Work::SAME || node.work == Work::SILENCE || node.work == Work::SUM || isLate;
}

std::vector<std::size_t> UsersOf(const Graph& graph, std::size_t node) {
  std::vector<std::size_t> users;
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
    const auto& in = graph.nodes[i].in;
    if (std::any_of(in.begin(), in.end(), [&](const Feed& feed) { return feed.node == node; })) users.push_back(i);
  }
  return users;
}

/** Without the nodes that are named, to which nothing leads any more. */
Graph Without(const Graph& graph, const std::vector<bool>& gone) {
  std::vector<std::size_t> place(gone.size());
  for (std::size_t i = 0, next = 0; i < gone.size(); ++i) place[i] = gone[i] ? 0 : next++;
  Graph rest = graph;
  rest.nodes.clear();
  rest.order.clear();
  for (std::size_t i = 0; i < gone.size(); ++i) {
    if (gone[i]) continue;
    Node node = graph.nodes[i];
    for (Feed& feed : node.in) feed.node = place[feed.node];
    node.tap = place[node.tap];
    if (node.work == Work::FILE) node.args.replace(0, FileOf(i).size(), FileOf(place[i]));
    if (node.work == Work::FILE_SINK) node.args = FileOf(place[i]);
    rest.nodes.push_back(std::move(node));
  }
  for (const std::size_t i : graph.order) {
    if (!gone[i]) rest.order.push_back(place[i]);
  }
  return rest;
}

/** The nodes without which no sink would miss anything. */
std::vector<bool> Unwanted(const Graph& graph) {
  std::vector<bool> unwanted(graph.nodes.size(), true);
  std::vector<std::size_t> wanted;
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
    if (IsSink(graph.nodes[i])) wanted.push_back(i);
  }
  while (!wanted.empty()) {
    const std::size_t node = wanted.back();
    wanted.pop_back();
    if (!unwanted[node]) continue;
    unwanted[node] = false;
    if (graph.nodes[node].tap != 0) wanted.push_back(graph.nodes[node].tap);
    for (const Feed& feed : graph.nodes[node].in) wanted.push_back(feed.node);
  }
  return unwanted;
}

std::optional<Graph> WithoutSink(const Graph& graph, std::size_t sink) {
  Graph other = graph;
  other.nodes[sink].work = Work::SAME;
  const std::vector<bool> gone = Unwanted(other);
  if (std::count(gone.begin(), gone.end(), true) == static_cast<long>(gone.size())) return std::nullopt;
  return gone[sink] ? std::optional(Without(graph, gone)) : std::nullopt;
}

Graph WithLine(const Graph& graph, std::size_t index) {
  Graph other = graph;
  const Feed from = graph.nodes[index].in[0];
  for (Node& node : other.nodes) {
    for (Feed& feed : node.in) {
      if (feed.node == index) feed = from;
    }
  }
  std::vector<bool> gone(graph.nodes.size());
  gone[index] = true;
  return Without(other, gone);
}

/** A join with one input less. */
std::optional<Graph> WithoutInput(const Graph& graph, std::size_t index, std::size_t input) {
  Graph other = graph;
  Node& join = other.nodes[index];
  const bool isJoin = (join.work == Work::SUM && join.loop == 0) || join.work == Work::NULL_SINK;
  if (!isJoin || join.in.size() < 2) return std::nullopt;
  join.in.erase(join.in.begin() + static_cast<std::ptrdiff_t>(input));
  if (join.work == Work::SUM) {
    join.muted.assign(join.in.size(), false);
    join.args.clear();
  }
  return Without(other, Unwanted(other));
}

Graph WithHalf(const Graph& graph, std::size_t file) {
  Graph other = graph;
  other.nodes[file].amount /= 2;
  return other;
}

/** All that is one step smaller. */
std::vector<Graph> Smaller(const Graph& graph) {
  std::vector<Graph> smaller;
  const auto add = [&](std::optional<Graph> other) {
    if (other) smaller.push_back(std::move(*other));
  };
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
    const Node& node = graph.nodes[i];
    if (IsSink(node)) add(WithoutSink(graph, i));
    for (std::size_t input = 0; input < node.in.size(); ++input) add(WithoutInput(graph, i, input));
    const bool isLast = UsersOf(graph, i).size() <= 1;
    if (MayBeLine(graph, node) && (node.block != "tee" || isLast)) add(WithLine(graph, i));
    if (node.work == Work::FILE && node.amount > 1) add(WithHalf(graph, i));
  }
  return smaller;
}

}  // namespace

Graph Shrunk(Graph graph, const std::function<bool(const Graph&)>& fails) {
  for (bool again = true; again;) {
    again = false;
    for (Graph& smaller : Smaller(graph)) {
      if (!fails(smaller)) continue;
      graph = std::move(smaller);
      again = true;
      break;
    }
  }
  return graph;
}

}  // namespace randomgraphs
