#include "VoiceProcessor.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

using webrtc::AudioProcessing;
using webrtc::EchoCancellation;
using webrtc::GainControl;
using webrtc::NoiseSuppression;

void Check(int result, const char* what) {
  if (result != AudioProcessing::kNoError && result != AudioProcessing::kBadStreamParameterWarning) {
    throw std::runtime_error(std::string("libwebrtc-audio-processing: ") + what + " failed (" + std::to_string(result) +
                             ")");
  }
}

// The library works in bands of 16000 Hz; splitting a stream into them and joining them again takes time.
std::size_t BankDelay(int rate) { return rate == 48000 ? 46 : rate == 32000 ? 4 : 0; }
// One for each channel of the reference, one after the other: 112 samples of a band.
std::size_t EchoDelay(int rate, int references) {
  return 112U * static_cast<std::size_t>(references) * static_cast<std::size_t>(std::max(rate / 16000, 1));
}
std::size_t NoiseDelay(int rate) { return static_cast<std::size_t>(rate) * 6 / 1000; }

}  // namespace

VoiceChunk::VoiceChunk(std::size_t channels, std::size_t chunkSamples)
    : samplesPerChannel(chunkSamples), samples(channels * chunkSamples) {
  for (std::size_t c = 0; c < channels; ++c) pointers.push_back(&samples[c * chunkSamples]);
}

PastSamples::PastSamples(std::size_t channels, std::size_t chunk, std::size_t longest)
    : chunkSamples(chunk), length(longest + chunk), samples(channels * length) {}

void PastSamples::Push(const VoiceChunk& chunk) {
  for (std::size_t c = 0; c < chunk.Count(); ++c) {
    float* line = &samples[c * length];
    std::memmove(line, line + chunkSamples, (length - chunkSamples) * sizeof(float));
    std::memcpy(line + length - chunkSamples, chunk.Channels()[c], chunkSamples * sizeof(float));
  }
}

const float* PastSamples::Behind(std::size_t channel, std::size_t delay) const {
  return &samples[(channel + 1) * length - chunkSamples - delay];
}

VoiceProcessor::VoiceProcessor(int rate, int microphones, int references, int outputs, const VoiceSettings& newSettings)
    : input(rate, microphones),
      reference(rate, references),
      output(rate, outputs),
      bankDelay(BankDelay(rate)),
      echoDelay(EchoDelay(rate, references)),
      noiseDelay(NoiseDelay(rate)),
      latency(bankDelay + echoDelay + noiseDelay),
      settings(newSettings),
      wanted(newSettings),
      processed(static_cast<std::size_t>(outputs), input.num_frames()),
      plain(static_cast<std::size_t>(outputs), input.num_frames()),
      processedLine(static_cast<std::size_t>(outputs), input.num_frames(), latency),
      plainLine(static_cast<std::size_t>(outputs), input.num_frames(), latency) {
  webrtc::Config config;
  config.Set<webrtc::ExtendedFilter>(new webrtc::ExtendedFilter(true));
  config.Set<webrtc::DelayAgnostic>(new webrtc::DelayAgnostic(settings.delay < 0));
  library.reset(AudioProcessing::Create(config));
  if (!library) throw std::runtime_error("libwebrtc-audio-processing: no memory");
  const webrtc::StreamConfig far(rate, std::max(references, 1));
  Check(library->Initialize({{input, output, far, far}}), "starting");
  library->gain_control()->set_mode(GainControl::kAdaptiveDigital);
  library->echo_cancellation()->enable_metrics(true);
  Prime();
  Apply();
  wetness = IsProcessing() ? 1 : 0;
}

// Everything runs once, on silence: later switching on and off takes no memory.
void VoiceProcessor::Prime() {
  settings.echo = settings.noise = settings.gain = settings.activity = settings.highPass = true;
  Apply();
  VoiceChunk silence(static_cast<std::size_t>(input.num_channels()), input.num_frames());
  VoiceChunk farSilence(static_cast<std::size_t>(reference.num_channels()), input.num_frames());
  VoiceChunk dropped(static_cast<std::size_t>(output.num_channels()), input.num_frames());
  for (int i = 0; i < 4; ++i) Run(silence, farSilence, dropped);
  settings = wanted;
}

void VoiceProcessor::Change(const VoiceSettings& newSettings) {
  wanted = newSettings;
  isSwitching = wanted.echo != settings.echo || wanted.noise != settings.noise || wanted.gain != settings.gain ||
                wanted.highPass != settings.highPass;
  if (isSwitching) return;
  settings = wanted;
  Apply();
}

std::size_t VoiceProcessor::Delay() const {
  return (IsProcessing() ? bankDelay : 0) + (IsCancelling() ? echoDelay : 0) + (settings.noise ? noiseDelay : 0);
}

void VoiceProcessor::Apply() {
  EchoCancellation& echo = *library->echo_cancellation();
  Check(echo.set_suppression_level(static_cast<EchoCancellation::SuppressionLevel>(settings.echoStrength)), "echo");
  Check(echo.Enable(IsCancelling()), "echo");
  NoiseSuppression& noise = *library->noise_suppression();
  Check(noise.set_level(static_cast<NoiseSuppression::Level>(settings.noiseStrength)), "noise");
  Check(noise.Enable(settings.noise), "noise");
  GainControl& gain = *library->gain_control();
  Check(gain.set_target_level_dbfs(settings.targetLevel), "gain");
  Check(gain.set_compression_gain_db(settings.mostGain), "gain");
  Check(gain.Enable(settings.gain), "gain");
  Check(library->high_pass_filter()->Enable(settings.highPass), "highpass");
  Check(library->voice_detection()->Enable(settings.activity), "activity");
  pad = latency - Delay();
}

void VoiceProcessor::Run(const VoiceChunk& microphone, VoiceChunk& far, VoiceChunk& clean) {
  if (isSwitching && wetness == 0) {
    settings = wanted;
    isSwitching = false;
    settling = latency / input.num_frames() + 2;
    Apply();
  }
  Mix(microphone);
  plainLine.Push(plain);
  if (IsCancelling()) {
    Check(library->ProcessReverseStream(far.Channels(), reference, reference, far.Channels()), "the reference");
    library->set_stream_delay_ms(std::max(settings.delay, 0));
  }
  Check(library->ProcessStream(microphone.Channels(), input, output, processed.Channels()), "the microphone");
  processedLine.Push(processed);
  Blend(clean);
}

void VoiceProcessor::Mix(const VoiceChunk& microphone) {
  const std::size_t channels = microphone.Count();
  for (std::size_t c = 0; c < plain.Count(); ++c) {
    std::memcpy(plain.Channels()[c], microphone.Channels()[c], plain.Samples() * sizeof(float));
  }
  if (plain.Count() == channels) return;
  float* sum = plain.Channels()[0];
  for (std::size_t i = 0; i < plain.Samples(); ++i) {
    for (std::size_t c = 1; c < channels; ++c) sum[i] += microphone.Channels()[c][i];
    sum[i] /= static_cast<float>(channels);
  }
}

void VoiceProcessor::Blend(VoiceChunk& clean) {
  const bool hasSettled = !isSwitching && settling == 0;
  if (settling > 0) --settling;
  const float target = hasSettled && IsProcessing() ? 1.0F : 0.0F;
  const float step = (target - wetness) / static_cast<float>(clean.Samples());
  for (std::size_t c = 0; c < clean.Count(); ++c) {
    const float* dry = plainLine.Behind(c, latency);
    const float* wet = processedLine.Behind(c, pad);
    float* to = clean.Channels()[c];
    if (step == 0) {
      std::memcpy(to, target == 0 ? dry : wet, clean.Samples() * sizeof(float));
    } else {
      for (std::size_t i = 0; i < clean.Samples(); ++i) {
        to[i] = dry[i] + (wetness + step * static_cast<float>(i + 1)) * (wet[i] - dry[i]);
      }
    }
  }
  wetness = target;
}

bool VoiceProcessor::HasVoice() const { return settings.activity && library->voice_detection()->stream_has_voice(); }

int VoiceProcessor::EchoReduction() const {
  EchoCancellation::Metrics metrics;
  if (!IsCancelling() || library->echo_cancellation()->GetMetrics(&metrics) != 0) return 0;
  return metrics.echo_return_loss_enhancement.instant;
}
