// The log as the tests see it: a test program takes the place of the logging library and keeps its lines.
// A line is its level, a blank and its text. What callbacks and blocks of the tests add has no level.
#pragma once

#include <atomic>
#include <string>

namespace testkit {

struct Log {
  /**
   * Forgets all lines and keeps those of these levels from now on. 'T' are the calls that set the log up; with 'N' the
   * name of the function stands before each text.
   */
  static void Keep(const std::string& levels);
  static void Add(const std::string& line);
  /** The lines since the last Keep() or Take(), without those that say that a route sleeps: they come any time. */
  static std::string Take();
  static bool Has(const std::string& line);
  static void WaitFor(const std::string& line);  ///< in Probe.h
  /** Sees each line that is added, on the thread that adds it, which it may hold up. */
  static inline std::atomic<void (*)(const std::string&)> watch{nullptr};
};

/** Lines as Take() gives them, from a text with '|' between them, "~" for "RouteA: ", and "@x" for "probe_x_0". */
std::string Lines(const std::string& text);

}  // namespace testkit
