// Passes frames on, and has its route watched from one of them to a later one, at which the stream ends.
#include <algorithm>

#include <vorn/Plugin.h>

#include "Witness.h"

namespace {

class Beat : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { FRAMES };

  static vorn::Description Describe() {
    return vorn::Description("beat", "has its route watched")
        .Input(vorn::Port("in"))
        .OptionalOutput(vorn::Port("out"))
        .Same(vorn::SAME_STREAM)
        .Takes(vorn::Parameter::Integer(FRAMES, "frames", "", 1, 1e6).Default(2000).Positional());
  }

 protected:
  long Process() override {
    constexpr long FIRST_FRAMES = 200;  // for what grows and is filled once
    if (++count > FIRST_FRAMES) witness::Watch();
    if (count > FIRST_FRAMES + Integer(FRAMES)) return witness::Rest(), vorn::FRAME_END_OF_FILE;
    if (ActiveOutEps().empty()) return vorn::FRAME_DONE;
    std::copy_n(In().data, vorn::FrameBytes(In()), Out().data);
    Out().samples = In().samples;
    return vorn::FRAME_DONE;
  }

 private:
  long count = 0;
};

}  // namespace

VORN_PLUGIN(Beat)
