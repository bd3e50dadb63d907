#include "Standstill.h"

#include <algorithm>

namespace vorn::graph {

// A FIFO that has not moved between two looks at all of them held its sleeper for the time from the end of the first
// look to the start of the second: all sleepers that are found slept at one time.
std::optional<Error> Standstill::Look(const std::vector<FIFOState>& now) {
  Sleeps sleeps = FindSleeps(now);
  before = now;
  for (bool changed = true; changed;) {
    changed = false;
    for (auto& sleep : sleeps) {
      if (!sleep || sleeps[sleep->waitsFor]) continue;
      sleep.reset();  // somebody who is awake can wake this route
      changed = true;
    }
  }
  if (std::ranges::none_of(sleeps, [](const auto& sleep) { return sleep.has_value(); })) return std::nullopt;
  return Describe(sleeps, now);
}

Standstill::Sleeps Standstill::FindSleeps(const std::vector<FIFOState>& now) const {
  Sleeps sleeps(plan.graph.routes.size());
  for (std::size_t i = 0; i < now.size(); ++i) {
    if (now[i].moves != before[i].moves) continue;
    const std::size_t writer = plan.graph.nodes[plan.fifos[i].writer].route;
    const std::size_t reader = plan.graph.nodes[plan.fifos[i].reader].route;
    if (now[i].readerSleeps && before[i].readerSleeps) sleeps[reader] = {i, writer, true};
    if (now[i].writerSleeps && before[i].writerSleeps) sleeps[writer] = {i, reader, false};
  }
  return sleeps;
}

Error Standstill::Describe(const Sleeps& sleeps, const std::vector<FIFOState>& now) const {
  std::string text;
  std::string remedies;
  Graph::Place at = plan.graph.at;
  for (std::size_t route = 0; route < sleeps.size(); ++route) {
    if (!sleeps[route]) continue;
    const Node& node = plan.graph.nodes[plan.fifos[sleeps[route]->fifo].node];
    const FIFOState& state = now[sleeps[route]->fifo];
    if (text.empty()) at = node.at;
    text += (text.empty() ? "" : ", ") + plan.graph.routes[route].name + " waits for " +
            (sleeps[route]->reads ? "samples" : "room") + " in FIFO '" + node.name + "' (" +
            std::to_string(state.count) + " of " + std::to_string(state.capacity) + ")";
    remedies += std::string(remedies.empty() ? "" : ", or ") +
                (sleeps[route]->reads ? "a larger prefill" : "a larger capacity") + " for '" + node.name + "'";
  }
  return {at, "nothing moves any more: " + text + "; it takes " + remedies};
}

}  // namespace vorn::graph
