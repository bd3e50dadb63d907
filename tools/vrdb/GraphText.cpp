#include <sstream>

#include "GraphPicture.h"
#include "Guard.h"
#include "Names.h"
#include "support/Format.h"
#include "support/Printable.h"

namespace vrdb {
namespace {

using support::Format;
using support::IsTrue;
using support::ListOf;
using support::Member;
using support::NumberOf;
using support::TextOf;

constexpr char HEAD[] =
    "digraph vorn {\n"
    "\tnode [shape=\"box\", style=\"filled,rounded\", color=\"gray40\", fillcolor=\"lightyellow\"]\n"
    "\tedge [color=\"steelblue\", fontcolor=\"gray25\"]\n";

constexpr char STANDING[] = "color=\"red\", fontcolor=\"red\"";

/** A text between quotes, its lines centred. */
std::string Quote(const Words& lines) {
  std::string quoted = "\"";
  for (const std::string& line : lines) {
    if (&line != &lines.front()) quoted += "\\n";
    for (const char letter : support::Printable(line)) {
      if (letter == '"' || letter == '\\') quoted += '\\';
      quoted += letter;
    }
  }
  return quoted + '"';
}

std::string Node(const std::string& route, const std::string& block) { return Quote({route + "_" + block}); }

std::string Whole(const Json& object, const char* name) {
  const auto number = NumberOf(object, name);
  return number ? Format("%.0f", *number) : "?";
}

std::string BlockLine(const std::string& route, const Json& block, const Json& stats) {
  Words lines = {TextOf(block, "name")};
  if (const std::string label = TextOf(block, "label"); !label.empty()) lines.push_back("'" + label + "'");
  if (IsTrue(block, "first")) lines.push_back("(first)");
  if (IsTrue(block, "last")) lines.push_back("(last)");
  const bool stands = Stands(stats) && TextOf(stats, "inBlock") == lines[0];
  return "\t\t" + Node(route, lines[0]) + " [label=" + Quote(lines) + (stands ? ", color=\"red\", penwidth=2" : "") +
         "]\n";
}

std::string LinkLine(const std::string& route, const Json& link) {
  const Json& from = Member(link, "from");
  const Json& to = Member(link, "to");
  const Words lines = {TextOf(link, "name"), Whole(link, "rate") + "Hz", TextOf(link, "format"),
                       Whole(link, "channels") + "ch", Whole(link, "samplesPerFrame") + " samples"};
  return "\t\t" + Node(route, TextOf(from, "block")) + "->" + Node(route, TextOf(to, "block")) +
         " [label=" + Quote(lines) + ", taillabel=" + Quote({Whole(from, "port")}) +
         ", headlabel=" + Quote({Whole(to, "port")}) + "]\n";
}

// The reason stands in lines of about this width, so that it does not make the picture wider than the graph.
Words Folded(const std::string& sentence) {
  constexpr std::size_t WIDTH = 60;
  Words lines = {""};
  std::istringstream words(sentence);
  for (std::string word; words >> word;) {
    if (!lines.back().empty() && lines.back().size() + word.size() > WIDTH) lines.emplace_back();
    lines.back() += (lines.back().empty() ? "" : " ") + word;
  }
  return lines;
}

std::string RouteText(const Json& route, const Json& stats) {
  const std::string name = TextOf(route, "name");
  const std::string why = TextOf(stats, "why");
  Words title = {name};
  const bool isPlain = why.empty() || why == "runs" || TextOf(stats, "text").empty();
  if (!isPlain) {
    for (const std::string& line : Folded(TextOf(stats, "text"))) title.push_back(line);
  }
  const bool isRed = Stands(stats) || why == "broken" || why == "dead";
  std::string text = "\tsubgraph " + Quote({"cluster_" + name}) + " {\n\t\tgraph [label=" + Quote(title) +
                     ", style=\"rounded\", " + (isRed ? STANDING : "color=\"gray60\"") + "]\n";
  for (const Json& block : ListOf(route, "blocks")) text += BlockLine(name, block, stats);
  for (const Json& link : ListOf(route, "links")) text += LinkLine(name, link);
  return text + "\t}\n";
}

std::string FifoText(const Json& fifo) {
  const std::string name = TextOf(fifo, "name");
  const std::string node = Quote({name});
  std::string text = "\t" + node + " [shape=\"ellipse\", style=\"filled\", label=" +
                     Quote({name, Whole(fifo, "count") + "/" + Whole(fifo, "capacity")}) + "]\n";
  const Json& writer = Member(fifo, "writer");
  const Json& reader = Member(fifo, "reader");
  if (!TextOf(writer, "block").empty()) {
    text += "\t" + Node(TextOf(writer, "route"), TextOf(writer, "block")) + "->" + node + "\n";
  }
  if (!TextOf(reader, "block").empty()) {
    text += "\t" + node + "->" + Node(TextOf(reader, "route"), TextOf(reader, "block")) + "\n";
  }
  return text;
}

}  // namespace

std::string GraphText(const Json& graph, const Json& stats) {
  std::string text = HEAD;
  for (const Json& route : ListOf(graph, "routes")) text += RouteText(route, RouteOf(stats, TextOf(route, "name")));
  for (const Json& fifo : ListOf(graph, "fifos")) text += FifoText(fifo);
  return text + "}\n";
}

}  // namespace vrdb
