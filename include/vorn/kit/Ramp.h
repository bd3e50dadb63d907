/** Part of <vorn/Plugin.h>: a value that moves without a click. */
#ifndef VORN_KIT_RAMP_H
#define VORN_KIT_RAMP_H

namespace vorn {

/**
 * A factor that is set between two frames and reached over the next one, in a straight line from sample to sample.
 *
 *     gain.Set(0.5);                                // when the parameter changes
 *     const auto line = gain.Next(frame.samples);   // once a frame
 *     if (line.step == 0) ... one factor, line.start, for the whole frame
 *     else                ... sample k of the frame takes line.At(k); the last one takes the value that was set
 */
class Ramp {
 public:
  struct Line {
    double start;
    double step;
    double At(long sample) const { return start + step * static_cast<double>(sample); }
  };

  explicit Ramp(double value = 0) : now(value), target(value) {}

  /** Where the next frame ends. */
  void Set(double value) { target = value; }
  /** Is there at once, for the start of a stream. */
  void Jump(double value) { now = target = value; }
  double Target() const { return target; }
  bool IsMoving() const { return now != target; }

  /** The line through the next frame, of 1 sample or more; afterwards the value stands at its target. */
  Line Next(long samples) {
    if (!IsMoving()) return {target, 0};
    const double step = (target - now) / static_cast<double>(samples);
    const Line line{now + step, step};
    now = target;
    return line;
  }

 private:
  double now;
  double target;
};

}  // namespace vorn

#endif
