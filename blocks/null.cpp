// null: drops what comes in and counts it. The end of a graph that is only measured.
#include <vorn/Plugin.h>

namespace {

class Null : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { FRAMES, SAMPLES };

  static vorn::Description Describe() {
    return vorn::Description("null", "takes anything, drops it and counts it")
        .Inputs(1, vorn::Endpoint::COUNT, vorn::Port("in", "streams that need not be alike"))
        .Takes(vorn::Parameter::Reading(FRAMES, "frames", "").Help("frames since the start, of all inputs"))
        .Takes(vorn::Parameter::Reading(SAMPLES, "samples", "").Help("samples since the start, of all inputs"))
        .Example("null");
  }

 protected:
  int Prepare() override {
    frames = samples = 0;
    return 0;
  }

  bool LinesUpInputs() const override { return false; }

  long Process() override {
    for (const auto& [index, ep] : ActiveInEps()) {
      if (In(index).samples > 0) ++frames;
      samples += In(index).samples;
    }
    return vorn::FRAME_DONE;
  }

  void OnGet(unsigned id) override {
    if (id == FRAMES) Store(FRAMES, static_cast<double>(frames));
    if (id == SAMPLES) Store(SAMPLES, static_cast<double>(samples));
  }

 private:
  long frames = 0;
  long samples = 0;
};

}  // namespace

VORN_PLUGIN(Null)
