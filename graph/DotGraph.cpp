#include "DotGraph.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "DotLexer.h"

namespace vorn::graph {
namespace {

constexpr std::string_view CLUSTER_PREFIX = "cluster_";

using Attributes = std::vector<Attribute>;

/** The last one counts, as in Graphviz. */
void Set(Attributes& attributes, const Attribute& attribute) {
  const auto found = std::ranges::find(attributes, attribute.name, &Attribute::name);
  if (found == attributes.end()) {
    attributes.push_back(attribute);
  } else {
    *found = attribute;
  }
}

void SetAll(Attributes& attributes, const Attributes& more) {
  for (const Attribute& attribute : more) Set(attributes, attribute);
}

/** What holds between a pair of braces. The attributes of nodes and edges reach inner braces, but not out of them. */
struct Scope {
  Attributes nodeDefaults;
  Attributes edgeDefaults;
  std::optional<std::size_t> cluster;
  bool isGroup = false;
  std::vector<End> members;  // of a group
};

class Parser {
 public:
  Parser(std::string_view text, const std::string& file) : lexer(text, file) {}

  Result<DotGraph> Parse() {
    if (Advance() && Graph()) return std::move(graph);
    return *error;
  }

 private:
  bool Fail(const Origin& at, std::string text) {
    error = Error{at, std::move(text)};
    return false;
  }

  bool FailHere(const std::string& expected) {
    return Fail(token.at, "expected " + expected + ", got " + ToString(token));
  }

  bool Advance() {
    auto next = lexer.Next();
    if (auto* problem = std::get_if<Error>(&next)) return Fail(problem->at, problem->text);
    token = std::get<Token>(std::move(next));
    return true;
  }

  bool Expect(std::string_view symbol, const std::string& expected) {
    return token.Is(symbol) ? Advance() : FailHere(expected);
  }

  bool Graph() {
    if (token.Is("strict") || token.Is("graph"))
      return FailHere("'digraph', where links have a direction and may be many");
    if (!Expect("digraph", "'digraph name {'")) return false;
    if (token.IsId() && !Advance()) return false;
    if (!Expect("{", "'{'")) return false;
    Scope scope;
    if (!Statements(scope)) return false;
    return token.kind == Token::Kind::END || FailHere("nothing behind the graph");
  }

  /** Up to and with the closing brace. */
  bool Statements(Scope& scope) {
    while (!token.Is("}")) {
      if (token.kind == Token::Kind::END) return FailHere("'}'");
      if (!Statement(scope)) return false;
      if (token.Is(";") && !Advance()) return false;
    }
    return Advance();
  }

  bool Statement(Scope& scope) {
    if (token.Is("node") || token.Is("edge") || token.Is("graph")) return Defaults(scope);
    if (token.Is("subgraph")) return Subgraph(scope);
    if (token.Is("{")) return Chain(scope);
    if (!token.IsId()) return FailHere("a node, an attribute, 'subgraph' or '}'");
    const Token first = token;
    if (!Advance()) return false;
    return token.Is("=") ? GraphAttribute(scope, first) : Chain(scope, &first);
  }

  bool Defaults(Scope& scope) {
    const std::string what = token.text;
    if (!Advance()) return false;
    if (!token.Is("[")) return FailHere("'[' behind '" + what + "'");
    Attributes attributes;
    if (!AttributeLists(attributes)) return false;
    if (what == "node") SetAll(scope.nodeDefaults, attributes);
    if (what == "edge") SetAll(scope.edgeDefaults, attributes);
    if (what == "graph") {
      for (const Attribute& attribute : attributes) {
        if (!SetGraphAttribute(scope, attribute)) return false;
      }
    }
    return true;
  }

  bool GraphAttribute(Scope& scope, const Token& name) {
    Attribute attribute;
    return AttributeValue(name, attribute) && SetGraphAttribute(scope, attribute);
  }

  bool SetGraphAttribute(const Scope& scope, const Attribute& attribute) {
    if (scope.isGroup) {
      if (attribute.name == "rank") return true;  // for the drawing
      return Fail(attribute.at, "a group in braces takes no '" + attribute.name + "' (only 'rank')");
    }
    Set(scope.cluster ? graph.clusters[*scope.cluster].attributes : graph.attributes, attribute);
    return true;
  }

  bool Subgraph(Scope& outer) {
    const Origin at = token.at;
    if (!Advance()) return false;
    if (token.Is("{")) return Chain(outer);
    if (!token.IsId() || !token.text.starts_with(CLUSTER_PREFIX)) return FailHere("'cluster_RouteA' or '{'");
    if (outer.cluster || outer.isGroup)
      return Fail(at, "a route inside of something else; write it on the outermost level");
    const std::string name = token.text.substr(CLUSTER_PREFIX.size());
    if (std::ranges::find(graph.clusters, name, &DotCluster::name) != graph.clusters.end()) {
      return Fail(at, "'" + name + "' stands here a second time; write all of it in one place");
    }
    graph.clusters.push_back({name, at, {}});
    if (!Advance() || !Expect("{", "'{'")) return false;
    Scope scope{outer.nodeDefaults, outer.edgeDefaults, graph.clusters.size() - 1, false, {}};
    if (!Statements(scope)) return false;
    return !token.Is("->") || FailHere("no edge from a route as a whole; name the blocks");
  }

  /** A node, or edges along a chain of nodes and groups. @param first its first id, when that is read already. */
  bool Chain(Scope& scope, const Token* first = nullptr) {
    const bool isNode = first;
    std::vector<End> ends;
    if (!(first ? NodeEnd(scope, *first, ends) : GroupEnd(scope, ends))) return false;
    if (!token.Is("->")) {
      if (isNode && ends.front().port && !scope.isGroup)
        return Fail(ends.front().at, "a port has no meaning here, only in an edge");
      if (!token.Is("[")) return true;
      if (!isNode) return FailHere("no attributes behind a group; give them to its nodes");
      return NodeAttributes(ends.front().node);
    }
    if (scope.isGroup) return Fail(token.at, "an edge inside of a group; write it outside of the braces");

    const std::size_t firstEdge = graph.edges.size();
    while (token.Is("->")) {
      const Origin arrow = token.at;
      std::vector<End> heads;
      if (!Advance() || !AnyEnd(scope, heads)) return false;
      if (!Connect(scope, ends, heads, arrow)) return false;
      ends = std::move(heads);
    }
    Attributes attributes;
    if (token.Is("[") && !AttributeLists(attributes)) return false;
    for (std::size_t i = firstEdge; i < graph.edges.size(); ++i) SetAll(graph.edges[i].attributes, attributes);
    return true;
  }

  bool Connect(const Scope& scope, const std::vector<End>& tails, const std::vector<End>& heads, const Origin& arrow) {
    if (tails.empty() || heads.empty()) return Fail(arrow, "an edge to or from an empty group");
    if (graph.edges.size() + tails.size() * heads.size() > MOST_EDGES) {
      return Fail(arrow, "more than " + std::to_string(MOST_EDGES) + " edges");
    }
    for (const End& tail : tails) {
      for (const End& head : heads) graph.edges.push_back({tail, head, arrow, scope.edgeDefaults});
    }
    return true;
  }

  bool AnyEnd(Scope& scope, std::vector<End>& ends) {
    if (token.Is("subgraph")) {
      if (!Advance()) return false;
      if (!token.Is("{")) return FailHere("'{': an edge leads to nodes");
    }
    if (token.Is("{")) return GroupEnd(scope, ends);
    if (!token.IsId()) return FailHere("a node or a group in braces");
    const Token name = token;
    return Advance() && NodeEnd(scope, name, ends);
  }

  bool NodeEnd(Scope& scope, const Token& name, std::vector<End>& ends) {
    End end{0, std::nullopt, name.at};
    if (!FindNode(scope, name, end.node) || (token.Is(":") && !Port(end.port))) return false;
    if (token.Is(",")) return FailHere("no comma between nodes; use blanks or ';'");
    ends.push_back(end);
    return !scope.isGroup || Join(scope.members, end);
  }

  /** A group is a set: a node is in it once, whatever is said. */
  bool Join(std::vector<End>& members, const End& end) {
    const auto found = std::ranges::find(members, end.node, &End::node);
    if (found == members.end()) {
      members.push_back(end);
    } else if (found->port != end.port) {
      return Fail(end.at, "a node stands in a group once, with one port; write an edge for each port");
    }
    return true;
  }

  bool GroupEnd(const Scope& outer, std::vector<End>& ends) {
    if (outer.isGroup) return FailHere("no group inside of a group");
    Scope scope{outer.nodeDefaults, outer.edgeDefaults, outer.cluster, true, {}};
    if (!Advance() || !Statements(scope)) return false;
    ends = std::move(scope.members);
    return true;
  }

  bool Port(std::optional<std::size_t>& port) {
    if (!Advance()) return false;
    std::size_t number = 0;
    const char* const end = token.text.data() + token.text.size();
    const auto read = std::from_chars(token.text.data(), end, number);
    if (!token.IsId() || read.ec != std::errc() || read.ptr != end || number >= Endpoint::COUNT) {
      return FailHere("a port, 0 to " + std::to_string(Endpoint::COUNT - 1));
    }
    port = number;
    if (!Advance()) return false;
    return !token.Is(":") || FailHere("no compass point behind a port");
  }

  bool FindNode(const Scope& scope, const Token& name, std::size_t& index) {
    const auto [found, isNew] = indexOfNode.try_emplace(name.text, graph.nodes.size());
    index = found->second;
    if (isNew) graph.nodes.push_back({name.text, name.at, scope.nodeDefaults, std::nullopt});
    DotNode& node = graph.nodes[index];
    if (!scope.cluster) return true;
    if (node.cluster.value_or(*scope.cluster) != *scope.cluster) {
      return Fail(name.at, "node '" + name.text + "' stands in " + graph.clusters[*node.cluster].name + " and in " +
                               graph.clusters[*scope.cluster].name + "; write edges between routes outside of both");
    }
    node.cluster = scope.cluster;
    return true;
  }

  bool NodeAttributes(std::size_t node) {
    Attributes attributes;
    if (!AttributeLists(attributes)) return false;
    SetAll(graph.nodes[node].attributes, attributes);
    return true;
  }

  bool AttributeLists(Attributes& attributes) {
    while (token.Is("[")) {
      if (!Advance()) return false;
      while (!token.Is("]")) {
        if (!OneAttribute(attributes)) return false;
        if ((token.Is(",") || token.Is(";")) && !Advance()) return false;
      }
      if (!Advance()) return false;
    }
    return true;
  }

  bool OneAttribute(Attributes& attributes) {
    if (!token.IsId()) return FailHere("name=value or ']'");
    const Token name = token;
    if (!Advance()) return false;
    if (!token.Is("=")) return FailHere("'=' behind '" + name.text + "'");
    if (std::ranges::find(attributes, name.text, &Attribute::name) != attributes.end()) {
      return Fail(name.at, "'" + name.text + "' is given twice");
    }
    attributes.emplace_back();
    return AttributeValue(name, attributes.back());
  }

  /** From the '=' on. */
  bool AttributeValue(const Token& name, Attribute& attribute) {
    if (!Advance()) return false;
    if (!token.IsId()) return FailHere("a value for '" + name.text + "'");
    attribute = {name.text, token.text, name.at, token.textAt};
    return Advance();
  }

  static constexpr std::size_t MOST_EDGES = 100000;

  DotLexer lexer;
  Token token;
  DotGraph graph;
  std::map<std::string, std::size_t> indexOfNode;
  std::optional<Error> error;
};

}  // namespace

Result<DotGraph> ReadDot(std::string_view text, const std::string& file) { return Parser(text, file).Parse(); }

}  // namespace vorn::graph
