// Another sample rate, with libsoxr. What lies below half of the lower rate keeps its level, its phase and its place in
// time; what lies above is gone.
//
// N samples that came become round(N * ratio) that leave, counted over the whole stream, and all frames but the last
// one are full: 441 samples at 44100 Hz become 480 at 48000 Hz, frame by frame. Only the first frames are missing for a
// while, since a filter looks ahead. Equal rates pass the samples on as they are.
#include <soxr.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

#include <vorn/Plugin.h>

#include "Outbox.h"

namespace {

constexpr long CHUNK = 4096;  // samples out of the library at a time
constexpr std::uint32_t MOST_RATE = 10000000;
constexpr std::uint32_t MOST_RATIO = 10000;

// The smallest frame that keeps up with the frames that come.
long FrameBehind(long frame, std::uint32_t from, std::uint32_t to) { return (frame * to + from - 1) / from; }

vorn::Refusal CheckRates(std::uint32_t from, std::uint32_t to) {
  if (from <= MOST_RATE && to <= MOST_RATE && std::max(from, to) / std::min(from, to) <= MOST_RATIO) return {};
  return "got " + std::to_string(from) + " Hz in and " + std::to_string(to) + " Hz out, takes up to " +
         std::to_string(MOST_RATE) + " Hz and rates not more than a factor of " + std::to_string(MOST_RATIO) + " apart";
}

class Resample : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { RATE, QUALITY };

  static vorn::Description Describe() {
    return vorn::Description("resample", "changes the sample rate")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out"))
        .Same(vorn::SAME_FORMAT | vorn::SAME_CHANNELS)
        .Takes(vorn::Parameter::Integer(RATE, "rate", "Hz", 1, MOST_RATE)
                   .Positional()
                   .Help("of what leaves; left out, the rate of the link behind"))
        .Takes(vorn::Parameter::Word(QUALITY, "quality", "quick low medium high best")
                   .Default("high")
                   .Positional()
                   .Help("quick interpolates; medium is true to 16 bits, high to 20, best to 28"))
        .Example("resample 16000");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                                   std::vector<vorn::Stream>& out) {
    if (in.empty() || out.empty()) return {};
    const vorn::Stream& from = in[0];
    vorn::Stream& to = out[0];
    if (vorn::Refusal refusal = CheckArgument(parameters, to.rate); !refusal.empty()) return refusal;
    if (parameters.IsGiven(RATE)) to.rate = static_cast<std::uint32_t>(parameters.Integer(RATE));
    if (to.format < 0) to.format = from.format;
    if (to.channels == 0) to.channels = from.channels;
    if (from.rate == 0 || to.rate == 0) return {};
    if (to.frame == 0) to.frame = FrameBehind(from.frame, from.rate, to.rate);
    if (to.length < 0 && from.length >= 0) to.length = Outbox::Rescale(from.length, from.rate, to.rate);
    return CheckRates(from.rate, to.rate);
  }

 protected:
  int Prepare() override {
    for (const vorn::Refusal& refusal : {CheckArgument(Table(), Out().rate), CheckRates(In().rate, Out().rate)}) {
      if (!refusal.empty()) return Refuse(refusal);
    }
    samples.Prepare(In());
    step = In().samplesPerFrame;
    silence.assign(static_cast<std::size_t>(step) * In().channels, 0);
    resampled.resize(static_cast<std::size_t>(CHUNK) * Out().channels);
    box.Open(In(), Out(), CHUNK, 4L * Out().rate + 16 * CHUNK);  // filters give much at once
    Begin();
    return 0;
  }

  long Process() override {
    box.Count(In());
    if (resampler) {
      Feed(samples.Read(In()), In().samples);
    } else {
      box.Put(In());
    }
    box.Send(Out(), false);
    return vorn::FRAME_DONE;
  }

  bool HoldsSamples() const override { return box.HoldsSamples(); }
  bool HoldsFrame() const override { return box.HoldsFrame(Out()); }
  long Drain(bool atEnd) override {
    while (atEnd && box.Misses(Out())) Feed(silence.data(), step);
    box.Send(Out(), atEnd);
    return vorn::FRAME_DONE;
  }

  void Forget() override { Begin(); }

 private:
  struct Delete {
    void operator()(soxr_t made) const { soxr_delete(made); }
  };

  static vorn::Refusal CheckArgument(const vorn::Parameters& parameters, std::uint32_t rate) {
    const auto wanted = static_cast<std::uint32_t>(parameters.Integer(RATE));
    if (rate == 0 || !parameters.IsGiven(RATE) || rate == wanted) return {};
    return vorn::Refusal::Output(0)
        .Field("rate")
        .Got(std::to_string(rate) + " Hz")
        .Takes(std::to_string(wanted) + " Hz, as the argument 'rate' says")
        .Advice("leave one of the two away");
  }

  soxr_t NewResampler() {
    static constexpr unsigned long RECIPES[] = {SOXR_QQ, SOXR_LQ, SOXR_MQ, SOXR_HQ, SOXR_VHQ};
    const soxr_io_spec_t doubles = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(RECIPES[Choice(QUALITY)], 0);
    soxr_error_t error = nullptr;
    soxr_t made = soxr_create(In().rate, Out().rate, In().channels, &error, &doubles, &quality, nullptr);
    if (error) throw std::runtime_error(std::string("libsoxr: ") + error);
    return made;
  }

  // A second of silence, a whole number of periods at any two rates, comes and leaves before the stream. It brings the
  // library's buffers to their size, and the stream begins as after silence.
  void Begin() {
    const bool isNeeded = In().rate != Out().rate;
    resampler.reset(isNeeded ? NewResampler() : nullptr);
    box.Begin(isNeeded ? Out().rate : 0);
    for (long left = isNeeded ? In().rate : 0; left > 0; left -= step) Feed(silence.data(), std::min(left, step));
  }

  void Feed(const double* from, long count) {
    for (std::size_t made = CHUNK; count > 0 || made == CHUNK;) {
      std::size_t used = 0;
      soxr_process(resampler.get(), from, static_cast<std::size_t>(count), &used, resampled.data(), CHUNK, &made);
      from += used * In().channels;
      count -= static_cast<long>(used);
      box.Put(resampled.data(), static_cast<long>(made), Out());
      if (used == 0 && made == 0 && count > 0) throw std::runtime_error("libsoxr takes no more samples");
    }
  }

  std::unique_ptr<soxr, Delete> resampler;  // none where the rates are equal
  vorn::DoubleFrame samples;
  std::vector<double> silence;  // `step` samples
  long step = 0;
  std::vector<double> resampled;
  Outbox box;
};

}  // namespace

VORN_PLUGIN(Resample)
