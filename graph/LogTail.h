// Keeps the log's lines for the program, which shows each as a line of its own or as the reason of a failure.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace vorn::graph {

struct LogLine {
  char level = 'E';
  std::string text;
};

/** Threads: one. What threads of the library log in the meantime comes with the next Drain(). */
class LogTail {
 public:
  /**
   * Takes the log away from its file and from standard output.
   *
   * @param level as of tlogging: what is logged also appears on standard error. Nothing: warnings and errors, here
   * alone.
   */
  explicit LogTail(std::optional<int> level);
  ~LogTail();
  LogTail(const LogTail&) = delete;
  LogTail& operator=(const LogTail&) = delete;

  /** The lines since the last call. */
  std::vector<LogLine> Drain();

  /** Whether the lines appear on standard error anyway. */
  bool IsShown() const { return isShown; }

 private:
  const bool isShown;
  int file = -1;
  std::size_t position = 0;
};

}  // namespace vorn::graph
