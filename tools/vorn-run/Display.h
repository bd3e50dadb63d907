// What the program says on standard error: lines, and below them one that moves when that is a terminal.
#pragma once

#include <vorn/Graph.h>

#include <string>
#include <vector>

namespace vorn::run {

/** Thread: one. */
class Display {
 public:
  explicit Display(bool quiet);
  ~Display();
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;

  bool ShowsProgress() const { return showsProgress; }
  void Progress(const Graph::Figures& figures, double elapsedSeconds);
  void Say(const std::string& text);
  /** Also when quiet. */
  void Complain(const std::string& text);

 private:
  void Line(const std::string& text);

  const bool isQuiet;
  const bool showsProgress;
  bool progressIsThere = false;
};

/** 6000 frames, 60 s of audio in 0.136 s (440 times real time), 0 error frames. */
std::string SummaryText(const Graph::Figures& figures, double elapsedSeconds);

/**
 * A line a block, "block 'meter': peak -6.5 dBFS, rms -23.1 dBFS", without what only says how far a block came. Blocks
 * without anything else are left out.
 */
std::vector<std::string> ReadingLines(const std::vector<Graph::Reading>& readings);

/** block 'vol', output 0: sample 4800, 0.1 s */
std::string WhereText(const Graph::Comparison& output, std::uint64_t sample);

/** A line an output: whether it is the same as recorded, and where not. */
std::vector<std::string> ReplayLines(const std::vector<Graph::Comparison>& outputs);

}  // namespace vorn::run
