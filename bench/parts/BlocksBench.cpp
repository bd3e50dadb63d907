// Each standard block of arithmetic: one frame of 10 ms, beside a loop written by hand that gives the same samples.
#include <benchmark/benchmark.h>

#include "Blocks.h"
#include "parts/Loops.h"

namespace {

using namespace bench;
using vorn::SampleFormat;

struct Work {
  const char* name;
  std::vector<std::string> args;
  std::size_t inputs;
  std::size_t outputs;
  Stream in;
  Stream out;
  Loop loop;
};

/** The block alone, called as its route would. The route stands, so its thread leaves the block alone. */
class Rig {
 public:
  explicit Rig(const Work& work) : inputs(work.inputs), outputs(work.outputs) {
    const std::string name = work.name;
    block = route->NewBlock(("lib" + name.substr(0, name.find('/')) + ".so").c_str(), false, false, work.args);
    if (block == nullptr) Die(work.name);
    const auto makeEnd = [](bool first, bool last) { return MakeKitBlock<KitRelay>(first, last); };
    for (std::size_t i = 0; i < inputs; ++i) route.Join(route.Add(makeEnd), 0, block, i, work.in);
    for (std::size_t i = 0; i < work.outputs; ++i) route.Join(block, i, route.Add(makeEnd), 0, work.out);
    if (block->BaseStart() != 0) Die(work.name);
  }
  ~Rig() { block->BaseStop(); }

  void Process() {
    for (std::size_t i = 0; i < inputs; ++i) block->InEp(i).FB()->samples = 480;
    const long result = block->ProcessFrame();
    if (result < 0 && result != vorn::FRAME_DONE_WITHOUT_OUTPUT) Die("a block failed");
    for (std::size_t i = 0; i < outputs; ++i) arrived += std::exchange(block->OutEp(i).FB()->samples, 0);
  }
  vorn::FrameBuffer& In(std::size_t index) { return *block->InEp(index).FB(); }
  vorn::FrameBuffer& Out() { return *block->OutEp(0).FB(); }
  /** Samples that have left. */
  long Arrived() const { return arrived; }

 private:
  BenchRoute route;
  std::size_t inputs;
  std::size_t outputs;
  vorn::Block* block = nullptr;
  long arrived = 0;
};

void OfBlock(benchmark::State& state, const Work& work) {
  Rig rig(work);
  for (auto _ : state) rig.Process();
  if (rig.Arrived() < 480 * (state.iterations() - 1)) state.SkipWithError("frames were lost");
}

/** Over the memory that the block would have. */
void OfLoop(benchmark::State& state, const Work& work) {
  Rig rig(work);
  const void* second = rig.In(work.inputs - 1).data;
  for (auto _ : state) {
    work.loop(rig.In(0).data, second, rig.Out().data, 480 * work.in.channels);
    benchmark::ClobberMemory();
  }
}

constexpr Stream S16{SampleFormat::S16_LE, 2, 480};
constexpr Stream FLOAT{SampleFormat::FLOAT_LE, 8, 480};

const std::vector<Work> works{
    {"gain/S16x2", {"-6"}, 1, 1, S16, S16, GainS16},
    {"gain/FLOATx8", {"-6"}, 1, 1, FLOAT, FLOAT, GainFloat},
    {"mix/S16x2", {"-6", "-3"}, 2, 1, S16, S16, MixS16},
    {"mix/FLOATx8", {"-6", "-3"}, 2, 1, FLOAT, FLOAT, MixFloat},
    {"convert/S16x2", {}, 1, 1, S16, {SampleFormat::FLOAT_LE, 2, 480}, S16ToFloat},
    {"convert/FLOATx8", {}, 1, 1, FLOAT, {SampleFormat::S16_LE, 8, 480}, FloatToS16},
    {"remap/S16x2", {"1,0"}, 1, 1, S16, S16, SwapS16Pairs},
    {"remap/FLOATx8", {"7..0"}, 1, 1, FLOAT, FLOAT, TurnFloatEights},
    {"delay/S16x2", {"100"}, 1, 1, S16, S16, DelayS16},
    {"delay/FLOATx8", {"100"}, 1, 1, FLOAT, FLOAT, DelayFloat},
    {"reframe/S16x2", {"960"}, 1, 1, S16, {SampleFormat::S16_LE, 2, 960}, JoinPairS16},
    {"reframe/FLOATx8", {"960"}, 1, 1, FLOAT, {SampleFormat::FLOAT_LE, 8, 960}, JoinPairFloat},
    {"tee/S16x2", {}, 1, 2, S16, S16, CopyTwiceS16},
    {"tee/FLOATx8", {}, 1, 2, FLOAT, FLOAT, CopyTwiceFloat},
};

const bool registered = [] {
  for (const Work& work : works) {
    const std::string name = work.name;
    benchmark::RegisterBenchmark((name + "/block").c_str(), OfBlock, work);
    benchmark::RegisterBenchmark((name + "/loop").c_str(), OfLoop, work);
  }
  return true;
}();

}  // namespace
