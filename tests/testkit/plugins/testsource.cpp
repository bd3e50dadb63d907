// Plays the frames that a test gave it. An entry without samples is a cycle in which it sends nothing, one with a
// negative count a result of ProcessFrame.

#include <vorn/Plugin.h>

#include "testkit/TestGraph.h"

class TestSource : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    return vorn::Description("testsource", "plays given frames").Outputs(1, 2, vorn::Port("out"));
  }

  int ioctl(unsigned cmd, void* arg) override {
    if (cmd != testkit::FRAMES_COMMAND) return PluginBlock::ioctl(cmd, arg);
    *static_cast<testkit::Frames**>(arg) = &frames;
    return 0;
  }

 protected:
  int Prepare() override { return next = 0, 0; }

  long Process() override {
    if (next == frames.size()) return vorn::FRAME_END_OF_FILE;
    const testkit::Frame& frame = frames[next++];
    if (frame.samples < 0) return frame.samples;
    for (const auto& [index, ep] : ActiveOutEps()) {
      if (frame.samples != 0) std::memcpy(Out(index).data, frame.bytes.data(), frame.bytes.size());
      Out(index).samples = frame.samples;
      Out(index).timestamp = frame.stamp;
    }
    return vorn::FRAME_DONE;
  }

 private:
  testkit::Frames frames;
  std::size_t next = 0;
};

VORN_PLUGIN(TestSource)
