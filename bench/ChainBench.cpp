// What one more block costs: chains of blocks that do nothing, beside the least that such a chain can be, which is a
// virtual call and the copy of a frame's description for each block. Items are blocks called, so `items_per_second` of
// the two compare.
#include <benchmark/benchmark.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <tlogging.h>
#include <vorn/Vorn.h>

namespace {

constexpr long BLOCK_CALLS = 4'000'000;

struct Ending : vorn::Route::Callbacks {
  void OnStopped(vorn::Route::StopReason) override { stopped.set_value(); }
  std::promise<void> stopped;
};

void RouteOfRelays(benchmark::State& state) {
  const long blocks = state.range(0);
  const long frames = BLOCK_CALLS / blocks;
  for (auto _ : state) {
    Ending ending;
    vorn::Vorn* vorn = vorn::Vorn::Instance();
    _tlogging_set_level(2);
    vorn::Route* route = vorn->NewRoute("RouteA", &ending);
    vorn::Block* previous = nullptr;
    for (long i = 0; i < blocks; ++i) {
      vorn::Block* block = route->NewBlock(RELAY_PLUGIN, i == 0, i + 1 == blocks, {std::to_string(frames)});
      if (previous) route->NewLink(48000, vorn::SampleFormat::S16_LE, 2, 480, previous, 0, block, 0);
      previous = block;
    }
    const auto begin = std::chrono::steady_clock::now();
    if (!previous || route->Start() != 0) state.SkipWithError("the chain does not start");
    ending.stopped.get_future().wait();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    vorn->DeleteRoute(route);
  }
  state.SetItemsProcessed(state.iterations() * frames * blocks);
}

struct PlainBlock {
  virtual ~PlainBlock() = default;
  virtual long Process() {
    in.samples = 0;
    out.samples = out.samplesPerFrame;
    return 0;
  }
  vorn::FrameBuffer in;
  vorn::FrameBuffer out;
};

void PlainChain(benchmark::State& state) {
  std::vector<std::unique_ptr<PlainBlock>> chain;
  for (long i = 0; i < state.range(0); ++i) chain.push_back(std::make_unique<PlainBlock>());
  const long frames = BLOCK_CALLS / state.range(0);
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    for (long frame = 0; frame < frames; ++frame) {
      for (std::size_t i = 0; i + 1 < chain.size(); ++i) {
        benchmark::DoNotOptimize(chain[i]->Process());
        chain[i + 1]->in = chain[i]->out;
      }
      benchmark::DoNotOptimize(chain.back()->Process());
    }
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  }
  state.SetItemsProcessed(state.iterations() * frames * state.range(0));
}

BENCHMARK(PlainChain)->Arg(3)->Arg(10)->Arg(66)->Arg(514)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(RouteOfRelays)->Arg(3)->Arg(10)->Arg(66)->Arg(514)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
