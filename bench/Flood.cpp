// flood: a source for measuring, which gives frames without touching them.
#include <vorn/Plugin.h>

namespace {

class Flood : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { FRAMES };

  static vorn::Description Describe() {
    return vorn::Description("flood", "gives frames as they happen to be in memory")
        .Output(vorn::Port("out"))
        .Takes(vorn::Parameter::Integer(FRAMES, "frames", "", 1, 1e9).Positional().Help("how many"))
        .Example("flood 1000");
  }
  int Prepare() override { return left = Integer(FRAMES), 0; }
  long Process() override {
    if (left-- == 0) return vorn::FRAME_END_OF_FILE;
    Out().samples = Out().samplesPerFrame;
    return vorn::FRAME_DONE;
  }

 private:
  long left = 0;
};

}  // namespace

VORN_PLUGIN(Flood)
