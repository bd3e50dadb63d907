// What the two readers make of texts: shown in one line each, as name(plug-in 'arguments' parameters) and edges.
#include <gtest/gtest.h>

#include "GraphFile.h"
#include "OneLiner.h"
#include "testkit/Files.h"

namespace vorn::graph {
namespace {

std::string Show(const End& end, const GraphDescription& graph) {
  return graph.nodes[end.node].name + (end.port ? ":" + std::to_string(*end.port) : "");
}

std::string Show(const Node& node, const GraphDescription& graph) {
  if (node.isFifo)
    return node.name + "<" + std::to_string(node.capacity.value_or(0)) + "/" + std::to_string(node.prefill) + ">";
  std::string text = graph.routes.size() > 1 ? graph.routes[node.route].name.substr(5) + "." : "";
  text += node.name + "(" + node.plugIn.text;
  for (const Word& arg : node.args) text += " '" + arg.text + "'";
  for (const Attribute& parameter : node.parameters) text += " " + parameter.name + "=" + parameter.value;
  if (node.first) text += *node.first ? " first" : " not-first";
  if (node.last) text += *node.last ? " last" : " not-last";
  return text + ")";
}

std::string Show(const Result<GraphDescription>& result) {
  if (const auto* error = std::get_if<Error>(&result)) return error->ToString();
  const auto& graph = std::get<GraphDescription>(result);
  std::string text;
  for (const RouteDescription& route : graph.routes) {
    const std::string defaults = StreamText(route.defaults);
    if (!defaults.empty()) text += route.name + "[" + defaults + "] ";
  }
  for (const Node& node : graph.nodes) text += Show(node, graph) + " ";
  for (const Edge& edge : graph.edges) {
    text += Show(edge.from, graph) + (edge.isCut ? ">>" : ">") + Show(edge.to, graph) +
            (StreamText(edge.stream).empty() ? "" : "[" + StreamText(edge.stream) + "]") + " ";
  }
  return text;
}

struct Case {
  const char* text;
  const char* shown;  ///< Of a mistake: how the message begins.
};

TEST(OneLiner, Reads) {
  const Case cases[] = {
      {"a ! b -6 x=1 !! b", "a_0(a) b_0(b '-6' 'x=1') b_1(b) a_0>b_0 b_0>>b_1 "},
      {R"(src 'my song.wav' "it's \"x\"" a\ b\! '!' '\' "" ! ./lib/libx.so.1 ! y.so)",
       R"(src_0(src 'my song.wav' 'it's "x"' 'a b!' '!' '\' '') x_0(./lib/libx.so.1) y_0(y.so) src_0>x_0 x_0>y_0 )"},
      {" tone\n", "tone_0(tone) "},
      {"", "-e:1:1: an empty pipeline"},
      {"! a", "-e:1:1: expected a block in front"},
      {"a !\n ! b", "-e:2:2: expected a block in front"},
      {"a ! b x !", "-e:1:9: expected a block behind"},
      {"a\n  b 'c", "-e:2:5: this ' is never closed"},
      {"a b! c", "-e:1:3: 'b!' has a '!' in it; put blanks around it, or quotes"},
      {"a b\\", "-e:1:4: a backslash ends the text"},
  };
  for (const auto& [text, shown] : cases) EXPECT_EQ(Show(ReadOneLiner(text, "-e")).substr(0, strlen(shown)), shown);
}

const Variables VARIABLES = {{"in", "my file.wav"}, {"n", "7"}};

const Case GRAPHS[] = {
    // Blocks, arguments, parameters, variables; every kind of blank, comment and id.
    {"digraph { src [block=filesource, args=\"$in x='b c' \\\"$in\\\" $$5\"] gain [gain=-6; ramp=.5 x=\"${n}s\"][y=5.] "
     "src->gain }",
     "src(filesource 'my file.wav' 'x=b c' 'my file.wav' '$5') gain(gain gain=-6 ramp=.5 x=7s y=5.) src>gain "},
    {"DIGRAPH \"x y\" {\n# one\n// two\n/* three\n*/ frame=480 # four\n rate=\"$n\"; graph [channels=1 label=\"$\"]; "
     "\"a b\" -> é\n}\n# five",
     "RouteA[rate=7 channels=1 frame=480] a b(a b) é(é) a b>é "},
    {"digraph { \"node\" [args=\"a\\\n b \\\\ c\"] }", "node(node 'a' 'b' '\\' 'c') "},
    // Edges: chains, groups, ports, attributes; defaults hold from where they stand, and inside of their braces.
    {"digraph { a:1 -> {b c:2} -> d [rate=8000 color=red] subgraph {e f} -> a }",
     "a(a) b(b) c(c) d(d) e(e) f(f) a:1>b[rate=8000] a:1>c:2[rate=8000] b>d[rate=8000] c:2>d[rate=8000] e>a f>a "},
    {"digraph { {rank=same; a; b [x=1]} b:0 -> c; b:1 -> c:31 }", "a(a) b(b x=1) c(c) b:0>c b:1>c:31 "},
    {"digraph { a node [shape=box block=gain gain=1] edge [format=S16_LE] b a->b { node [gain=2] c } -> d "
     "[format=BYTE] e [gain=3] }",
     "a(a) b(gain gain=1) c(gain gain=2) d(gain gain=1) e(gain gain=3) a>b[format=S16_LE] c>d[format=BYTE] "},
    {"digraph { a [first=true last=false] }", "a(a first not-last) "},
    {"digraph { edge [cut=true] a -> b -> c [cut=false]; b -> d }", "a(a) b(b) c(c) d(d) a>b b>c b>>d "},
    // Routes and FIFOs.
    {"digraph { rate=1 frame=2 subgraph cluster_RouteB { rate=3 a->b } subgraph cluster_RouteA { c } "
     "f [shape=ellipse capacity=9 prefill=\"$n\"] b -> f -> c }",
     "RouteB[rate=3 frame=2] RouteA[rate=1 frame=2] B.a(a) B.b(b) A.c(c) f<9/7> a>b b>f f>c "},
};

const Case MISTAKES[] = {
    {"", "f:1:1: expected 'digraph name {', got the end of the file"},
    {"graph { a -- b }", "f:1:1: expected 'digraph',"},
    {"strict digraph { a }", "f:1:1: expected 'digraph',"},
    {"digraph { }", "f: the graph is empty"},
    {"digraph { a } digraph { b }", "f:1:15: expected nothing behind the graph, got 'digraph'"},
    {"digraph { a -> b", "f:1:17: expected '}', got the end"},
    {"digraph {\n a [x=1\n", "f:3:1: expected name=value or ']', got the end"},
    {"digraph { a [x] }", "f:1:15: expected '=' behind 'x', got ']'"},
    {"digraph { a [x=] }", "f:1:16: expected a value for 'x', got ']'"},
    {"digraph { a [x=1 y=2 x=3] }", "f:1:22: 'x' is given twice"},
    {"digraph { a [x=$in] }", "f:1:16: a '$' outside of quotes"},
    {"digraph { a [x=<b>] }", "f:1:16: HTML"},
    {"digraph { a [x=\"1\" + \"2\"] }", "f:1:20: joining strings"},
    {"digraph { a [x=\"y }", "f:1:16: this string is never closed"},
    {"digraph { a /* }", "f:1:13: this comment is never closed"},
    {"digraph { a [x=1e3] }", "f:1:16: '1e' is neither a number nor a name"},
    {"digraph { a - b }", "f:1:13: '-' is not taken here"},
    {"digraph { a -- b }", "f:1:13: '--' has no direction"},
    {"digraph { a;; b }", "f:1:13: expected a node,"},
    {"digraph { a -> }", "f:1:16: expected a node or a group"},
    {"digraph { a, b -> c }", "f:1:12: expected no comma"},
    {"digraph { a -> {} }", "f:1:13: an edge to or from an empty group"},
    {"digraph { a -> {b -> c} }", "f:1:19: an edge inside of a group"},
    {"digraph { a -> {b {c}} }", "f:1:19: expected no group inside"},
    {"digraph { a -> {b:1 b:2} }", "f:1:21: a node stands in a group once"},
    {"digraph { {a b} [x=1] }", "f:1:17: expected no attributes behind a group"},
    {"digraph { {rate=1 a} }", "f:1:12: a group in braces takes no 'rate'"},
    {"digraph { a:1 }", "f:1:11: a port has no meaning here"},
    {"digraph { a:n -> b }", "f:1:13: expected a port, 0 to 31, got 'n'"},
    {"digraph { a:32 -> b }", "f:1:13: expected a port, 0 to 31, got '32'"},
    {"digraph { a:1:n -> b }", "f:1:14: expected no compass point"},
    {"digraph { node a }", "f:1:16: expected '[' behind 'node'"},
    {"digraph { subgraph x { a } }", "f:1:20: expected 'cluster_RouteA' or '{'"},
    {"digraph { subgraph cluster_x { a } }", "f:1:11: a route is called cluster_RouteA to"},
    {"digraph { subgraph cluster_RouteA { a subgraph cluster_RouteB { b } } }", "f:1:39: a route inside"},
    {"digraph { subgraph cluster_RouteA { a } subgraph cluster_RouteA { b } }",
     "f:1:41: 'RouteA' stands here a second"},
    {"digraph { subgraph cluster_RouteA { a } subgraph cluster_RouteB { b -> a } }",
     "f:1:72: node 'a' stands in RouteA and"},
    {"digraph { subgraph cluster_RouteA { a } subgraph cluster_RouteB { f [shape=ellipse] } }",
     "f:1:41: RouteB is empty; expected blocks"},
    {"digraph { subgraph cluster_RouteA { a } -> b }", "f:1:41: expected no edge from a route"},
    {"digraph { subgraph cluster_RouteA { a } a -> b }", "f:1:46: block 'b' is in none of the routes"},
    {"digraph { size=3 a }", "f:1:11: a graph has no attribute 'size'"},
    {"digraph { rate=0 a }", "f:1:16: rate: expected a whole number from 1 to 10000000, got '0'"},
    {"digraph { a -> b [format=S16] }", "f:1:26: format: expected one of BYTE S16_LE"},
    {"digraph { a -> b [key=3] }", "f:1:19: an edge has no attribute 'key'; expected rate, format, channels, frame or"},
    {"digraph { a -> b [cut=1] }", "f:1:23: cut: expected true or false, got '1'"},
    {"digraph { a [shape=circle] }", "f:1:20: shape: expected 'ellipse' for a FIFO"},
    {"digraph { f [shape=ellipse size=3] }", "f:1:28: FIFO 'f' has no attribute 'size'"},
    {"digraph { f [shape=ellipse capacity=5 prefill=6] }", "f:1:11: FIFO 'f': prefill 6 is more than"},
    {"digraph { f [shape=ellipse prefill=-1] }", "f:1:36: prefill: expected a number of samples"},
    {"digraph { a [first=yes] }", "f:1:20: first: expected true or false, got 'yes'"},
    {"digraph { a [args=\"x 'y\"] }", "f:1:22: this ' is never closed"},
    {"digraph { a [x=\"$out\"] }", "f:1:17: $out has no value; add out=..."},
    {"digraph { a [args=\"y $\"] }", "f:1:22: a lone '$'"},
    {"digraph { a [x=\"${in\"] }", "f:1:17: a lone '$'"},
    {"digraph { a [x=\"$in\"] }", "f: 'n=7' fills nothing; the file has $in"},
};

Result<GraphDescription> ReadWhatItUses(const std::string& text, const Variables& all) {
  Variables used;
  for (const auto& [name, value] : all) {
    if (text.find("$" + name) != text.npos || text.find("${" + name) != text.npos) used[name] = value;
  }
  return ReadGraphFile(text, "f", used);
}

TEST(GraphFile, Reads) {
  for (const auto& [text, shown] : GRAPHS) EXPECT_EQ(Show(ReadWhatItUses(text, VARIABLES)), shown) << text;
}

TEST(GraphFile, SaysWhatIsWrongAndWhere) {
  for (const auto& [text, begin] : MISTAKES) {
    const bool usesNone = std::string_view(begin).find("fills nothing") == std::string_view::npos;
    const std::string shown = Show(usesNone ? ReadWhatItUses(text, {{"in", ""}}) : ReadGraphFile(text, "f", VARIABLES));
    EXPECT_EQ(shown.substr(0, strlen(begin)), begin) << text;
  }
}

// Red if a text is taken that Graphviz refuses, or if a listing of the manual is not.
TEST(GraphFile, IsWhatGraphvizTakes) {
  if (std::system("dot -V 2>/dev/null") != 0) GTEST_SKIP() << "no Graphviz";
  std::vector<std::string> texts;
  for (const Case& graph : GRAPHS) texts.emplace_back(graph.text);
  const std::string manual = testkit::Contents(GRAPH_FILES_MANUAL);
  for (std::size_t at = 0; (at = manual.find("```dot\n", at)) != manual.npos;) {
    at += 7;
    texts.push_back(manual.substr(at, manual.find("```", at) - at));
    const auto read = ReadWhatItUses(texts.back(), {{"in", "x"}, {"out", "y"}, {"near", "n"}, {"far", "f"}});
    EXPECT_TRUE(std::holds_alternative<GraphDescription>(read)) << Show(read) << "\n" << texts.back();
  }
  EXPECT_GE(texts.size(), std::size(GRAPHS) + 4);
  const testkit::Folder folder;
  for (const std::string& text : texts) {
    EXPECT_EQ(std::system(("dot -Tplain >/dev/null " + testkit::Write(folder / "dot", text)).c_str()), 0) << text;
  }
}

}  // namespace
}  // namespace vorn::graph
