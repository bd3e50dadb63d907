// Graph files and pipelines. What is read, and can be worked out, is written as a graph file: reading that must give
// the same graph, and so the same text.
#include <cstdint>
#include <cstdlib>

#include "FakePlugIns.h"
#include "GraphFile.h"
#include "OneLiner.h"
#include "PlanText.h"
#include "Resolver.h"

namespace {

using namespace vorn::graph;

constexpr std::size_t MOST_EDGES = 200;  // the rest is more of the same, slowly

std::string DotOf(const Result<GraphDescription>& read) {
  const auto* graph = std::get_if<GraphDescription>(&read);
  if (!graph || graph->edges.size() > MOST_EDGES) return {};
  FakePlugIns plugIns(true);
  const auto ask = [](std::size_t, const BlockPlan&) { return Result<std::vector<vorn::Stream>>(); };
  const auto plan = Resolve(*graph, plugIns, ask);
  if (const auto* error = std::get_if<Error>(&plan)) return error->ToString().empty() ? std::abort(), "" : "";
  return vorn::graph::DotOf(std::get<GraphPlan>(plan));
}

void Check(const Result<GraphDescription>& read) {
  const std::string dot = DotOf(read);
  if (!dot.empty() && DotOf(ReadGraphFile(dot, "again", {})) != dot) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Check(ReadGraphFile(text, "graph", {}));
  Check(ReadGraphFile(text, "graph", {{"in", "a 'b\"$\\"}}));
  if (text.find(char{0}) == text.npos) Check(ReadOneLiner(text, "-e"));  // it comes from a command line
  return 0;
}
