// tee: copies one stream to several outputs, byte for byte.
#include <cstring>

#include <vorn/Plugin.h>

namespace {

class Tee : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    return vorn::Description("tee", "copies one stream to several outputs")
        .Input(vorn::Port("in"))
        .Outputs(1, vorn::Endpoint::COUNT, vorn::Port("out", "what came in"))
        .Same(vorn::SAME_STREAM)
        .Example("tee");
  }

 protected:
  long Process() override {
    for (const auto& [index, ep] : ActiveOutEps()) {
      std::memcpy(Out(index).data, In().data, vorn::FrameBytes(In()));
      Out(index).samples = In().samples;
    }
    return vorn::FRAME_DONE;
  }
};

}  // namespace

VORN_PLUGIN(Tee)
