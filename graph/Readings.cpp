#include "Readings.h"

#include <cmath>
#include <cstdio>
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
    readings.push_back(
        {name, unit == "-" ? "" : unit, value == "-" ? std::nan("") : std::strtod(value.c_str(), nullptr)});
  }
  return readings;
}

std::string ReadingsText(const GraphPlan& plan, const LiveGraph& live, std::size_t node) {
  std::string text;
  for (const Reading& reading : ReadingsOf(plan, live, node)) {
    if (std::isnan(reading.value) || reading.unit == "s" || reading.unit == "samples") continue;
    const bool isLarge = std::fabs(reading.value) >= 1000;  // counts above all: no exponents, please
    char number[320];
    std::snprintf(number, sizeof number, isLarge ? " %.0f" : " %.4g", reading.value);
    text += (text.empty() ? "block '" + plan.graph.nodes[node].name + "': " : ", ") + reading.name + number;
    if (!reading.unit.empty()) text += ' ' + reading.unit;
  }
  return text;
}

}  // namespace vorn::graph
