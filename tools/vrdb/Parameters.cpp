#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "CommandTable.h"
#include "LocalCommands.h"
#include "Names.h"
#include "support/ReadingText.h"
#include "support/TextTable.h"

namespace vrdb {
namespace {

using support::ListOf;
using support::TextOf;

constexpr std::size_t LONGEST_ALIGNED = 24;
constexpr std::chrono::milliseconds LOOK_AGAIN{20};
constexpr int MOST_LOOKS = 8;

bool IsNumber(const std::string& word) { return word.find_first_not_of("0123456789") == std::string::npos; }

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }

// A number or a text, as the process has it.
std::string ValueOf(const Json& parameter) {
  const Json& value = support::Member(parameter, "value");
  const bool isPlain = value.is_number() || value.is_boolean();
  const std::string text = isPlain ? support::ToText(value) : Shown(parameter, "value");
  if (TextOf(parameter, "access") != "read") return text;
  return text.empty() ? "-" : support::ReadingText(text, TextOf(parameter, "unit"));
}

std::string IdOf(const Json& parameter) {
  const auto id = support::NumberOf(parameter, "id");
  return id ? support::Format("%.0f", *id) : "";
}

std::string WhatItTakes(const Json& one) {
  const std::string name = Shown(one, "name");
  if (TextOf(one, "access") == "read") return name + " can only be read";
  const std::string unit = Shown(one, "unit");
  const std::string range = Shown(one, "range");
  const std::string when = TextOf(one, "access") == "stopped" ? ", while the route is stopped" : "";
  return name + " takes " + (range.empty() ? "any value" : range) + (unit.empty() ? "" : " " + unit) + when;
}

std::string NamesOf(const Json& parameters) {
  Words names;
  for (const Json& parameter : parameters) names.push_back(Shown(parameter, "name"));
  return Join(names, ", ");
}

Result LookAtBlock(Shell& shell, const std::string& route, const std::string& block, Json& answer, Json& parameters) {
  if (Result result = shell.Look({"params", route, block}, answer); result.code != DONE) return result;
  const Json& found = BlockOf(answer, route, block);
  parameters = ListOf(found, "parameters");
  if (!parameters.empty()) return {};
  return {FAILED, found.is_object() ? block + " on " + route + " does not tell its parameters"
                                    : "there is no " + block + " on " + route};
}

void AddRows(const Json& block, std::vector<support::Row>& rows) {
  for (const Json& one : ListOf(block, "parameters")) {
    rows.push_back({IdOf(one), Shown(one, "name"), OrDash(Shown(one, "unit")), Shown(one, "access"), ValueOf(one),
                    OrDash(Shown(one, "range")), Shown(one, "help")});
  }
}

// A running route stores readings that take work between two cycles, once somebody has looked.
bool LacksReadings(const Json& answer) {
  for (const Json& route : ListOf(answer, "routes")) {
    if (TextOf(route, "status") == "stopped") continue;
    for (const Json& block : ListOf(route, "blocks")) {
      for (const Json& one : ListOf(block, "parameters")) {
        const Json& value = support::Member(one, "value");
        if (TextOf(one, "access") == "read" && (value.is_null() || (value.is_string() && TextOf(one, "value").empty())))
          return true;
      }
    }
  }
  return false;
}

void PrintTable(const Shell& shell, const std::vector<support::Row>& rows) {
  const auto lines = support::TextTable(rows, LONGEST_ALIGNED);
  for (const std::string& line : lines) {
    std::puts(shell.style(&line == &lines.front() ? Look::DIM : Look::PLAIN, line).c_str());
  }
}

Result ResolveHere(Shell& shell, Words& words) {
  Json graph;
  if (Result result = shell.Look({"graph"}, graph); result.code != DONE) return result;
  const std::string wrong = ResolveLabels(graph, words);
  return wrong.empty() ? Result{} : Result{WRONG_USAGE, wrong};
}

// What the monitor knows of a parameter whose route would have to be waited for.
bool PrintAsLastStored(Shell& shell, const Words& words, const Json& parameter) {
  if (words[0] != "getparam" || shell.Allowed().wait || support::Member(parameter, "value").is_null()) return false;
  const std::string stands = shell.WhatStands(words);
  if (stands.empty()) return false;
  shell.Notice(stands + "; this is the value as the monitor last saw it");
  std::puts(ValueOf(parameter).c_str());
  return true;
}

}  // namespace

Result RunParams(Shell& shell, const Words& words) {
  Words request = words;
  if (words.size() > 2) {
    if (Result result = ResolveHere(shell, request); result.code != DONE) return result;
  }
  Json answer;
  for (int looks = 1;; ++looks) {
    Json parameters;
    Result result = request.size() > 2 ? LookAtBlock(shell, request[1], request[2], answer, parameters)
                                       : shell.Look(request, answer);
    if (result.code != DONE) return result;
    if (looks == MOST_LOOKS || !LacksReadings(answer)) break;
    std::this_thread::sleep_for(LOOK_AGAIN);
  }
  bool isFirst = true;
  for (const Json& route : ListOf(answer, "routes")) {
    for (const Json& block : ListOf(route, "blocks")) {
      std::vector<support::Row> rows = {{"KEY", "NAME", "UNIT", "ACCESS", "VALUE", "RANGE", "HELP"}};
      AddRows(block, rows);
      if (rows.size() == 1) continue;
      if (request.size() < 3) {
        const std::string title = Shown(route, "name") + " " + BlockTitle(block);
        std::printf("%s%s\n", isFirst ? "" : "\n", shell.style(Look::BOLD, title).c_str());
      }
      isFirst = false;
      PrintTable(shell, rows);
    }
  }
  return {};
}

// A key that is a name is looked up in the block's table first, by the monitor, which asks no route.
Result RunParameter(Shell& shell, const Words& given) {
  if (IsNumber(given[3])) return shell.Forward(given);
  Words words = given;
  if (Result result = ResolveHere(shell, words); result.code != DONE) return result;
  Json answer;
  Json parameters;
  if (Result result = LookAtBlock(shell, words[1], words[2], answer, parameters); result.code != DONE) {
    if (result.code == FAILED) result.message += "; give the parameter's number in place of '" + words[3] + "'";
    return result;
  }
  const Json& found = support::Named(parameters, words[3]);
  if (IdOf(found).empty()) {
    return {FAILED, words[2] + " has no parameter '" + words[3] + "'; it has " + NamesOf(parameters)};
  }
  if (PrintAsLastStored(shell, words, found)) return {};
  words[3] = IdOf(found);
  Result result = shell.Forward(words);
  if (result.code == FAILED && words[0] == "setparam") result.message += "; " + WhatItTakes(found);
  return result;
}

}  // namespace vrdb
