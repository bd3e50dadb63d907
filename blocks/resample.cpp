// Another sample rate, with libsoxr. What lies below half of the lower rate keeps its level, its phase and its place in
// time; what lies above is gone.
//
// N samples that came become round(N * ratio) that leave, counted over the whole stream, and all frames but the last
// one are full: 441 samples at 44100 Hz become 480 at 48000 Hz, frame by frame. Only the first frames are missing for a
// while, since a filter looks ahead. Equal rates pass the samples on as they are.
#include <soxr.h>

#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <vector>

#include <vorn/Plugin.h>

namespace {

constexpr long CHUNK = 4096;  // samples out of the library at a time
constexpr std::uint32_t MOST_RATE = 10000000;
constexpr std::uint32_t MOST_RATIO = 10000;

// round(samples * to / from) for any count of samples.
long Rescale(long samples, std::uint32_t from, std::uint32_t to) {
  const auto count = static_cast<std::uint64_t>(samples);
  return static_cast<long>(count / from * to + (count % from * to + from / 2) / from);
}

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
    if (to.length < 0 && from.length >= 0) to.length = Rescale(from.length, from.rate, to.rate);
    return CheckRates(from.rate, to.rate);
  }

 protected:
  int Prepare() override {
    for (const vorn::Refusal& refusal : {CheckArgument(Table(), Out().rate), CheckRates(In().rate, Out().rate)}) {
      if (!refusal.empty()) return Refuse(refusal);
    }
    samples.Prepare(In());
    silence.assign(static_cast<std::size_t>(In().samplesPerFrame) * In().channels, 0);
    resampled.resize(static_cast<std::size_t>(CHUNK) * Out().channels);
    encoded.resize(resampled.size() * vorn::BytesPerSample(Out().format));
    // Enough for what the filters give at once, and to say so before memory runs out where more comes than leaves.
    const long bothFrames = FrameBehind(In().samplesPerFrame, In().rate, Out().rate) + Out().samplesPerFrame;
    queue.Open(Out(), 4L * Out().rate + 8 * bothFrames + 16 * CHUNK);
    Begin();
    return 0;
  }

  long Process() override {
    if (In().timestamp >= 0) {
      stampOfStart = In().timestamp - received * 1000000 / In().rate;
      isStamped = true;
    }
    received += In().samples;
    if (resampler) {
      Feed(samples.Read(In()), In().samples);
    } else {
      Append(In());
    }
    return Drain(false);
  }

  bool HoldsSamples() const override { return sent < Rescale(received, In().rate, Out().rate); }

  // Full frames keep the pace by themselves; only frames that are too short for it need cycles of their own.
  bool HoldsFrame() const override {
    return queue.Samples() >= Out().samplesPerFrame &&
           Out().samplesPerFrame * In().rate < In().samplesPerFrame * Out().rate;
  }

  long Drain(bool atEnd) override {
    long count = Out().samplesPerFrame;
    if (atEnd) {
      count = std::min(count, Rescale(received, In().rate, Out().rate) - sent);
      while (queue.Samples() < count) Feed(silence.data(), In().samplesPerFrame);
    }
    if (count == 0 || queue.Samples() < count) return vorn::FRAME_DONE;
    const vorn::FrameBuffer front = queue.Front(count);
    std::memcpy(Out().data, front.data,
                static_cast<std::size_t>(count) * Out().channels * vorn::BytesPerSample(Out().format));
    Out().samples = count;
    Out().timestamp = isStamped ? stampOfStart + sent * 1000000 / Out().rate : -1;
    queue.Drop(count);
    sent += count;
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
    return "output 0: got " + std::to_string(rate) + " Hz, takes " + std::to_string(wanted) +
           " Hz, as the argument 'rate' says; leave one of the two away";
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
    queue.Clear();
    received = sent = 0;
    isStamped = false;
    if (In().rate == Out().rate) return;
    resampler.reset(NewResampler());
    toDrop = Out().rate;
    for (long left = In().rate; left > 0; left -= In().samplesPerFrame) {
      Feed(silence.data(), std::min(left, In().samplesPerFrame));
    }
  }

  void Feed(const double* from, long count) {
    for (std::size_t made = CHUNK; count > 0 || made == CHUNK;) {
      std::size_t used = 0;
      soxr_process(resampler.get(), from, static_cast<std::size_t>(count), &used, resampled.data(), CHUNK, &made);
      from += used * In().channels;
      count -= static_cast<long>(used);
      Keep(static_cast<long>(made));
      if (used == 0 && made == 0 && count > 0) throw std::runtime_error("libsoxr takes no more samples");
    }
  }

  void Keep(long made) {
    const long dropped = std::min(made, toDrop);
    toDrop -= dropped;
    vorn::FrameBuffer kept = Out();
    kept.data = encoded.data();
    kept.samples = made - dropped;
    const double* from = resampled.data() + dropped * kept.channels;
    vorn::Encode(kept.format, from, kept.data, static_cast<std::size_t>(kept.samples) * kept.channels);
    Append(kept);
  }

  void Append(const vorn::FrameBuffer& frame) {
    if (queue.Append(frame)) return;
    throw std::runtime_error("more samples come than frames of " + std::to_string(Out().samplesPerFrame) +
                             " can take away; make them longer");
  }

  std::unique_ptr<soxr, Delete> resampler;  // none where the rates are equal
  vorn::DoubleFrame samples;
  std::vector<double> silence;
  std::vector<double> resampled;
  std::vector<std::uint8_t> encoded;
  vorn::InputQueue queue;  // ready to leave
  long toDrop = 0;         // of the silence before the stream
  long received = 0;       // samples of the stream so far
  long sent = 0;
  bool isStamped = false;
  long stampOfStart = 0;  // the time of the stream's first sample
};

}  // namespace

VORN_PLUGIN(Resample)
