/** The process that vrdb works on: which one it is, and its monitor. */
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Connection.h"
#include "Words.h"
#include "support/MonitorClient.h"

namespace vrdb {

using support::Json;

enum ExitCode { DONE = 0, FAILED = 1, WRONG_USAGE = 2, NO_CONSOLE = 3, TIMED_OUT = 4, CANCELLED = 130 };

/** How a command ended. */
struct Result {
  int code = DONE;
  std::string message;  ///< one line that says what went wrong; empty when nothing did
  bool quit = false;    ///< no further command is to follow
  Words log = {};       ///< what the process logged meanwhile, where that may be the reason
};

/** One process that has a monitor, as far as it told. */
struct FoundProcess {
  pid_t pid = 0;
  support::Peer peer;
  std::string problem;  ///< why there is no answer; empty: there is
  Json graph;           ///< the reply to `graph`
};

/** All of them, by their numbers; those that do not answer within `limit` as well. */
std::vector<FoundProcess> FindProcesses(std::chrono::milliseconds limit);

/** "4242 (player), 4711 (phone)" */
std::string ListOf(const std::vector<pid_t>& processes);

class Target {
 public:
  /** `which`: a process's number or name; empty: the one with the console, or else the only one. */
  explicit Target(std::string which) : wanted(std::move(which)) {}

  /**
   * Sees which process it is, unless that is known and its monitor is still connected. One that was chosen by its name,
   * or by nothing, may be another one the next time.
   */
  Result Choose(const Patience& patience);

  /** Asks the monitor of the chosen process, and chooses one first where that is needed. */
  Result Look(const Words& request, const Patience& patience, Json& answer);
  /** The same for what changes something: it goes to the process that was chosen before, and is never sent twice. */
  Result Do(const Words& request, const Patience& patience, Json& answer);

  /** Whether the chosen process has the console; asks the monitor, or the console itself, the first time. */
  bool HasConsole(const Patience& patience);

  /** The connection to the chosen process's monitor, for those who wait for several things; null: none is chosen. */
  support::MonitorClient* Monitor() { return monitor ? &*monitor : nullptr; }
  /** Forgets the process, so that the next command chooses anew. */
  void Forget();

  pid_t Process() const { return pid; }
  /** "process 4242 (player)" */
  std::string Name() const { return support::Describe({pid, 0}); }

 private:
  Result ChooseWanted(const std::vector<pid_t>& found, const Patience& patience);
  Result ChooseByItself(const std::vector<pid_t>& found, const Patience& patience);
  Result Take(pid_t process, std::optional<bool> console);

  const std::string wanted;
  pid_t pid = 0;
  std::optional<support::MonitorClient> monitor;
  std::optional<bool> hasConsole;
};

/** The same outcome as a code and a message. */
Result ToResult(const support::MonitorReply& reply);
Result ToResult(const Answer& answer);

}  // namespace vrdb
