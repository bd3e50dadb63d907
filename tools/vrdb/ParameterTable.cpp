#include "ParameterTable.h"

#include <algorithm>
#include <cstdio>

#include <vorn/kit/Conventions.h>

#include "LocalCommands.h"
#include "support/ReadingText.h"
#include "support/TextTable.h"

namespace vrdb {
namespace {

constexpr std::size_t LONGEST_ALIGNED = 24;

bool IsNumber(const std::string& word) { return word.find_first_not_of("0123456789") == std::string::npos; }

std::string WhatItTakes(const vorn::ParameterLine& one) {
  const std::string unit = one.unit.empty() ? "" : " " + one.unit;
  if (one.IsReading()) return one.name + " can only be read";
  const std::string when = one.access == "stopped" ? ", while the route is stopped" : "";
  return one.name + " takes " + (one.range.empty() ? "any value" : one.range) + unit + when;
}

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }

}  // namespace

std::vector<vorn::ParameterLine> ParseParameters(std::string_view text) {
  std::vector<vorn::ParameterLine> table;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    if (auto line = vorn::ParameterLine::Parse(text.substr(0, end))) table.push_back(std::move(*line));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return table;
}

Result ReadParameters(Shell& shell, const std::string& route, const std::string& block,
                      std::vector<vorn::ParameterLine>& table) {
  std::string reply;
  Result result = shell.Ask({"getparam", route, block, std::to_string(vorn::PARAMETER_TABLE)}, reply);
  table = ParseParameters(reply);
  if (result.code == FAILED || (result.code == DONE && table.empty())) {
    return {FAILED, block + " on " + route + " is not there, or does not tell its parameters"};
  }
  return result;
}

Result RunParams(Shell& shell, const Words& words) {
  std::vector<vorn::ParameterLine> table;
  if (Result result = ReadParameters(shell, words[1], words[2], table); result.code != DONE) return result;
  std::vector<support::Row> rows = {{"KEY", "NAME", "UNIT", "ACCESS", "VALUE", "RANGE"}};
  for (const vorn::ParameterLine& one : table) {
    const std::string value = one.IsReading() ? support::ReadingText(one.value, one.unit) : one.value;
    rows.push_back({std::to_string(one.id), one.name, OrDash(one.unit), one.access, value, OrDash(one.range)});
  }
  const auto lines = support::TextTable(rows, LONGEST_ALIGNED);
  for (const std::string& line : lines) {
    std::puts(shell.style(&line == &lines.front() ? Look::DIM : Look::PLAIN, line).c_str());
  }
  return {};
}

// A key that is a name is looked up in the block's table first.
Result RunParameter(Shell& shell, const Words& words) {
  if (IsNumber(words[3])) return shell.Forward(words);
  std::vector<vorn::ParameterLine> table;
  if (Result result = ReadParameters(shell, words[1], words[2], table); result.code != DONE) {
    if (result.code == FAILED) result.message += "; give the parameter's number in place of '" + words[3] + "'";
    return result;
  }
  const auto found = std::find_if(table.begin(), table.end(), [&](const auto& one) { return one.name == words[3]; });
  if (found == table.end()) {
    Words names;
    for (const vorn::ParameterLine& one : table) names.push_back(one.name);
    return {FAILED, words[2] + " has no parameter '" + words[3] + "'; it has " + Join(names, ", ")};
  }
  Words numbered = words;
  numbered[3] = std::to_string(found->id);
  Result result = shell.Forward(numbered);
  if (result.code == FAILED && words[0] == "setparam") result.message += "; " + WhatItTakes(*found);
  return result;
}

}  // namespace vrdb
