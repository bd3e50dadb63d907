#pragma once

#include <istream>
#include <string>

#include "Connection.h"
#include "Style.h"
#include "Words.h"

namespace vrdb {

enum ExitCode { DONE = 0, FAILED = 1, WRONG_USAGE = 2, NO_CONSOLE = 3, TIMED_OUT = 4, CANCELLED = 130 };

/** How a command ended. */
struct Result {
  int code = DONE;
  std::string message;  ///< one line that says what went wrong; empty when nothing did
  bool quit = false;    ///< no further command is to follow
};

/** Runs commands; what they have to say goes to standard output, what went wrong into the result. */
class Shell {
 public:
  explicit Shell(Patience limits) : patience(std::move(limits)) {}

  /** Runs one command, sent to the console or vrdb's own. `words` has at least the command. */
  Result Run(const Words& words);

  /** Asks the console one command; `reply` is what it said when the result is DONE. */
  Result Ask(const Words& words, std::string& reply);
  /** Sees whether a console is there, and whose. */
  Result Knock();
  /** Asks, and prints the reply. */
  Result Forward(const Words& words);

  /**
   * Runs one command a line, `name` being that of the input in messages. Stops at the first that goes wrong, or with
   * `keepGoing` tells each and goes on.
   *
   * @return the code of the first that went wrong.
   */
  int RunScript(std::istream& lines, const std::string& name, bool keepGoing);

  /** The process that answered last; pid 0 before the first answer. */
  const Peer& Process() const { return process; }

  const Style style{STDOUT_FILENO};
  Patience patience;

 private:
  /** A failure in one line, with its reason or where to look for it. */
  std::string Explain(const Words& words, std::string reply);

  Peer process;
};

}  // namespace vrdb
