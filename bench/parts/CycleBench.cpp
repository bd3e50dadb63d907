// Cycles of a running route, a thousand a time: 64 blocks behind each other, and 32 side by side, plain and of the kit.
#include <benchmark/benchmark.h>

#include "Blocks.h"

namespace {

using namespace bench;

void Cycle(benchmark::State& state, Shape shape, Style style, std::size_t count) {
  constexpr long FRAMES = 1000;
  RelayGraph graph(shape, style, count);
  for (auto _ : state) {
    const Span& span = graph.Run(FRAMES);
    state.SetIterationTime((span.to.wall - span.from.wall) / 1e9);
  }
}

BENCHMARK_CAPTURE(Cycle, plain_deep, Shape::CHAIN, Style::PLAIN, 64)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Cycle, plain_wide, Shape::WIDE, Style::PLAIN, 32)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Cycle, kit_deep, Shape::CHAIN, Style::KIT, 64)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Cycle, kit_wide, Shape::WIDE, Style::KIT, 32)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
