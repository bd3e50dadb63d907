// The command line.
#pragma once

#include <vorn/Graph.h>

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vorn::run {

struct Options {
  std::optional<std::string> pipeline;
  std::string graphFile;  ///< "-" is standard input.
  std::string recording;  ///< A folder; empty: a graph is run.
  std::chrono::nanoseconds settling = std::chrono::seconds(1);
  Graph::Variables variables;
  std::vector<std::string> settings;
  bool checks = false;
  bool writesDot = false;
  bool writesJson = false;
  bool isQuiet = false;
  bool syncs = false;
  bool keepsOutputs = false;
  std::string dumpFolder;
  std::optional<std::chrono::nanoseconds> duration;
  int realtimePriority = 0;
  std::optional<int> logLevel;
};

/** The options, or the status that the program exits with at once: it has said why. */
std::variant<Options, int> ReadOptions(int argc, char** argv);

}  // namespace vorn::run
