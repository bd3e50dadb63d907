#include "StreamOrder.h"

#include <algorithm>

namespace vorn::graph {
namespace {

/** A depth-first search along links and FIFOs. */
class StreamOrder {
 public:
  explicit StreamOrder(GraphPlan& newPlan) : plan(newPlan), steps(plan.blocks.size()) {
    for (const LinkPlan& link : plan.links) steps[link.from].push_back({link.to, &link});
    for (FifoPlan& fifo : plan.fifos) steps[fifo.writer].push_back({fifo.reader, nullptr, &fifo});
  }

  Result<std::vector<std::size_t>> Make() {
    for (auto cycle = Search(); !cycle.empty(); cycle = Search()) {
      if (auto error = Open(cycle)) return *error;
    }
    std::ranges::reverse(order);
    return order;
  }

 private:
  enum class Seen { NOT_YET, ON_PATH, DONE };

  struct Step {
    std::size_t to;
    const LinkPlan* link;
    FifoPlan* fifo = nullptr;
  };
  struct Visit {
    std::size_t node;
    std::size_t
        left;  // of its steps; the last goes first, so that what comes out backwards is in the order of the file
  };

  /** Those that nothing feeds go first, so that a cycle is met where a stream runs into it. @return a cycle. */
  std::vector<Step> Search() {
    order.clear();
    seen.assign(steps.size(), Seen::NOT_YET);
    std::vector<std::size_t> starts;
    for (std::size_t i = 0; i < steps.size(); ++i) {
      if (!plan.graph.nodes[i].isFifo) starts.push_back(i);
    }
    const auto fed =
        std::stable_partition(starts.begin(), starts.end(), [&](std::size_t node) { return !IsFed(node); });
    std::reverse(starts.begin(), fed);
    for (const std::size_t start : starts) {
      if (auto cycle = SearchFrom(start); !cycle.empty()) return cycle;
    }
    return {};
  }

  bool IsFed(std::size_t node) const {
    return !plan.blocks[node].ins.empty() || plan.blocks[node].reads != BlockPlan::NO_FIFO;
  }

  std::vector<Step> SearchFrom(std::size_t start) {
    std::vector<Visit> path;
    const auto enter = [&](std::size_t node) {
      seen[node] = Seen::ON_PATH;
      path.push_back({node, steps[node].size()});
    };
    if (seen[start] == Seen::NOT_YET) enter(start);
    while (!path.empty()) {
      Visit& last = path.back();
      if (last.left == 0) {
        seen[last.node] = Seen::DONE;
        order.push_back(last.node);
        path.pop_back();
        continue;
      }
      const Step& step = steps[last.node][--last.left];
      if (seen[step.to] == Seen::DONE || (step.fifo && step.fifo->closesCycle)) continue;
      if (seen[step.to] == Seen::ON_PATH) return StepsBackTo(step.to, path);
      enter(step.to);
    }
    return {};
  }

  std::vector<Step> StepsBackTo(std::size_t node, const std::vector<Visit>& path) const {
    std::vector<Step> cycle;
    for (auto visit = std::ranges::find(path, node, &Visit::node); visit != path.end(); ++visit) {
      cycle.push_back(steps[visit->node][visit->left]);
    }
    return cycle;
  }

  /** At a FIFO out of which its reader can go first; of several, at the last, where the stream comes back. */
  std::optional<Error> Open(const std::vector<Step>& cycle) {
    FifoPlan* opened = nullptr;
    for (const Step& step : cycle) {
      if (step.fifo && (!opened || CanGoFirst(*step.fifo) >= CanGoFirst(*opened))) opened = step.fifo;
    }
    if (!opened) return LinkCycle(cycle);
    opened->closesCycle = true;
    return std::nullopt;
  }

  bool CanGoFirst(const FifoPlan& fifo) const {
    return plan.graph.nodes[fifo.node].prefill > 0 || !plan.blocks[fifo.reader].waits;
  }

  Error LinkCycle(const std::vector<Step>& cycle) const {
    std::string text = plan.graph.nodes[cycle.back().to].name;
    for (const Step& step : cycle) text += " -> " + plan.graph.nodes[step.to].name;
    return {cycle.back().link->at, text + " is a cycle; close it by a FIFO with a prefill, or not at all"};
  }

  GraphPlan& plan;
  std::vector<std::vector<Step>> steps;  // by node, where the stream goes from there
  std::vector<Seen> seen;
  std::vector<std::size_t> order;  // backwards
};

/** Whatever all sources before a block read goes round. */
void MarkFollowers(GraphPlan& plan, const std::vector<std::size_t>& order) {
  std::vector<bool> goesRound(plan.blocks.size());
  for (const std::size_t node : order) {
    BlockPlan& block = plan.blocks[node];
    const bool reads = block.reads != BlockPlan::NO_FIFO;
    bool all = reads || !block.ins.empty();
    for (const std::size_t link : block.ins) all = all && goesRound[plan.links[link].from];
    if (reads && !plan.fifos[block.reads].closesCycle) all = all && goesRound[plan.fifos[block.reads].writer];
    goesRound[node] = all;
    block.follows = all && reads;
  }
  for (FifoPlan& fifo : plan.fifos) fifo.isFedByLoop = fifo.closesCycle && goesRound[fifo.writer];
}

}  // namespace

Result<std::vector<std::size_t>> OrderOfStreams(GraphPlan& plan) {
  auto order = StreamOrder(plan).Make();
  if (const auto* nodes = std::get_if<std::vector<std::size_t>>(&order)) MarkFollowers(plan, *nodes);
  return order;
}

}  // namespace vorn::graph
