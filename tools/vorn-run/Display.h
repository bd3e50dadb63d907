// What the program says on standard error: lines, and below them one that moves when that is a terminal.
#ifndef VORN_RUN_DISPLAY_H
#define VORN_RUN_DISPLAY_H

#include <string>

#include "Figures.h"

namespace vorn::run {

/** Thread: one. */
class Display {
 public:
  explicit Display(bool quiet);
  ~Display();
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;

  bool ShowsProgress() const { return showsProgress; }
  void Progress(const std::string& text);
  /** Also when quiet. */
  void Error(const std::string& text);
  void Say(const std::string& text);

 private:
  void Line(const std::string& text);

  const bool isQuiet;
  const bool showsProgress;
  bool progressIsThere = false;
};

/** 0:01:05.2 / 0:10:00.0, 440 times real time. */
std::string ProgressText(const Figures& figures, double elapsedSeconds);

/** 6000 frames, 60 s of audio in 0.136 s (440 times real time), 0 error frames. */
std::string SummaryText(const Figures& figures, double elapsedSeconds);

}  // namespace vorn::run

#endif
