#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "CommandTable.h"
#include "Guard.h"
#include "LocalCommands.h"
#include "Names.h"
#include "StatusText.h"

namespace vrdb {
namespace {

// "RouteA is RUNNING, ...": the name and the status stand out.
std::string DressRoute(std::string_view line, const Style& style) {
  const auto is = line.find(" is ");
  const auto comma = line.find(", ");
  if (is == std::string_view::npos || comma < is) return std::string(line);
  const auto status = line.substr(is + 4, comma - is - 4);
  return style(Look::BOLD, line.substr(0, is)) + " is " + style(LookOfStatus(status), status) +
         std::string(line.substr(comma));
}

// Tabs and a wide time stamp would not leave 80 columns enough for the rest.
std::string DressEndpoint(std::string_view line) {
  const auto indentation = line.find_first_not_of('\t');
  std::string dressed(2 * std::min(indentation, line.size()), ' ');
  const auto gap = line.rfind("  ");
  const auto stamp = line.find_first_not_of(' ', gap);
  if (indentation < 2 || line.find("samples/frame") > gap || stamp == std::string_view::npos) {
    return dressed.append(line.substr(std::min(indentation, line.size())));
  }
  const auto end = line.find("samples/frame") + std::string_view("samples/frame").size();
  return dressed.append(line.substr(indentation, end - indentation)).append("  ").append(line.substr(stamp));
}

// Why a route stands that looks as if it ran.
std::string WhyLine(std::string_view routeLine, const Json& stats, const Style& style) {
  const std::string name(routeLine.substr(0, routeLine.find(" is ")));
  const Json& route = support::Named(support::ListOf(stats, "routes"), name);
  const std::string why = support::TextOf(route, "why");
  const bool isPlain = why.empty() || why == "runs" || support::TextOf(route, "text").empty();
  return isPlain ? "" : "  " + style(Stands(route) ? Look::RED : Look::DIM, Shown(route, "text")) + "\n";
}

std::string Dress(std::string_view report, const Json& stats, const Style& style) {
  std::string dressed;
  while (!report.empty()) {
    const auto line = TakeReportLine(report);
    const bool isPart = line.substr(0, 1) == "\t";
    dressed += (isPart ? DressEndpoint(line) : DressRoute(line, style)) + "\n";
    if (!isPart) dressed += WhyLine(line, stats, style);
  }
  return dressed;
}

Result ReportByMonitor(Shell& shell, const std::string& why, std::string& report) {
  Json graph, stats;
  if (Result result = shell.Look({"graph"}, graph); result.code != DONE) return result;
  if (Result result = shell.Look({"stats"}, stats); result.code != DONE) return result;
  shell.Notice(why + "; the monitor says:");
  report = StatusText(graph, stats);
  return {};
}

/** The console's text, or the like of it where there is no console, or one that answers nobody. */
Result TakeReport(Shell& shell, const Words& words, std::string& report) {
  if (Result result = shell.target.Choose(shell.patience); result.code != DONE) return result;
  if (!shell.target.HasConsole(shell.patience)) {
    if (words.size() > 1) return {NO_CONSOLE, shell.target.Name() + " has no console; 'graph' draws what there is"};
    return ReportByMonitor(shell, shell.target.Name() + " has no console", report);
  }
  const Patience patience = shell.patience;
  shell.patience.turn = std::chrono::seconds(1);
  Result result = shell.Ask(words, report);
  shell.patience = patience;
  if (result.code != NO_CONSOLE || words.size() > 1) return result;
  const bool isThere =
      ReportByMonitor(shell, "the console of " + shell.target.Name() + " is busy", report).code == DONE;
  return isThere ? Result{} : result;
}

Result PrintJson(Shell& shell) {
  Json graph, stats;
  if (Result result = shell.Look({"graph"}, graph); result.code != DONE) return result;
  if (Result result = shell.Look({"stats"}, stats); result.code != DONE) return result;
  std::puts(support::ToText(StatusJson(graph, stats), 2).c_str());
  return {};
}

std::string Indent(std::string_view text, const std::string& by) {
  std::string indented = by;
  for (char letter : text) indented += letter == '\n' ? "\n" + by : std::string{letter};
  return indented;
}

}  // namespace

Result ReadFlags(const Words& words, const Words& known, Words& given) {
  for (auto word = words.begin() + 1; word != words.end(); ++word) {
    if (std::find(known.begin(), known.end(), *word) == known.end()) {
      return {WRONG_USAGE, "'" + *word + "' is not expected here; usage: " + std::string(FindCommand(words[0])->usage)};
    }
    given.push_back(*word);
  }
  return {};
}

Result RunStatus(Shell& shell, const Words& words) {
  Words flags;
  if (Result result = ReadFlags(words, {"--dot", "--json"}, flags); result.code != DONE) return result;
  if (words.back() == "--json") return PrintJson(shell);
  std::string report;
  if (Result result = TakeReport(shell, words, report); result.code != DONE) return result;
  Json stats;
  if (words.size() == 1 && isatty(STDOUT_FILENO) == 1) {
    shell.Look({"stats"}, stats);
    report = Dress(report, stats, shell.style);
  }
  std::fputs(report.c_str(), stdout);
  return {};
}

Result RunHelp(Shell& shell, const Words& words) {
  if (words.size() == 1) {
    std::printf("%s'help COMMAND' explains one.\n", ListCommands(shell.style).c_str());
    return {};
  }
  const Command* command = FindCommand(words[1]);
  if (!command) return {WRONG_USAGE, "'" + words[1] + "' is no command; 'help' lists them"};
  std::printf("%s\n  %s.\n", shell.style(Look::BOLD, command->usage).c_str(), std::string(command->help).c_str());
  if (!command->details.empty()) std::printf("%s\n", Indent(command->details, "  ").c_str());
  if (command->changes) {
    std::puts(
        "  --wait behind the command: also where a route that stands has to carry it out.\n"
        "  --force: also where it stops a running route.");
  }
  return {};
}

Result RunQuit(Shell&, const Words&) { return {DONE, "", true}; }

}  // namespace vrdb
