// convert: another sample format. Whole numbers saturate and are rounded to the nearest. With dither the error of that
// is a faint, steady noise whatever the signal is, and what is softer than the lowest bit is still heard.
#include <cmath>
#include <cstring>
#include <random>

#include <vorn/Plugin.h>

namespace {

class Convert : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { FORMAT, DITHER, SEED };
  enum DitherKind : std::size_t { NONE, TPDF };

  static vorn::Description Describe() {
    return vorn::Description("convert", "changes the sample format")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out"))
        .Same(vorn::SAME_RATE | vorn::SAME_CHANNELS | vorn::SAME_FRAME)
        .Takes(vorn::Parameter::Word(FORMAT, "format", vorn::FormatNames(vorn::ALL_FORMATS))
                   .Default("")
                   .Positional()
                   .Help("the format that leaves; left out: what the link behind says"))
        .Takes(vorn::Parameter::Word(DITHER, "dither", "none tpdf")
                   .Live()
                   .Help("tpdf: triangular noise, up to one lowest bit each way, where bits are lost"))
        .Takes(vorn::Parameter::Integer(SEED, "seed", "", 0, UINT32_MAX).Default(1).Help("of the noise"))
        .Example("convert S16_LE dither=tpdf");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                                   std::vector<vorn::Stream>& out) {
    if (in.empty() || out.empty()) return {};
    vorn::Stream made = in[0];
    made.format = parameters.IsGiven(FORMAT) ? static_cast<int>(parameters.Choice(FORMAT)) : -1;
    out[0].Complete(made);
    return vorn::CheckSame(vorn::SAME_FORMAT, false, 0, out[0], made, "");
  }

 protected:
  vorn::Refusal CheckStream(bool input, std::size_t, const vorn::FrameBuffer& stream) const override {
    if (input || !IsGiven(FORMAT) || Text(FORMAT) == vorn::FormatName(stream.format)) return {};
    return vorn::Refusal("format=" + Text(FORMAT)).Field("format");
  }

  int Prepare() override {
    numbers.Prepare(In());
    random.seed(static_cast<std::uint64_t>(Integer(SEED)));
    return 0;
  }

  long Process() override {
    const vorn::FrameBuffer& in = In();
    if (in.format == Out().format) {
      std::memcpy(Out().data, in.data, vorn::FrameBytes(in));
      Out().samples = in.samples;
      return vorn::FRAME_DONE;
    }
    double* samples = numbers.Read(in);
    if (Choice(DITHER) == TPDF && LosesBits()) AddNoise(samples, in.samples * in.channels);
    numbers.Write(Out(), in.samples);
    return vorn::FRAME_DONE;
  }

 private:
  static bool IsFloat(vorn::SampleFormat format) {
    return format == vorn::SampleFormat::FLOAT_LE || format == vorn::SampleFormat::FLOAT_BE;
  }

  bool LosesBits() const {
    const vorn::SampleFormat from = In().format;
    const vorn::SampleFormat to = Out().format;
    return !IsFloat(to) && (IsFloat(from) || vorn::BytesPerSample(from) > vorn::BytesPerSample(to));
  }

  // The difference of two even distributions is triangular.
  void AddNoise(double* x, long count) {
    const double lowestBit = std::ldexp(1.0, 1 - 8 * static_cast<int>(vorn::BytesPerSample(Out().format)));
    const double scale = std::ldexp(lowestBit, -32);
    for (long i = 0; i < count; ++i) {
      const std::uint64_t bits = random();
      x[i] += scale * (static_cast<double>(bits >> 32) - static_cast<double>(bits & UINT32_MAX));
    }
  }

  vorn::DoubleFrame numbers;
  std::mt19937_64 random;
};

}  // namespace

VORN_PLUGIN(Convert)
