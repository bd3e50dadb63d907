// tone: a test signal: sine, square, sweep or noise. The same arguments give the same samples, whatever the size of the
// frames.
#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include <vorn/Plugin.h>

#include "Waves.h"

namespace {

class Tone : public vorn::PluginBlock {
 public:
  enum : unsigned { WAVE, FREQUENCY, LEVEL, FROM, TO, TIME, SEED, LENGTH, SAMPLES, RATE, FORMAT, CHANNELS, FRAME };
  enum Wave : std::size_t { SINE, SQUARE, SWEEP, WHITE, PINK };

  explicit Tone(const vorn::Setup& setup) : PluginBlock(setup), countsSamples(CountsSamples(Table())) {}

  static vorn::Description Describe() {
    using vorn::Parameter;
    constexpr double INF = std::numeric_limits<double>::infinity();
    constexpr double MAX_HZ = 768000;
    return vorn::Description("tone", "plays a test signal: sine, square, sweep or noise")
        .Output(vorn::Port("out", "noise is another one in each channel, all else the same in all"))
        .Takes(Parameter::Word(WAVE, "wave", "sine square sweep white pink").Positional().Help("what is played"))
        .Takes(Parameter::Number(FREQUENCY, "frequency", "Hz", 0, MAX_HZ / 2)
                   .Default(1000)
                   .Positional()
                   .Live()
                   .Help("of sine and square"))
        .Takes(Parameter::Number(LEVEL, "level", "dBFS", -INF, 0)
                   .Default(-20)
                   .Positional()
                   .Live()
                   .Help("peak of the wave; of noise the RMS"))
        .Takes(Parameter::Number(FROM, "from", "Hz", 0.001, MAX_HZ / 2).Default(20).Help("where the sweep starts"))
        .Takes(Parameter::Number(TO, "to", "Hz", 0.001, MAX_HZ / 2)
                   .Default(20000)
                   .Help("where it ends; by default not above half the rate"))
        .Takes(Parameter::Number(TIME, "time", "s", 0.001, 3600).Default(10).Help("after which the sweep starts over"))
        .Takes(Parameter::Integer(SEED, "seed", "", 0, UINT32_MAX).Default(1).Help("another seed is another noise"))
        .Takes(Parameter::Number(LENGTH, "length", "s", 0, INF).Help("when it ends; left out: never"))
        .Takes(
            Parameter::Integer(SAMPLES, "samples", "samples", 0, INF).Help("the same in samples, in place of length"))
        .Takes(Parameter::Integer(RATE, "rate", "Hz", 1, MAX_HZ).Help("of the stream; left out: as the graph says"))
        .Takes(Parameter::Word(FORMAT, "format", vorn::FormatNames(vorn::ALL_FORMATS))
                   .Default("")
                   .Help("sample format, likewise"))
        .Takes(Parameter::Integer(CHANNELS, "channels", "", 1, 4096).Help("of the stream, likewise"))
        .Takes(Parameter::Integer(FRAME, "frame", "samples", 1, 1 << 24).Help("samples in a frame, likewise"))
        .Example("tone sine 440 -12 length=2");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>&,
                                   std::vector<vorn::Stream>& out) {
    const bool countsSamples = CountsSamples(parameters);
    if (out.empty()) return {};
    const vorn::Stream made = Made(parameters);
    out[0].Complete(made);
    out[0].length = LengthOf(parameters, countsSamples, out[0].rate);
    const vorn::Refusal refusal = vorn::CheckSame(vorn::SAME_STREAM, false, 0, out[0], made, "");
    return refusal.empty() ? CheckFrequencies(parameters, out[0].rate) : refusal;
  }

 protected:
  int OutputStreams(std::vector<vorn::Stream>& streams) override {
    streams.assign(1, Made(Table()));
    streams[0].length = LengthOf(Table(), countsSamples, streams[0].rate != 0 ? streams[0].rate : Out().rate);
    return 0;
  }

  vorn::Refusal CheckStream(bool, std::size_t, const vorn::FrameBuffer& stream) const override {
    const vorn::Stream made = Made(Table());
    const vorn::Refusal misfit = vorn::CheckSame(vorn::SAME_STREAM, false, 0, vorn::StreamOf(stream), made, "");
    return misfit.empty() ? misfit : vorn::Refusal(vorn::StreamText(made)).Field(misfit.field);
  }

  int Prepare() override {
    const vorn::Refusal refusal = CheckFrequencies(Table(), Out().rate);
    if (!refusal.empty()) return Refuse(refusal);
    length = LengthOf(Table(), countsSamples, Out().rate);
    if (length < 0) length = std::numeric_limits<long>::max();
    position = 0;
    level.Jump(Factor());
    frame.Prepare(Out());
    PrepareWave(Out().rate);
    return 0;
  }

  void OnSet(unsigned id) override {
    if (id == LEVEL) level.Set(Factor());
    if (id == LENGTH || id == SAMPLES) countsSamples = id == SAMPLES;
    if (id != FREQUENCY || Out().rate == 0) return;
    const vorn::Refusal refusal = CheckFrequencies(Table(), Out().rate);
    if (!refusal.empty()) throw std::invalid_argument(refusal.Text());
    phase.SetFrequency(Number(FREQUENCY), Out().rate);
  }

  long Process() override {
    vorn::FrameBuffer& out = Out();
    const long samples = std::min(out.samplesPerFrame, length - position);
    if (samples == 0) return vorn::FRAME_END_OF_FILE;
    Fill(frame.Data(), samples);
    frame.Write(out, samples);
    out.timestamp = position / out.rate * 1000000 + position % out.rate * 1000000 / out.rate;
    position += samples;
    return vorn::FRAME_DONE;
  }

 private:
  static bool CountsSamples(const vorn::Parameters& p) {
    if (!p.IsGiven(LENGTH) || !p.IsGiven(SAMPLES)) return p.IsGiven(SAMPLES);
    throw std::invalid_argument("takes either length= in s or samples=");
  }

  /** In samples; -1 for ever, or where the rate to tell it is not known. */
  static long LengthOf(const vorn::Parameters& p, bool countsSamples, std::uint32_t rate) {
    if (countsSamples) return p.Integer(SAMPLES);
    return p.IsGiven(LENGTH) && rate != 0 ? std::lround(std::min(p.Number(LENGTH) * rate, 1e18)) : -1;
  }

  /** The stream of the output as far as the arguments say it. */
  static vorn::Stream Made(const vorn::Parameters& p) {
    vorn::Stream made;
    made.rate = static_cast<std::uint32_t>(p.Integer(RATE));
    made.channels = static_cast<std::uint32_t>(p.Integer(CHANNELS));
    made.frame = p.Integer(FRAME);
    if (p.IsGiven(FORMAT)) made.format = static_cast<std::int32_t>(p.Choice(FORMAT));
    return made;
  }

  /** A wave of more than half the rate would sound like another one. */
  static vorn::Refusal CheckFrequencies(const vorn::Parameters& p, std::uint32_t rate) {
    const std::size_t wave = p.Choice(WAVE);
    const bool isPeriodic = wave == SINE || wave == SQUARE;
    for (const unsigned id : {FREQUENCY, FROM, TO}) {
      const bool counts = id == FREQUENCY ? isPeriodic : wave == SWEEP && p.IsGiven(id);
      if (!counts || rate == 0 || p.Number(id) <= rate / 2.0) continue;
      const std::string& name = p.Find(id)->name;
      const std::string got = vorn::NumberText(p.Number(id)) + " Hz";
      const std::string takes = "at most " + vorn::NumberText(rate / 2.0) + " Hz, half the rate";
      // The line fits an argument as well as a parameter that is set.
      return vorn::Refusal::Argument(name).Got(got).Takes(takes).Line("'" + name + "': got " + got + ", takes " +
                                                                      takes);
    }
    return {};
  }

  double Factor() const { return std::pow(10, Number(LEVEL) / 20); }

  void PrepareWave(std::uint32_t rate) {
    wave = static_cast<Wave>(Choice(WAVE));
    phase = {};
    phase.SetFrequency(Number(FREQUENCY), rate);
    const auto half = [=, this](unsigned id) { return IsGiven(id) ? Number(id) : std::min(Number(id), rate / 2.0); };
    sweep = Sweep(half(FROM), half(TO), Number(TIME), rate);
    noises.clear();
    const auto seed = static_cast<std::uint32_t>(Integer(SEED));
    const std::uint32_t count = wave == WHITE || wave == PINK ? Out().channels : 0;
    for (std::uint32_t c = 0; c < count; ++c) noises.emplace_back(wave == PINK, rate, seed, c);
  }

  void Fill(double* x, long samples) {
    const auto gain = level.Next(samples);
    for (long k = 0; k < samples; ++k) {
      const double factor = gain.At(k);
      if (noises.empty()) {
        x = std::fill_n(x, Out().channels, factor * Next(position + k));
      } else {
        for (Noise& noise : noises) *x++ = factor * noise.Next();
      }
    }
  }

  double Next(long sample) {
    if (wave == SWEEP) return std::sin(TURN * sweep.TurnsAt(sample));
    const double turns = phase.Next();
    if (wave == SQUARE) return turns < 0.5 ? 1 : -1;
    return std::sin(TURN * turns);
  }

  bool countsSamples;  // which of length and samples was set last
  Wave wave = SINE;
  long length = 0;
  long position = 0;
  vorn::Ramp level;
  Phase phase;
  Sweep sweep;
  std::vector<Noise> noises;  // one a channel, or none
  vorn::DoubleFrame frame;
};

}  // namespace

VORN_PLUGIN(Tone)
