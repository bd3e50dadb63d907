// The end of a FIFO where samples come out: what a client or another route put in goes on from here, with its times.
//
// Blocking, it waits for each frame and so runs at the writer's pace; when the writer has ended, the rest follows. Not
// blocking, it never waits: what is missing is silence, and something else must set the pace of the route.
#include <algorithm>

#include <vorn/Plugin.h>

namespace {

class FifoSource : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { BLOCKING, WHOLE };

  static vorn::Description Describe() {
    return vorn::Description("fifosource", "reads a FIFO")
        .Output(vorn::Port("out", "the stream that was put into the FIFO"))
        .Takes(vorn::Parameter::Flag(BLOCKING, "blocking")
                   .Default("true")
                   .Positional()
                   .Live()
                   .Help("wait for samples; false: fill up with silence"))
        .Takes(vorn::Parameter::Flag(WHOLE, "whole")
                   .Default("true")
                   .Live()
                   .Help("wait for a whole frame; false: for the first sample of one, as where the FIFO is filled from "
                         "what comes out of this block"))
        .ReadsFifo()
        .PerFrame("sleeps while there are no samples, wakes who waits for room")
        .Example("fifosource");
  }

 protected:
  int Prepare() override {
    if (Producer() != nullptr) return 0;
    return Refuse("no FIFO to read; draw one before it (fifo -> fifosource), or hand it one with AttachProducer");
  }

  long Process() override {
    const long frame = Out().samplesPerFrame;
    long stamp = -1;
    const long got = Flag(WHOLE) || !Flag(BLOCKING) ? Take(Out().data, frame, Flag(BLOCKING), &stamp) : TakeAny(stamp);
    if (got <= 0) return vorn::FRAME_END_OF_FILE;  // 0: interrupted
    Out().samples = got;
    Out().timestamp = std::max(stamp, -1L);
    return vorn::FRAME_DONE;
  }

 private:
  long TakeAny(long& stamp) {
    const long oldest = Take(Out().data, 1, true, &stamp);
    const long more = oldest < 1 ? 0 : std::min(Waiting(), Out().samplesPerFrame - oldest);
    if (more <= 0) return oldest;
    Out().samples = oldest;
    const long rest = Take(Out().data + vorn::FrameBytes(Out()), more, true, nullptr);
    return rest < 0 ? rest : oldest + rest;
  }
};

}  // namespace

VORN_PLUGIN(FifoSource)
