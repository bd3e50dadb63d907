// reframe: the same samples in frames of another size. What fills no frame any more leaves as a short one at the end.
#include <algorithm>
#include <cstring>

#include <vorn/Plugin.h>

namespace {

class Reframe : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { FRAME };

  static vorn::Description Describe() {
    return vorn::Description("reframe", "passes a stream on in frames of another size")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out"))
        .Same(vorn::SAME_RATE | vorn::SAME_FORMAT | vorn::SAME_CHANNELS)
        .Takes(vorn::Parameter::Integer(FRAME, "frame", "samples", 1, 1 << 24)
                   .Positional()
                   .Help("size of the frames that leave; left out: what the link behind says"))
        .Example("reframe 160");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                                   std::vector<vorn::Stream>& out) {
    if (in.empty() || out.empty()) return {};
    vorn::Stream made = in[0];
    made.frame = parameters.Integer(FRAME);
    out[0].Complete(made);
    return vorn::CheckSame(vorn::SAME_FRAME, false, 0, out[0], made, "");
  }

 protected:
  vorn::Refusal CheckStream(bool input, std::size_t, const vorn::FrameBuffer& stream) const override {
    const long frame = Integer(FRAME);
    if (input || frame == 0 || frame == stream.samplesPerFrame) return {};
    return vorn::Refusal("frame=" + std::to_string(frame)).Field("frame");
  }

  // Less than a frame waits here; more where blocks without the kit keep the source from pausing.
  int Prepare() override {
    const long ahead = std::max<long>(In().rate, 8 * In().samplesPerFrame);
    held.Open(In(), Out().samplesPerFrame + ahead);
    return 0;
  }

  long Process() override {
    if (held.Samples() + In().samples == Out().samplesPerFrame) return Complete();
    if (held.Append(In())) return Drain(false);
    return Fail(std::to_string(In().samples) + " samples came while " + std::to_string(held.Samples()) +
                " wait in frames of " + std::to_string(Out().samplesPerFrame) + ": too fast");
  }

  bool HoldsSamples() const override { return held.Samples() > 0; }
  bool HoldsFrame() const override { return held.Samples() >= Out().samplesPerFrame; }

  long Drain(bool atEnd) override {
    if (!atEnd && !HoldsFrame()) return vorn::FRAME_DONE;
    const vorn::FrameBuffer frame = held.Front(std::min(held.Samples(), Out().samplesPerFrame));
    std::memcpy(Out().data, frame.data, vorn::FrameBytes(frame));
    Out().samples = frame.samples;
    Out().timestamp = frame.timestamp;
    held.Drop(frame.samples);
    return vorn::FRAME_DONE;
  }

  void Forget() override { held.Clear(); }

 private:
  /** What makes a frame whole goes straight into it: only its time stamp passes through the queue. */
  long Complete() {
    vorn::FrameBuffer rest = In();
    rest.samples = 0;
    held.Append(rest);
    Drain(true);
    std::memcpy(Out().data + vorn::FrameBytes(Out()), In().data, vorn::FrameBytes(In()));
    Out().samples += In().samples;
    return vorn::FRAME_DONE;
  }

  vorn::InputQueue held;
};

}  // namespace

VORN_PLUGIN(Reframe)
