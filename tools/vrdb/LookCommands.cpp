#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "CommandTable.h"
#include "Guard.h"
#include "LocalCommands.h"
#include "Names.h"
#include "support/Format.h"
#include "support/Printable.h"
#include "support/TextTable.h"

namespace vrdb {
namespace {

using support::Format;
using support::ListOf;
using support::Member;
using support::NumberOf;
using support::TextOf;

constexpr std::chrono::milliseconds CENSUS{1000};
constexpr std::chrono::hours FOR_EVER{24 * 365};

std::string Or(const std::string& text, const char* other) { return text.empty() ? other : text; }

/** "12.3", or a dash where the process does not say. */
std::string Micros(const Json& object, const char* name) {
  const auto number = NumberOf(object, name);
  return number ? Format(*number < 1000 ? "%.1f" : "%.0f", *number) : "-";
}

std::string Percent(const Json& object, const char* name) {
  const auto share = NumberOf(object, name);
  return share ? Format("%.1f%%", 100 * *share) : "-";
}

void PrintRow(const Shell& shell, const std::string& line, bool isHead) {
  std::puts(shell.style(isHead ? Look::DIM : Look::PLAIN, line).c_str());
}

Result PrintWhy(Shell& shell, const std::string& route) {
  Json why;
  if (Result result = shell.Look({"why", route}, why); result.code != DONE) return result;
  std::puts(shell.style(LookOfStatus(TextOf(why, "why")), WhySentence(why)).c_str());
  return {};
}

void PrintTiming(const Shell& shell, const Json& answer) {
  std::vector<support::Row> rows = {{"ROUTE/BLOCK", "CALLS", "LAST", "MEAN", "P99", "WORST", "SINCE LOOK", "SHARE"}};
  for (const Json& route : ListOf(answer, "routes")) {
    const std::string frame = NumberOf(route, "frame") ? " (frame " + Micros(route, "frame") + ")" : "";
    rows.push_back({Shown(route, "name") + frame, "", Micros(route, "last"), Micros(route, "mean"),
                    Micros(route, "p99"), Micros(route, "worst"), Micros(route, "worstSinceLook"),
                    Percent(route, "share")});
    for (const Json& block : ListOf(route, "blocks")) {
      const auto calls = NumberOf(block, "calls");
      rows.push_back({"  " + BlockTitle(block), calls ? Format("%.0f", *calls) : "-", Micros(block, "last"),
                      Micros(block, "mean"), Micros(block, "p99"), Micros(block, "worst"), "",
                      Percent(block, "share")});
    }
  }
  const auto lines = support::TextTable(rows);
  for (const std::string& line : lines) PrintRow(shell, line, &line == &lines.front());
}

// "2026-01-31 12:34:56.789", as people here have their clocks.
std::string LocalTime(double seconds) {
  const auto whole = static_cast<std::time_t>(std::floor(seconds));
  tm parts{};
  localtime_r(&whole, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return text + Format(".%03d", static_cast<int>((seconds - std::floor(seconds)) * 1000));
}

std::string EventLine(const Json& event) {
  Words parts;
  for (const char* name : {"route", "block", "text"}) {
    if (std::string part = Shown(event, name); !part.empty()) parts.push_back(std::move(part));
  }
  return LocalTime(NumberOf(event, "time").value_or(0)) + "  " + Format("%-8s", Shown(event, "kind").c_str()) + "  " +
         Join(parts);
}

// The kept ones come in a list, each new one perhaps by itself.
void PrintEvents(const Json& answer, bool asJson) {
  const Json& events = Member(answer, "events");
  const Json list = events.is_array() ? events : Json::array({answer});
  for (const Json& event : list) std::puts((asJson ? support::ToText(event) : EventLine(event)).c_str());
  std::fflush(stdout);
}

Result FollowEvents(Shell& shell, bool asJson) {
  Json answer;
  if (Result result = shell.Look({"events"}, answer); result.code != DONE) return result;
  PrintEvents(answer, asJson);
  while (std::ferror(stdout) == 0) {
    const auto next = shell.target.Monitor()->Next({FOR_EVER, shell.patience.cancelled});
    if (!next.IsDone()) {
      shell.target.Forget();  // what is left on the connection is for nobody
      return ToResult(next);
    }
    PrintEvents(next.json, asJson);
  }
  return {};
}

Words RouteStates(const Json& graph) {
  Words states;
  for (const Json& route : ListOf(graph, "routes")) {
    states.push_back(Shown(route, "name") + " " + Shown(route, "status"));
  }
  return states;
}

std::string ConsoleOf(const Json& graph) {
  const Json& console = Member(Member(graph, "process"), "console");
  if (!console.is_boolean()) return "-";
  return console.get<bool>() ? "yes" : "no";
}

support::Row RowOf(const FoundProcess& process) {
  const bool known = process.peer.pid != 0;
  const std::string name = Shown(Member(process.graph, "process"), "name");
  return {std::to_string(process.pid), Or(name.empty() ? support::ProcessName(process.pid) : name, "-"),
          known ? support::UserName(process.peer.uid) : "-", ConsoleOf(process.graph),
          process.problem.empty() ? Or(Join(RouteStates(process.graph), ", "), "no route") : process.problem};
}

Json ToJson(const FoundProcess& process) {
  const support::Row row = RowOf(process);
  Json object = {{"pid", process.pid}, {"name", row[1]}, {"user", row[2]}};
  if (!process.problem.empty()) {
    object["error"] = process.problem;
    return object;
  }
  object["console"] = Member(Member(process.graph, "process"), "console");
  object["routes"] = Json::array();
  for (const Json& route : ListOf(process.graph, "routes")) {
    object["routes"].push_back({{"name", Member(route, "name")}, {"status", Member(route, "status")}});
  }
  return object;
}

}  // namespace

Result RunWhy(Shell& shell, const Words& words) {
  if (words.size() > 1) return PrintWhy(shell, words[1]);
  Json graph;
  if (Result result = shell.Look({"graph"}, graph); result.code != DONE) return result;
  for (const Json& route : ListOf(graph, "routes")) {
    if (Result result = PrintWhy(shell, TextOf(route, "name")); result.code != DONE) return result;
  }
  if (ListOf(graph, "routes").empty()) std::puts("No route");
  return {};
}

Result RunTiming(Shell& shell, const Words& words) {
  Words flags;
  if (Result result = ReadFlags(words, {"on", "off", "--json"}, flags); result.code != DONE) return result;
  const bool asJson = std::erase(flags, "--json") > 0;
  if (flags.size() > 1) return {WRONG_USAGE, "either on or off"};
  Words request = {"timing"};
  request.insert(request.end(), flags.begin(), flags.end());
  Json answer;
  if (Result result = shell.Look(request, answer); result.code != DONE) return result;
  if (asJson) {
    std::puts(support::ToText(answer, 2).c_str());
  } else if (!flags.empty()) {
    std::printf("Measuring is %s\n", flags[0].c_str());
  } else if (!support::IsTrue(answer, "on")) {
    return {FAILED, "nothing is measured; 'timing on' switches it on for the whole process"};
  } else {
    PrintTiming(shell, answer);
  }
  return {};
}

Result RunEvents(Shell& shell, const Words& words) {
  Words flags;
  if (Result result = ReadFlags(words, {"-f", "--follow", "--json"}, flags); result.code != DONE) return result;
  const bool asJson = std::erase(flags, "--json") > 0;
  if (!flags.empty()) return FollowEvents(shell, asJson);
  Json answer;
  if (Result result = shell.Look({"events", "once"}, answer); result.code != DONE) return result;
  PrintEvents(answer, asJson);
  return {};
}

Result RunLog(Shell& shell, const Words&) {
  Json answer;
  if (Result result = shell.Look({"log"}, answer); result.code != DONE) return result;
  const Json& available = Member(answer, "available");
  if (available.is_boolean() && !available.get<bool>()) {
    return {FAILED, shell.target.Name() + " keeps no lines of its log: its libtlogging.so is another one"};
  }
  for (const Json& line : ListOf(answer, "lines")) {
    if (line.is_string()) std::puts(support::Printable(line.get<std::string>(), "\t").c_str());
  }
  return {};
}

Result RunProcesses(Shell& shell, const Words& words) {
  Words flags;
  if (Result result = ReadFlags(words, {"--json"}, flags); result.code != DONE) return result;
  const auto limit = shell.patience.limit.count() == 0 ? CENSUS : std::min(CENSUS, shell.patience.limit);
  const std::vector<FoundProcess> processes = FindProcesses(limit);
  if (!flags.empty()) {
    Json list = Json::array();
    for (const FoundProcess& process : processes) list.push_back(ToJson(process));
    std::puts(support::ToText({{"processes", list}}, 2).c_str());
    return {};
  }
  if (processes.empty()) return {NO_CONSOLE, "no process that uses libvorn is running here"};
  std::vector<support::Row> rows = {{"PID", "NAME", "USER", "CONSOLE", "ROUTES"}};
  for (const FoundProcess& process : processes) rows.push_back(RowOf(process));
  const auto lines = support::TextTable(rows);
  for (const std::string& line : lines) PrintRow(shell, line, &line == &lines.front());
  return {};
}

}  // namespace vrdb
