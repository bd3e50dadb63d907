// The end of a FIFO where samples go in, for a client or another route to take them out, with their times.
//
// Blocking, it waits for room and so runs at the reader's pace. Not blocking, it never waits: a FIFO that overflows
// loses the older half of what it holds. Once its reader has ended or the FIFO is shut down, the stream ends here.
#include <string>

#include <vorn/Plugin.h>

namespace {

class FifoSink : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { BLOCKING };

  static vorn::Description Describe() {
    return vorn::Description("fifosink", "fills a FIFO")
        .Input(vorn::Port("in"))
        .Takes(vorn::Parameter::Flag(BLOCKING, "blocking")
                   .Default("true")
                   .Positional()
                   .Live()
                   .Help("wait for room; false: drop the oldest samples"))
        .WritesFifo()
        .PerFrame("sleeps while there is no room, wakes who waits for samples")
        .Example("filesource speech.wav ! fifosink");
  }

 protected:
  int Prepare() override {
    if (Consumer() != nullptr) return 0;
    return Refuse("no FIFO to fill; draw one behind it (fifosink -> fifo), or hand it one with AttachConsumer");
  }

  long Process() override {
    const long stamp = In().timestamp >= 0 ? In().timestamp : vorn::NO_FIFO_STAMP;
    const long put = Put(In().data, In().samples, Flag(BLOCKING), stamp);
    if (put == In().samples) return vorn::FRAME_DONE;
    if (put >= 0)
      Lose("interrupted while the FIFO was full; the last " + std::to_string(In().samples - put) + " samples are lost");
    return vorn::FRAME_END_OF_FILE;
  }
};

}  // namespace

VORN_PLUGIN(FifoSink)
