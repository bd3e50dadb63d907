// alsasink: plays through an ALSA device, whose clock sets the pace of the route. What the device holds at the end of
// the stream is played before the route stops. An underrun leaves a gap in the sound, which is counted and logged; no
// sample is lost.
#include "Device.h"

namespace {

class AlsaSink final : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    vorn::Description sink("alsasink", "plays through an ALSA device");
    alsa::DescribeDevice(sink, "name of the device; 'aplay -L' lists them");
    return sink.Input(vorn::Port("in", "what is played"))
        .SetsPace()
        .PerFrame("sleeps until the device has room; locks and system calls of ALSA")
        .Example("alsasink hw:0");
  }

  // Refuses before anything is built what the device cannot play.
  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                                   std::vector<vorn::Stream>&) {
    vorn::Refusal refusal;
    for (const vorn::Stream& stream : in) {
      alsa::Wanted wanted = alsa::WantedOf(parameters, stream);
      refusal = alsa::Device(SND_PCM_STREAM_PLAYBACK).Plan(wanted);
    }
    return refusal;
  }

 protected:
  int Prepare() override {
    Store(alsa::XRUNS, 0);
    const vorn::Refusal refusal = device.Open(alsa::WantedOf(Table(), vorn::StreamOf(In())));
    return refusal.empty() ? 0 : Refuse(refusal);
  }

  long Process() override {
    const alsa::Device::Result result = device.Write(In().data, In().samples, Interruption());
    if (const long gaps = device.NewXruns()) {
      VORN_LOG_W("%ld underrun%s", gaps, gaps > 1 ? "s" : "");
      Store(alsa::XRUNS, static_cast<double>(device.Xruns()));
    }
    if (result == alsa::Device::Result::TIMEOUT) return vorn::FRAME_TIMEOUT;
    if (result == alsa::Device::Result::DONE) return vorn::FRAME_DONE;
    if (result == alsa::Device::Result::INTERRUPTED) {
      Lose(alsa::OfDevice(Text(alsa::DEVICE),
                          "takes nothing; " + std::to_string(In().samples - device.Moved()) + " samples are lost"));
      return vorn::FRAME_END_OF_FILE;
    }
    return Fail(alsa::OfDevice(Text(alsa::DEVICE), device.Error()));
  }

  int Release() override {
    if (!device.Close(Interruption())) Lose(alsa::OfDevice(Text(alsa::DEVICE), "stopped before it had played all"));
    return 0;
  }

 private:
  alsa::Device device{SND_PCM_STREAM_PLAYBACK};
};

}  // namespace

VORN_PLUGIN(AlsaSink)
