// Graphs made and deleted, block by block: 2000 blocks, each with a link to the one before, on a route that stands and
// on one that runs. The running route has a source that a frame is due of every 10 ms; frames that were due when no
// cycle came are lost. The time is that of the making; the counter "deleted" has nanoseconds.
#include <benchmark/benchmark.h>

#include <chrono>

#include "Blocks.h"

namespace {

using namespace bench;
using Clock = std::chrono::steady_clock;

/** Looks at the clock in every cycle, and counts the frames that it came too late for. */
struct Timer : vorn::Block {
  Timer() : Block(true, false) {}
  int Start() override { return due = Clock::now(), 0; }
  long ProcessFrame() override {
    const auto now = Clock::now();
    if (now < due) return vorn::FRAME_DONE_WITHOUT_OUTPUT;
    for (due += PERIOD; due < now; due += PERIOD) ++lost;
    OutEp(0).FB()->samples = OutEp(0).FB()->samplesPerFrame;
    return vorn::FRAME_DONE;
  }
  static constexpr auto PERIOD = std::chrono::milliseconds(10);
  Clock::time_point due;
  long lost = 0;
};

/** Complete wherever it stands in a chain: needs no output. */
struct Tail : vorn::Block {
  Tail() : Block(false, true) {}
  long ProcessFrame() override { return InEp(0).FB()->samples = 0, vorn::FRAME_DONE; }
};

void Edit(benchmark::State& state, bool isRunning) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const BenchRoute::Maker maker = [](bool, bool) { return new Tail; };
  const std::vector<std::string> args{std::to_string(reinterpret_cast<std::uintptr_t>(&maker))};
  Timer* timer = nullptr;
  BenchRoute route;
  vorn::Block* first = route.Add([&](bool, bool) { return timer = new Timer; }, true, false);
  vorn::Block* second = route.Add(maker, false, true);
  route.Join(first, 0, second, 0);
  if (isRunning) route.Start();
  for (auto _ : state) {
    std::vector<vorn::Block*> chain{second};
    chain.reserve(count + 1);
    const auto begin = Clock::now();
    for (std::size_t i = 0; i < count; ++i) {
      vorn::Block*& block = chain.emplace_back();
      vorn::Route::Action pair[2];
      pair[0].type = vorn::Route::Action::Type::NEW_BLOCK;
      pair[0].newBlock = {MAKER_PLUGIN, false, true, &args, &block};
      pair[1].type = vorn::Route::Action::Type::NEW_LINK;
      pair[1].newLink = {48000, vorn::SampleFormat::S16_LE, 2, 480, &chain[i], 0, &block, 0, nullptr};
      route->ExecuteActions(pair, 2);
      if (pair[1].newLink.link == nullptr) Die("no link");
    }
    const auto made = Clock::now();
    for (; chain.size() > 1; chain.pop_back()) route->Delete(chain.back());
    state.SetIterationTime(std::chrono::duration<double>(made - begin).count());
    state.counters["deleted"] = std::chrono::duration<double, std::nano>(Clock::now() - made).count();
  }
  if (isRunning) route->Stop();
  state.counters["lost"] = static_cast<double>(timer->lost);
}

BENCHMARK_CAPTURE(Edit, standing, false)->Arg(500)->Arg(2000)->UseManualTime()->Iterations(1);
BENCHMARK_CAPTURE(Edit, running, true)->Arg(500)->Arg(2000)->UseManualTime()->Iterations(1);

}  // namespace
