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
  enum : unsigned { BLOCKING };

  static vorn::Description Describe() {
    return vorn::Description("fifosource", "reads a FIFO")
        .Output(vorn::Port("out", "the stream that was put into the FIFO"))
        .Takes(vorn::Parameter::Flag(BLOCKING, "blocking")
                   .Default("true")
                   .Positional()
                   .Live()
                   .Help("wait for samples; false: fill up with silence"))
        .ReadsFifo()
        .Example("fifosource");
  }

 protected:
  int Prepare() override {
    if (Producer() != nullptr) return 0;
    return Refuse("no FIFO to read; draw one before it (fifo -> fifosource), or hand it one with AttachProducer");
  }

  long Process() override {
    long stamp = -1;
    const long got = Take(Out().data, Out().samplesPerFrame, Flag(BLOCKING), &stamp);
    if (got < 0) return vorn::FRAME_END_OF_FILE;
    Out().samples = got;
    Out().timestamp = std::max(stamp, -1L);
    return vorn::FRAME_DONE;
  }
};

}  // namespace

VORN_PLUGIN(FifoSource)
