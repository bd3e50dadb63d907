#include "Names.h"

#include <algorithm>

#include "CommandTable.h"
#include "support/Format.h"
#include "support/Printable.h"

namespace vrdb {
namespace {

using support::ListOf;
using support::Named;
using support::TextOf;

bool IsInstance(const Json& route, const std::string& word) {
  return word == "!" || Named(ListOf(route, "blocks"), word).is_object() ||
         Named(ListOf(route, "links"), word).is_object();
}

Words Labelled(const Json& route, const std::string& label) {
  Words names;
  for (const Json& block : ListOf(route, "blocks")) {
    if (TextOf(block, "label") == label) names.push_back(TextOf(block, "name"));
  }
  return names;
}

std::string Resolve(const Json& route, std::string& word) {
  if (IsInstance(route, word)) return {};
  const Words names = Labelled(route, word);
  if (names.size() > 1) {
    return "'" + word + "' is the label of " + support::Printable(Join(names, " and of ")) + "; give the block's name";
  }
  if (names.size() == 1) word = names[0];
  return {};
}

// Calls `visit` with the kind of each argument and its word, until it says what is wrong.
template <typename Visit>
std::string ForEachArgument(Words& words, Visit visit) {
  const Command* command = FindCommand(words.front());
  if (!command) return {};
  const std::size_t given = std::min(command->arguments.size(), words.size() - 1);
  for (std::size_t i = 0; i < given; ++i) {
    if (std::string wrong = visit(command->arguments[i].takes, words[i + 1]); !wrong.empty()) return wrong;
  }
  return {};
}

}  // namespace

std::string Shown(const Json& object, const char* name) { return support::Printable(TextOf(object, name)); }

std::string NumberText(const Json& object, const char* name, int decimals, double factor) {
  const auto number = support::NumberOf(object, name);
  return number ? support::Format("%.*f", decimals, *number * factor) : "-";
}

std::string BlockTitle(const Json& block) {
  const std::string label = Shown(block, "label");
  return Shown(block, "name") + (label.empty() ? "" : " (" + label + ")");
}

const Json& RouteOf(const Json& graph, const std::string& name) { return Named(ListOf(graph, "routes"), name); }

const Json& BlockOf(const Json& graph, const std::string& route, const std::string& name) {
  return Named(ListOf(RouteOf(graph, route), "blocks"), name);
}

std::string ResolveLabels(const Json& graph, Words& words) {
  const Json* route = nullptr;
  return ForEachArgument(words, [&](Takes takes, std::string& word) {
    if (takes == Takes::ROUTE) route = &RouteOf(graph, word);
    const bool isBlock = takes == Takes::BLOCK || takes == Takes::INSTANCE;
    return isBlock && route ? Resolve(*route, word) : std::string();
  });
}

std::string UnknownName(const Json& graph, const Words& words) {
  Words copy = words;
  const Json* route = nullptr;
  return ForEachArgument(copy, [&](Takes takes, const std::string& word) -> std::string {
    if (takes == Takes::ROUTE && !(route = &RouteOf(graph, word))->is_object()) return "there is no " + word;
    const bool isMissing = (takes == Takes::BLOCK && !Named(ListOf(*route, "blocks"), word).is_object()) ||
                           (takes == Takes::LINK && !Named(ListOf(*route, "links"), word).is_object());
    return isMissing ? TextOf(*route, "name") + " has no " + word : "";
  });
}

Words RoutesOf(const Json& graph, const Words& words) {
  Words routes;
  if (words.front() == "setdump") {
    for (const Json& route : ListOf(graph, "routes")) routes.push_back(TextOf(route, "name"));
  }
  Words copy = words;
  ForEachArgument(copy, [&](Takes takes, const std::string& word) {
    if (takes == Takes::ROUTE && RouteOf(graph, word).is_object()) routes.push_back(word);
    return std::string();
  });
  return routes;
}

}  // namespace vrdb
