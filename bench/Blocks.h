// Blocks that do nothing to the samples, plain and of the kit, and routes of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include <tlogging.h>
#include <vorn/Plugin.h>
#include <vorn/Vorn.h>

#include "Measure.h"

namespace bench {

/** How many frames a source gives, and when: shared by the ends of a graph and whoever measures it. */
struct Span {
  static constexpr long WARM_UP = 200;
  long frames = 0;
  long sent = 0;
  long arrived = 0;
  Mark from;
  Mark to;

  /** Before each frame of the source. False: no more. */
  bool Next() {
    if (sent == WARM_UP) from = Mark::Now();
    if (sent == WARM_UP + frames) return to = Mark::Now(), false;
    return ++sent, true;
  }
  bool IsComplete() const { return arrived == WARM_UP + frames; }
};

// Without the kit.

struct PlainSource : vorn::Block {
  explicit PlainSource(Span& newSpan, std::size_t newOutputs = 1)
      : Block(true, false), span(newSpan), outputs(newOutputs) {}
  long ProcessFrame() override {
    if (!span.Next()) return vorn::FRAME_END_OF_FILE;
    for (std::size_t i = 0; i < outputs; ++i) {
      vorn::FrameBuffer& out = *OutEp(i).FB();
      out.samples = out.samplesPerFrame;
      out.timestamp = span.sent;
    }
    return vorn::FRAME_DONE;
  }
  Span& span;
  std::size_t outputs;
};

struct PlainRelay : vorn::Block {
  PlainRelay() : Block(false, false) {}
  long ProcessFrame() override {
    vorn::FrameBuffer& in = *InEp(0).FB();
    vorn::FrameBuffer& out = *OutEp(0).FB();
    out.samples = in.samples;
    out.timestamp = in.timestamp;
    in.samples = 0;
    return vorn::FRAME_DONE;
  }
};

struct PlainSink : vorn::Block {
  explicit PlainSink(Span& newSpan, std::size_t newInputs = 1) : Block(false, true), span(newSpan), inputs(newInputs) {}
  long ProcessFrame() override {
    bool all = true;
    for (std::size_t i = 0; i < inputs; ++i) {
      vorn::FrameBuffer& in = *InEp(i).FB();
      all = all && in.samples == in.samplesPerFrame && in.timestamp == span.sent;
      in.samples = 0;
    }
    span.arrived += all ? 1 : 0;
    return vorn::FRAME_DONE;
  }
  Span& span;
  std::size_t inputs;
};

// With the kit.

struct KitSource : vorn::PluginBlock {
  KitSource(vorn::Setup setup, Span& newSpan) : PluginBlock(std::move(setup)), span(newSpan) {}
  static vorn::Description Describe() {
    return vorn::Description("source", "").Outputs(1, vorn::Endpoint::COUNT, vorn::Port("out"));
  }
  int Prepare() override { return outputs = ActiveOutEps().size(), 0; }
  long Process() override {
    if (!span.Next()) return vorn::FRAME_END_OF_FILE;
    for (std::size_t i = 0; i < outputs; ++i) {
      Out(i).samples = Out(i).samplesPerFrame;
      Out(i).timestamp = span.sent;
    }
    return vorn::FRAME_DONE;
  }
  Span& span;
  std::size_t outputs = 0;
};

struct KitRelay : vorn::PluginBlock {
  using PluginBlock::PluginBlock;
  static vorn::Description Describe() {
    return vorn::Description("relay", "").Input(vorn::Port("in")).Output(vorn::Port("out")).Same(vorn::SAME_STREAM);
  }
  long Process() override {
    Out().samples = In().samples;
    return vorn::FRAME_DONE;
  }
};

struct KitSink : vorn::PluginBlock {
  KitSink(vorn::Setup setup, Span& newSpan) : PluginBlock(std::move(setup)), span(newSpan) {}
  static vorn::Description Describe() {
    return vorn::Description("sink", "").Inputs(1, vorn::Endpoint::COUNT, vorn::Port("in"));
  }
  bool LinesUpInputs() const override { return false; }
  int Prepare() override { return inputs = ActiveInEps().size(), 0; }
  long Process() override {
    bool all = true;
    for (std::size_t i = 0; i < inputs; ++i) all = all && In(i).samples > 0 && In(i).timestamp == span.sent;
    span.arrived += all ? 1 : 0;
    return vorn::FRAME_DONE;
  }
  Span& span;
  std::size_t inputs = 0;
};

template <class Block, class... More>
vorn::Block* MakeKitBlock(bool first, bool last, More&... more) {
  static const std::vector<std::string> none;
  return new Block(vorn::Setup{first, last, none, Block::Describe()}, more...);
}

/** The framework, which logs errors alone. */
inline vorn::Vorn* QuietVorn() {
  vorn::Vorn* vorn = vorn::Vorn::Instance();
  _tlogging_set_level(2);
  return vorn;
}

struct Stream {
  vorn::SampleFormat format = vorn::SampleFormat::S16_LE;
  unsigned channels = 2;
  long frame = 480;
};

/** A route, deleted with this object, whose blocks the program makes itself. */
class BenchRoute : private vorn::Route::Callbacks {
 public:
  using Maker = std::function<vorn::Block*(bool first, bool last)>;

  explicit BenchRoute(const char* name = "RouteA") : route(QuietVorn()->NewRoute(name, this)) {}
  ~BenchRoute() override { vorn::Vorn::Instance()->DeleteRoute(route); }

  vorn::Block* Add(const Maker& maker, bool first = false, bool last = false) {
    vorn::Block* block =
        route->NewBlock(MAKER_PLUGIN, first, last, {std::to_string(reinterpret_cast<std::uintptr_t>(&maker))});
    return block != nullptr ? block : (Die("no block"), nullptr);
  }
  /** If nothing else is said, 1920 bytes a frame. */
  vorn::Link* Join(vorn::Block* source, std::size_t out, vorn::Block* sink, std::size_t in, Stream stream = {}) {
    vorn::Link* link = route->NewLink(48000, stream.format, stream.channels, stream.frame, source, out, sink, in);
    return link != nullptr ? link : (Die("no link"), nullptr);
  }
  bool TryStart() {
    ended = {};
    return route->Start() == 0;
  }
  void Start() {
    if (!TryStart()) Die("the route does not start");
  }
  void Wait() {
    ended.get_future().wait();
    route->Stop();  // comes after the callback
  }

  vorn::Route* operator->() const { return route; }

 private:
  void OnStopped(vorn::Route::StopReason) override { ended.set_value(); }

  std::promise<void> ended;
  vorn::Route* route;  // last: its thread calls OnStopped
};

enum class Shape { CHAIN, WIDE };
enum class Style { PLAIN, KIT };

/** source -> `count` relays -> sink, one behind the other or side by side. */
class RelayGraph {
 public:
  RelayGraph(Shape shape, Style style, std::size_t count, const char* name = "RouteA") : route(name) {
    const bool isKit = style == Style::KIT;
    const std::size_t ends = shape == Shape::WIDE ? count : 1;
    vorn::Block* source = route.Add(
        [&](bool first, bool last) -> vorn::Block* {
          return isKit ? MakeKitBlock<KitSource>(first, last, span) : new PlainSource(span, ends);
        },
        true, false);
    vorn::Block* before = source;
    std::vector<vorn::Block*> relays;
    for (std::size_t i = 0; i < count; ++i) {
      vorn::Block* relay = route.Add([&](bool first, bool last) -> vorn::Block* {
        return isKit ? MakeKitBlock<KitRelay>(first, last) : new PlainRelay;
      });
      relays.push_back(relay);
      route.Join(before, shape == Shape::WIDE ? i : 0, relay, 0);
      if (shape == Shape::CHAIN) before = relay;
    }
    vorn::Block* sink = route.Add(
        [&](bool first, bool last) -> vorn::Block* {
          return isKit ? MakeKitBlock<KitSink>(first, last, span) : new PlainSink(span, ends);
        },
        false, true);
    for (std::size_t i = 0; i < ends; ++i) route.Join(shape == Shape::WIDE ? relays[i] : before, 0, sink, i);
  }

  /** Carries so many frames, from the start to the end of the stream; between them are the marks of the span. */
  void Start(long frames) {
    span = Span{};
    span.frames = frames;
    route.Start();
  }
  const Span& Wait() {
    route.Wait();
    if (!span.IsComplete()) Die("frames were lost");
    return span;
  }
  const Span& Run(long frames) { return Start(frames), Wait(); }

 private:
  Span span;
  BenchRoute route;  // last: its thread uses the span
};

}  // namespace bench
