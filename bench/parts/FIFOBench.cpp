// A write into a FIFO and a read out of it, by one thread, for frames of several lengths; without time stamps and with.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include <vorn/Vorn.h>

namespace {

void WriteAndRead(benchmark::State& state) {
  const long count = state.range(0);
  vorn::Vorn* vorn = vorn::Vorn::Instance();
  vorn::FIFO* fifo = vorn->NewFIFO(static_cast<unsigned>(state.range(1)), sizeof(std::int32_t), 10 * count, 0);
  std::vector<std::int32_t> frame(static_cast<std::size_t>(count));
  long stamp = 0;
  for (auto _ : state) {
    fifo->Consume(frame.data(), count, true, 1000);
    fifo->Produce(frame.data(), count, true, &stamp);
  }
  vorn->DeleteFIFO(fifo);
}

BENCHMARK(WriteAndRead)->ArgNames({"samples", "rate"})->ArgsProduct({{1, 48, 480, 4800}, {0, 48000}});

}  // namespace
