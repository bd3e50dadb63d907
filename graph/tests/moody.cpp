// A block for every mood: without an input it makes samples that carry their index, with one it keeps what comes in a
// file, which it finishes with a line of its own. It refuses, fails or sleeps where it is told to.
#include <vorn/Plugin.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <new>

class Moody : public vorn::PluginBlock {
 public:
  enum : unsigned { SAMPLES, RATE, PATH, REFUSE, FAIL, SPOIL, TIMEOUT, SLEEP, MEASURE, LAST, BORN, CRASH, WAIT, FADE };

  explicit Moody(const vorn::Setup& setup) : PluginBlock(setup) {
    if (!Flag(BORN)) throw std::runtime_error("not today");
  }

  static vorn::Description Describe() {
    using vorn::Parameter;
    return vorn::Description("moody", "does what a test wants")
        .Inputs(0, 1, vorn::Port("in").Takes(vorn::Formats({vorn::SampleFormat::S32_LE})))
        .Outputs(0, 1, vorn::Port("out"))
        .Takes(Parameter::Integer(SAMPLES, "samples", "samples", 0, 1e12).Default(1e12).Positional())
        .Takes(Parameter::Integer(RATE, "rate", "Hz", 1, 1e6).Default(1000))
        .Takes(Parameter::Text(PATH, "file"))
        .Takes(Parameter::Flag(REFUSE, "refuse"))
        .Takes(Parameter::Integer(FAIL, "fail", "samples", 0, 1e12).Default(1e12))
        .Takes(Parameter::Flag(SPOIL, "spoil"))
        .Takes(Parameter::Integer(TIMEOUT, "timeout", "samples", 0, 1e12).Default(1e12))
        .Takes(Parameter::Integer(SLEEP, "sleep", "ms", 0, 1e6).Default(0.0))
        .Takes(Parameter::Flag(MEASURE, "measure"))
        .Takes(Parameter::Flag(BORN, "born").Default(true))
        .Takes(Parameter::Text(CRASH, "crash"))
        .Takes(Parameter::Integer(FADE, "fade", "samples", 0, 1e12).Default(1e12))
        .Takes(Parameter::Word(WAIT, "wait", "never start frame").Help("for ever, in a start or behind 500 samples"))
        .Takes(Parameter::Reading(LAST, "last", "steps"));
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                                   std::vector<vorn::Stream>& out) {
    for (vorn::Stream& stream : out) {
      if (!in.empty()) stream.Complete(in[0]);
      stream.rate = static_cast<std::uint32_t>(parameters.Integer(RATE));
      stream.SetFormat(vorn::SampleFormat::S32_LE);
      stream.channels = 1;
      stream.length = parameters.Integer(SAMPLES);
    }
    return {};
  }

 protected:
  int Prepare() override {
    if (Flag(REFUSE)) return VORN_LOG_E("by the way"), Refuse("out of sorts");
    done = 0;
    if (Choice(WAIT) == 1 && !Wait()) return Refuse("nobody came");
    if (!Text(PATH).empty()) file = std::fopen(Text(PATH).c_str(), "w");
    return 0;
  }

  long Process() override {
    if (!Text(CRASH).empty()) Crash();
    const timespec nap{Integer(SLEEP) / 1000, Integer(SLEEP) % 1000 * 1'000'000};
    nanosleep(&nap, nullptr);
    if (done >= Integer(FAIL)) return VORN_LOG_E("by the way"), Fail("a bad day");
    if (done >= Integer(TIMEOUT) && !std::exchange(timedOut, true)) return vorn::FRAME_TIMEOUT;
    if (done >= Integer(FADE)) return vorn::FRAME_FADED_OUT;
    const bool isSource = ActiveInEps().empty();
    if (Choice(WAIT) == 2 && done >= 500 && !Wait()) {
      if (!isSource) Lose("nobody takes it");
      return vorn::FRAME_END_OF_FILE;
    }
    const long count = isSource ? std::min(Out().samplesPerFrame, Integer(SAMPLES) - done) : In().samples;
    if (count <= 0 || done >= Integer(SAMPLES)) return vorn::FRAME_END_OF_FILE;
    for (long i = 0; isSource && i < count; ++i) {
      const auto index = static_cast<std::int32_t>(done + i);
      std::memcpy(Out().data + i * 4, &index, 4);
    }
    if (!isSource && file) std::fwrite(In().data, 4, static_cast<std::size_t>(count), file);
    if (!isSource && !ActiveOutEps().empty()) std::memcpy(Out().data, In().data, static_cast<std::size_t>(count) * 4);
    if (!ActiveOutEps().empty()) Out().samples = count;
    done += count;
    if (Flag(MEASURE)) Store(LAST, static_cast<double>(done) - 0.75);
    return vorn::FRAME_DONE;
  }

  /** What a source writes here is how much it has given. */
  int Release() override {
    if (Flag(SPOIL) && !std::exchange(isSpoilt, true)) return Refuse("spoilt");
    if (!file) return 0;
    if (ActiveInEps().empty()) {
      std::fprintf(file, "%ld", done);
    } else {
      std::fputs("END.", file);
    }
    std::fclose(std::exchange(file, nullptr));
    return 0;
  }

 private:
  void Throw() const {
    if (Text(CRASH) == "memory") throw std::bad_alloc();
    throw std::runtime_error(Text(CRASH));
  }
  /** Without the kit's help, which would make a failure of what is thrown. */
  void Crash() const noexcept {
    if (Text(CRASH) == "trap") std::raise(SIGTRAP);
    if (Text(CRASH) == "abort") std::abort();
    if (Text(CRASH) == "exit") std::exit(0);
    Throw();
  }
  /** A file says that it does. */
  bool Wait() {
    if (std::FILE* sign = std::fopen("waits", "w")) std::fclose(sign);
    return Interruption().Sleep(vorn::Interrupt::FOR_EVER) != vorn::Interrupt::INTERRUPTED;
  }

  std::FILE* file = nullptr;
  long done = 0;
  bool timedOut = false;
  bool isSpoilt = false;
};

VORN_PLUGIN(Moody)
