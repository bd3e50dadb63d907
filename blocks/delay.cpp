// delay: silence first, then the stream, late and whole: what the delay holds at the end of the stream comes out too.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <vorn/Plugin.h>

namespace {

class DelayLine : public vorn::PluginBlock {
 public:
  enum : unsigned { TIME, SAMPLES };

  explicit DelayLine(const vorn::Setup& setup) : PluginBlock(setup), countsSamples(CountsSamples(Table())) {}

  static vorn::Description Describe() {
    return vorn::Description("delay", "lets a stream out later")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out", "longer than the input by the delay"))
        .Same(vorn::SAME_STREAM)
        .Takes(vorn::Parameter::Number(TIME, "time", "ms", 0, 3600e3)
                   .Positional()
                   .Help("how much later, to the nearest sample"))
        .Takes(vorn::Parameter::Integer(SAMPLES, "samples", "samples", 0, 1e9)
                   .Help("the same in samples, in place of time"))
        .Example("delay 250");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                                   std::vector<vorn::Stream>& out) {
    const bool countsSamples = CountsSamples(parameters);
    if (in.empty() || out.empty()) return {};
    vorn::Stream made = in[0];
    if (made.length >= 0 && made.rate != 0) made.length += DelayOf(parameters, countsSamples, made.rate);
    out[0].Complete(made);
    return {};
  }

 protected:
  void OnSet(unsigned id) override { countsSamples = id == SAMPLES; }

  int Prepare() override {
    delay = DelayOf(Table(), countsSamples, In().rate);
    line.resize(static_cast<std::size_t>(delay) * In().channels * vorn::BytesPerSample(In().format));
    Forget();
    return 0;
  }

  long Process() override {
    Out().samples = In().samples;
    PassThroughLine(In().data);
    held = delay;
    stampOfEnd = vorn::StampBehind(In());
    return vorn::FRAME_DONE;
  }

  bool HoldsSamples() const override { return held > 0; }

  long Drain(bool) override {
    Out().samples = std::min(held, Out().samplesPerFrame);
    Out().timestamp = stampOfEnd < 0 ? -1 : stampOfEnd + (delay - held) * 1000000 / Out().rate;
    PassThroughLine(nullptr);
    held -= Out().samples;
    return vorn::FRAME_DONE;
  }

  void Forget() override {
    std::fill(line.begin(), line.end(), std::uint8_t{0});
    oldest = 0;
    held = delay;
    stampOfEnd = -1;
  }

  long Delay() const override { return delay; }

 private:
  static bool CountsSamples(const vorn::Parameters& parameters) {
    const bool countsSamples = parameters.IsGiven(SAMPLES);
    if (parameters.IsGiven(TIME) != countsSamples) return countsSamples;
    throw std::invalid_argument("takes either a time in ms or samples=");
  }

  static long DelayOf(const vorn::Parameters& parameters, bool countsSamples, std::uint32_t rate) {
    return countsSamples ? parameters.Integer(SAMPLES) : std::lround(parameters.Number(TIME) * rate / 1000);
  }

  /** Fills the output with the oldest samples of the line, and their places in it with `more`, or with silence. */
  void PassThroughLine(const std::uint8_t* more) {
    std::uint8_t* to = Out().data;
    std::size_t left = vorn::FrameBytes(Out());
    if (line.empty() && more != nullptr) std::memcpy(to, more, left);
    for (std::size_t run; !line.empty() && left > 0; left -= run, to += run) {
      run = std::min(left, line.size() - oldest);
      std::uint8_t* place = line.data() + oldest;
      std::memcpy(to, place, run);
      if (more != nullptr) {
        std::memcpy(place, std::exchange(more, more + run), run);
      } else {
        std::memset(place, 0, run);
      }
      oldest = oldest + run < line.size() ? oldest + run : 0;
    }
  }

  bool countsSamples;  // which of the two was set last
  long delay = 0;
  long held = 0;                   // of the samples in the line, those that are still to come out
  long stampOfEnd = -1;            // the time where the input has come to
  std::vector<std::uint8_t> line;  // a ring of the last samples
  std::size_t oldest = 0;
};

}  // namespace

VORN_PLUGIN(DelayLine)
