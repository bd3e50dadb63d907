#include "Readings.h"

#include <vorn/kit/ParameterLine.h>

#include <cmath>
#include <cstdlib>

namespace vorn::graph {

std::vector<Reading> ReadingsOf(const GraphPlan& plan, const LiveGraph& live, std::size_t node) {
  std::vector<Reading> readings;
  if (!plan.blocks[node].plugIn.info) return readings;
  for (const std::string& line : live.ParameterTable(node)) {
    const auto parameter = ParameterLine::Parse(line);
    if (!parameter || !parameter->IsReading()) continue;
    const double value = parameter->value.empty() ? std::nan("") : std::strtod(parameter->value.c_str(), nullptr);
    readings.push_back({plan.graph.nodes[node].name, parameter->name, parameter->unit, value});
  }
  return readings;
}

}  // namespace vorn::graph
