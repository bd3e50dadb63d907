#include "LocalCommands.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "CommandTable.h"
#include "ReportJson.h"

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

std::string DressLine(std::string_view line, const Style& style) {
  return line.substr(0, 1) == "\t" ? DressEndpoint(line) : DressRoute(line, style);
}

std::string Dress(std::string_view report, const Style& style) {
  std::string dressed;
  while (!report.empty()) dressed += DressLine(TakeReportLine(report), style) + "\n";
  return dressed;
}

Result PrintReport(Shell& shell, std::string (*form)(std::string_view, const Style&)) {
  std::string reply;
  Result result = shell.Ask({"status"}, reply);
  if (result.code == DONE) std::fputs(form(reply, shell.style).c_str(), stdout);
  return result;
}

std::string AsJson(std::string_view report, const Style&) { return ReportToJson(ParseStatus(report)) + "\n"; }

std::string Indent(std::string_view text, const std::string& by) {
  std::string indented = by;
  for (char letter : text) indented += letter == '\n' ? "\n" + by : std::string{letter};
  return indented;
}

}  // namespace

Result RunStatus(Shell& shell, const Words& words) {
  if (words.size() > 2 || (words.size() == 2 && words[1] != "--dot" && words[1] != "--json")) {
    return {WRONG_USAGE,
            "'" + words.back() + "' is not expected here; usage: " + std::string(FindCommand("status")->usage)};
  }
  if (words.back() == "--json") return PrintReport(shell, AsJson);
  if (words.size() == 1 && isatty(STDOUT_FILENO) == 1) return PrintReport(shell, Dress);
  return shell.Forward(words);
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
  return {};
}

Result RunQuit(Shell&, const Words&) { return {DONE, "", true}; }

}  // namespace vrdb
