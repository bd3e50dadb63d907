// A meter: passes samples on untouched and measures, over all channels together, their peak, their RMS, and their
// loudness by EBU R 128, with libebur128. A tone at full scale has a peak of 0 dBFS and an RMS of -3 dBFS.
//
// Channels are those of a sound file: 4 are left, right and two surrounds, 5 have the centre before these, 6 and 8 the
// low frequencies as well, which do not count. Any other number counts each channel like a front one. Samples that are
// no numbers count as silence.
#include <ebur128.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include <vorn/Plugin.h>

namespace {

using vorn::Parameter;

constexpr double SILENCE = -std::numeric_limits<double>::infinity();
// The histogram has one size for ever, at the cost of 0.05 LU; without it the library allocates as the stream goes on.
constexpr int LOUDNESS = EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_HISTOGRAM;

// What a run of samples amounts to.
struct Sum {
  float peak = 0;
  double energy = 0;
  long values = 0;

  void Add(const Sum& more) {
    peak = std::max(peak, more.peak);
    energy += more.energy;
    values += more.values;
  }
  double Peak() const { return 20 * std::log10(static_cast<double>(peak)); }
  double Rms() const { return values == 0 ? SILENCE : 10 * std::log10(energy / static_cast<double>(values)); }
};

// The last 400 ms, in tenths of a second.
class RecentSum {
 public:
  void Add(const Sum& more, long tenth) {
    if (parts[now].values >= tenth) parts[now = (now + 1) % parts.size()] = Sum();
    parts[now].Add(more);
  }
  Sum All() const {
    Sum sum;
    for (const Sum& part : parts) sum.Add(part);
    return sum;
  }

 private:
  std::array<Sum, 4> parts;
  std::size_t now = 0;
};

class Level : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned {
    PEAK,
    RMS,
    RECENT_PEAK,
    RECENT_RMS,
    MOMENTARY,
    SHORT_TERM,
    INTEGRATED,
    RANGE,
    TRUE_PEAK,
    OVERSAMPLE
  };

  static vorn::Description Describe() {
    return vorn::Description("level", "measures peak, RMS and loudness (EBU R 128)")
        .Input(vorn::Port("in").Channels(1, 64))
        .OptionalOutput(vorn::Port("out", "the same samples").Channels(1, 64))
        .Same(vorn::SAME_STREAM)
        .Takes(Parameter::Reading(PEAK, "peak", "dBFS").Help("since the start"))
        .Takes(Parameter::Reading(RMS, "rms", "dBFS").Help("since the start"))
        .Takes(Parameter::Reading(RECENT_PEAK, "recent-peak", "dBFS").Help("of the last 400 ms"))
        .Takes(Parameter::Reading(RECENT_RMS, "recent-rms", "dBFS").Help("of the last 400 ms"))
        .Takes(Parameter::Reading(MOMENTARY, "momentary", "LUFS").Help("loudness of the last 400 ms"))
        .Takes(Parameter::Reading(SHORT_TERM, "short-term", "LUFS").Help("loudness of the last 3 s"))
        .Takes(Parameter::Reading(INTEGRATED, "integrated", "LUFS").Help("loudness since the start, pauses left out"))
        .Takes(Parameter::Reading(RANGE, "range", "LU").Help("loudness range since the start"))
        .Takes(Parameter::Reading(TRUE_PEAK, "true-peak", "dBTP").Help("since the start; nan unless oversample"))
        .Takes(Parameter::Flag(OVERSAMPLE, "oversample").Help("measure the true peak, which takes most of the time"))
        .Example("filesource speech.wav ! level");
  }

 protected:
  vorn::Refusal CheckStream(bool, std::size_t, const vorn::FrameBuffer& stream) const override {
    if (stream.rate >= 16 && stream.rate <= 2822400) return {};
    return vorn::Refusal("16 to 2822400 Hz").Field("rate").Advice("put 'resample' before it");
  }

  int Prepare() override {
    samples.Prepare(In());
    Begin();
    return 0;
  }

  long Process() override {
    const vorn::FrameBuffer& in = In();
    Measure(samples.Read(in), static_cast<std::size_t>(in.samples) * in.channels);
    ebur128_add_frames_float(meter.get(), samples.Data(), static_cast<std::size_t>(in.samples));
    if (ActiveOutEps().empty()) return vorn::FRAME_DONE;
    std::memcpy(Out().data, in.data, vorn::FrameBytes(in));
    Out().samples = in.samples;
    return vorn::FRAME_DONE;
  }

  void Forget() override { Begin(); }
  void OnGet(unsigned id) override { Store(id, meter ? Reading(id) : SILENCE); }

 private:
  struct Delete {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
  };

  void Begin() {
    total = Sum();
    recent = RecentSum();
    const unsigned channels = In().channels;
    meter.reset(ebur128_init(channels, In().rate, LOUDNESS | (Flag(OVERSAMPLE) ? EBUR128_MODE_TRUE_PEAK : 0)));
    if (!meter) throw std::bad_alloc();
    if (channels == 8) {  // the library knows layouts of up to 6
      ebur128_set_channel(meter.get(), 6, EBUR128_Mp090);
      ebur128_set_channel(meter.get(), 7, EBUR128_Mm090);
    } else if (channels > 6) {
      for (unsigned c = 0; c < channels; ++c) ebur128_set_channel(meter.get(), c, EBUR128_CENTER);
    }
  }

  void Measure(float* x, std::size_t count) {
    Sum sum;
    sum.values = static_cast<long>(count);
    for (std::size_t i = 0; i < count; ++i) {
      if (!std::isfinite(x[i])) x[i] = 0;  // one of them would stay in the filters of the loudness for ever
      sum.peak = std::max(sum.peak, std::fabs(x[i]));
      sum.energy += static_cast<double>(x[i]) * static_cast<double>(x[i]);
    }
    total.Add(sum);
    recent.Add(sum, static_cast<long>(In().rate / 10) * In().channels);
  }

  double Reading(unsigned id) const {
    switch (id) {
      case PEAK: return total.Peak();
      case RMS: return total.Rms();
      case RECENT_PEAK: return recent.All().Peak();
      case RECENT_RMS: return recent.All().Rms();
      case MOMENTARY: return Loudness(ebur128_loudness_momentary);
      case SHORT_TERM: return Loudness(ebur128_loudness_shortterm);
      case INTEGRATED: return Loudness(ebur128_loudness_global);
      case RANGE: return Loudness(ebur128_loudness_range);
      case TRUE_PEAK: return TruePeak();
      default: return SILENCE;
    }
  }

  double Loudness(int (*measure)(ebur128_state*, double*)) const {
    double loudness = SILENCE;
    return measure(meter.get(), &loudness) == EBUR128_SUCCESS ? loudness : SILENCE;
  }

  double TruePeak() const {
    if (!Flag(OVERSAMPLE)) return std::numeric_limits<double>::quiet_NaN();
    double highest = 0;
    for (unsigned c = 0; c < meter->channels; ++c) {
      double peak = 0;
      if (ebur128_true_peak(meter.get(), c, &peak) == EBUR128_SUCCESS) highest = std::max(highest, peak);
    }
    return 20 * std::log10(highest);
  }

  std::unique_ptr<ebur128_state, Delete> meter;  // stays after the end, to be read
  vorn::FloatFrame samples;
  Sum total;
  RecentSum recent;
};

}  // namespace

VORN_PLUGIN(Level)
