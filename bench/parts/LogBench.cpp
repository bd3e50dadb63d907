// A log line that the level drops: what every block and every cycle pays for one.
#include <benchmark/benchmark.h>

#include <tlogging.h>

namespace {

void DroppedLine(benchmark::State& state) {
  _tlogging_set_level(2);
  for (auto _ : state) {
    _tlogging_print('V', __FILE__, __LINE__, __func__, "%s: %s %sis done", "RouteA", "gain_0", "(last) ");
  }
}

BENCHMARK(DroppedLine);

}  // namespace
