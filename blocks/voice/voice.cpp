// Makes a voice clear, with libwebrtc-audio-processing: takes the echo of a reference (what the loudspeaker plays) out
// of what the microphone hears, takes away noise, and brings the voice to an even level. Each can be switched while it
// runs; the sound then fades to the microphone's own for some hundredths of a second, so that nothing clicks.
//
// Inside it works on 10 ms at a time. The output has as many samples as the microphone, each in its place: it comes up
// to 21 ms later, but the delay is the same whatever is switched on, and leaves no gap at the start and nothing behind
// at the end.
#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include <vorn/Plugin.h>

#include "../Outbox.h"
#include "VoiceProcessor.h"

namespace {

using vorn::Parameter;
using vorn::Refusal;

constexpr int MICROPHONE = 0;
constexpr int REFERENCE = 1;
constexpr std::uint32_t MOST_CHANNELS = 8;
constexpr const char* RATES = "8000, 16000, 32000 or 48000 Hz";
constexpr const char* RESAMPLE = "put 'resample' before it";

bool IsRate(std::uint32_t rate) { return rate == 8000 || rate == 16000 || rate == 32000 || rate == 48000; }

Refusal CheckChannels(std::uint32_t in, std::uint32_t out) {
  if (out == 1 || out == in) return {};
  return Refusal::Output(0)
      .Field("channels")
      .Got(vorn::ChannelText(out))
      .Takes("1 channel, or " + std::to_string(in) + " as input 0")
      .Advice("put 'remap' after it");
}

// RMS over about a tenth of a second.
class Loudness {
 public:
  void Add(const VoiceChunk& chunk) {
    double energy = 0;
    for (std::size_t c = 0; c < chunk.Count(); ++c) {
      const float* x = chunk.Channels()[c];
      for (std::size_t i = 0; i < chunk.Samples(); ++i) energy += static_cast<double>(x[i]) * static_cast<double>(x[i]);
    }
    smooth += 0.1 * (energy / static_cast<double>(chunk.Count() * chunk.Samples()) - smooth);
  }
  double Level() const { return 10 * std::log10(smooth); }

 private:
  double smooth = 0;
};

class Voice : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned {
    ECHO,
    NOISE,
    GAIN,
    ACTIVITY,
    HIGH_PASS,
    ECHO_STRENGTH,
    NOISE_STRENGTH,
    TARGET,
    MOST_GAIN,
    DELAY,
    VOICE,
    INPUT_LEVEL,
    OUTPUT_LEVEL,
    ECHO_REDUCTION
  };

  static vorn::Description Describe() {
    return vorn::Description("voice", "cancels echo, suppresses noise, evens the level, detects speech")
        .Input(vorn::Port("microphone", "at 8, 16, 32 or 48 kHz").Channels(1, MOST_CHANNELS))
        .OptionalInput(vorn::Port("reference", "what the loudspeaker plays").Channels(1, MOST_CHANNELS))
        .Output(vorn::Port("voice", "1 channel, or those of the microphone").Channels(1, MOST_CHANNELS))
        .Same(vorn::SAME_RATE)
        .Takes(Parameter::Flag(ECHO, "echo").Default("true").Live().Help("cancel the echo of the reference"))
        .Takes(Parameter::Flag(NOISE, "noise").Default("true").Live().Help("suppress noise"))
        .Takes(Parameter::Flag(GAIN, "gain").Live().Help("bring the voice to the target level"))
        .Takes(Parameter::Flag(ACTIVITY, "activity").Default("true").Live().Help("detect speech"))
        .Takes(Parameter::Flag(HIGH_PASS, "highpass").Live().Help("take away rumble"))
        .Takes(Parameter::Word(ECHO_STRENGTH, "echo-strength", "low moderate high").Default("moderate").Live())
        .Takes(
            Parameter::Word(NOISE_STRENGTH, "noise-strength", "low moderate high very-high").Default("moderate").Live())
        .Takes(
            Parameter::Integer(TARGET, "target", "dBFS", -31, 0).Default(-3).Live().Help("level of the loudest voice"))
        .Takes(
            Parameter::Integer(MOST_GAIN, "most-gain", "dB", 0, 90).Default(9).Live().Help("to reach the target with"))
        .Takes(Parameter::Integer(DELAY, "delay", "ms", 0, 500)
                   .Help("from the reference to its echo at the microphone; left out, it is searched for, which takes "
                         "a while above 100"))
        .Takes(Parameter::Reading(VOICE, "voice", "").Help("1: somebody speaks"))
        .Takes(Parameter::Reading(INPUT_LEVEL, "input-level", "dBFS").Help("RMS of the microphone"))
        .Takes(Parameter::Reading(OUTPUT_LEVEL, "output-level", "dBFS").Help("RMS of the clean voice"))
        .Takes(Parameter::Reading(ECHO_REDUCTION, "echo-reduction", "dB").Help("how much of the echo goes away"))
        .PerFrame("takes a lock of its library, which nobody else holds")
        .Example("filesource call.wav ! resample 16000 ! voice noise-strength=high ! filesink clear.wav");
  }

  static Refusal PlanStreams(const vorn::Parameters&, const std::vector<vorn::Stream>& in,
                             std::vector<vorn::Stream>& out) {
    if (in.empty() || out.empty()) return {};
    out[0].Complete(in[MICROPHONE]);
    for (std::size_t i = 0; i < in.size(); ++i) {
      if (in[i].linked == 0 || in[i].rate == 0 || IsRate(in[i].rate)) continue;
      return Refusal::Input(i).Field("rate").Got(std::to_string(in[i].rate) + " Hz").Takes(RATES).Advice(RESAMPLE);
    }
    return CheckChannels(in[MICROPHONE].channels, out[0].channels);
  }

 protected:
  bool Drives(std::size_t input) const override { return input == MICROPHONE; }

  Refusal CheckStream(bool input, std::size_t index, const vorn::FrameBuffer& stream) const override {
    if (!IsRate(stream.rate)) return Refusal(RATES).Field("rate").Advice(RESAMPLE);
    if (input && index == REFERENCE && processor && !far) return "a reference only while the route is stopped";
    return {};
  }

  int Prepare() override {
    const Refusal refusal = CheckChannels(In().channels, Out().channels);
    if (!refusal.empty()) return Refuse(refusal);
    microphoneFrame.Prepare(In(MICROPHONE));
    const std::uint32_t references = HasReference() ? In(REFERENCE).channels : 0;
    if (references > 0) referenceFrame.Prepare(In(REFERENCE));
    chunk = In().rate / 100;
    near = std::make_unique<VoiceChunk>(In().channels, chunk);
    far = references > 0 ? std::make_unique<VoiceChunk>(references, chunk) : nullptr;
    clean = std::make_unique<VoiceChunk>(Out().channels, chunk);
    interleaved.resize(static_cast<std::size_t>(chunk) * Out().channels);
    box.Open(In(), Out(), chunk, In().rate);
    Begin();
    return 0;
  }

  long Process() override {
    box.Count(In());
    const float* reference = far && HasReference() ? referenceFrame.Read(In(REFERENCE)) : nullptr;
    Feed(microphoneFrame.Read(In()), reference, In().samples);
    box.Send(Out(), false);
    return vorn::FRAME_DONE;
  }

  bool HoldsSamples() const override { return box.HoldsSamples(); }
  bool HoldsFrame() const override { return box.HoldsFrame(Out()); }
  long Drain(bool atEnd) override {
    while (atEnd && box.Misses(Out())) Feed(nullptr, nullptr, chunk - filled);
    box.Send(Out(), atEnd);
    return vorn::FRAME_DONE;
  }

  void Forget() override { Begin(); }
  int Release() override { return processor.reset(), 0; }

  void OnSet(unsigned) override {
    if (processor) processor->Change(Settings());
  }
  void OnGet(unsigned id) override {
    if (id == VOICE) Store(id, hasVoice ? 1 : 0);
    if (id == INPUT_LEVEL) Store(id, inputLoudness.Level());
    if (id == OUTPUT_LEVEL) Store(id, outputLoudness.Level());
    if (id == ECHO_REDUCTION) Store(id, echoReduction);
  }

 private:
  bool HasReference() const { return ActiveInEps().contains(REFERENCE); }

  VoiceSettings Settings() const {
    VoiceSettings settings;
    settings.echo = Flag(ECHO);
    settings.noise = Flag(NOISE);
    settings.gain = Flag(GAIN);
    settings.activity = Flag(ACTIVITY);
    settings.highPass = Flag(HIGH_PASS);
    settings.echoStrength = static_cast<int>(Choice(ECHO_STRENGTH));
    settings.noiseStrength = static_cast<int>(Choice(NOISE_STRENGTH));
    settings.targetLevel = static_cast<int>(-Integer(TARGET));
    settings.mostGain = static_cast<int>(Integer(MOST_GAIN));
    settings.delay = IsGiven(DELAY) ? static_cast<int>(Integer(DELAY)) : -1;
    return settings;
  }

  void Begin() {
    const auto references = static_cast<int>(far ? far->Count() : 0);
    processor = std::make_unique<VoiceProcessor>(static_cast<int>(In().rate), static_cast<int>(In().channels),
                                                 references, static_cast<int>(Out().channels), Settings());
    filled = 0;
    box.Begin(static_cast<long>(processor->Latency()));
  }

  // Null is silence.
  void Feed(const float* microphone, const float* reference, long count) {
    while (count > 0) {
      const long taken = std::min(count, chunk - filled);
      microphone = Fill(*near, microphone, taken);
      if (far) reference = Fill(*far, reference, taken);
      filled += taken;
      count -= taken;
      if (filled == chunk) RunChunk();
    }
  }

  const float* Fill(VoiceChunk& to, const float* from, long count) {
    for (std::size_t c = 0; c < to.Count(); ++c) {
      float* channel = to.Channels()[c] + filled;
      for (long i = 0; i < count; ++i) channel[i] = from ? from[static_cast<std::size_t>(i) * to.Count() + c] : 0;
    }
    return from ? from + static_cast<std::size_t>(count) * to.Count() : nullptr;
  }

  void RunChunk() {
    filled = 0;
    inputLoudness.Add(*near);
    processor->Run(*near, far ? *far : *near, *clean);
    outputLoudness.Add(*clean);
    hasVoice = processor->HasVoice();
    echoReduction = processor->EchoReduction();
    for (std::size_t c = 0; c < clean->Count(); ++c) {
      for (long i = 0; i < chunk; ++i)
        interleaved[static_cast<std::size_t>(i) * clean->Count() + c] = clean->Channels()[c][i];
    }
    box.Put(interleaved.data(), chunk, Out());
  }

  std::unique_ptr<VoiceProcessor> processor;  // while the route runs
  vorn::FloatFrame microphoneFrame;
  vorn::FloatFrame referenceFrame;
  std::unique_ptr<VoiceChunk> near;
  std::unique_ptr<VoiceChunk> far;  // none without a reference
  std::unique_ptr<VoiceChunk> clean;
  std::vector<float> interleaved;
  Outbox box;
  long chunk = 0;   // samples in 10 ms
  long filled = 0;  // of near and far
  Loudness inputLoudness;
  Loudness outputLoudness;
  bool hasVoice = false;
  int echoReduction = 0;
};

}  // namespace

VORN_PLUGIN(Voice)
