// What the program says on standard error: lines, and below them one that moves when that is a terminal.
#pragma once

#include <string>

#include "RunObserver.h"

namespace vorn::run {

/** Thread: one. */
class Display final : public graph::RunObserver {
 public:
  explicit Display(bool quiet);
  ~Display() override;
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;

  bool WantsProgress() const override { return showsProgress; }
  void Progress(const graph::Figures& figures, double elapsedSeconds) override;
  void Say(const std::string& text) override;
  /** Also when quiet. */
  void Complain(const std::string& text) override;

 private:
  void Line(const std::string& text);

  const bool isQuiet;
  const bool showsProgress;
  bool progressIsThere = false;
};

/** 6000 frames, 60 s of audio in 0.136 s (440 times real time), 0 error frames. */
std::string SummaryText(const graph::Figures& figures, double elapsedSeconds);

}  // namespace vorn::run
