#include "Device.h"

#include <algorithm>
#include <array>
#include <utility>

namespace alsa {
namespace {

using vorn::Refusal;
using vorn::SampleFormat;

constexpr int WAIT_MS = 1000;
constexpr int NAP_MS = 20;  // between two looks at an interrupt
constexpr unsigned USUAL_RATE = 48000;
constexpr unsigned USUAL_CHANNELS = 2;
constexpr int FRAMES_A_SECOND = 100;
constexpr int PERIODS_IN_BUFFER = 4;

struct FormatPair {
  SampleFormat ours;
  snd_pcm_format_t theirs;
};
// In the order in which they are preferred.
constexpr std::array<FormatPair, vorn::FORMAT_COUNT> FORMATS = {{
    {SampleFormat::S16_LE, SND_PCM_FORMAT_S16_LE},
    {SampleFormat::S32_LE, SND_PCM_FORMAT_S32_LE},
    {SampleFormat::S24_3LE, SND_PCM_FORMAT_S24_3LE},
    {SampleFormat::FLOAT_LE, SND_PCM_FORMAT_FLOAT_LE},
    {SampleFormat::S16_BE, SND_PCM_FORMAT_S16_BE},
    {SampleFormat::S32_BE, SND_PCM_FORMAT_S32_BE},
    {SampleFormat::S24_3BE, SND_PCM_FORMAT_S24_3BE},
    {SampleFormat::FLOAT_BE, SND_PCM_FORMAT_FLOAT_BE},
    {SampleFormat::BYTE, SND_PCM_FORMAT_S8},
}};

snd_pcm_format_t Theirs(std::int32_t format) {
  for (const FormatPair& pair : FORMATS) {
    if (static_cast<std::int32_t>(pair.ours) == format) return pair.theirs;
  }
  return SND_PCM_FORMAT_UNKNOWN;
}

/** What a device can still do, given what it was told already. */
class Configuration {
 public:
  explicit Configuration(snd_pcm_t* device) : pcm(device) {
    snd_pcm_hw_params_t* allocated = nullptr;
    if (snd_pcm_hw_params_malloc(&allocated) < 0) throw std::bad_alloc();
    params.reset(allocated);
  }

  Refusal Begin() {
    if (snd_pcm_hw_params_any(pcm, Get()) < 0) return "the device offers no configuration";
    if (snd_pcm_hw_params_set_access(pcm, Get(), SND_PCM_ACCESS_RW_INTERLEAVED) < 0) {
      return "the device does not take interleaved samples";
    }
    return {};
  }

  Refusal SetFormat(vorn::Stream& stream) {
    if (stream.format < 0) {
      for (const FormatPair& pair : FORMATS) {
        if (snd_pcm_hw_params_test_format(pcm, Get(), pair.theirs) != 0) continue;
        stream.SetFormat(pair.ours);
        break;
      }
    }
    if (stream.format >= 0 && snd_pcm_hw_params_set_format(pcm, Get(), Theirs(stream.format)) == 0) return {};
    return Misfit("format", stream.format < 0 ? "none" : vorn::FormatName(static_cast<SampleFormat>(stream.format)))
        .Takes(Formats())
        .Advice("put a 'convert' between");
  }

  Refusal SetChannels(vorn::Stream& stream) {
    unsigned least = 0;
    unsigned most = 0;
    snd_pcm_hw_params_get_channels_min(Get(), &least);
    snd_pcm_hw_params_get_channels_max(Get(), &most);
    if (stream.channels == 0) stream.channels = std::clamp(USUAL_CHANNELS, least, most);
    if (snd_pcm_hw_params_set_channels(pcm, Get(), stream.channels) == 0) return {};
    return Misfit("channels", std::to_string(stream.channels) + " channels")
        .Takes(Range(least, most, "channels"))
        .Advice("put a 'remap' between");
  }

  Refusal SetRate(vorn::Stream& stream) {
    unsigned least = 0;
    unsigned most = 0;
    snd_pcm_hw_params_get_rate_min(Get(), &least, nullptr);
    snd_pcm_hw_params_get_rate_max(Get(), &most, nullptr);
    if (stream.rate == 0) {
      stream.rate = USUAL_RATE;
      return snd_pcm_hw_params_set_rate_near(pcm, Get(), &stream.rate, nullptr) == 0
                 ? Refusal()
                 : "the device has no rate near " + std::to_string(USUAL_RATE) + " Hz";
    }
    if (snd_pcm_hw_params_set_rate(pcm, Get(), stream.rate, 0) == 0) return {};
    return Misfit("rate", std::to_string(stream.rate) + " Hz")
        .Takes(Range(least, most, "Hz"))
        .Advice("put a 'resample' between");
  }

  Refusal Install(long period, long buffer) {
    auto periodSize = static_cast<snd_pcm_uframes_t>(period);
    auto bufferSize = static_cast<snd_pcm_uframes_t>(buffer);
    snd_pcm_hw_params_set_period_size_near(pcm, Get(), &periodSize, nullptr);
    snd_pcm_hw_params_set_buffer_size_near(pcm, Get(), &bufferSize);
    const int result = snd_pcm_hw_params(pcm, Get());
    return result < 0 ? Refusal(snd_strerror(result)) : Refusal();
  }

  snd_pcm_uframes_t BufferSize() {
    snd_pcm_uframes_t size = 0;
    snd_pcm_hw_params_get_buffer_size(Get(), &size);
    return size;
  }

 private:
  snd_pcm_hw_params_t* Get() const { return params.get(); }

  Refusal Misfit(const char* field, const std::string& came) const {
    return Refusal::Endpoint(snd_pcm_stream(pcm) == SND_PCM_STREAM_PLAYBACK, 0).Field(field).Got(came);
  }

  static std::string Range(unsigned least, unsigned most, const char* unit) {
    const std::string from = std::to_string(least);
    return (least == most ? from : from + " to " + std::to_string(most)) + " " + unit;
  }

  std::string Formats() const {
    vorn::FormatSet set = 0;
    for (const FormatPair& pair : FORMATS) {
      if (snd_pcm_hw_params_test_format(pcm, Get(), pair.theirs) == 0) set |= vorn::FormatBit(pair.ours);
    }
    return set == 0 ? "a format of its own that no block has" : vorn::FormatNames(set);
  }

  struct Freer {
    void operator()(snd_pcm_hw_params_t* allocated) const { snd_pcm_hw_params_free(allocated); }
  };
  snd_pcm_t* pcm;
  std::unique_ptr<snd_pcm_hw_params_t, Freer> params;
};

Refusal SetStream(Configuration& configuration, vorn::Stream& stream) {
  Refusal refusal = configuration.Begin();
  if (refusal.empty()) refusal = configuration.SetFormat(stream);
  if (refusal.empty()) refusal = configuration.SetChannels(stream);
  if (refusal.empty()) refusal = configuration.SetRate(stream);
  return refusal;
}

Refusal WithName(const std::string& device, Refusal refusal) {
  if (refusal.empty()) return refusal;
  return refusal.Line(OfDevice(device, refusal.about == vorn::About::BLOCK ? refusal.Text() : refusal.Reason()));
}

/** Playback begins when the buffer is full, so that the first frames do not run dry. */
int SetThresholds(snd_pcm_t* pcm, snd_pcm_stream_t direction, snd_pcm_uframes_t bufferSize) {
  snd_pcm_sw_params_t* params = nullptr;
  if (snd_pcm_sw_params_malloc(&params) < 0) return -ENOMEM;
  snd_pcm_sw_params_current(pcm, params);
  snd_pcm_sw_params_set_start_threshold(pcm, params, direction == SND_PCM_STREAM_PLAYBACK ? bufferSize : 1);
  const int result = snd_pcm_sw_params(pcm, params);
  snd_pcm_sw_params_free(params);
  return result;
}

// What went wrong comes back as a result; the library would print it on standard error as well.
void Quiet(const char*, int, const char*, int, const char*, ...) {}

}  // namespace

std::string OfDevice(const std::string& device, const std::string& text) { return "device '" + device + "': " + text; }

Refusal Device::OpenPcm(const std::string& device, Pcm& opened) const {
  snd_lib_error_set_handler(Quiet);
  snd_pcm_t* handle = nullptr;
  const int result = snd_pcm_open(&handle, device.c_str(), direction, SND_PCM_NONBLOCK);
  opened.reset(handle);
  return result < 0 ? snd_strerror(result) : Refusal();
}

Refusal Device::Plan(Wanted& wanted) const {
  Pcm probe;
  Refusal refusal = OpenPcm(wanted.device, probe);
  if (refusal.empty()) {
    Configuration configuration(probe.get());
    refusal = SetStream(configuration, wanted.stream);
  }
  if (wanted.stream.frame == 0) {
    wanted.stream.frame = wanted.period > 0 ? wanted.period : std::max(1U, wanted.stream.rate / FRAMES_A_SECOND);
  }
  return WithName(wanted.device, refusal);
}

Refusal Device::Open(const Wanted& wanted) {
  Refusal refusal = OpenPcm(wanted.device, pcm);
  if (!refusal.empty()) return WithName(wanted.device, refusal);
  vorn::Stream stream = wanted.stream;
  Configuration configuration(pcm.get());
  refusal = SetStream(configuration, stream);
  const long period = wanted.period > 0 ? wanted.period : stream.frame;
  const long buffer = wanted.buffer > 0 ? wanted.buffer : PERIODS_IN_BUFFER * std::max(period, stream.frame);
  if (refusal.empty()) refusal = configuration.Install(period, buffer);
  if (refusal.empty()) lastError = SetThresholds(pcm.get(), direction, configuration.BufferSize());
  if (refusal.empty() && lastError == 0 && direction == SND_PCM_STREAM_CAPTURE) lastError = snd_pcm_start(pcm.get());
  if (refusal.empty() && lastError < 0) refusal = Error();
  if (!refusal.empty()) {
    pcm.reset();
    return WithName(wanted.device, refusal);
  }
  sampleBytes = stream.channels * static_cast<long>(vorn::BytesPerSample(static_cast<SampleFormat>(stream.format)));
  rate = stream.rate;
  xruns = reported = 0;
  return {};
}

bool Device::Close(vorn::Interrupt& interrupt) {
  if (!pcm) return true;
  const bool isAllPlayed = direction == SND_PCM_STREAM_CAPTURE || Drain(interrupt);
  pcm.reset();
  return isAllPlayed;
}

/** All but the last moment in naps, since nothing brings a thread back from snd_pcm_drain. */
bool Device::Drain(vorn::Interrupt& interrupt) {
  if (snd_pcm_state(pcm.get()) == SND_PCM_STATE_PREPARED && Delay() > 0) snd_pcm_start(pcm.get());
  const long longest = 2 * Delay() * 1000 / rate + WAIT_MS;  // of a device that is alive
  for (long waited = 0; Delay() * 1000 / rate > NAP_MS && waited < longest; waited += NAP_MS) {
    if (interrupt.Sleep(NAP_MS) != vorn::Interrupt::INTERRUPTED) continue;
    snd_pcm_drop(pcm.get());
    return false;
  }
  snd_pcm_nonblock(pcm.get(), 0);  // otherwise the drain would not wait
  snd_pcm_drain(pcm.get());
  return true;
}

Device::Result Device::Recover(long error) {
  lastError = static_cast<int>(error);
  if (error != -EPIPE && error != -ESTRPIPE) return Result::FAILED;
  ++xruns;
  lastError = snd_pcm_recover(pcm.get(), lastError, 1);
  if (lastError == 0 && direction == SND_PCM_STREAM_CAPTURE) lastError = snd_pcm_start(pcm.get());
  return lastError < 0 ? Result::FAILED : Result::DONE;
}

/** In naps: what is to be polled differs from plug-in to plug-in of ALSA. @return as snd_pcm_wait(). */
int Device::Wait(vorn::Interrupt& interrupt) {
  const vorn::Interrupt::Waiting waiting(interrupt);
  for (int waited = 0; waited < WAIT_MS && !interrupt.IsRaised(); waited += NAP_MS) {
    const int ready = snd_pcm_wait(pcm.get(), NAP_MS);
    if (ready != 0) return ready;
  }
  return 0;
}

template <class Move>
Device::Result Device::MoveAll(long samples, vorn::Interrupt& interrupt, Move move) {
  for (moved = 0; moved < samples;) {
    const long piece = move(moved, samples - moved);
    if (piece > 0) {
      moved += piece;
    } else if (piece == 0 || piece == -EAGAIN) {
      const int ready = Wait(interrupt);
      if (ready == 0) return interrupt.IsRaised() ? Result::INTERRUPTED : Result::TIMEOUT;
      if (ready < 0 && Recover(ready) == Result::FAILED) return Result::FAILED;
    } else if (Recover(piece) == Result::FAILED) {
      return Result::FAILED;
    }
  }
  return Result::DONE;
}

Device::Result Device::Read(std::uint8_t* to, long samples, vorn::Interrupt& interrupt) {
  return MoveAll(samples, interrupt, [&](long done, long count) {
    return snd_pcm_readi(pcm.get(), to + done * sampleBytes, static_cast<snd_pcm_uframes_t>(count));
  });
}

Device::Result Device::Write(const std::uint8_t* from, long samples, vorn::Interrupt& interrupt) {
  return MoveAll(samples, interrupt, [&](long done, long count) {
    return snd_pcm_writei(pcm.get(), from + done * sampleBytes, static_cast<snd_pcm_uframes_t>(count));
  });
}

long Device::NewXruns() { return xruns - std::exchange(reported, xruns); }

long Device::Delay() const {
  snd_pcm_sframes_t delay = 0;
  return pcm && snd_pcm_delay(pcm.get(), &delay) == 0 ? delay : 0;
}

std::string Device::Error() const { return snd_strerror(lastError); }

void DescribeDevice(vorn::Description& description, const char* deviceHelp) {
  using vorn::Parameter;
  description.Takes(Parameter::Text(DEVICE, "device").Default("default").Positional().Help(deviceHelp))
      .Takes(Parameter::Integer(RATE, "rate", "Hz", 1, 768000)
                 .Help("where the graph does not say; otherwise 48000 or the next"))
      .Takes(Parameter::Integer(CHANNELS, "channels", "", 1, 256)
                 .Help("where the graph does not say; otherwise 2 or the next"))
      .Takes(Parameter::Word(FORMAT, "format", "auto " + vorn::FormatNames(vorn::ALL_FORMATS))
                 .Help("where the graph does not say"))
      .Takes(Parameter::Integer(PERIOD, "period", "samples", 0, 1 << 20)
                 .Default(0.0)
                 .Help("how often the device wakes up; 0: once a frame"))
      .Takes(Parameter::Integer(BUFFER, "buffer", "samples", 0, 1 << 22)
                 .Default(0.0)
                 .Help("of the device; 0: four periods"))
      .Takes(Parameter::Reading(XRUNS, "xruns", "").Help("times that the device ran dry or over"));
}

Wanted WantedOf(const vorn::Parameters& parameters, const vorn::Stream& stream) {
  Wanted wanted{parameters.Text(DEVICE), stream, parameters.Integer(PERIOD), parameters.Integer(BUFFER)};
  vorn::Stream given;
  if (parameters.IsGiven(RATE)) given.rate = static_cast<std::uint32_t>(parameters.Integer(RATE));
  if (parameters.IsGiven(CHANNELS)) given.channels = static_cast<std::uint32_t>(parameters.Integer(CHANNELS));
  if (parameters.Choice(FORMAT) > 0) given.SetFormat(static_cast<SampleFormat>(parameters.Choice(FORMAT) - 1));
  wanted.stream.Complete(given);
  return wanted;
}

}  // namespace alsa
