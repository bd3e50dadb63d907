#include "SavedGraph.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "support/GraphText.h"
#include "support/Printable.h"

namespace vrdb {
namespace {

using support::IsTrue;
using support::Json;
using support::ListOf;
using support::Member;
using support::Named;
using support::NumberOf;
using support::Printable;
using support::TextOf;

using Objects = std::vector<const Json*>;

long WholeOf(const Json& object, const char* name) { return static_cast<long>(NumberOf(object, name).value_or(0)); }

std::string BlockAt(const Json& link, const char* end) { return TextOf(Member(link, end), "block"); }
long PortAt(const Json& link, const char* end) { return WholeOf(Member(link, end), "port"); }

/** By name, numbers in names by their value: gain_2 before gain_10. */
bool IsBefore(const Json* a, const Json* b) {
  const std::string one = TextOf(*a, "name"), other = TextOf(*b, "name");
  const auto stem = [](const std::string& name) { return name.substr(0, name.find_last_not_of("0123456789") + 1); };
  if (stem(one) != stem(other)) return one < other;
  return one.size() != other.size() ? one.size() < other.size() : one < other;
}

Objects Sorted(const Json& list) {
  Objects sorted;
  for (const Json& one : list) sorted.push_back(&one);
  std::ranges::sort(sorted, IsBefore);
  return sorted;
}

/** From the sources on, as people would write them; what goes round in a circle comes last. */
Objects Downstream(const Json& route) {
  Objects left = Sorted(ListOf(route, "blocks"));
  Objects ordered;
  std::set<std::string> waiting;
  for (const Json* block : left) waiting.insert(TextOf(*block, "name"));
  const auto isReady = [&](const Json* block) {
    return std::ranges::none_of(ListOf(route, "links"), [&](const Json& link) {
      return BlockAt(link, "to") == TextOf(*block, "name") && waiting.contains(BlockAt(link, "from"));
    });
  };
  while (!left.empty()) {
    auto next = std::ranges::find_if(left, isReady);
    if (next == left.end()) next = left.begin();
    waiting.erase(TextOf(**next, "name"));
    ordered.push_back(*next);
    left.erase(next);
  }
  return ordered;
}

/** gain for libgain.so; the file where that is no name of a plug-in. */
std::string ShortName(const std::string& soFile) {
  if (!soFile.starts_with("lib") || !soFile.ends_with(".so") || soFile.find('/') != soFile.npos) return soFile;
  const std::string name = soFile.substr(3, soFile.size() - 6);
  return name.empty() || name.find(".so") != name.npos ? soFile : name;
}

std::string StreamText(const Json& link) {
  return "rate=" + std::to_string(WholeOf(link, "rate")) + ", format=" + TextOf(link, "format") +
         ", channels=" + std::to_string(WholeOf(link, "channels"));
}

class Writer {
 public:
  Writer(const Json& newGraph, const Json& newParameters) : graph(newGraph), parameters(newParameters) {}

  SavedGraph Write(const std::string& folder) {
    for (const Json* route : Sorted(ListOf(graph, "routes"))) {
      if (!IsSaved(*route)) continue;
      routes.push_back(route);
      order.push_back(Downstream(*route));
    }
    NameBlocks();
    std::string body;
    for (std::size_t i = 0; i < routes.size(); ++i) body += Route(*routes[i], order[i]);
    body += Fifos();
    if (routes.empty()) return std::move(saved);
    saved.text = "// A running graph, as vrdb saved it.\n";
    if (!folder.empty()) saved.text += "// Relative paths in it start from " + Printable(folder) + "\n";
    for (const std::string& what : saved.leftOut) saved.text += "// Left out: " + what + "\n";
    saved.text += "digraph saved {\n  rankdir=LR\n  node [shape=box]\n" + body + "}\n";
    return std::move(saved);
  }

 private:
  void LeaveOut(const std::string& what) { saved.leftOut.push_back(Printable(what)); }

  bool IsSaved(const Json& route) {
    const std::string name = TextOf(route, "name"), status = TextOf(route, "status");
    if (ListOf(route, "blocks").empty()) return LeaveOut(name + ", which has no blocks"), false;
    if (status == "deleted") return LeaveOut(name + ", which is being deleted"), false;
    if (status == "broken") LeaveOut("links of " + name + " that were missing; vorn-run takes it with them only");
    return true;
  }

  /** After their labels, else their own names; a second one of a name gets that of its route in front. */
  void NameBlocks() {
    std::set<std::string> taken;
    for (std::size_t i = 0; i < routes.size(); ++i) {
      const std::string route = TextOf(*routes[i], "name");
      for (const Json* block : order[i]) {
        const std::string name = TextOf(*block, "name"), label = TextOf(*block, "label");
        std::string& node = names[{route, name}];
        for (const std::string& wish : {label, name, route + '_' + name}) {
          const bool isText = Printable(wish) == wish && !support::IsHardToWrite(wish);
          if (wish.empty() || !isText || taken.contains(wish)) continue;
          node = wish;
          break;
        }
        for (int number = 1; node.empty(); ++number) {
          const std::string wish = route + "_block_" + std::to_string(number);
          if (!taken.contains(wish)) node = wish;
        }
        taken.insert(node);
        saved.nodes.push_back({route, name, node});
      }
    }
  }

  const std::string& NodeOf(const std::string& route, const std::string& block) { return names[{route, block}]; }

  std::string Route(const Json& route, const Objects& blocks) {
    const std::string name = TextOf(route, "name");
    std::string text = "  subgraph cluster_" + name + " {\n    label=" + name + "\n";
    for (const Json* block : blocks) text += Block(route, *block);
    for (const Json* block : blocks) {
      Objects leaving;
      for (const Json& link : ListOf(route, "links")) {
        if (BlockAt(link, "from") == TextOf(*block, "name")) leaving.push_back(&link);
      }
      std::ranges::sort(leaving, {}, [](const Json* link) { return PortAt(*link, "from"); });
      for (const Json* link : leaving) text += Link(route, *link);
    }
    return text + "  }\n";
  }

  std::string Block(const Json& route, const Json& block) {
    const std::string name = TextOf(block, "name");
    const std::string& node = NodeOf(TextOf(route, "name"), name);
    const std::string plugIn = ShortName(TextOf(block, "plugIn"));
    if (plugIn.empty()) LeaveOut("what '" + node + "' is made of: nobody knows");
    const Json& told = Named(ListOf(Named(ListOf(parameters, "routes"), TextOf(route, "name")), "blocks"), name);
    const std::string text = Told(block, told, node) + Ends(route, block, node);
    std::string attributes = node == plugIn || plugIn.empty() ? "" : "block=" + support::DotId(plugIn);
    if (!text.empty()) attributes += attributes.empty() ? text.substr(2) : text;
    return "    " + support::NodeId(node) + (attributes.empty() ? "" : " [" + attributes + "]") + "\n";
  }

  /** A block that tells its parameters needs no argument beside those that were given a value. */
  std::string Told(const Json& block, const Json& told, const std::string& node) {
    support::BlockText text;
    const Json& table = Member(told, "parameters");
    const auto check = [&](const std::string& value) {
      constexpr const char* REPLACEMENT = "\xEF\xBF\xBD";  // stands for what is no UTF-8
      if (value.find(REPLACEMENT) != value.npos) LeaveOut("bytes of an argument of '" + node + "' that are no text");
      return value;
    };
    if (!table.is_array()) {
      for (const Json& arg : ListOf(block, "args")) {
        if (arg.is_string()) text.AddArgument(check(arg.get<std::string>()));
      }
      if (!Member(block, "args").is_array()) LeaveOut("the arguments of '" + node + "': nobody knows them");
      return text.ToString();
    }
    for (const Json& parameter : table) {
      if (TextOf(parameter, "access") == "read" || !IsGiven(parameter)) continue;
      text.AddParameter(TextOf(parameter, "name"), check(TextOf(parameter, "value")));
    }
    return text.ToString();
  }

  static bool IsGiven(const Json& parameter) {
    const Json& given = Member(parameter, "given");
    return given.is_boolean() ? given.get<bool>() : !TextOf(parameter, "value").empty();
  }

  /** Where they do not follow from the links. */
  std::string Ends(const Json& route, const Json& block, const std::string& node) {
    std::string text;
    for (const auto& [flag, end] : {std::pair{"first", "to"}, std::pair{"last", "from"}}) {
      const bool isLinked = std::ranges::any_of(ListOf(route, "links"), [&, end = end](const Json& link) {
        return BlockAt(link, end) == TextOf(block, "name");
      });
      if (!Member(block, flag).is_boolean() || IsTrue(block, flag) != isLinked) continue;
      if (isLinked)
        text += std::string(", ") + flag + "=true";
      else
        LeaveOut("that '" + node + "' is not " + flag + ", though nothing is linked there");
    }
    return text;
  }

  std::string Link(const Json& route, const Json& link) {
    const std::string name = TextOf(route, "name");
    return "    " + End(route, name, link, "from") + " -> " + End(route, name, link, "to") + " [" + StreamText(link) +
           ", frame=" + std::to_string(WholeOf(link, "samplesPerFrame")) + "]\n";
  }

  /** Graphviz warns of ports, so they are left out where there is one link only. */
  std::string End(const Json& route, const std::string& name, const Json& link, const char* end) {
    const std::string block = BlockAt(link, end);
    const auto links =
        std::ranges::count_if(ListOf(route, "links"), [&](const Json& other) { return BlockAt(other, end) == block; });
    const bool isPlain = links == 1 && PortAt(link, end) == 0;
    return support::NodeId(NodeOf(name, block)) + (isPlain ? "" : ':' + std::to_string(PortAt(link, end)));
  }

  /** In the order of their writers. */
  std::string Fifos() {
    std::string text;
    std::set<const Json*> written;
    const auto nodeAt = [&](const Json& fifo, const char* end) {
      const Json& user = Member(fifo, end);
      const auto found = names.find({TextOf(user, "route"), TextOf(user, "block")});
      return found == names.end() ? "" : found->second;
    };
    int number = 0;
    for (std::size_t i = 0; i < routes.size(); ++i) {
      for (const Json* block : order[i]) {
        for (const Json& fifo : ListOf(graph, "fifos")) {
          const std::string writer = nodeAt(fifo, "writer"), reader = nodeAt(fifo, "reader");
          if (writer != NodeOf(TextOf(*routes[i], "name"), TextOf(*block, "name"))) continue;
          if (writer.empty() || reader.empty()) continue;
          written.insert(&fifo);
          text += Fifo(fifo, *routes[i], *block, FifoName(number), writer, reader);
        }
      }
    }
    for (const Json* fifo : Sorted(ListOf(graph, "fifos"))) {
      if (written.contains(fifo)) continue;
      const std::string writer = nodeAt(*fifo, "writer"), reader = nodeAt(*fifo, "reader");
      LeaveOut(TextOf(*fifo, "name") + ", which " + User(writer) + " writes and " + User(reader) + " reads");
    }
    return text;
  }

  static std::string User(const std::string& node) { return node.empty() ? "no block" : "'" + node + "'"; }

  std::string FifoName(int& number) const {
    for (;; ++number) {
      const std::string name = "fifo_" + std::to_string(number);
      if (std::ranges::none_of(names, [&](const auto& node) { return node.second == name; })) {
        return ++number, name;
      }
    }
  }

  static std::string Fifo(const Json& fifo, const Json& route, const Json& block, const std::string& name,
                          const std::string& writer, const std::string& reader) {
    std::string stream;
    for (const Json& link : ListOf(route, "links")) {
      if (BlockAt(link, "to") == TextOf(block, "name")) stream = " [" + StreamText(link) + "]";
    }
    const long prefill = WholeOf(fifo, "prefill");
    return "  " + name + " [shape=ellipse, capacity=" + std::to_string(WholeOf(fifo, "capacity")) +
           (prefill > 0 ? ", prefill=" + std::to_string(prefill) : "") + "]\n  " + support::NodeId(writer) + " -> " +
           name + " -> " + support::NodeId(reader) + stream + "\n";
  }

  const Json& graph;
  const Json& parameters;
  SavedGraph saved;
  std::map<std::pair<std::string, std::string>, std::string> names;  // of nodes, by route and block
  std::vector<const Json*> routes;
  std::vector<Objects> order;  // of the blocks, by route
};

}  // namespace

SavedGraph SaveGraph(const Json& graph, const Json& parameters, const std::string& folder) {
  return Writer(graph, parameters).Write(folder);
}

}  // namespace vrdb
