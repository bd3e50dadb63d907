// What must hold for a graph, however it was written.
#pragma once

#include "Cuts.h"
#include "GraphFile.h"
#include "Input.h"
#include "Json.h"
#include "PlanText.h"
#include "Resolver.h"

namespace fuzz {

constexpr std::size_t MOST_EDGES = 200;  // the rest is more of the same, slowly

/** The graph as a graph file, once all is worked out; empty where it cannot be. */
inline std::string DotOf(const vorn::graph::Result<vorn::graph::GraphDescription>& read,
                         vorn::graph::PlugIns& plugIns) {
  using namespace vorn::graph;
  if (const auto* error = std::get_if<Error>(&read)) Require(!error->ToString().empty(), "An error that says nothing");
  if (std::holds_alternative<Error>(read) || std::get<0>(read).edges.size() > MOST_EDGES) return {};
  GraphDescription graph = std::get<0>(read);
  if (const auto error = Cut(graph)) return Require(!error->ToString().empty(), "An error that says nothing"), "";
  const auto ask = [](std::size_t, const BlockPlan&) { return Result<std::vector<vorn::Stream>>(); };
  const auto resolved = Resolve(graph, plugIns, ask);
  if (const auto* error = std::get_if<Error>(&resolved))
    Require(!error->ToString().empty(), "An error that says nothing");
  const auto* plan = std::get_if<GraphPlan>(&resolved);
  if (!plan) return {};
  Require(!TableOf(*plan).empty() && !JsonOf(*plan).empty(), "A plan without a table");
  return vorn::graph::DotOf(*plan);
}

/** What can be worked out is written as a graph file: reading that must give the same graph, and so the same text. */
inline void Check(const vorn::graph::Result<vorn::graph::GraphDescription>& read, vorn::graph::PlugIns& plugIns) {
  const std::string dot = DotOf(read, plugIns);
  if (dot.empty()) return;
  Require(DotOf(vorn::graph::ReadGraphFile(dot, "again", {}), plugIns) == dot, "A graph that does not read back");
}

}  // namespace fuzz
