// What a FIFO costs beside the two copies that it cannot do without: 480 samples of 4 bytes in, and out again.
#include <benchmark/benchmark.h>

#include <cstring>
#include <thread>
#include <vector>

#include <vorn/Vorn.h>

namespace {

constexpr long SAMPLES = 480;
constexpr long SAMPLE_SIZE = 4;
constexpr long CAPACITY = 10 * SAMPLES;
using Frame = std::vector<char>;

void TwoCopies(benchmark::State& state) {
  Frame in(SAMPLES * SAMPLE_SIZE), out(in.size()), between(in.size());
  for (auto _ : state) {
    std::memcpy(between.data(), in.data(), in.size());
    benchmark::ClobberMemory();
    std::memcpy(out.data(), between.data(), in.size());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}

// The argument is the rate: 0 keeps no time stamps.
void OneThread(benchmark::State& state) {
  vorn::FIFO* fifo = vorn::Vorn::Instance()->NewFIFO(static_cast<unsigned>(state.range(0)), SAMPLE_SIZE, CAPACITY, 0);
  Frame in(SAMPLES * SAMPLE_SIZE), out(in.size());
  long stamp = 0;
  for (auto _ : state) {
    fifo->Consume(in.data(), SAMPLES, true, stamp);
    fifo->Produce(out.data(), SAMPLES, true, &stamp);
  }
  state.SetItemsProcessed(state.iterations());
  vorn::Vorn::Instance()->DeleteFIFO(fifo);
}

void TwoThreads(benchmark::State& state) {
  vorn::FIFO* fifo = vorn::Vorn::Instance()->NewFIFO(static_cast<unsigned>(state.range(0)), SAMPLE_SIZE, CAPACITY, 0);
  std::thread writer([fifo] {
    const Frame in(SAMPLES * SAMPLE_SIZE);
    while (fifo->Consume(in.data(), SAMPLES, true, 0) == 0) {
    }
  });
  Frame out(SAMPLES * SAMPLE_SIZE);
  long stamp = 0;
  for (auto _ : state) fifo->Produce(out.data(), SAMPLES, true, &stamp);
  state.SetItemsProcessed(state.iterations());
  fifo->Shutdown();
  writer.join();
  vorn::Vorn::Instance()->DeleteFIFO(fifo);
}

BENCHMARK(TwoCopies);
BENCHMARK(OneThread)->Arg(0)->Arg(48000);
BENCHMARK(TwoThreads)->Arg(0)->Arg(48000)->UseRealTime();

}  // namespace
