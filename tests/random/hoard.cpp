// hoard: keeps the whole stream until it ends. No plan can know how late it is.

#include <vorn/Plugin.h>

class Hoard : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    return vorn::Description("hoard", "keeps the whole stream until it ends")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out"))
        .Same(vorn::SAME_STREAM);
  }

 protected:
  int Prepare() override { return queue.Open(In(), 10L * In().rate), 0; }
  long Process() override { return queue.Append(In()) ? vorn::FRAME_DONE : vorn::FRAME_FAILED; }
  bool HoldsSamples() const override { return queue.Samples() > 0; }

  long Drain(bool atEnd) override {
    if (!atEnd) return vorn::FRAME_DONE;
    const vorn::FrameBuffer front = queue.Front(std::min(queue.Samples(), Out().samplesPerFrame));
    std::memcpy(Out().data, front.data, vorn::FrameBytes(front));
    Out().samples = front.samples;
    queue.Drop(front.samples);
    return vorn::FRAME_DONE;
  }

 private:
  vorn::InputQueue queue;
};

VORN_PLUGIN(Hoard)
