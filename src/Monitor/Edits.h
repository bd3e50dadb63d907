// The monitor's requests that change something: a line of words in, the change carried out, a line of JSON out.
#pragma once

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Route/RouteImpl.h"

namespace vorn::monitor {

/** A word of a request. One in quotes is never punctuation. */
struct Word {
  std::string text;
  bool isQuoted = false;

  bool Is(const char* punctuation) const { return !isQuoted && text == punctuation; }
};

/** Splits a line at blanks, as docs/monitor.md says. @return false where a quote is not closed. */
bool SplitWords(std::string_view line, std::vector<Word>& words);

/** Thread: any, several at a time. Waits for routes, for as long as they take. */
class Edits {
 public:
  /** What it needs of the process. */
  struct Process {
    /** A share of the route, dropped before the answer comes; null for none of that name. */
    std::function<std::shared_ptr<RouteImpl>(const std::string& name)> findRoute;
    /** Carries out one command of the console; false for a word that is none. */
    std::function<bool(const std::string& word, std::stringstream& args, std::string& reply)> runCommand;
  };

  explicit Edits(Process newProcess) : process(std::move(newProcess)) {}

  /** Whether the line is one of these requests, right or wrong. */
  static bool Takes(const std::string& line);
  /** Carries it out. @return one JSON object, without a line end. */
  std::string Answer(const std::string& line) const;

 private:
  std::string Do(const std::string& line) const;
  std::string Execute(const std::string& request, const std::string& routeName, const Edit& edit) const;

  const Process process;
};

}  // namespace vorn::monitor
