#include "ParameterTable.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "LocalCommands.h"

namespace vrdb {
namespace {

// PARAMETER_TABLE of <vorn/Plugin.h>: where blocks made with the kit answer their table.
constexpr const char* TABLE = "4294967040";

constexpr std::size_t LONGEST_ALIGNED = 24;

using Row = std::array<std::string, 6>;

bool IsNumber(const std::string& word) { return word.find_first_not_of("0123456789") == std::string::npos; }

// Blanks in a field come as %20, a percent sign as %25.
std::string Unescape(const std::string& field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '%' && i + 2 < field.size()) {
      text += static_cast<char>(std::strtol(field.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    } else {
      text += field[i];
    }
  }
  return text;
}

std::string WhatItTakes(const Parameter& one) {
  const std::string unit = one.unit == "-" ? "" : " " + one.unit;
  if (one.access == "read") return one.name + " can only be read";
  const std::string when = one.access == "stopped" ? ", while the route is stopped" : "";
  return one.name + " takes " + (one.range == "-" ? "any value" : one.range) + unit + when;
}

// A long value, a path most likely, makes its own line longer and not the column wider.
std::size_t WidthOf(std::size_t column, const std::vector<Row>& rows) {
  std::size_t width = 0;
  for (const Row& row : rows) {
    if (row[column].size() <= LONGEST_ALIGNED) width = std::max(width, row[column].size());
  }
  return width;
}

void Print(const std::vector<Row>& rows, const Style& style) {
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t column = 0; column + 1 < row.size(); ++column) {
      const std::string& cell = row[column];
      line += cell + std::string(std::max(WidthOf(column, rows), cell.size()) - cell.size() + 2, ' ');
    }
    line += row.back();
    std::puts(style(&row == &rows.front() ? Look::DIM : Look::PLAIN, line).c_str());
  }
}

}  // namespace

std::vector<Parameter> ParseParameters(std::string_view text) {
  std::vector<Parameter> table;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    const Words words = Split(text.substr(0, end)).words;
    text.remove_prefix(std::min(end + 1, text.size()));
    if (words.size() < 6 || !IsNumber(words[0])) continue;
    const std::string value = words[4] == "-" ? "" : Unescape(words[4]);
    table.push_back({words[0], words[1], Unescape(words[2]), Unescape(words[3]), value, words[5]});
  }
  return table;
}

Result ReadParameters(Shell& shell, const std::string& route, const std::string& block, std::vector<Parameter>& table) {
  std::string reply;
  Result result = shell.Ask({"getparam", route, block, TABLE}, reply);
  table = ParseParameters(reply);
  if (result.code == FAILED || (result.code == DONE && table.empty())) {
    return {FAILED, block + " on " + route + " is not there, or does not tell its parameters"};
  }
  return result;
}

Result RunParams(Shell& shell, const Words& words) {
  std::vector<Parameter> table;
  if (Result result = ReadParameters(shell, words[1], words[2], table); result.code != DONE) return result;
  std::vector<Row> rows = {{"KEY", "NAME", "UNIT", "ACCESS", "VALUE", "RANGE"}};
  for (const Parameter& one : table) rows.push_back({one.id, one.name, one.unit, one.access, one.value, one.range});
  Print(rows, shell.style);
  return {};
}

// A key that is a name is looked up in the block's table first.
Result RunParameter(Shell& shell, const Words& words) {
  if (IsNumber(words[3])) return shell.Forward(words);
  std::vector<Parameter> table;
  if (Result result = ReadParameters(shell, words[1], words[2], table); result.code != DONE) {
    if (result.code == FAILED) result.message += "; give the parameter's number in place of '" + words[3] + "'";
    return result;
  }
  const auto found = std::find_if(table.begin(), table.end(), [&](const auto& one) { return one.name == words[3]; });
  if (found == table.end()) {
    Words names;
    for (const Parameter& one : table) names.push_back(one.name);
    return {FAILED, words[2] + " has no parameter '" + words[3] + "'; it has " + Join(names, ", ")};
  }
  Words numbered = words;
  numbered[3] = found->id;
  Result result = shell.Forward(numbered);
  if (result.code == FAILED && words[0] == "setparam") result.message += "; " + WhatItTakes(*found);
  return result;
}

}  // namespace vrdb
