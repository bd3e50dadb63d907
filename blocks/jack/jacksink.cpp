// jacksink: plays through ports of a JACK server, which sets the pace of the route. What was written is played before
// the route stops. A cycle for which the route brings too little is filled with silence, counted and logged; no sample
// is lost.
#include <utility>

#include "Client.h"

namespace {

class JackSink final : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;

  static vorn::Description Describe() {
    vorn::Description sink("jacksink", "plays through ports of a JACK server");
    jack::DescribeClient(sink, "ports to play to, as a pattern such as system:playback_; none if left out");
    return sink.Input(vorn::Port("in", "at the server's rate"))
        .SetsPace()
        .PerFrame("sleeps until the server comes, in a system call")
        .Example("jacksink connect=system:playback_");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                                   std::vector<vorn::Stream>&) {
    jack::Client client(JackPortIsOutput);
    vorn::Refusal refusal = client.Connect(parameters);
    if (!refusal.empty() || in.empty()) return refusal;
    vorn::Stream server;
    server.rate = client.Rate();
    return vorn::CheckSame(vorn::SAME_RATE, true, 0, in[0], server, "the JACK server");
  }

 protected:
  int Prepare() override {
    Store(jack::XRUNS, 0);
    reported = 0;
    samples.Prepare(In());
    vorn::Refusal refusal = client->Connect(Table());
    if (refusal.empty()) refusal = client->Activate(Table(), In());
    if (refusal.empty()) return 0;
    client->Close();
    return Refuse(refusal);
  }

  long Process() override {
    const vorn::FrameBuffer& in = In();
    const jack::Client::Result result =
        client->Write(samples.Read(in), static_cast<std::size_t>(in.samples) * in.channels, Interruption());
    if (const long gaps = client->Xruns() - std::exchange(reported, client->Xruns())) {
      VORN_LOG_W("%ld cycle%s of the server ran dry", gaps, gaps > 1 ? "s" : "");
      Store(jack::XRUNS, static_cast<double>(client->Xruns()));
    }
    if (result == jack::Client::Result::DONE) return vorn::FRAME_DONE;
    if (result == jack::Client::Result::TIMEOUT) return vorn::FRAME_TIMEOUT;
    if (result == jack::Client::Result::INTERRUPTED) {
      Lose("the JACK server takes nothing; " + std::to_string(in.samples) + " samples are lost");
      return vorn::FRAME_END_OF_FILE;
    }
    return Fail("the JACK server is gone");
  }

  int Release() override {
    if (!client->Flush(Interruption())) Lose("stopped before the JACK server had taken all");
    jack::CloseClient(client, JackPortIsOutput, Interruption());
    return 0;
  }

 private:
  std::shared_ptr<jack::Client> client = std::make_shared<jack::Client>(JackPortIsOutput);
  vorn::FloatFrame samples;
  long reported = 0;
};

}  // namespace

VORN_PLUGIN(JackSink)
