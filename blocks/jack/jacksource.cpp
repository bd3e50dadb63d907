// jacksource: records from ports of a JACK server, which sets the pace of the route. When the route comes too late for
// a cycle of the server, that cycle is lost, counted and logged.
#include <utility>

#include "Client.h"

namespace {

class JackSource final : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    vorn::Description source("jacksource", "records from ports of a JACK server");
    jack::DescribeClient(source, "ports to record from, as a pattern such as system:capture_; none if left out");
    return source.Output(vorn::Port("out", "at the server's rate"))
        .SetsPace()
        .PerFrame("sleeps until the server comes, in a system call")
        .Example("jacksource connect=system:capture_");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>&,
                                   std::vector<vorn::Stream>& out) {
    jack::Client client(JackPortIsInput);
    const vorn::Refusal refusal = client.Connect(parameters);
    for (vorn::Stream& stream : out) {
      if (refusal.empty()) stream.Complete(StreamOf(client, parameters));
    }
    return refusal;
  }

 protected:
  int OutputStreams(std::vector<vorn::Stream>& streams) override {
    jack::Client probe(JackPortIsInput);
    const vorn::Refusal refusal = probe.Connect(Table());
    if (!refusal.empty()) return Refuse(refusal);
    streams = {StreamOf(probe, Table())};
    return 0;
  }

  int Prepare() override {
    Store(jack::XRUNS, 0);
    reported = 0;
    samples.Prepare(Out());
    vorn::Refusal refusal = client->Connect(Table());
    if (refusal.empty()) refusal = client->Activate(Table(), Out());
    if (refusal.empty()) return 0;
    client->Close();
    return Refuse(refusal);
  }

  long Process() override {
    vorn::FrameBuffer& out = Out();
    const std::size_t count = static_cast<std::size_t>(out.samplesPerFrame) * out.channels;
    const jack::Client::Result result = client->Read(samples.Data(), count, Interruption());
    if (const long lost = client->Xruns() - std::exchange(reported, client->Xruns())) {
      VORN_LOG_W("%ld cycle%s of the server lost", lost, lost > 1 ? "s" : "");
      Store(jack::XRUNS, static_cast<double>(client->Xruns()));
    }
    if (result == jack::Client::Result::TIMEOUT) return vorn::FRAME_TIMEOUT;
    if (result == jack::Client::Result::SERVER_GONE) return Fail("the JACK server is gone");
    if (result == jack::Client::Result::DONE) return samples.Write(out, out.samplesPerFrame), vorn::FRAME_DONE;
    const std::size_t rest = client->ReadRest(samples.Data(), count) / out.channels;
    if (rest == 0) return vorn::FRAME_END_OF_FILE;
    return samples.Write(out, static_cast<long>(rest)), vorn::FRAME_DONE;
  }

  int Release() override { return jack::CloseClient(client, JackPortIsInput, Interruption()), 0; }

 private:
  static vorn::Stream StreamOf(const jack::Client& client, const vorn::Parameters& parameters) {
    vorn::Stream stream;
    stream.rate = client.Rate();
    stream.channels = static_cast<std::uint32_t>(parameters.Integer(jack::CHANNELS));
    stream.SetFormat(vorn::NATIVE_FLOAT);
    return stream;
  }

  std::shared_ptr<jack::Client> client = std::make_shared<jack::Client>(JackPortIsInput);
  vorn::FloatFrame samples;
  long reported = 0;
};

}  // namespace

VORN_PLUGIN(JackSource)
