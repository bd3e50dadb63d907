// mix: adds streams, each with a gain of its own.
//
// Sums are computed in double: a whole number of any format adds up exactly, and is rounded and saturated once, at the
// end. Floats go on beyond full scale. A new gain is reached in a straight line over one frame.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include <vorn/Plugin.h>

#include "Factors.h"

namespace {

/** A frame that is heard. */
struct Voice {
  const std::uint8_t* data;
  vorn::Ramp::Line gain;
};

/** The first voice makes the sum, the others add to it. */
template <vorn::SampleFormat F, bool IS_FIRST, class Factor>
void AddScaled(const std::uint8_t* __restrict from, double* __restrict sum, std::size_t count, Factor factor) {
  vorn::ReadSamples<F>(from, count, [=](std::size_t i, vorn::SampleValue<F> sample) {
    sum[i] = (IS_FIRST ? 0 : sum[i]) + factor(i) * sample;
  });
}

template <vorn::SampleFormat F, bool IS_FIRST>
void AddPiece(const Voice& voice, double* sum, std::size_t first, std::size_t count, std::size_t channels) {
  const std::uint8_t* from = voice.data + vorn::BytesPerSample(F) * first;
  if (voice.gain.step == 0) {
    return AddScaled<F, IS_FIRST>(from, sum, count, [factor = voice.gain.start](std::size_t) { return factor; });
  }
  alignas(64) double factors[PIECE];
  FillFactors(voice.gain, channels, first, factors, count);
  AddScaled<F, IS_FIRST>(from, sum, count, [factor = factors](std::size_t i) { return factor[i]; });
}

template <vorn::SampleFormat F>
void StorePiece(const double* __restrict sum, std::uint8_t* __restrict to, std::size_t count) {
  const vorn::SampleRounder<F, double> round;
  vorn::WriteSamples<F>(to, count, [=](std::size_t i) { return round.OfNumber(sum[i]); });
}

template <vorn::SampleFormat F>
void MixFrame(const Voice* voice, const Voice* end, std::uint8_t* to, std::size_t count, std::size_t channels) {
  alignas(64) double sum[PIECE];
  for (std::size_t first = 0; first < count; first += PIECE) {
    const std::size_t piece = std::min(PIECE, count - first);
    AddPiece<F, true>(*voice, sum, first, piece, channels);
    for (const Voice* more = voice + 1; more < end; ++more) AddPiece<F, false>(*more, sum, first, piece, channels);
    StorePiece<F>(sum, to + vorn::BytesPerSample(F) * first, piece);
  }
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
    return 0;
  }

  void OnSet(unsigned id) override { gains[id].Set(Factor(id)); }

  long Process() override {
    vorn::FrameBuffer& out = Out();
    out.samples = In(ActiveInEps().begin()->first).samples;
    Voice* end = voices.data();
    for (const auto& [index, ep] : ActiveInEps()) {
      const auto gain = gains[index].Next(out.samples);
      const bool isMute = gain.start == 0 && gain.step == 0;
      if (!isMute) *end++ = {In(index).data, gain};
    }
    if (end == voices.data()) return std::memset(out.data, 0, vorn::FrameBytes(out)), vorn::FRAME_DONE;
    const std::size_t count = static_cast<std::size_t>(out.samples) * out.channels;
    vorn::WithFormat(out.format, [=, voice = voices.data(), to = out.data, channels = out.channels](auto format) {
      vorn::OnVectors([=] { MixFrame<decltype(format)::value>(voice, end, to, count, channels); });
    });
    return vorn::FRAME_DONE;
  }

 private:
  double Factor(unsigned input) const { return std::pow(10, Number(input) / 20); }

  std::array<vorn::Ramp, INPUTS> gains;
  std::array<Voice, INPUTS> voices;  // of the frame at hand
};

}  // namespace

VORN_PLUGIN(Mix)
