#pragma once

#include <functional>
#include <istream>
#include <string>

#include "Connection.h"
#include "Style.h"
#include "Target.h"
#include "Words.h"

namespace vrdb {

/** What may be done although it waits, or stops a route. */
struct Permission {
  bool wait = false;   ///< send also what a route has to carry out that stands
  bool force = false;  ///< also what stops a running route
};

/**
 * Runs commands; what they have to say goes to standard output, what went wrong into the result.
 *
 * What only looks asks the monitor, which never waits for a route. What changes something goes to the console, or
 * through the monitor where the process has no console, or one that is busy with another client.
 */
class Shell {
 public:
  explicit Shell(Patience limits, const std::string& process = "", Permission permission = {})
      : patience(std::move(limits)), target(process), always(permission), allowed(permission) {}

  /** Runs one command. `given` has at least the command. */
  Result Run(const Words& given);

  /** Asks the monitor of the process. */
  Result Look(const Words& request, Json& answer) { return target.Look(request, patience, answer); }

  /** Asks the console one command; `reply` is what it said when the result is DONE. */
  Result Ask(const Words& words, std::string& reply);

  /**
   * Has one command of the console carried out, by whichever door; not before it was clear that no route stands that
   * has to do it, and that it stops none, or somebody said that he wants it. With `permission` to wait it does.
   */
  Result Change(const Words& given, std::string& reply);
  /** The same, and prints the reply. */
  Result Forward(const Words& words);

  /** Has a request of the monitor's that edits carried out, under the same conditions, and prints what it did. */
  Result Edit(const Words& given);

  /** Why a route that has to carry the words out stands; empty: none does, or it is not known. */
  std::string WhatStands(const Words& words);

  /** One line beside the command's own output, on standard error. */
  void Notice(const std::string& text) const;
  /** The same of a failure, with what the process logged. `where` comes first. */
  void Complain(const Result& result, const std::string& where = "") const;

  /**
   * Runs one command a line, `name` being that of the input in messages. Stops at the first that goes wrong, or with
   * `keepGoing` tells each and goes on.
   *
   * @return the code of the first that went wrong.
   */
  int RunScript(std::istream& lines, const std::string& name, bool keepGoing);
  /** Carries out all lines as one edit, or none. */
  int RunAtomically(std::istream& lines, const std::string& name);

  const Permission& Allowed() const { return allowed; }

  const Style style{STDOUT_FILENO};
  Patience patience;
  Target target;
  std::function<bool(const std::string& question)> confirm;  ///< null: nobody is there to be asked

 private:
  Result Send(const Words& words, bool isSeen, std::string& reply);
  Result SendByMonitor(const Words& words, std::string& reply);
  Result Permit(const Json& graph, const Words& words);
  Result AskWhether(const std::string& fact, const std::string& question, const std::string& option);
  std::string WhyStands(const std::string& route);
  bool LookBriefly(const Words& request, Json& answer);
  Words LogLines();
  /** A failure in one line, with its reason or where to look for it. */
  Result Explain(const Json& graph, const Words& words, Result failure, const Words& logBefore);

  const Permission always;
  Permission allowed;  // of the command that runs
};

/** Puts a question on standard error and reads the answer; whatever is no yes is a no. */
bool ConfirmOnTerminal(const std::string& question);

/** The lines of `after` that were not there `before`; both are the last ones of one log. */
Words NewLines(const Words& before, const Words& after);

}  // namespace vrdb
