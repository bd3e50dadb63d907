// alsasource: records from an ALSA device, whose clock sets the pace of the route. Frames carry the time of their first
// sample at the microphone, of the monotonic clock. After an overrun the stream goes on behind a gap, which is counted
// and logged.
#include <chrono>

#include "Device.h"

namespace {

class AlsaSource final : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    vorn::Description source("alsasource", "records from an ALSA device");
    alsa::DescribeDevice(source, "name of the device; 'arecord -L' lists them");
    return source.Output(vorn::Port("out", "what the device records"))
        .SetsPace()
        .PerFrame("sleeps until the device has samples; locks and system calls of ALSA")
        .Example("alsasource hw:0");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>&,
                                   std::vector<vorn::Stream>& out) {
    vorn::Refusal refusal;
    for (vorn::Stream& stream : out) {
      alsa::Wanted wanted = alsa::WantedOf(parameters, stream);
      refusal = alsa::Device(SND_PCM_STREAM_CAPTURE).Plan(wanted);
      stream = wanted.stream;
    }
    return refusal;
  }

 protected:
  int OutputStreams(std::vector<vorn::Stream>& streams) override {
    alsa::Wanted wanted = alsa::WantedOf(Table(), {});
    const vorn::Refusal refusal = device.Plan(wanted);
    if (!refusal.empty()) return Refuse(refusal);
    streams = {wanted.stream};
    return 0;
  }

  int Prepare() override {
    Store(alsa::XRUNS, 0);
    const vorn::Refusal refusal = device.Open(alsa::WantedOf(Table(), vorn::StreamOf(Out())));
    return refusal.empty() ? 0 : Refuse(refusal);
  }

  long Process() override {
    vorn::FrameBuffer& out = Out();
    const alsa::Device::Result result = device.Read(out.data, out.samplesPerFrame, Interruption());
    if (const long lost = device.NewXruns()) {
      VORN_LOG_W("%ld overrun%s: samples lost", lost, lost > 1 ? "s" : "");
      Store(alsa::XRUNS, static_cast<double>(device.Xruns()));
    }
    if (result == alsa::Device::Result::TIMEOUT) return vorn::FRAME_TIMEOUT;
    if (result == alsa::Device::Result::FAILED) return Fail(alsa::OfDevice(Text(alsa::DEVICE), device.Error()));
    if (device.Moved() == 0) return vorn::FRAME_END_OF_FILE;  // interrupted
    using namespace std::chrono;
    const long now = duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
    out.samples = device.Moved();
    out.timestamp = now - (out.samples + device.Delay()) * 1000000 / out.rate;
    return vorn::FRAME_DONE;
  }

  int Release() override { return device.Close(Interruption()), 0; }

 private:
  alsa::Device device{SND_PCM_STREAM_CAPTURE};
};

}  // namespace

VORN_PLUGIN(AlsaSource)
