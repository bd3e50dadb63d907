// gain: makes a stream louder or quieter.
//
// An integer sample x becomes x * 10^(gain/20), computed in double, rounded to the nearest whole number (ties to even)
// and saturated to its format's range; a float sample becomes the float nearest to that product. At 0 dB samples pass
// bit by bit. A new gain is reached in a straight line over one frame.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include <vorn/Plugin.h>

#include "Factors.h"

namespace {

using vorn::SampleFormat;

template <SampleFormat F, class Factor>
void Scale(const std::uint8_t* __restrict from, std::uint8_t* __restrict to, std::size_t count, Factor factor) {
  const vorn::SampleRounder<F, double> round;
  vorn::ChangeSamples<F>(
      from, to, count, [=](std::size_t i, vorn::SampleValue<F> sample) { return round.OfNumber(sample * factor(i)); });
}

template <SampleFormat F>
void RampFrame(const std::uint8_t* from, std::uint8_t* to, std::size_t count, std::size_t channels,
               vorn::Ramp::Line gain) {
  alignas(64) double factors[PIECE];
  for (std::size_t first = 0; first < count; first += PIECE) {
    const std::size_t piece = std::min(PIECE, count - first);
    const std::size_t begin = vorn::BytesPerSample(F) * first;
    FillFactors(gain, channels, first, factors, piece);
    Scale<F>(from + begin, to + begin, piece, [factor = factors](std::size_t i) { return factor[i]; });
  }
}

class Gain : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { GAIN };

  static vorn::Description Describe() {
    return vorn::Description("gain", "makes a stream louder or quieter")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out"))
        .Same(vorn::SAME_STREAM)
        .Takes(vorn::Parameter::Number(GAIN, "gain", "dB", -std::numeric_limits<double>::infinity(), 60)
                   .Default(0)
                   .Positional()
                   .Live()
                   .Help("how much louder; -inf is silence"))
        .Example("gain -6");
  }

 protected:
  int Prepare() override { return factor.Jump(Factor()), 0; }
  void OnSet(unsigned) override { factor.Set(Factor()); }

  long Process() override {
    const vorn::FrameBuffer& in = In();
    vorn::FrameBuffer& out = Out();
    const std::size_t count = static_cast<std::size_t>(in.samples) * in.channels;
    const std::size_t bytes = count * vorn::BytesPerSample(in.format);
    const auto line = factor.Next(in.samples);
    out.samples = in.samples;
    if (line.step == 0 && line.start == 1) return std::memcpy(out.data, in.data, bytes), vorn::FRAME_DONE;
    if (line.step == 0 && line.start == 0) return std::memset(out.data, 0, bytes), vorn::FRAME_DONE;
    vorn::WithFormat(in.format, [=, from = in.data, to = out.data, channels = in.channels](auto format) {
      constexpr SampleFormat F = decltype(format)::value;
      if (line.step == 0) {
        vorn::OnVectors([=] { Scale<F>(from, to, count, [=](std::size_t) { return line.start; }); });
      } else {
        vorn::OnVectors([=] { RampFrame<F>(from, to, count, channels, line); });
      }
    });
    return vorn::FRAME_DONE;
  }

 private:
  double Factor() const { return std::pow(10, Number(GAIN) / 20); }

  vorn::Ramp factor;
};

}  // namespace

VORN_PLUGIN(Gain)
