// mix: adds streams, each with a gain of its own.
//
// Sums are computed in double: a whole number of any format adds up exactly, and is rounded and saturated once, at the
// end. Floats go on beyond full scale. A new gain is reached in a straight line over one frame.
#include <array>
#include <cmath>
#include <limits>

#include <vorn/Plugin.h>

namespace {

template <vorn::SampleFormat F>
void AddScaled(const std::uint8_t* __restrict from, double* __restrict sum, std::size_t count, double factor) {
  for (std::size_t i = 0; i < count; ++i) sum[i] += factor * vorn::LoadSample<F>(from + vorn::BytesPerSample(F) * i);
}

template <vorn::SampleFormat F>
void AddFrame(const vorn::FrameBuffer& in, double* sum, vorn::Ramp::Line gain) {
  if (gain.step == 0) return AddScaled<F>(in.data, sum, static_cast<std::size_t>(in.samples) * in.channels, gain.start);
  const std::uint8_t* from = in.data;
  for (long k = 0; k < in.samples; ++k, from += in.channels * vorn::BytesPerSample(F), sum += in.channels) {
    AddScaled<F>(from, sum, in.channels, gain.At(k));
  }
}

template <vorn::SampleFormat F>
void StoreSum(const double* __restrict sum, std::uint8_t* __restrict to, std::size_t count) {
  const vorn::SampleRounder<F, double> round;
  for (std::size_t i = 0; i < count; ++i) vorn::StoreSample<F>(round(sum[i]), to + vorn::BytesPerSample(F) * i);
}

class Mix : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  static constexpr unsigned INPUTS = vorn::Endpoint::COUNT;  // the gain of input i is parameter i

  static vorn::Description Describe() {
    vorn::Description mix("mix", "adds streams, each with a gain of its own");
    mix.Inputs(1, INPUTS, vorn::Port("in", "silent once its stream is over, while another goes on"))
        .Output(vorn::Port("out"))
        .Same(vorn::SAME_STREAM)
        .Example("mix 0 -6");
    for (unsigned i = 0; i < INPUTS; ++i) {
      const std::string input = std::to_string(i);
      constexpr double INF = std::numeric_limits<double>::infinity();
      mix.Takes(vorn::Parameter::Number(i, ("gain" + input).c_str(), "dB", -INF, 60)
                    .Default(0)
                    .Positional()
                    .Live()
                    .Help(("gain of input " + input + "; -inf mutes it").c_str()));
    }
    return mix;
  }

 protected:
  int Prepare() override {
    for (unsigned i = 0; i < INPUTS; ++i) gains[i].Jump(Factor(i));
    sum.reserve(static_cast<std::size_t>(Out().samplesPerFrame) * Out().channels);
    return 0;
  }

  void OnSet(unsigned id) override { gains[id].Set(Factor(id)); }

  long Process() override {
    Out().samples = In(ActiveInEps().begin()->first).samples;
    vorn::WithFormat(Out().format, [this](auto format) { AddAll<decltype(format)::value>(); });
    return vorn::FRAME_DONE;
  }

 private:
  template <vorn::SampleFormat F>
  void AddAll() {
    sum.assign(static_cast<std::size_t>(Out().samples) * Out().channels, 0);
    for (const auto& [index, ep] : ActiveInEps()) {
      const auto gain = gains[index].Next(Out().samples);
      const bool isMute = gain.start == 0 && gain.step == 0;
      if (!isMute) AddFrame<F>(In(index), sum.data(), gain);
    }
    StoreSum<F>(sum.data(), Out().data, sum.size());
  }

  double Factor(unsigned input) const { return std::pow(10, Number(input) / 20); }

  std::array<vorn::Ramp, INPUTS> gains;
  std::vector<double> sum;
};

}  // namespace

VORN_PLUGIN(Mix)
