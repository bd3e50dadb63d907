// The voice processing of WebRTC, 10 ms at a time: always equally late, and without a click when it is changed.
#pragma once

#include <memory>
#include <vector>

// The library knows an option of its configuration by the address of a variable in a template, which is the same one
// here and there only where it is not hidden.
#pragma GCC visibility push(default)
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#pragma GCC visibility pop

struct VoiceSettings {
  bool echo = false;
  bool noise = false;
  bool gain = false;
  bool activity = false;
  bool highPass = false;
  int echoStrength = 0;   // 0 to 2
  int noiseStrength = 0;  // 0 to 3
  int targetLevel = 0;    // dB below full scale
  int mostGain = 0;       // dB
  int delay = -1;         // ms from the reference to its echo; -1: not known
};

// Several channels of 10 ms, each on its own, as the library takes them.
class VoiceChunk {
 public:
  VoiceChunk(std::size_t channels, std::size_t samples);
  float* const* Channels() { return pointers.data(); }
  const float* const* Channels() const { return pointers.data(); }
  std::size_t Count() const { return pointers.size(); }
  std::size_t Samples() const { return samplesPerChannel; }

 private:
  std::size_t samplesPerChannel;
  std::vector<float> samples;
  std::vector<float*> pointers;
};

// The last samples of some channels, to read them later.
class PastSamples {
 public:
  PastSamples(std::size_t channels, std::size_t chunk, std::size_t longest);
  void Push(const VoiceChunk& chunk);
  // The chunk as it was `delay` samples ago.
  const float* Behind(std::size_t channel, std::size_t delay) const;

 private:
  std::size_t chunkSamples;
  std::size_t length;  // of each channel
  std::vector<float> samples;
};

class VoiceProcessor {
 public:
  // `rate` is 8000, 16000, 32000 or 48000 Hz. A reference of 0 channels is none. The output has 1 channel, or as many
  // as the microphone.
  VoiceProcessor(int rate, int microphones, int references, int outputs, const VoiceSettings& settings);

  // How many samples the output lags behind, whatever is switched on.
  std::size_t Latency() const { return latency; }

  // What is switched takes hold within the next chunks: the sound fades to the microphone's own, and back once it runs.
  void Change(const VoiceSettings& newSettings);

  void Run(const VoiceChunk& microphone, VoiceChunk& far, VoiceChunk& clean);

  bool HasVoice() const;
  // By how many dB the echo is lower than it came in; 0 where that is not known.
  int EchoReduction() const;

 private:
  bool IsCancelling() const { return settings.echo && reference.num_channels() > 0; }
  bool IsProcessing() const { return IsCancelling() || settings.noise || settings.gain || settings.highPass; }
  std::size_t Delay() const;
  void Apply();
  void Prime();
  void Mix(const VoiceChunk& microphone);
  void Blend(VoiceChunk& clean);

  const webrtc::StreamConfig input;
  const webrtc::StreamConfig reference;
  const webrtc::StreamConfig output;
  const std::size_t bankDelay;
  const std::size_t echoDelay;
  const std::size_t noiseDelay;
  const std::size_t latency;

  std::unique_ptr<webrtc::AudioProcessing> library;
  VoiceSettings settings;
  VoiceSettings wanted;
  bool isSwitching = false;
  std::size_t settling = 0;  // chunks until what was switched on has filled its filters
  float wetness = 0;         // how much of the processed sound there was at the end of the last chunk
  std::size_t pad = 0;       // what the library's delay lacks to the latency
  VoiceChunk processed;
  VoiceChunk plain;  // the microphone in the output's channels
  PastSamples processedLine;
  PastSamples plainLine;
};
