// Every block in every format that it claims, against what it makes of floats.
#include <gtest/gtest.h>

#include "testkit/BlockInfo.h"
#include "testkit/Samples.h"
#include "testkit/TestGraph.h"

namespace {

using testkit::Decoded, testkit::Encoded, testkit::Graph, testkit::StreamSpec;
using vorn::SampleFormat;
using Levels = std::vector<double>;  // full scale is -1 to 1

Levels Together(const std::vector<Levels>& parts) {
  Levels all;
  for (const Levels& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// What float samples become, from those of each input, where that is a formula.
using Formula = Levels (*)(const std::vector<Levels>& in);

Levels Same(const std::vector<Levels>& in) { return in[0]; }

Levels Last(const std::vector<Levels>& in) { return in.back(); }

std::vector<std::string> Silent(std::size_t inputs) { return std::vector<std::string>(inputs, "-inf"); }

Levels Twice(const std::vector<Levels>& in) { return Together({in[0], in[0]}); }

Levels Late(const std::vector<Levels>& in) {
  Levels late(2 * 77);
  late.insert(late.end(), in[0].begin(), in[0].end());
  return late;
}

Levels Mixed(const std::vector<Levels>& in) {
  Levels sum(in[0].size());
  for (const auto& [input, dB] : {std::pair{0, 0.0}, {1, -3.0}, {3, 2.0}}) {
    for (std::size_t k = 0; k < sum.size(); ++k)
      sum[k] += std::pow(10, dB / 20) * in[static_cast<std::size_t>(input)][k];
  }
  return sum;
}

constexpr StreamSpec STEREO{48000, {}, 2, 480};
constexpr std::size_t SAMPLES = 1001;

struct Case {
  const char* block;
  std::vector<std::string> args;
  std::size_t inputs = 1;
  std::size_t outputs = 1;
  Formula formula = nullptr;
  StreamSpec out = STEREO;
  std::size_t samples = SAMPLES;  // that leave each output
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.block; }

// A new block comes in here with one line. A block without its library is left out.
const Case CASES[] = {
    {"convert", {}, 1, 1, Same},
    {"delay", {"samples=77"}, 1, 1, Late, STEREO, SAMPLES + 77},
    {"gain", {"7"}},
    {"level", {}, 1, 1, Same},
    {"lv2", {"http://plugin.org.uk/swh-plugins/amp", "gain=3"}},
    {"mix", {"0", "-3", "-inf", "2"}, 4, 1, Mixed},
    {"mix", Silent(31), vorn::Endpoint::COUNT, 1, Last},
    {"reframe", {}, 1, 1, Same, {48000, {}, 2, 100}},
    {"remap", {"1:1,0:0/1:0,0:1"}, 2, 2},
    {"remap", {"0:0+1:1,0:1*-6dB/-0:0,_"}, 2, 2},
    {"resample", {}, 1, 1, nullptr, {44100, {}, 2, 441}, 920},
    {"tee", {}, 1, 2, Twice},
    {"tone", {"sine", "997", "-1", "samples=1001"}, 0},
    {"tone", {"white", "level=-3", "samples=1001"}, 0},
    {"voice", {}, 2},
};

vorn::FormatSet Claimed(const vorn::BlockInfo& info) {
  return (info.maxInputs > 0 ? info.inputs : info.outputs)->formats;
}

// All over the range, on the grid of a format and of floats.
std::vector<Levels> Signals(std::size_t count, SampleFormat grid) {
  std::vector<Levels> signals(count, Levels(2 * SAMPLES));
  std::mt19937 random;
  for (Levels& signal : signals) {
    for (double& level : signal) level = std::ldexp(static_cast<double>(random() >> 8), -23) - 1;
    signal = Decoded(grid, Encoded(grid, signal));
  }
  return signals;
}

// What leaves the outputs, one after the other; after an error in a stream before, where there is to be one.
Levels Output(Case c, SampleFormat format, const std::vector<Levels>& signals, long error = 0) {
  Graph graph;
  StreamSpec in = STEREO;
  in.format = c.out.format = format;
  vorn::Block* block = graph.Add(c.block, c.args);
  std::vector<testkit::Frames*> sources;
  for (std::size_t i = 0; i < c.inputs; ++i) {
    vorn::Block* source = graph.Feed(block, i, Encoded(format, signals[i]), in);
    Graph::Stamp(source, 0, in.rate);
    testkit::Frames& frames = Graph::FramesOf(source);
    const testkit::Frames before{frames.front(), frames.back(), {{}, i == 0 ? error : 0}};
    if (error != 0) frames.insert(frames.begin(), before.begin(), before.end());
    sources.push_back(&frames);
  }
  std::vector<vorn::Block*> sinks;
  for (std::size_t i = 0; i < c.outputs; ++i) sinks.push_back(graph.Record(block, i, c.out));
  if (error == vorn::FRAME_FAILED) {
    EXPECT_NE(graph.Run(), std::nullopt);
    graph->Stop();  // waits for the end of the cycle, which resets the blocks
    for (testkit::Frames* frames : sources) frames->erase(frames->begin(), frames->begin() + 3);
    for (vorn::Block* sink : sinks) Graph::FramesOf(sink).clear();
  }
  EXPECT_EQ(graph.Run(), testkit::END_OF_FILE);
  Levels all;
  for (vorn::Block* sink : sinks) {
    all = Together({all, Decoded(format, Graph::Recorded(sink))});
    long position = 0;
    for (const testkit::Frame& frame : Graph::FramesOf(sink)) {
      EXPECT_NEAR(static_cast<double>(frame.stamp), 1e6 * static_cast<double>(position) / c.out.rate, 4);
      EXPECT_TRUE(position % c.out.frame == 0 || c.formula == Late);  // who passes frames on as they come
      position += frame.samples;
    }
  }
  return all;
}

class Formats : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(, Formats, testing::ValuesIn(CASES));

// Red if a format is read or written wrongly or less precisely than it is, a sum wraps, a sample is lost or moved, or
// its time is another.
TEST_P(Formats, SoundAlike) {
  const vorn::BlockInfo* info = testkit::InfoOf(GetParam().block);
  if (info == nullptr) GTEST_SKIP();
  for (const SampleFormat format : testkit::FORMATS) {
    if ((Claimed(*info) & vorn::FormatBit(format)) == 0) continue;
    const auto signals = Signals(GetParam().inputs, format);
    const Levels floats = Output(GetParam(), SampleFormat::FLOAT_LE, signals);
    const Levels formula = GetParam().formula ? GetParam().formula(signals) : floats;
    const Levels levels = Output(GetParam(), format, signals);
    ASSERT_EQ(floats.size(), GetParam().samples * GetParam().out.channels * GetParam().outputs);
    ASSERT_EQ(levels.size(), floats.size()) << vorn::FormatName(format);
    const double bit = testkit::IsFloat(format) ? 0 : 1 / testkit::FullScale(format);
    for (std::size_t k = 0; k < floats.size(); ++k) {
      const double expected = bit == 0 ? floats[k] : std::clamp(floats[k], -1.0, 1 - bit);
      ASSERT_NEAR(levels[k], expected, bit / 2 + 2e-7) << vorn::FormatName(format) << ", sample " << k;
      ASSERT_NEAR(floats[k], formula[k], 2e-7) << k;
    }
  }
}

// Red if a block that is started again after a stop in mid-stream, or reset, goes on with what it had, or where it was.
TEST_P(Formats, BeginAnew) {
  if (testkit::InfoOf(GetParam().block) == nullptr) GTEST_SKIP();
  const auto signals = Signals(GetParam().inputs, SampleFormat::FLOAT_LE);
  const Levels expected = Output(GetParam(), SampleFormat::FLOAT_LE, signals);
  for (const long error : {vorn::FRAME_FAILED, vorn::FRAME_TIMEOUT}) {
    EXPECT_EQ(Output(GetParam(), SampleFormat::FLOAT_LE, signals, error), expected) << error;
  }
}

}  // namespace
