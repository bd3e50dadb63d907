#include "Target.h"

#include <algorithm>
#include <charconv>

namespace vrdb {
namespace {

using support::MonitorOutcome;
using support::MonitorReply;

constexpr std::size_t LONGEST_NAME = 15;  // the kernel keeps no more of a process's name
constexpr std::chrono::milliseconds GLANCE{500};

support::MonitorPatience ForMonitor(const Patience& patience) { return {patience.limit, patience.cancelled}; }

Patience AtMost(std::chrono::milliseconds limit, Patience patience) {
  patience.busy = nullptr;
  if (patience.limit.count() == 0 || patience.limit > limit) patience.limit = limit;
  return patience;
}

std::optional<pid_t> ToNumber(const std::string& word) {
  pid_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size() ? std::optional(number) : std::nullopt;
}

bool IsAmong(pid_t pid, const std::vector<pid_t>& processes) {
  return std::find(processes.begin(), processes.end(), pid) != processes.end();
}

bool SaysConsole(const Json& graph) { return support::IsTrue(support::Member(graph, "process"), "console"); }

const char* const NOBODY =
    "no console: no process that uses libvorn is running here (a container has a console of its own)";

}  // namespace

Result ToResult(const MonitorReply& reply) {
  switch (reply.outcome) {
    case MonitorOutcome::DONE: return {};
    case MonitorOutcome::NOBODY:
    case MonitorOutcome::NOT_ALLOWED: return {NO_CONSOLE, reply.problem};
    case MonitorOutcome::LATE: return {TIMED_OUT, reply.problem};
    case MonitorOutcome::CANCELLED: return {CANCELLED, reply.problem};
    case MonitorOutcome::FAILED:
    case MonitorOutcome::NONSENSE: break;
  }
  return {FAILED, reply.problem};
}

Result ToResult(const Answer& answer) {
  switch (answer.outcome) {
    case Outcome::ANSWERED: return {};
    case Outcome::NO_CONSOLE:
    case Outcome::BUSY: break;
    case Outcome::TIMED_OUT: return {TIMED_OUT, answer.text};
    case Outcome::CANCELLED: return {CANCELLED, answer.text};
  }
  return {NO_CONSOLE, answer.text};
}

std::string ListOf(const std::vector<pid_t>& processes) {
  Words names;
  for (const pid_t pid : processes) names.push_back(std::to_string(pid) + " (" + support::ProcessName(pid) + ")");
  return Join(names, ", ");
}

std::vector<FoundProcess> FindProcesses(std::chrono::milliseconds limit) {
  std::vector<FoundProcess> processes;
  for (const pid_t pid : support::FindMonitors()) {
    support::MonitorClient monitor(pid);
    MonitorReply reply = monitor.Ask({"graph"}, {limit, nullptr});
    processes.push_back({pid, monitor.Answering(), reply.problem, std::move(reply.json)});
  }
  return processes;
}

void Target::Forget() {
  monitor.reset();
  hasConsole.reset();
  pid = 0;
}

Result Target::Take(pid_t process, std::optional<bool> console) {
  if (pid != process || !monitor) {
    Forget();
    pid = process;
    monitor.emplace(process);
  }
  hasConsole = console;
  return {};
}

Result Target::Choose(const Patience& patience) {
  if (monitor && monitor->Descriptor() >= 0) return {};
  const std::vector<pid_t> found = support::FindMonitors();
  if (pid != 0 && IsAmong(pid, found)) return {};
  return wanted.empty() ? ChooseByItself(found, patience) : ChooseWanted(found, patience);
}

Result Target::ChooseWanted(const std::vector<pid_t>& found, const Patience& patience) {
  if (const auto number = ToNumber(wanted)) {
    if (IsAmong(*number, found)) return Take(*number, std::nullopt);
    const Answer knocked = Knock(AtMost(GLANCE, patience));
    if (knocked.outcome == Outcome::ANSWERED && knocked.peer.pid == *number) return Take(*number, true);
    return {NO_CONSOLE, "no console: process " + wanted +
                            " is not there, or does not use libvorn, or not in this "
                            "network namespace; 'vrdb processes' lists those that do"};
  }
  std::vector<pid_t> matches;
  for (const pid_t process : found) {
    if (support::ProcessName(process) == wanted.substr(0, LONGEST_NAME)) matches.push_back(process);
  }
  if (matches.size() == 1) return Take(matches[0], std::nullopt);
  if (matches.empty()) {
    return {NO_CONSOLE, "no console: no process that uses libvorn is called '" + wanted +
                            "' here; 'vrdb processes' lists those there are"};
  }
  return {WRONG_USAGE,
          "several processes are called '" + wanted + "': " + ListOf(matches) + "; choose one with -p PID"};
}

// The common case, one process that says it has the console, costs the console nothing.
Result Target::ChooseByItself(const std::vector<pid_t>& found, const Patience& patience) {
  if (found.size() == 1) {
    Take(found[0], std::nullopt);
    const MonitorReply reply = monitor->Ask({"graph"}, ForMonitor(AtMost(GLANCE, patience)));
    if (reply.IsDone() && SaysConsole(reply.json)) return Take(found[0], true);
  }
  const Answer knocked = Knock(AtMost(GLANCE, patience));
  if (knocked.outcome == Outcome::ANSWERED) return Take(knocked.peer.pid, true);
  if (knocked.outcome == Outcome::BUSY && knocked.peer.pid == 0) {
    for (const FoundProcess& process : FindProcesses(GLANCE)) {
      if (SaysConsole(process.graph)) return Take(process.pid, true);
    }
  }
  if (found.size() == 1) return Take(found[0], std::nullopt);
  Forget();
  if (knocked.outcome == Outcome::CANCELLED) return ToResult(knocked);
  if (found.empty()) return {NO_CONSOLE, knocked.text.empty() ? NOBODY : knocked.text};
  return {WRONG_USAGE, "there are several processes, and none of them has the console: " + ListOf(found) +
                           "; choose one with -p PID or -p NAME"};
}

Result Target::Look(const Words& request, const Patience& patience, Json& answer) {
  if (Result chosen = Choose(patience); chosen.code != DONE) return chosen;
  MonitorReply reply = monitor->Ask(request, ForMonitor(patience));
  if (reply.outcome == MonitorOutcome::NOBODY && !IsAmong(pid, support::FindMonitors())) {  // it has ended meanwhile
    Forget();
    if (Choose(patience).code != DONE) return ToResult(reply);
    reply = monitor->Ask(request, ForMonitor(patience));
  }
  answer = std::move(reply.json);
  return ToResult(reply);
}

Result Target::Do(const Words& request, const Patience& patience, Json& answer) {
  if (!monitor) return {NO_CONSOLE, NOBODY};
  MonitorReply reply = monitor->Ask(request, ForMonitor(patience));
  answer = std::move(reply.json);
  return ToResult(reply);
}

bool Target::HasConsole(const Patience& patience) {
  if (hasConsole) return *hasConsole;
  Json graph;
  if (Look({"graph"}, AtMost(GLANCE, patience), graph).code == DONE) {
    const Json& console = support::Member(support::Member(graph, "process"), "console");
    if (console.is_boolean()) return *(hasConsole = console.get<bool>());
  }
  const Answer knocked = Knock(AtMost(GLANCE, patience));
  if (knocked.outcome == Outcome::ANSWERED) hasConsole = knocked.peer.pid == pid;
  return hasConsole.value_or(false);
}

}  // namespace vrdb
