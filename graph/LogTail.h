// Keeps the log's lines for whoever runs a graph: each is the reason of a failure, or worth a line of its own.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorn::graph {

struct LogLine {
  char level = 'E';
  std::string text;
};

/** Threads: one. What threads of the library log in the meantime comes with the next Drain(). */
class LogTail {
 public:
  /** Leaves the log alone. */
  LogTail() = default;
  /** The log then goes nowhere, where it was taken. */
  ~LogTail();
  LogTail(const LogTail&) = delete;
  LogTail& operator=(const LogTail&) = delete;

  /**
   * Takes the log away from its file and from standard output.
   *
   * @param level as of tlogging: what is logged also appears on standard error. Nothing: warnings and errors, here
   * alone.
   * @param begin what makes the library log before its log can be taken: standard error is held back meanwhile.
   */
  void Take(std::optional<int> level, const std::function<void()>& begin);
  bool IsTaken() const { return file >= 0; }

  /** The lines since the last call, but for what is not about a graph. Of a log that is not taken, none. */
  std::vector<LogLine> Drain();

  /** Whether the lines appear on standard error anyway. */
  bool IsShown() const { return isShown; }

 private:
  void TakeNow(std::optional<int> level);
  void Keep(const std::string& text, std::vector<LogLine>& lines);

  bool isShown = false;
  std::string early;  // what was held back
  int file = -1;
  std::size_t position = 0;
};

}  // namespace vorn::graph
