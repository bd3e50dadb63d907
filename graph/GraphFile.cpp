#include "GraphFile.h"

#include <algorithm>
#include <set>

#include "DotGraph.h"
#include "QuotedWords.h"
#include "StreamText.h"
#include "support/GraphText.h"

namespace vorn::graph {
namespace {

using support::IsForTheDrawing;

constexpr long MOST_SAMPLES = 1'000'000'000;

/** Puts values in the place of $name and ${name}; $$ is a dollar. */
class Substitution {
 public:
  explicit Substitution(const Variables& newVariables) : variables(newVariables) {}

  std::optional<Error> Apply(std::string& text, const Origin& at) {
    std::string filled;
    for (std::size_t i = 0; i < text.size();) {
      if (text[i] != '$') {
        filled += text[i++];
      } else if (text.compare(i, 2, "$$") == 0) {
        filled += '$';
        i += 2;
      } else {
        const std::string name = NameAt(text, ++i);
        if (name.empty()) return Error{at, "a lone '$'; write '$name', or '$$' for a dollar"};
        const auto found = variables.find(name);
        used.insert(name);
        if (found == variables.end()) return Error{at, "$" + name + " has no value; add " + name + "=..."};
        filled += found->second;
      }
    }
    text = filled;
    return std::nullopt;
  }

  std::optional<Error> CheckAllUsed(const std::string& file) const {
    const auto unused =
        std::ranges::find_if(variables, [&](const auto& variable) { return !used.contains(variable.first); });
    if (unused == variables.end()) return std::nullopt;
    const std::string text = "'" + unused->first + "=" + unused->second + "' fills nothing; " + WhatIsUsed();
    return Error{{file, 0, 0}, text};
  }

 private:
  /** Moves `i` behind the name; empty when there is none. */
  static std::string NameAt(const std::string& text, std::size_t& i) {
    const bool inBraces = i < text.size() && text[i] == '{';
    std::size_t end = i + inBraces;
    while (end < text.size() && IsOfName(text[end])) ++end;
    const std::string name = text.substr(i + inBraces, end - i - inBraces);
    if (inBraces && (end == text.size() || text[end] != '}')) return {};
    i = end + inBraces;
    return name;
  }

  static bool IsOfName(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  }

  std::string WhatIsUsed() const {
    if (used.empty()) return "the file has no $name";
    std::string text = "the file has";
    for (const std::string& name : used) text += " $" + name;
    return text;
  }

  const Variables& variables;
  std::set<std::string> used;
};

class Interpreter {
 public:
  Interpreter(const std::string& file, const Variables& variables) : substitution(variables) {
    graph.at = {file, 0, 0};
  }

  Result<GraphDescription> Interpret(DotGraph dot) {
    if (Routes(dot) && Nodes(dot) && Edges(dot) && AllUsed()) return std::move(graph);
    return *error;
  }

 private:
  bool Fail(const Origin& at, std::string text) {
    error = Error{at, std::move(text)};
    return false;
  }

  bool Fill(std::string& text, const Origin& at) {
    error = substitution.Apply(text, at);
    return !error;
  }

  bool AllUsed() {
    error = substitution.CheckAllUsed(graph.at.file);
    return !error;
  }

  bool Routes(DotGraph& dot) {
    Stream defaults;
    if (!GraphAttributes(dot.attributes, defaults)) return false;
    if (dot.nodes.empty()) return Fail(graph.at, "the graph is empty; expected nodes and edges");
    if (dot.clusters.empty()) graph.routes.push_back({"RouteA", defaults, graph.at});
    for (DotCluster& cluster : dot.clusters) {
      if (!IsRouteName(cluster.name)) return Fail(cluster.at, "a route is called cluster_RouteA to cluster_RouteZ");
      RouteDescription route{cluster.name, {}, cluster.at};
      if (!GraphAttributes(cluster.attributes, route.defaults)) return false;
      route.defaults.Complete(defaults);
      graph.routes.push_back(route);
    }
    return true;
  }

  static bool IsRouteName(const std::string& name) {
    return name.size() == 6 && name.starts_with("Route") && name[5] >= 'A' && name[5] <= 'Z';
  }

  bool GraphAttributes(std::vector<Attribute>& attributes, Stream& defaults) {
    for (Attribute& attribute : attributes) {
      if (!StreamField(defaults, attribute, "a graph", "rate, format, channels or frame")) return false;
    }
    return true;
  }

  bool StreamField(Stream& stream, Attribute& attribute, const std::string& whose, const std::string& expected) {
    if (IsForTheDrawing(attribute.name)) return true;
    if (!IsStreamField(attribute.name)) {
      return Fail(attribute.at, whose + " has no attribute '" + attribute.name + "'; expected " + expected);
    }
    if (!Fill(attribute.value, attribute.valueAt)) return false;
    const auto better = SetField(stream, attribute.name, attribute.value);
    return !better || FailValue(attribute, *better);
  }

  bool FailValue(const Attribute& attribute, const std::string& expected) {
    return Fail(attribute.valueAt, attribute.name + ": expected " + expected + ", got '" + attribute.value + "'");
  }

  bool Nodes(DotGraph& dot) {
    for (DotNode& from : dot.nodes) {
      Node node;
      node.name = from.name;
      node.at = from.at;
      if (!(Shape(from, node) && (node.isFifo ? Fifo(from, node) : BlockNode(dot, from, node)))) return false;
      graph.nodes.push_back(std::move(node));
    }
    return dot.clusters.empty() || NoRouteIsEmpty();
  }

  bool NoRouteIsEmpty() {
    for (std::size_t i = 0; i < graph.routes.size(); ++i) {
      const RouteDescription& route = graph.routes[i];
      const auto isIn = [i](const Node& node) { return !node.isFifo && node.route == i; };
      if (std::ranges::none_of(graph.nodes, isIn)) return Fail(route.at, route.name + " is empty; expected blocks");
    }
    return true;
  }

  bool Shape(DotNode& from, Node& node) {
    const auto shape = std::ranges::find(from.attributes, "shape", &Attribute::name);
    if (shape == from.attributes.end()) return true;
    if (shape->value != "box" && shape->value != "ellipse") return FailValue(*shape, "'ellipse' for a FIFO, or 'box'");
    node.isFifo = shape->value == "ellipse";
    from.attributes.erase(shape);
    return true;
  }

  bool Fifo(DotNode& from, Node& node) {
    for (Attribute& attribute : from.attributes) {
      if (IsForTheDrawing(attribute.name)) continue;
      if (attribute.name != "capacity" && attribute.name != "prefill") {
        return Fail(attribute.at,
                    "FIFO '" + node.name + "' has no attribute '" + attribute.name + "'; expected capacity or prefill");
      }
      if (!Fill(attribute.value, attribute.valueAt)) return false;
      const bool isCapacity = attribute.name == "capacity";
      const auto samples = NumberIn(attribute.value, isCapacity ? 1 : 0, MOST_SAMPLES);
      if (!samples) return FailValue(attribute, "a number of samples, at most " + std::to_string(MOST_SAMPLES));
      if (isCapacity) {
        node.capacity = samples;
      } else {
        node.prefill = *samples;
      }
    }
    if (node.prefill > node.capacity.value_or(node.prefill)) {
      return Fail(node.at, "FIFO '" + node.name + "': prefill " + std::to_string(node.prefill) +
                               " is more than its capacity of " + std::to_string(*node.capacity));
    }
    return true;
  }

  bool BlockNode(const DotGraph& dot, DotNode& from, Node& node) {
    if (!dot.clusters.empty() && !from.cluster) {
      return Fail(node.at, "block '" + node.name + "' is in none of the routes; write it into one of the clusters");
    }
    node.route = from.cluster.value_or(0);
    node.plugIn = {from.name, from.at};
    for (Attribute& attribute : from.attributes) {
      if (!BlockAttribute(attribute, node)) return false;
    }
    return true;
  }

  bool BlockAttribute(Attribute& attribute, Node& node) {
    if (IsForTheDrawing(attribute.name)) return true;
    if (attribute.name == "args") return Arguments(attribute, node);
    if (!Fill(attribute.value, attribute.valueAt)) return false;
    if (attribute.name == "first") return Flag(attribute, node.first);
    if (attribute.name == "last") return Flag(attribute, node.last);
    if (attribute.name == "block") {
      node.plugIn = {attribute.value, attribute.valueAt};
    } else {
      node.parameters.push_back(attribute);
    }
    return true;
  }

  /** Filled in after the splitting, so that a value with blanks stays one argument. */
  bool Arguments(const Attribute& attribute, Node& node) {
    const auto words = SplitWords(attribute.value, attribute.valueAt);
    if (const auto* problem = std::get_if<Error>(&words)) return Fail(problem->at, problem->text);
    for (const SplitWord& word : std::get<0>(words)) {
      node.args.push_back(word);
      if (!Fill(node.args.back().text, word.at)) return false;
    }
    return true;
  }

  bool Flag(const Attribute& attribute, std::optional<bool>& flag) {
    if (attribute.value != "true" && attribute.value != "false") return FailValue(attribute, "true or false");
    flag = attribute.value == "true";
    return true;
  }

  bool Edges(DotGraph& dot) {
    for (DotEdge& from : dot.edges) {
      Edge edge{from.from, from.to, {}, from.at};
      for (Attribute& attribute : from.attributes) {
        if (attribute.name != "cut") {
          if (!StreamField(edge.stream, attribute, "an edge", "rate, format, channels, frame or cut")) return false;
          continue;
        }
        std::optional<bool> isCut;
        if (!Fill(attribute.value, attribute.valueAt) || !Flag(attribute, isCut)) return false;
        edge.isCut = *isCut;
      }
      graph.edges.push_back(edge);
    }
    return true;
  }

  Substitution substitution;
  GraphDescription graph;
  std::optional<Error> error;
};

}  // namespace

Result<GraphDescription> ReadGraphFile(std::string_view text, const std::string& file, const Variables& variables) {
  auto dot = ReadDot(text, file);
  if (const auto* error = std::get_if<Error>(&dot)) return *error;
  return Interpreter(file, variables).Interpret(std::get<DotGraph>(std::move(dot)));
}

}  // namespace vorn::graph
