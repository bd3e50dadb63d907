#include "Shell.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "CommandTable.h"
#include "StatusParser.h"

namespace vrdb {
namespace {

int ToExitCode(Outcome outcome) {
  switch (outcome) {
    case Outcome::ANSWERED: return DONE;
    case Outcome::NO_CONSOLE: return NO_CONSOLE;
    case Outcome::TIMED_OUT: return TIMED_OUT;
    case Outcome::CANCELLED: return CANCELLED;
  }
  return NO_CONSOLE;
}

// The first route or block among the arguments that is not there, in words; empty: all are.
std::string UnknownName(const Command& command, const Words& words, const Report& report) {
  const RouteStatus* route = nullptr;
  const std::size_t given = std::min(command.arguments.size(), words.size() - 1);
  for (std::size_t i = 0; i < given; ++i) {
    const std::string& name = words[i + 1];
    if (command.arguments[i].takes == Takes::ROUTE && !(route = report.Route(name))) return "there is no " + name;
    if (command.arguments[i].takes == Takes::BLOCK && !route->Block(name)) return route->name + " has no " + name;
  }
  return {};
}

}  // namespace

Result Shell::Run(const Words& words) {
  const Command* command = FindCommand(words.front());
  if (!command) return Forward(words);
  if (words.size() == 2 && words[1] == "--help") return Run({"help", words[0]});
  if (std::string wrong = WrongUsage(*command, words); !wrong.empty()) return {WRONG_USAGE, wrong};
  return command->run ? command->run(*this, words) : Forward(words);
}

Result Shell::Ask(const Words& words, std::string& reply) {
  if (std::string why = CannotCarry(words); !why.empty()) return {WRONG_USAGE, why};
  const std::string command = Join(words);
  if (command.size() > MAX_COMMAND_BYTES) {
    return {WRONG_USAGE, "a command of " + std::to_string(command.size()) +
                             " bytes cannot be sent; the console takes " + std::to_string(MAX_COMMAND_BYTES)};
  }
  Answer answer = vrdb::Ask(command, patience);
  if (answer.outcome != Outcome::ANSWERED) return {ToExitCode(answer.outcome), answer.text};
  process = answer.peer;
  if (SaysFailure(words, answer.text)) return {FAILED, Explain(words, answer.text)};
  reply = std::move(answer.text);
  return {};
}

// The console says that something failed. Why, its process logs, but not that a name leads nowhere.
std::string Shell::Explain(const Words& words, std::string reply) {
  while (!reply.empty() && reply.back() == '\n') reply.pop_back();
  for (auto at = reply.find('\n'); at != std::string::npos; at = reply.find('\n')) reply.replace(at, 1, "; ");
  if (reply.rfind("Unknown command ", 0) == 0) return reply + "; 'help' lists the commands";
  if (reply.rfind("Failed to ", 0) != 0) return reply;
  std::string report;
  const Command* command = FindCommand(words.front());
  const bool known = command && Ask({"status"}, report).code == DONE;
  const std::string unknown = known ? UnknownName(*command, words, ParseStatus(report)) : "";
  return reply + "; " + (unknown.empty() ? "the log of " + Describe(process) + " says why" : unknown);
}

Result Shell::Knock() {
  const Answer answer = vrdb::Knock(patience);
  if (answer.outcome != Outcome::ANSWERED) return {ToExitCode(answer.outcome), answer.text};
  process = answer.peer;
  return {};
}

Result Shell::Forward(const Words& words) {
  std::string reply;
  Result result = Ask(words, reply);
  std::fwrite(reply.data(), 1, reply.size(), stdout);
  return result;
}

int Shell::RunScript(std::istream& lines, const std::string& name, bool keepGoing) {
  int code = DONE;
  std::string line;
  for (long number = 1; std::getline(lines, line); ++number) {
    const SplitLine split = Split(line);
    if (split.error.empty() && split.words.empty()) continue;
    const Result result = split.error.empty() ? Run(split.words) : Result{WRONG_USAGE, split.error};
    std::fflush(stdout);
    if (result.code != DONE) {
      std::cerr << "vrdb: " << name << ":" << number << ": " << result.message << std::endl;
      if (code == DONE) code = result.code;
      if (!keepGoing) return code;
    }
    if (result.quit) return code;
  }
  return code;
}

}  // namespace vrdb
