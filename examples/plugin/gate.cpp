// gate: lets a voice through and closes in its pauses. A complete plug-in, in a folder that needs nothing of Vorn but
// its installation.
#include <algorithm>
#include <cmath>

#include <vorn/Plugin.h>

namespace {

/** Open while a sample of the last `hold` milliseconds was as loud as `threshold`; moves over one frame. */
class Gate : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { THRESHOLD, HOLD, OPEN };

  static vorn::Description Describe() {
    using vorn::Parameter;
    return vorn::Description("gate", "closes in the pauses of a voice")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out"))
        .Same(vorn::SAME_STREAM)
        .Takes(Parameter::Number(THRESHOLD, "threshold", "dBFS", -120, 0).Default(-40).Positional().Live())
        .Takes(
            Parameter::Number(HOLD, "hold", "ms", 0, 10000).Default(200).Live().Help("how long a pause is let through"))
        .Takes(Parameter::Reading(OPEN, "open", "").Help("1 while it lets through"))
        .Example("gate -45 hold=300");
  }

 protected:
  int Prepare() override {
    quietFor = 0;
    factor.Jump(1);
    frame.Prepare(In());
    return 0;
  }

  long Process() override {
    float* const x = frame.Read(In());
    const unsigned channels = In().channels;
    const long count = In().samples * channels;
    const auto threshold = static_cast<float>(std::pow(10, Number(THRESHOLD) / 20));

    const bool isLoud = std::any_of(x, x + count, [=](float sample) { return std::fabs(sample) >= threshold; });
    quietFor = isLoud ? 0 : quietFor + In().samples;
    factor.Set(static_cast<double>(quietFor) * 1000 <= Number(HOLD) * In().rate ? 1 : 0);
    Store(OPEN, factor.Target());

    const auto line = factor.Next(In().samples);
    for (long i = 0; i < count; ++i) x[i] *= static_cast<float>(line.At(i / channels));
    frame.Write(Out(), In().samples);
    return vorn::FRAME_DONE;
  }

 private:
  vorn::FloatFrame frame;
  vorn::Ramp factor;
  long quietFor = 0;  // samples
};

}  // namespace

VORN_PLUGIN(Gate)
