#include "Shell.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <thread>

#include "CommandTable.h"
#include "Edits.h"
#include "Guard.h"
#include "Names.h"
#include "support/Printable.h"

namespace vrdb {
namespace {

using std::chrono::milliseconds;
using support::NumberOf;

constexpr milliseconds GLANCE{500};       // for what a command can do without
constexpr milliseconds TURN{1000};        // for the console, where there is another door
constexpr double SECONDS_TO_BE_SURE = 1;  // a route that does one frame a second does not stand
constexpr milliseconds LOOK_AGAIN{100};
constexpr int MOST_LOOKS = 15;
constexpr std::size_t MOST_LOG_LINES = 6;

// Options stand right behind the command, or at its end.
Words TakePermission(Words words, Permission& permission) {
  const auto take = [&](Words::iterator at) {
    if (at == words.end() || (*at != "--wait" && *at != "--force")) return false;
    (*at == "--wait" ? permission.wait : permission.force) = true;
    return words.erase(at), true;
  };
  while (words.size() > 1 && (take(words.begin() + 1) || take(words.end() - 1))) continue;
  return words;
}

std::string OneLine(std::string reply) {
  while (!reply.empty() && reply.back() == '\n') reply.pop_back();
  for (auto at = reply.find('\n'); at != reply.npos; at = reply.find('\n')) reply.replace(at, 1, "; ");
  return reply;
}

// "E RouteA: ..." or "... E RouteA: ..."
bool IsOfTrouble(const std::string& line) {
  for (const char* mark : {"E ", "W "}) {
    const auto at = line.find(mark);
    if (at == 0 || (at != line.npos && line[at - 1] == ' ')) return true;
  }
  return false;
}

void KeepTheTelling(Words& lines) {
  if (std::any_of(lines.begin(), lines.end(), IsOfTrouble)) std::erase_if(lines, std::not_fn(IsOfTrouble));
  if (lines.size() > MOST_LOG_LINES) lines.erase(lines.begin(), lines.end() - MOST_LOG_LINES);
}

}  // namespace

bool ConfirmOnTerminal(const std::string& question) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s [y/N] ", question.c_str());
  char answer[64] = "";
  const bool isAnswered = std::fgets(answer, sizeof answer, stdin) != nullptr;
  std::clearerr(stdin);  // Ctrl-C ends the question, not the session
  return isAnswered && (answer[0] == 'y' || answer[0] == 'Y');
}

Words NewLines(const Words& before, const Words& after) {
  for (std::size_t dropped = 0; dropped < before.size(); ++dropped) {
    const std::size_t kept = before.size() - dropped;
    const bool fits =
        kept <= after.size() && std::equal(before.begin() + static_cast<long>(dropped), before.end(), after.begin());
    if (fits) return {after.begin() + static_cast<long>(kept), after.end()};
  }
  return after;
}

Result Shell::Run(const Words& given) {
  const Command* command = FindCommand(given.front());
  if (!command) return Forward(given);
  if (given.size() == 2 && given[1] == "--help") return Run({"help", given[0]});
  allowed = always;
  const Words words = command->changes ? TakePermission(given, allowed) : given;
  if (std::string wrong = WrongUsage(*command, words); !wrong.empty()) return {WRONG_USAGE, wrong};
  return command->run ? command->run(*this, words) : Forward(words);
}

Result Shell::Ask(const Words& words, std::string& reply) {
  const Answer answer = vrdb::Ask(Join(words), patience);
  if (answer.outcome != Outcome::ANSWERED) return ToResult(answer);
  reply = answer.text;
  return SaysFailure(words, reply) ? Result{FAILED, OneLine(reply)} : Result{};
}

bool Shell::LookBriefly(const Words& request, Json& answer) {
  Patience brief = patience;
  if (brief.limit.count() == 0 || brief.limit > GLANCE) brief.limit = GLANCE;
  return target.Look(request, brief, answer).code == DONE;
}

Words Shell::LogLines() {
  Words lines;
  Json log;
  if (!LookBriefly({"log"}, log)) return lines;
  for (const Json& line : support::ListOf(log, "lines")) {
    if (line.is_string()) lines.push_back(support::Printable(line.get<std::string>()));
  }
  return lines;
}

// A route that waits for less than a second may be about to go on.
std::string Shell::WhyStands(const std::string& route) {
  Json why;
  for (int looks = 0; looks < MOST_LOOKS; ++looks) {
    if (!LookBriefly({"why", route}, why) || !Stands(why)) return {};
    if (NumberOf(why, "since").value_or(SECONDS_TO_BE_SURE) >= SECONDS_TO_BE_SURE) break;
    if (patience.cancelled && patience.cancelled()) break;
    std::this_thread::sleep_for(LOOK_AGAIN);
  }
  return WhySentence(why);
}

std::string Shell::WhatStands(const Words& words) {
  Json graph;
  if (!LookBriefly({"graph"}, graph)) return {};
  Words sentences;
  for (const std::string& route : RoutesOf(graph, words)) {
    if (std::string why = WhyStands(route); !why.empty()) sentences.push_back(std::move(why));
  }
  return Join(sentences, "; ");
}

Result Shell::AskWhether(const std::string& fact, const std::string& question, const std::string& option) {
  if (!confirm) return {FAILED, fact + "; " + option};
  return confirm(fact + ". " + question) ? Result{} : Result{FAILED, "not done"};
}

Result Shell::Permit(const Json& graph, const Words& words) {
  if (const std::string stands = allowed.wait ? "" : WhatStands(words); !stands.empty()) {
    const Result result =
        AskWhether(stands + ": '" + words[0] + "' has to wait for it", "Wait?", "--wait sends it all the same");
    if (result.code != DONE) return result;
  }
  const std::string broken = allowed.force ? "" : WhatBreaks(graph, words);
  if (broken.empty()) return {};
  return AskWhether("this stops " + words[1] + ", which runs: " + broken + "; " + BetterEdit(graph, words),
                    "Stop " + words[1] + "?", "--force does it all the same");
}

Result Shell::Change(const Words& given, std::string& reply) {
  if (std::string why = CannotCarry(given); !why.empty()) return {WRONG_USAGE, why};
  if (Result chosen = target.Choose(patience); chosen.code != DONE) return chosen;
  Words words = given;
  Json graph;
  const bool isSeen = LookBriefly({"graph"}, graph);
  Words logBefore;
  if (isSeen) {
    if (std::string wrong = ResolveLabels(graph, words); !wrong.empty()) return {WRONG_USAGE, wrong};
    if (Result result = Permit(graph, words); result.code != DONE) return result;
    logBefore = LogLines();
  }
  Result result = Send(words, isSeen, reply);
  return result.code == DONE || result.code == CANCELLED ? result : Explain(graph, words, result, logBefore);
}

Result Shell::Send(const Words& words, bool isSeen, std::string& reply) {
  if (isSeen && !target.HasConsole(patience)) return SendByMonitor(words, reply);
  const std::string command = Join(words);
  if (command.size() > MAX_COMMAND_BYTES) {
    return {WRONG_USAGE, "a command of " + std::to_string(command.size()) +
                             " bytes cannot be sent; the console takes " + std::to_string(MAX_COMMAND_BYTES)};
  }
  Patience limits = patience;
  if (isSeen) limits.turn = TURN;
  const Answer answer = vrdb::Ask(command, limits);
  if (isSeen && answer.outcome == Outcome::BUSY) {
    Notice("the console of " + target.Name() + " is busy with another client; '" + words[0] +
           "' goes through the monitor");
    return SendByMonitor(words, reply);
  }
  if (answer.outcome != Outcome::ANSWERED) return ToResult(answer);
  reply = answer.text;
  return SaysFailure(words, reply) ? Result{FAILED, OneLine(reply)} : Result{};
}

Result Shell::SendByMonitor(const Words& words, std::string& reply) {
  Words request = words;
  request.insert(request.begin(), "do");
  Json answer;
  if (Result result = target.Do(request, patience, answer); result.code != DONE) return result;
  reply = support::PrintableLines(support::TextOf(answer, "reply"));
  return SaysFailure(words, reply) ? Result{FAILED, OneLine(reply)} : Result{};
}

// The console says that something failed. Why, its process logs, but not that a name leads nowhere.
Result Shell::Explain(const Json& graph, const Words& words, Result failure, const Words& logBefore) {
  if (failure.code == TIMED_OUT) {
    if (const std::string stands = WhatStands(words); !stands.empty()) failure.message += "; " + stands;
    return failure;
  }
  if (failure.code != FAILED) return failure;
  if (failure.message.rfind("Unknown command ", 0) == 0) failure.message += "; 'help' lists the commands";
  if (failure.message.rfind("Failed to ", 0) != 0) return failure;
  if (const std::string unknown = graph.is_null() ? "" : UnknownName(graph, words); !unknown.empty()) {
    failure.message += "; " + unknown;
    return failure;
  }
  failure.log = NewLines(logBefore, LogLines());
  KeepTheTelling(failure.log);
  failure.message += "; the log of " + target.Name() + " says why" + (failure.log.empty() ? "" : ":");
  return failure;
}

Result Shell::Forward(const Words& words) {
  std::string reply;
  Result result = Change(words, reply);
  if (result.code == DONE) std::fwrite(reply.data(), 1, reply.size(), stdout);
  return result;
}

Result Shell::Edit(const Words& given) {
  Json graph;
  if (Result result = Look({"graph"}, graph); result.code != DONE) return result;
  Words request = given;
  Words routes;
  if (std::string wrong = ResolveInEdit(graph, request, routes); !wrong.empty()) return {WRONG_USAGE, wrong};
  if (!allowed.wait) {
    for (const std::string& route : routes) {
      const std::string stands = WhyStands(route);
      if (stands.empty()) continue;
      const Result result =
          AskWhether(stands + ": the edit has to wait for it", "Wait?", "--wait sends it all the same");
      if (result.code != DONE) return result;
    }
  }
  const Words logBefore = LogLines();
  Json answer;
  Result result = target.Do(request, patience, answer);
  if (result.code == DONE) std::fputs(WhatWasDone(answer).c_str(), stdout);
  if (result.code != FAILED) return result;
  result.log = NewLines(logBefore, LogLines());
  KeepTheTelling(result.log);
  return result;
}

void Shell::Notice(const std::string& text) const {
  std::fflush(stdout);
  std::cerr << "vrdb: " << text << std::endl;
}

void Shell::Complain(const Result& result, const std::string& where) const {
  std::fflush(stdout);
  const Style dress(STDERR_FILENO);
  if (!result.message.empty()) std::cerr << "vrdb: " << where << result.message << '\n';
  for (const std::string& line : result.log) std::cerr << "  " << dress(Look::DIM, line) << '\n';
  std::cerr.flush();
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
      Complain(result, name + ":" + std::to_string(number) + ": ");
      if (code == DONE) code = result.code;
      if (!keepGoing) return code;
    }
    if (result.quit) return code;
  }
  return code;
}

int Shell::RunAtomically(std::istream& lines, const std::string& name) {
  Words edit;
  std::string line;
  for (long number = 1; std::getline(lines, line); ++number) {
    const SplitLine split = Split(line);
    if (split.error.empty() && split.words.empty()) continue;
    const std::string wrong = split.error.empty() ? WrongInEdit(split.words) : split.error;
    if (!wrong.empty()) {
      Complain({WRONG_USAGE, wrong}, name + ":" + std::to_string(number) + ": ");
      return WRONG_USAGE;
    }
    edit.push_back(edit.empty() ? "{" : ";");
    edit.insert(edit.end(), split.words.begin(), split.words.end());
  }
  if (edit.empty()) return DONE;
  edit.insert(edit.begin(), "edit");
  edit.push_back("}");
  const Result result = Edit(edit);
  if (result.code != DONE) Complain(result, name + ": ");
  return result.code;
}

}  // namespace vrdb
