// Which process is looked at.
#pragma once

#include <sys/types.h>

#include <string>

namespace vorn_web {

/**
 * Finds the process, and after its end the one that takes its place. For one thread at a time.
 */
class Target {
 public:
  /** @param newWanted a number, a name, or nothing: the process with the console, or the only one. */
  explicit Target(std::string newWanted) : wanted(std::move(newWanted)) {}

  struct Choice {
    pid_t pid = 0;         ///< 0: none
    bool isWrong = false;  ///< There is no such number, or it could be several: to wait is of no use.
    std::string text;      ///< Why there is none, or what it is: "vorn-run (4711)".
  };

  /**
   * Once it has found a process, that is to be the name from then on: of several with this name it takes the last.
   */
  Choice Choose();

 private:
  Choice ChooseFirst(const std::string& name) const;

  const std::string wanted;
  std::string foundName;
};

}  // namespace vorn_web
