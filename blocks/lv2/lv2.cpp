// Runs an LV2 plug-in, with lilv. The audio inputs of the plug-in are the channels of input 0, its audio outputs those
// of the output; side chains come in at input 1, or are the main input where that is not linked. A plug-in of one
// channel is made once for each channel of the stream. One without audio inputs is a source, one without audio outputs
// a sink.
//
// Its controls are parameters, named by their symbols; what is set is reached over one frame. The delay that it reports
// at the start is taken out: the output has as many samples as the input, each in its place.
#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

#include <vorn/Plugin.h>

#include "../Outbox.h"
#include "Lv2Plugin.h"

namespace {

using vorn::Parameter;
using vorn::Refusal;

constexpr unsigned URI = 0;
constexpr unsigned FIRST_PORT = 1;  // the id of port 0

constexpr std::size_t MAIN = 0;
constexpr std::size_t SIDECHAIN = 1;
constexpr long MOST_SAMPLES = 512;   // in one run of the plug-in
constexpr long MOVING_SAMPLES = 16;  // while a control moves

Parameter ParameterOf(const Lv2Port& port, std::size_t index) {
  const auto id = static_cast<unsigned>(FIRST_PORT + index);
  const std::string name = port.symbol == "uri" ? "uri-" : port.symbol;
  const char* unit = port.unit.c_str();
  if (port.kind == Lv2Port::READING) return Parameter::Reading(id, name.c_str(), unit).Help(port.help.c_str());
  if (port.isSwitch) {
    return Parameter::Flag(id, name.c_str()).Default(port.initial > 0).Live().Help(port.help.c_str());
  }
  const auto make = port.isWhole ? Parameter::Integer : Parameter::Number;
  if (!port.isPerRate) {
    return make(id, name.c_str(), unit, port.least, port.most).Default(port.initial).Live().Help(port.help.c_str());
  }
  const std::string help = port.help + ", " + vorn::NumberText(port.least) + " to " + vorn::NumberText(port.most) +
                           " of the sample rate";  // which is not known yet
  constexpr double NONE = std::numeric_limits<double>::infinity();
  return make(id, name.c_str(), unit, -NONE, NONE).Default(port.initial).Live().Help(help.c_str());
}

// The channels at the block's endpoints, 0 where nothing is linked or known.
struct Channels {
  std::uint32_t main = 0;
  std::uint32_t side = 0;
  std::uint32_t out = 0;
};

// How a plug-in's ports lie on the channels of the streams.
struct Layout {
  std::size_t copies = 1;
  std::size_t mainPorts = 0;  // of one copy
  std::size_t sidePorts = 0;
  std::size_t outPorts = 0;

  Layout() = default;
  Layout(const Lv2Plugin& plugin, const Channels& channels)
      : mainPorts(plugin.Count(Lv2Port::AUDIO_IN)),
        sidePorts(plugin.Count(Lv2Port::SIDECHAIN_IN)),
        outPorts(plugin.Count(Lv2Port::AUDIO_OUT)) {
    if (mainPorts <= 1 && outPorts <= 1) copies = std::max(mainPorts == 1 ? channels.main : channels.out, 1U);
  }

  Refusal Check(const std::string& uri, const Channels& channels) const {
    Refusal refusal = CheckEndpoint(true, MAIN, channels.main, mainPorts * copies, uri);
    if (refusal.empty() && channels.side != 0 && (channels.side != 1 || sidePorts == 0)) {
      refusal = CheckEndpoint(true, SIDECHAIN, channels.side, sidePorts * copies, uri);
    }
    if (refusal.empty() && channels.out != 0) refusal = CheckEndpoint(false, 0, channels.out, outPorts * copies, uri);
    return refusal;
  }

 private:
  static Refusal CheckEndpoint(bool input, std::size_t index, std::size_t got, std::size_t ports,
                               const std::string& uri) {
    const auto text = [](std::size_t count) { return vorn::ChannelText(static_cast<std::uint32_t>(count)); };
    if (got == ports) return {};
    Refusal refusal = Refusal::Endpoint(input, index).Field("channels").Got(text(got));
    if (ports == 0) return refusal.Problem("got " + text(got) + ", but " + uri + " has no audio port for it");
    const std::string takes = text(ports) + " as " + uri + " does";
    if (got == 0) return refusal.Problem("not linked, takes " + takes);
    return refusal.Takes(takes).Advice(input ? "put 'remap' before it" : "put 'remap' after it");
  }
};

class Lv2 : public vorn::PluginBlock {
 public:
  static vorn::Description Describe() {
    return vorn::Description("lv2", "runs an LV2 plug-in, with its controls as parameters")
        .OptionalInput(vorn::Port("in", "the plug-in's audio inputs, one a channel"))
        .OptionalInput(vorn::Port("sidechain", "what it listens to, where it has a side chain"))
        .OptionalOutput(vorn::Port("out", "the plug-in's audio outputs, one a channel"))
        .Same(vorn::SAME_RATE)
        .Takes(Parameter::Text(URI, "uri").Positional().Required().Help("of the plug-in, as 'lv2ls' lists it"))
        .OwnParameters()
        .PerFrame("as the plug-in: one that says hardRTCapable does nothing else")
        .Example("filesource loud.wav ! lv2 http://plugin.org.uk/swh-plugins/amp gain=-6 ! filesink quiet.wav");
  }

  static Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                             std::vector<vorn::Stream>& out) {
    const Lv2Plugin plugin = FindLv2Plugin(parameters.Text(URI));
    Channels channels;
    if (!in.empty()) channels.main = in[MAIN].channels;
    if (in.size() > SIDECHAIN) channels.side = in[SIDECHAIN].channels;
    if (!out.empty()) channels.out = out[0].channels;
    const Layout layout(plugin, channels);
    if (const Refusal refusal = layout.Check(plugin.uri, channels); !refusal.empty() || out.empty()) return refusal;
    out[0].channels = static_cast<std::uint32_t>(layout.outPorts * layout.copies);
    if (!in.empty()) out[0].Complete(in[MAIN]);
    if (out[0].linked == 0 || layout.outPorts != 0) return {};
    return Refusal::Output(0).Problem(plugin.uri + " has no audio output");
  }

  explicit Lv2(vorn::Setup setup)
      : PluginBlock(std::move(setup)),
        plugin(FindLv2Plugin(Text(URI))),
        controls(plugin.ports.size()),
        targets(controls) {
    std::vector<Parameter> more;
    for (std::size_t i = 0; i < plugin.ports.size(); ++i) {
      if (IsParameter(i)) more.push_back(ParameterOf(plugin.ports[i], i));
    }
    Extend(more);
    for (const char c : plugin.uri.substr(plugin.uri.find_last_of("/#:") + 1))
      kind += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  }

 protected:
  const char* Kind() const override { return kind.c_str(); }
  bool Drives(std::size_t input) const override { return input == MAIN; }

  Refusal CheckStream(bool input, std::size_t index, const vorn::FrameBuffer&) const override {
    const bool isNew = input ? index == SIDECHAIN && !hasSidechain : !hasOutput;
    return isNew && !copies.empty() ? "this link only while the route is stopped" : "";
  }

  int Prepare() override {
    hasSidechain = ActiveInEps().contains(SIDECHAIN);
    hasOutput = !ActiveOutEps().empty();
    Channels channels;
    if (ActiveInEps().contains(MAIN)) channels.main = In(MAIN).channels;
    if (hasSidechain) channels.side = In(SIDECHAIN).channels;
    if (hasOutput) channels.out = Out().channels;
    layout = Layout(plugin, channels);
    if (const Refusal refusal = layout.Check(plugin.uri, channels); !refusal.empty()) return Refuse(refusal);
    if (channels.main == 0 && !hasOutput) return Refuse("nothing to do: neither an input nor an output is linked");

    rate = channels.main > 0 ? In(MAIN).rate : Out().rate;
    if (channels.main > 0) mainFrame.Prepare(In(MAIN));
    if (hasSidechain) sideFrame.Prepare(In(SIDECHAIN));
    mainBuffers.assign(layout.mainPorts * layout.copies, {});
    sideBuffers.assign(channels.side, {});
    outBuffers.assign(layout.outPorts * layout.copies, {});
    joined.resize(outBuffers.size() * MOST_SAMPLES);
    if (hasOutput) box.Open(channels.main > 0 ? In(MAIN) : Out(), Out(), MOST_SAMPLES, 4L * rate);
    SetTargets();
    controls = targets;
    Make();
    Begin();
    return 0;
  }

  long Process() override {
    if (layout.mainPorts == 0) return Generate();
    if (hasOutput) box.Count(In(MAIN));
    const bool listens = hasSidechain && ActiveInEps().contains(SIDECHAIN);
    Feed(mainFrame.Read(In(MAIN)), listens ? sideFrame.Read(In(SIDECHAIN)) : nullptr, In(MAIN).samples);
    if (hasOutput && !ActiveOutEps().empty()) box.Send(Out(), false);
    return vorn::FRAME_DONE;
  }

  bool HoldsSamples() const override { return hasOutput && layout.mainPorts > 0 && box.HoldsSamples(); }
  bool HoldsFrame() const override { return hasOutput && layout.mainPorts > 0 && box.HoldsFrame(Out()); }
  long Drain(bool atEnd) override {
    while (atEnd && box.Misses(Out())) Feed(nullptr, nullptr, MOST_SAMPLES);
    box.Send(Out(), atEnd);
    return vorn::FRAME_DONE;
  }

  void OnSet(unsigned) override {
    SetTargets();
    isMoving = true;
  }
  void OnGet(unsigned id) override {
    if (id != URI && plugin.ports[id - FIRST_PORT].kind == Lv2Port::READING)
      Store(id, static_cast<double>(controls[id - FIRST_PORT]));
  }
  void Forget() override { Begin(); }
  int Release() override {
    for (const Lv2Instance& copy : copies) lilv_instance_deactivate(copy.get());
    copies.clear();
    return 0;
  }

 private:
  using Buffer = std::array<float, MOST_SAMPLES>;

  bool IsParameter(std::size_t port) const {
    return plugin.ports[port].kind == Lv2Port::CONTROL || plugin.ports[port].kind == Lv2Port::READING;
  }

  void SetTargets() {
    for (std::size_t i = 0; i < plugin.ports.size(); ++i) {
      const Lv2Port& port = plugin.ports[i];
      if (port.kind != Lv2Port::CONTROL) continue;
      const double value = Number(static_cast<unsigned>(FIRST_PORT + i));
      targets[i] = static_cast<float>(port.isPerRate ? std::clamp(value, port.least * rate, port.most * rate) : value);
    }
  }

  void Make() {
    copies.clear();
    events.clear();
    for (std::size_t i = 0; i < layout.copies; ++i) {
      copies.push_back(MakeLv2Instance(plugin, rate, MOST_SAMPLES));
      Connect(i);
      lilv_instance_activate(copies[i].get());
    }
  }

  void Connect(std::size_t copy) {
    std::size_t mainPort = copy * layout.mainPorts;
    std::size_t sidePort = copy * layout.sidePorts;
    std::size_t outPort = copy * layout.outPorts;
    for (std::size_t i = 0; i < plugin.ports.size(); ++i) {
      const auto connect = [&](void* memory) {
        lilv_instance_connect_port(copies[copy].get(), static_cast<std::uint32_t>(i), memory);
      };
      switch (plugin.ports[i].kind) {
        case Lv2Port::CONTROL: connect(&controls[i]); break;
        case Lv2Port::READING: connect(copy == 0 ? &controls[i] : &ignored[0]); break;
        case Lv2Port::AUDIO_IN: connect(mainBuffers[mainPort++].data()); break;
        case Lv2Port::SIDECHAIN_IN: connect(SideBuffer(sidePort++)); break;
        case Lv2Port::AUDIO_OUT: connect(outBuffers[outPort++].data()); break;
        case Lv2Port::SIGNAL_IN: connect(nothing.data()); break;
        case Lv2Port::SIGNAL_OUT: connect(ignored.data()); break;
        case Lv2Port::EVENTS_IN:
        case Lv2Port::EVENTS_OUT:
          events.push_back(std::make_unique<Lv2Events>(plugin.ports[i].kind == Lv2Port::EVENTS_IN));
          connect(events.back()->Data());
          break;
        case Lv2Port::UNUSED: connect(nullptr); break;
      }
    }
  }

  float* SideBuffer(std::size_t port) {
    if (!sideBuffers.empty()) return sideBuffers[port % sideBuffers.size()].data();
    return mainBuffers.empty() ? nothing.data() : mainBuffers[port % mainBuffers.size()].data();
  }

  // A plug-in says how late it is when it has run once; that is on silence, as before any stream.
  void Begin() {
    Spread(mainBuffers, nullptr, MOST_SAMPLES);
    Spread(sideBuffers, nullptr, MOST_SAMPLES);
    if (layout.mainPorts > 0) Run(MOST_SAMPLES);
    for (const Lv2Instance& copy : copies) {
      lilv_instance_deactivate(copy.get());
      lilv_instance_activate(copy.get());
    }
    const float latency = plugin.latencyPort ? controls[*plugin.latencyPort] : 0;
    box.Begin(latency > 0 ? static_cast<long>(latency) : 0);
    generated = 0;
  }

  // Null is silence.
  void Feed(const float* main, const float* side, long count) {
    for (long done = 0; done < count;) {
      const long samples = std::min(isMoving ? MOVING_SAMPLES : MOST_SAMPLES, count - done);
      if (isMoving) MoveControls(samples, count - done);
      main = Spread(mainBuffers, main, samples);
      side = Spread(sideBuffers, side, samples);
      Run(samples);
      if (hasOutput && !ActiveOutEps().empty()) box.Put(Join(samples), samples, Out());
      done += samples;
    }
    isMoving = false;
  }

  long Generate() {
    const long samples = Out().samplesPerFrame;
    Feed(nullptr, nullptr, samples);
    box.Send(Out(), false);
    Out().timestamp = generated * 1000000 / static_cast<long>(rate);
    generated += Out().samples;
    return vorn::FRAME_DONE;
  }

  // The next part of the way to what was set, so that the whole is done with the last of the `left` samples.
  void MoveControls(long samples, long left) {
    for (std::size_t i = 0; i < plugin.ports.size(); ++i) {
      if (plugin.ports[i].kind != Lv2Port::CONTROL) continue;
      const bool arrives = plugin.ports[i].isStepped || samples == left;
      controls[i] =
          arrives ? targets[i]
                  : controls[i] + (targets[i] - controls[i]) * static_cast<float>(samples) / static_cast<float>(left);
    }
  }

  void Run(long samples) {
    for (const auto& event : events) event->Reset();
    for (const Lv2Instance& copy : copies) lilv_instance_run(copy.get(), static_cast<std::uint32_t>(samples));
  }

  static const float* Spread(std::vector<Buffer>& to, const float* from, long samples) {
    const std::size_t channels = to.size();
    for (std::size_t c = 0; c < channels; ++c) {
      for (std::size_t i = 0; i < static_cast<std::size_t>(samples); ++i) to[c][i] = from ? from[i * channels + c] : 0;
    }
    return from ? from + static_cast<std::size_t>(samples) * channels : nullptr;
  }

  const float* Join(long samples) {
    const std::size_t channels = outBuffers.size();
    for (std::size_t c = 0; c < channels; ++c) {
      for (std::size_t i = 0; i < static_cast<std::size_t>(samples); ++i) joined[i * channels + c] = outBuffers[c][i];
    }
    return joined.data();
  }

  const Lv2Plugin plugin;
  std::string kind;
  Layout layout;
  bool hasSidechain = false;
  bool hasOutput = false;
  std::uint32_t rate = 0;

  // What the ports are connected to.
  std::vector<float> controls;
  std::vector<Buffer> mainBuffers;
  std::vector<Buffer> sideBuffers;
  std::vector<Buffer> outBuffers;
  std::vector<std::unique_ptr<Lv2Events>> events;
  Buffer nothing{};
  Buffer ignored{};

  std::vector<float> targets;  // where the controls shall go
  bool isMoving = false;
  vorn::FloatFrame mainFrame;
  vorn::FloatFrame sideFrame;
  std::vector<float> joined;
  Outbox box;
  long generated = 0;
  std::vector<Lv2Instance> copies;  // while the route runs; last, as they hold on to what is above
};

}  // namespace

VORN_PLUGIN(Lv2)
