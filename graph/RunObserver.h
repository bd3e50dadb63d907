// What a run tells whoever started it.
#pragma once

#include <string>

#include "Figures.h"

namespace vorn::graph {

/** Thread: that of the run. */
class RunObserver {
 public:
  virtual ~RunObserver() = default;

  /** Whether Progress() has any use. */
  virtual bool WantsProgress() const = 0;
  /** Several times a second. */
  virtual void Progress(const Figures& figures, double elapsedSeconds) = 0;
  /** A line that is good to know. */
  virtual void Say(const std::string& text) = 0;
  /** A warning or an error that the run goes on after. */
  virtual void Complain(const std::string& text) = 0;
};

}  // namespace vorn::graph
