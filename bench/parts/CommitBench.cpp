// The commit of one frame: what a block has consumed and produced, carried to the other ends of its links.
#include <benchmark/benchmark.h>

#include "Blocks.h"

namespace {

using namespace bench;

void Commit(benchmark::State& state) {
  const auto makeRelay = [](bool, bool) { return new PlainRelay; };
  const auto ends = static_cast<std::size_t>(state.range(0));
  BenchRoute route;
  vorn::Block* block = route.Add(makeRelay);
  for (std::size_t i = 0; i < ends; ++i) {
    route.Join(route.Add(makeRelay), 0, block, i);
    route.Join(block, i, route.Add(makeRelay), 0);
  }
  for (auto _ : state) block->CommitFrame();  // the route stands, so its thread leaves the block alone
}

BENCHMARK(Commit)->ArgName("inputs and outputs")->Arg(1)->Arg(8);

}  // namespace
