// Records every frame since the start or the last reset; ends the route after as many as its argument says.
#include <vorn/Plugin.h>

#include "testkit/TestGraph.h"

class TestSink : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { FRAMES };

  static vorn::Description Describe() {
    return vorn::Description("testsink", "records frames")
        .Input(vorn::Port("in"))
        .Takes(vorn::Parameter::Integer(FRAMES, "frames", "", 0, 1000000).Default("0").Positional());
  }

  int ioctl(unsigned cmd, void* arg) override {
    if (cmd != testkit::FRAMES_COMMAND) return PluginBlock::ioctl(cmd, arg);
    *static_cast<testkit::Frames**>(arg) = &frames;
    return 0;
  }

 protected:
  long Process() override {
    const std::size_t bytes =
        static_cast<std::size_t>(In().samples) * In().channels * vorn::BytesPerSample(In().format);
    frames.push_back({{In().data, In().data + bytes}, In().samples, In().timestamp});
    const bool isEnough = static_cast<long>(frames.size()) == Integer(FRAMES);
    return isEnough ? vorn::FRAME_END_OF_FILE : vorn::FRAME_DONE;
  }

  void Forget() override { frames.clear(); }

 private:
  testkit::Frames frames;
};

VORN_PLUGIN(TestSink)
