// convert: another sample format. Whole numbers saturate and are rounded to the nearest. With dither the error of that
// is a faint, steady noise whatever the signal is, and what is softer than the lowest bit is still heard.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <random>

#include <vorn/Plugin.h>

namespace {

using vorn::SampleFormat;

bool IsFloat(SampleFormat format) { return format == SampleFormat::FLOAT_LE || format == SampleFormat::FLOAT_BE; }

bool IsFloatOfProcessor(SampleFormat format) {
  return IsFloat(format) && (format == SampleFormat::FLOAT_LE) == (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
}

/** A piece at a time, which stays in the nearest cache. */
template <class Real>
void ConvertThrough(const vorn::FrameBuffer& in, const vorn::FrameBuffer& out, std::size_t count) {
  alignas(64) Real piece[512];
  for (std::size_t first = 0; first < count; first += std::size(piece)) {
    const std::size_t length = std::min(std::size(piece), count - first);
    vorn::Decode(in.format, in.data + vorn::BytesPerSample(in.format) * first, piece, length);
    vorn::Encode(out.format, piece, out.data + vorn::BytesPerSample(out.format) * first, length);
  }
}

/** To the nearest sample: a float carries all formats but whole numbers of 32 bits, and these from and to a float. */
void ConvertFrame(const vorn::FrameBuffer& in, const vorn::FrameBuffer& out, std::size_t count) {
  if (IsFloatOfProcessor(out.format)) {
    vorn::Decode(in.format, in.data, reinterpret_cast<float*>(out.data), count);
  } else if (IsFloatOfProcessor(in.format)) {
    vorn::Encode(out.format, reinterpret_cast<const float*>(in.data), out.data, count);
  } else if (!IsFloat(in.format) && vorn::BytesPerSample(in.format) == 4) {
    ConvertThrough<double>(in, out, count);
  } else {
    ConvertThrough<float>(in, out, count);
  }
}

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
    if (Choice(DITHER) == NONE || !LosesBits()) {
      Out().samples = in.samples;
      ConvertFrame(in, Out(), static_cast<std::size_t>(in.samples) * in.channels);
      return vorn::FRAME_DONE;
    }
    AddNoise(numbers.Read(in), in.samples * in.channels);
    numbers.Write(Out(), in.samples);
    return vorn::FRAME_DONE;
  }

 private:
  bool LosesBits() const {
    const SampleFormat from = In().format;
    const SampleFormat to = Out().format;
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
