// Gives frames of its output's size, larger or smaller than those that come: a block that buffers.
#include <cstring>

#include <vorn/Plugin.h>

class TestReframe : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    return vorn::Description("testreframe", "changes the frame size")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out"))
        .Same(vorn::SAME_RATE | vorn::SAME_FORMAT | vorn::SAME_CHANNELS);
  }

 protected:
  int Prepare() override {
    queue.Open(In(), 8 * (In().samplesPerFrame + Out().samplesPerFrame));
    return 0;
  }
  long Process() override {
    if (!queue.Append(In())) return vorn::FRAME_FAILED;
    return Drain(false);
  }
  bool HoldsSamples() const override { return queue.Samples() > 0; }
  bool HoldsFrame() const override { return queue.Samples() >= const_cast<TestReframe*>(this)->Out().samplesPerFrame; }
  long Drain(bool atEnd) override {
    const long samples = std::min(queue.Samples(), Out().samplesPerFrame);
    if (samples < Out().samplesPerFrame && !atEnd) return vorn::FRAME_DONE;
    const vorn::FrameBuffer front = queue.Front(samples);
    std::memcpy(Out().data, front.data,
                static_cast<std::size_t>(samples) * front.channels * vorn::BytesPerSample(front.format));
    Out().samples = samples;
    Out().timestamp = front.timestamp;
    queue.Drop(samples);
    return vorn::FRAME_DONE;
  }
  void Forget() override { queue.Clear(); }

 private:
  vorn::InputQueue queue;
};

VORN_PLUGIN(TestReframe)
