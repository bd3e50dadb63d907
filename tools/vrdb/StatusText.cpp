#include "StatusText.h"

#include <algorithm>
#include <cctype>

#include "Names.h"
#include "support/Format.h"

namespace vrdb {
namespace {

using support::Format;
using support::ListOf;
using support::Member;
using support::NumberOf;
using support::TextOf;

constexpr std::size_t LONGEST_LINE = 255;

double Number(const Json& object, const char* name) { return NumberOf(object, name).value_or(0); }

const char* Plural(double count) { return count >= 2 ? "s" : ""; }

std::string RouteLine(const Json& route, const Json& stats) {
  const double frames = Number(stats, "frames");
  const double errors = Number(stats, "errorFrames");
  return Format("%s is %s, %.0f frame%s processed OK, %.0f error frame%s\n", Shown(route, "name").c_str(),
                StatusWord(Shown(route, "status")).c_str(), frames, Plural(frames), errors, Plural(errors));
}

std::string EndLine(const Json& link, const char* side, const char* direction, const Json& end) {
  return Format("\t\t(%s%02.0f) %s %-7s%7.0fHz %8s %2.0fch %6.0fsamples/frame\n", side, Number(end, "port"), direction,
                Shown(link, "name").c_str(), Number(link, "rate"), Shown(link, "format").c_str(),
                Number(link, "channels"), Number(link, "samplesPerFrame"));
}

std::string BlockLines(const Json& route, const Json& block) {
  std::string inputs, outputs;
  const std::string name = TextOf(block, "name");
  for (const Json& link : ListOf(route, "links")) {
    const Json& from = Member(link, "from");
    const Json& to = Member(link, "to");
    if (TextOf(to, "block") == name) inputs += EndLine(link, "I", "<--", to);
    if (TextOf(from, "block") == name) outputs += EndLine(link, "O", "-->", from);
  }
  return "\t" + BlockTitle(block) + "\n" + inputs + outputs;
}

std::string FifoLine(const Json& fifo) {
  const double count = Number(fifo, "count");
  const double capacity = Number(fifo, "capacity");
  return Format("%s %.0f/%.0f (%.0f%%)\n", Shown(fifo, "name").c_str(), count, capacity,
                capacity > 0 ? count * 100 / capacity : 0);
}

}  // namespace

std::string StatusWord(const std::string& status) {
  if (status == "broken") return "BROKEN_RUNNING";
  if (status == "deleted") return "EXIT";
  std::string word = status;
  std::transform(word.begin(), word.end(), word.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  return word;
}

std::string StatusText(const Json& graph, const Json& stats) {
  std::string text;
  for (const Json& route : ListOf(graph, "routes")) {
    text += RouteLine(route, RouteOf(stats, TextOf(route, "name")));
    for (const Json& block : ListOf(route, "blocks")) text += BlockLines(route, block);
  }
  if (text.empty()) text = "No route\n";
  for (const Json& fifo : ListOf(graph, "fifos")) text += FifoLine(fifo);
  return ListOf(graph, "fifos").empty() ? text + "No fifo\n" : text;
}

Json StatusJson(const Json& graph, const Json& stats) {
  Json both = graph;
  both["request"] = "status";
  both["time"] = Member(stats, "time");
  if (!both["routes"].is_array()) return both;
  for (Json& route : both["routes"]) {
    const Json& counters = RouteOf(stats, TextOf(route, "name"));
    if (route.is_object() && counters.is_object()) route.update(counters);
  }
  both["fifos"] = ListOf(stats, "fifos");
  return both;
}

std::string_view TakeReportLine(std::string_view& text) {
  const auto end = text.substr(0, LONGEST_LINE).find('\n');
  const auto line = text.substr(0, std::min(end, LONGEST_LINE));
  text.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
  return line;
}

}  // namespace vrdb
