// Adds what comes into its inputs, 16 bits without saturation; input 2 does not drive the output. With one input: a
// gain of 1.

#include <vorn/Plugin.h>

class TestSum : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    return vorn::Description("testsum", "adds")
        .Inputs(1, 3, vorn::Port("in").Takes(vorn::Formats({vorn::SampleFormat::S16_LE})))
        .Outputs(1, 2, vorn::Port("out"))
        .Same(vorn::SAME_STREAM);
  }

 protected:
  bool Drives(std::size_t input) const override { return input != 2; }

  long Process() override {
    const long samples = In(ActiveInEps().begin()->first).samples;
    for (const auto& [o, out] : ActiveOutEps()) {
      auto* sum = reinterpret_cast<std::int16_t*>(Out(o).data);
      std::memset(sum, 0, 2 * static_cast<std::size_t>(samples));
      for (const auto& [i, in] : ActiveInEps()) {
        const auto* from = reinterpret_cast<const std::int16_t*>(In(i).data);
        for (long k = 0; k < samples; ++k) sum[k] = static_cast<std::int16_t>(sum[k] + from[k]);
      }
      Out(o).samples = samples;
    }
    return vorn::FRAME_DONE;
  }
};

VORN_PLUGIN(TestSum)
