#include "Drawing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <vector>

#include "Program.h"
#include "support/Format.h"

namespace vorn_web {
namespace {

using support::Format;
using support::Json;
using support::ListOf;
using support::Member;
using support::NumberOf;
using support::TextOf;

constexpr std::chrono::seconds LONGEST_DRAWING{20};
constexpr double POINTS_PER_INCH = 72;
constexpr double BLOCK_HEIGHT = 76, FIFO_HEIGHT = 48;  // what the page writes into them: see page/picture.js
constexpr double LEAST_WIDTH = 148, MOST_WIDTH = 260, WIDTH_OF_A_LETTER = 7.6, MARGINS = 28;

struct Node {
  std::string route;  // empty: a FIFO
  std::string name;
  std::string shown;
  double Width() const {
    const auto letters = static_cast<double>(std::max(shown.size(), name.size()));
    return std::clamp(MARGINS + WIDTH_OF_A_LETTER * letters, LEAST_WIDTH, MOST_WIDTH);
  }
  double Height() const { return route.empty() ? FIFO_HEIGHT : BLOCK_HEIGHT; }
};

struct Edge {
  std::size_t from = 0, to = 0;
  std::string route, link;  // empty beside a FIFO
  std::string text;
  bool leadsOn = false;  // from a FIFO into the next route
};

/** A graph by numbers: those that the picture has in Graphviz's text. */
struct Parts {
  std::vector<std::string> routes;
  std::vector<Node> nodes;
  std::vector<Edge> edges;
};

std::string StreamText(const Json& link) {
  const double rate = NumberOf(link, "rate").value_or(0);
  const double channels = NumberOf(link, "channels").value_or(0);
  const std::string khz = rate >= 1000 ? Format("%g kHz", rate / 1000) : Format("%g Hz", rate);
  return khz + ' ' + TextOf(link, "format") + Format(" ×%g", channels);
}

/** Leaves the text of a stream where it begins: behind a block that has no such stream as an input. */
void ThinOut(std::vector<Edge>& edges) {
  std::set<std::pair<std::size_t, std::string>> inputs;
  for (const Edge& edge : edges) inputs.emplace(edge.to, edge.text);
  for (Edge& edge : edges) {
    if (inputs.contains({edge.from, edge.text})) edge.text.clear();
  }
}

/** The routes, those that write a FIFO before those that read it. */
std::vector<Json> InOrderOfFifos(const Json& graph) {
  std::vector<Json> routes(ListOf(graph, "routes").begin(), ListOf(graph, "routes").end());
  std::map<std::string, std::size_t> depths;
  for (std::size_t round = 0; round < routes.size(); ++round) {  // more would be needed in a loop only
    for (const Json& fifo : ListOf(graph, "fifos")) {
      const std::string writer = TextOf(Member(fifo, "writer"), "route"),
                        reader = TextOf(Member(fifo, "reader"), "route");
      if (!writer.empty() && writer != reader) depths[reader] = std::max(depths[reader], depths[writer] + 1);
    }
  }
  std::ranges::stable_sort(routes, {}, [&](const Json& route) { return depths[TextOf(route, "name")]; });
  return routes;
}

Parts PartsOf(const Json& graph) {
  Parts parts;
  std::map<std::pair<std::string, std::string>, std::size_t> numbers;
  const auto number = [&](const std::string& route, const Json& end) -> std::optional<std::size_t> {
    const auto found = numbers.find({route, TextOf(end, "block")});
    return found == numbers.end() ? std::nullopt : std::optional(found->second);
  };
  for (const Json& route : InOrderOfFifos(graph)) {
    const std::string& name = parts.routes.emplace_back(TextOf(route, "name"));
    for (const Json& block : ListOf(route, "blocks")) {
      numbers[{name, TextOf(block, "name")}] = parts.nodes.size();
      const std::string label = TextOf(block, "label");
      parts.nodes.push_back({name, TextOf(block, "name"), label});
    }
    for (const Json& link : ListOf(route, "links")) {
      const auto from = number(name, Member(link, "from")), to = number(name, Member(link, "to"));
      if (from && to) parts.edges.push_back({*from, *to, name, TextOf(link, "name"), StreamText(link)});
    }
  }
  ThinOut(parts.edges);
  for (const Json& fifo : ListOf(graph, "fifos")) {
    const std::size_t self = parts.nodes.size();
    parts.nodes.push_back({"", TextOf(fifo, "name"), ""});
    const Json &writer = Member(fifo, "writer"), &reader = Member(fifo, "reader");
    if (const auto from = number(TextOf(writer, "route"), writer)) parts.edges.push_back({*from, self, "", "", ""});
    if (const auto to = number(TextOf(reader, "route"), reader)) parts.edges.push_back({self, *to, "", "", "", true});
  }
  return parts;
}

/** Letters that take about the room of a text. */
std::string Placeholder(const std::string& text) { return std::string(text.size(), 'x'); }

std::string ToDot(const Parts& parts, Layout layout) {
  const bool isTall = layout == Layout::TALL;
  std::string dot = Format(
      "digraph {\n"
      "graph [rankdir=%s, nodesep=0.3, ranksep=%s, margin=0.05, pad=0, fontsize=15]\n"
      "node [shape=box, fixedsize=true, label=\"\"]\n"
      "edge [fontsize=%s, fontname=Helvetica, arrowsize=0.7]\n",
      isTall ? "TB" : "LR", isTall ? "0.35" : "0.38", isTall ? "9" : "8");
  const auto place = [&](std::size_t i) {
    const Node& node = parts.nodes[i];
    dot +=
        Format("n%zu [width=%.3f, height=%.3f]\n", i, node.Width() / POINTS_PER_INCH, node.Height() / POINTS_PER_INCH);
  };
  for (std::size_t route = 0; route < parts.routes.size(); ++route) {
    dot += Format("subgraph cluster%zu {\nmargin=12\nlabel=\"xxxxxxxxxxxxxx\"\n", route);
    bool isEmpty = true;
    for (std::size_t i = 0; i < parts.nodes.size(); ++i) {
      if (parts.nodes[i].route != parts.routes[route] || parts.nodes[i].route.empty()) continue;
      place(i);
      isEmpty = false;
    }
    if (isEmpty)
      dot += Format("e%zu [width=2.2, height=0.5]\n", route);  // Graphviz leaves out a cluster without a node
    dot += "}\n";
  }
  for (std::size_t i = 0; i < parts.nodes.size(); ++i) {
    if (parts.nodes[i].route.empty()) place(i);
  }
  for (std::size_t i = 0; i < parts.edges.size(); ++i) {
    const Edge& edge = parts.edges[i];
    dot += Format("n%zu -> n%zu [id=%zu, label=\"%s\"%s]\n", edge.from, edge.to, i, Placeholder(edge.text).c_str(),
                  edge.leadsOn && layout == Layout::STACKED ? ", constraint=false" : "");
  }
  return dot + "}\n";
}

std::vector<double> NumbersOf(std::string text) {
  std::ranges::replace(text, ',', ' ');
  std::istringstream words(text);
  std::vector<double> numbers;
  for (double number = 0; words >> number;) numbers.push_back(number);
  return numbers;
}

double Rounded(double value) { return std::round(value * 10) / 10; }

/** Turns what Graphviz says, with y upwards, into the page's picture. */
class Picture {
 public:
  Picture(const Parts& newParts, const Json& placed) : parts(newParts), height(CornersOf(placed)[3]) {
    picture = {{"width", CornersOf(placed)[2]}, {"height", height}};
    for (const char* list : {"routes", "blocks", "fifos", "edges"}) picture[list] = Json::array();
    for (const Json& object : ListOf(placed, "objects")) Place(object);
    for (const Json& edge : ListOf(placed, "edges")) PlaceEdge(edge);
  }

  Json picture;

 private:
  /** Left, bottom, right, top. */
  static std::vector<double> CornersOf(const Json& object) {
    std::vector<double> corners = NumbersOf(TextOf(object, "bb"));
    corners.resize(4);
    return corners;
  }

  void Place(const Json& object) {
    const std::string name = TextOf(object, "name");
    std::size_t number = 0;
    if (std::sscanf(name.c_str(), "cluster%zu", &number) == 1 && number < parts.routes.size()) {
      const auto corners = CornersOf(object);
      picture["routes"].push_back({{"name", parts.routes[number]},
                                   {"x", corners[0]},
                                   {"y", Rounded(height - corners[3])},
                                   {"width", Rounded(corners[2] - corners[0])},
                                   {"height", Rounded(corners[3] - corners[1])}});
    } else if (std::sscanf(name.c_str(), "n%zu", &number) == 1 && number < parts.nodes.size()) {
      PlaceNode(parts.nodes[number], NumbersOf(TextOf(object, "pos")));
    }
  }

  void PlaceNode(const Node& node, std::vector<double> centre) {
    centre.resize(2);
    Json place = {{"name", node.name},
                  {"x", Rounded(centre[0] - node.Width() / 2)},
                  {"y", Rounded(height - centre[1] - node.Height() / 2)},
                  {"width", Rounded(node.Width())},
                  {"height", node.Height()}};
    if (!node.route.empty()) place["route"] = node.route;
    picture[node.route.empty() ? "fifos" : "blocks"].push_back(std::move(place));
  }

  /** "e,x,y" of the arrow's tip, and the points of the curve: its begin, and three for each piece. */
  void PlaceEdge(const Json& edge) {
    std::size_t index = 0;
    const std::string id = TextOf(edge, "id"), pos = TextOf(edge, "pos");
    if (std::sscanf(id.c_str(), "%zu", &index) != 1 || index >= parts.edges.size() || pos.substr(0, 2) != "e,") return;
    const std::vector<double> points = NumbersOf(pos.substr(2));
    if (points.size() < 10) return;
    std::string path;
    for (std::size_t i = 2; i + 1 < points.size(); i += 2) {
      path += Format("%s%.1f %.1f", i == 2 ? "M" : i == 4 ? "C" : " ", points[i], height - points[i + 1]);
    }
    path += Format("L%.1f %.1f", points[0], height - points[1]);
    std::vector<double> text = NumbersOf(TextOf(edge, "lp"));
    text.resize(2);
    const Edge& part = parts.edges[index];
    picture["edges"].push_back({{"path", path},
                                {"text", part.text},
                                {"textX", Rounded(text[0])},
                                {"textY", Rounded(height - text[1])},
                                {"route", part.route},
                                {"link", part.link}});
  }

  const Parts& parts;
  const double height;
};

}  // namespace

std::string ShapeOf(const Json& graph) {
  const Parts parts = PartsOf(graph);
  Json shape = Json::array();
  for (const std::string& route : parts.routes) shape.push_back(route);
  for (const Node& node : parts.nodes) shape.push_back(Json::array({node.route, node.name, node.shown}));
  for (const Edge& edge : parts.edges) shape.push_back(Json::array({edge.from, edge.to, edge.link, edge.text}));
  return support::ToText(shape);
}

std::string ToDot(const Json& graph, Layout layout) { return ToDot(PartsOf(graph), layout); }

Json Draw(const Json& graph, Layout layout) {
  const Parts parts = PartsOf(graph);
  const ProgramResult run = RunProgram({"dot", "-Tjson0"}, ToDot(parts, layout), LONGEST_DRAWING);
  if (!run.problem.empty()) return {{"error", "no picture: " + run.problem + " (it comes with Graphviz)"}};
  const Json placed = Json::parse(run.output, nullptr, false);
  if (!placed.is_object()) return {{"error", "no picture: 'dot' said something that is no JSON"}};
  return Picture(parts, placed).picture;
}

}  // namespace vorn_web
