#include "Readings.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

namespace vorn::graph {

std::vector<Reading> ReadingsOf(const GraphPlan& plan, const LiveGraph& live, std::size_t node) {
  std::vector<Reading> readings;
  if (!plan.blocks[node].plugIn.info) return readings;
  for (const std::string& line : live.ParameterTable(node)) {
    std::istringstream words(line);
    std::string id, name, unit, range, value, access;
    words >> id >> name >> unit >> range >> value >> access;
    if (access != "read") continue;
    readings.push_back({plan.graph.nodes[node].name, name, unit == "-" ? "" : unit,
                        value == "-" ? std::nan("") : std::strtod(value.c_str(), nullptr)});
  }
  return readings;
}

}  // namespace vorn::graph
