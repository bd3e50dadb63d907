#include "Edits.h"

#include <algorithm>
#include <array>

#include "CommandTable.h"
#include "Names.h"
#include "support/Printable.h"

namespace vrdb {
namespace {

constexpr std::array PARTS = {"newblock", "newlink", "delete", "setparam", "insert", "remove", "replace", "tap"};

bool IsPart(const std::string& word) { return std::find(PARTS.begin(), PARTS.end(), word) != PARTS.end(); }

bool IsBetween(const std::string& word) { return word == "{" || word == ";" || word == "}"; }

/** Calls `visit` with each command of an edit, which it may change. */
template <typename Visit>
std::string ForEachCommand(Words& request, Visit visit) {
  Words done;
  for (auto at = request.begin(); at != request.end();) {
    const auto end = std::find_if(at, request.end(), IsBetween);
    Words command(at, end);
    if (std::string wrong = command.empty() ? "" : visit(command); !wrong.empty()) return wrong;
    done.insert(done.end(), command.begin(), command.end());
    if (end != request.end()) done.push_back(*end);
    at = end == request.end() ? end : end + 1;
  }
  request = std::move(done);
  return {};
}

std::string Names(const Json& answer, const char* member) {
  Words names;
  for (const Json& name : support::ListOf(answer, member)) {
    if (name.is_string()) names.push_back(support::Printable(name.get<std::string>()));
  }
  return Join(names, ", ");
}

}  // namespace

Words NormalizeEdit(const Words& words) {
  Words normal;
  for (std::string& word : Split(Join(words)).words) {
    const bool endsCommand = word.size() > 1 && word.back() == ';';
    if (endsCommand) word.pop_back();
    normal.push_back(std::move(word));
    if (endsCommand) normal.emplace_back(";");
  }
  if (normal.size() > 1 && normal[1] != "{") {
    normal.insert(normal.begin() + 1, "{");
    normal.emplace_back("}");
  }
  return normal;
}

std::string WrongInEdit(const Words& command) {
  const Command* known = FindCommand(command[0]);
  if (known && IsPart(command[0])) return WrongUsage(*known, command);
  return "'" + command[0] + "' cannot be part of an edit; these can: " + Join({PARTS.begin(), PARTS.end()}, ", ");
}

std::string ResolveInEdit(const Json& graph, Words& request, Words& routes) {
  return ForEachCommand(request, [&](Words& command) {
    for (std::string& route : RoutesOf(graph, command)) routes.push_back(std::move(route));
    return ResolveLabels(graph, command);
  });
}

std::string WhatWasDone(const Json& answer) {
  const std::string made = Names(answer, "made");
  const std::string deleted = Names(answer, "deleted");
  std::string done = made.empty() ? "" : "Made " + made;
  if (!deleted.empty()) done += (done.empty() ? "Deleted " : "; deleted ") + deleted;
  return (done.empty() ? "Done" : done) + "\n";
}

Result RunEdit(Shell& shell, const Words& words) {
  if (words[0] != "edit") return shell.Edit(words);
  Words normal = NormalizeEdit(words);
  Words commands(normal.begin() + 1, normal.end());
  std::string wrong = ForEachCommand(commands, [](const Words& command) { return WrongInEdit(command); });
  if (normal.back() != "}") wrong = "the edit has no '}' at its end";
  if (normal.size() < 4) wrong = "expected commands in braces: edit { COMMAND ; COMMAND ... }";
  return wrong.empty() ? shell.Edit(normal) : Result{WRONG_USAGE, wrong};
}

}  // namespace vrdb
