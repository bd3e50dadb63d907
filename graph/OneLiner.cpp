#include "OneLiner.h"

#include <map>

#include "QuotedWords.h"

namespace vorn::graph {
namespace {

bool IsCut(const SplitWord& word) { return word.text == "!!" && !word.isQuoted; }

bool IsJoint(const SplitWord& word) { return IsCut(word) || (word.text == "!" && !word.isQuoted); }

class Reader {
 public:
  std::optional<Error> Add(const SplitWord& word) {
    if (IsJoint(word)) return Join(word.at, IsCut(word));
    if (!word.isQuoted && word.text.find('!') != word.text.npos)
      return Error{word.at, "'" + word.text + "' has a '!' in it; put blanks around it, or quotes"};
    if (blockIsOpen) {
      graph.nodes.back().args.push_back(word);
    } else {
      OpenBlock(word);
    }
    return std::nullopt;
  }

  std::optional<Error> End(const Origin& at) const {
    if (graph.nodes.empty()) return Error{at, "an empty pipeline; expected 'block argument ... ! block argument ...'"};
    if (!blockIsOpen) return Error{graph.edges.back().at, "expected a block behind this '!'"};
    return std::nullopt;
  }

  GraphDescription graph;

 private:
  std::optional<Error> Join(const Origin& at, bool isCut) {
    if (!blockIsOpen) return Error{at, "expected a block in front of this '!'"};
    const std::size_t from = graph.nodes.size() - 1;
    Edge edge;
    edge.from = {from, std::nullopt, graph.nodes[from].at};
    edge.at = at;
    edge.isCut = isCut;
    graph.edges.push_back(edge);
    blockIsOpen = false;
    return std::nullopt;
  }

  void OpenBlock(const Word& word) {
    Node node;
    const std::string name = ShortPlugInName(word.text);
    node.name = name + '_' + std::to_string(counts[name]++);
    node.at = word.at;
    node.plugIn = word;
    node.route = 0;
    graph.nodes.push_back(node);
    if (!graph.edges.empty()) graph.edges.back().to = {graph.nodes.size() - 1, std::nullopt, word.at};
    blockIsOpen = true;
  }

  bool blockIsOpen = false;
  std::map<std::string, unsigned> counts;
};

}  // namespace

Result<GraphDescription> ReadOneLiner(std::string_view text, const std::string& name) {
  const Origin start{name, 1, 1};
  const auto words = SplitWords(text, start);
  if (const auto* error = std::get_if<Error>(&words)) return *error;

  Reader reader;
  for (const SplitWord& word : std::get<0>(words)) {
    if (const auto error = reader.Add(word)) return *error;
  }
  if (const auto error = reader.End(start)) return *error;
  reader.graph.at = start;
  reader.graph.routes.push_back({"RouteA", {}, start});
  return std::move(reader.graph);
}

std::string ShortPlugInName(std::string_view plugIn) {
  plugIn.remove_prefix(plugIn.rfind('/') + 1);
  if (const auto suffix = plugIn.rfind(".so"); suffix != plugIn.npos) {
    plugIn = plugIn.substr(0, suffix);
    if (plugIn.starts_with("lib")) plugIn.remove_prefix(3);
  }
  return std::string(plugIn);
}

}  // namespace vorn::graph
