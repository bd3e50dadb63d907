// The round trip of an action: from the caller to the thread of the route and back, with the route standing and
// running.
#include <benchmark/benchmark.h>

#include <limits>

#include "Blocks.h"

namespace {

using namespace bench;

void OneAction(benchmark::State& state, bool isRunning) {
  Span span;
  span.frames = std::numeric_limits<long>::max() / 2;
  BenchRoute route;
  vorn::Block* source = route.Add([&](bool, bool) { return new PlainSource(span); }, true, false);
  vorn::Block* sink = route.Add([&](bool, bool) { return new PlainSink(span); }, false, true);
  route.Join(source, 0, sink, 0);
  if (isRunning) route.Start();
  for (auto _ : state) benchmark::DoNotOptimize(route->Reset(sink));
  if (isRunning) route->Stop();
}

BENCHMARK_CAPTURE(OneAction, standing, false)->UseRealTime();
BENCHMARK_CAPTURE(OneAction, running, true)->UseRealTime();

}  // namespace
