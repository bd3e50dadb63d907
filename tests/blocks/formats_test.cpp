// Every block in every format that it claims, against what it makes of floats.
#include <gtest/gtest.h>

#include <algorithm>

#include "testkit/BlockInfo.h"
#include "testkit/Graph.h"
#include "testkit/Samples.h"

namespace {

using testkit::Decoded, testkit::Encoded, testkit::Graph, testkit::StreamSpec;
using vorn::SampleFormat;
using Levels = std::vector<double>;  // full scale is -1 to 1

struct Case {
  const char* block;
  std::vector<std::string> args;
  std::size_t inputs = 1;
  std::size_t outputs = 1;
  StreamSpec in{48000, {}, 2, 480};
  StreamSpec out = in;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.block; }

// A new block comes in here with one line.
const Case CASES[] = {
    {"convert", {}},
    {"delay", {"samples=77"}},
    {"mix", {"0", "-3", "-inf", "2"}, 4},
    {"reframe", {}, 1, 1, {48000, {}, 2, 480}, {48000, {}, 2, 100}},
    {"remap", {"1:1,0:0/1:0,0:1"}, 2, 2},
    {"remap", {"0:0+1:1,0:1*-6dB/-0:0,_"}, 2, 2},
    {"tee", {}, 1, 3},
    {"tone", {"sine", "997", "-1", "samples=1001"}, 0},
    {"tone", {"white", "level=-3", "samples=1001"}, 0},
};

vorn::FormatSet Claimed(const Case& c) {
  const vorn::BlockInfo& info = testkit::InfoOf(c.block);
  return c.inputs > 0 ? info.inputs[0].formats : info.outputs[0].formats;
}

// Full scale, and on the grid of the coarsest format, so that all formats are told the same.
Levels Signal(std::size_t input, std::size_t count) {
  Levels levels(count);
  std::uint32_t random = 1 + static_cast<std::uint32_t>(input);
  for (double& level : levels) {
    random = random * 1664525 + 1013904223;
    level = static_cast<std::int8_t>(random >> 24) / 128.0;
  }
  return levels;
}

// What leaves the outputs, one after the other.
Levels Output(Case c, SampleFormat format) {
  Graph graph;
  c.in.format = c.out.format = format;
  vorn::Block* block = graph.Add(c.block, c.args);
  for (std::size_t i = 0; i < c.inputs; ++i) {
    vorn::Block* source = graph.Add("testsource");
    EXPECT_TRUE(graph.Link(source, 0, block, i, c.in));
    Graph::Play(source, Encoded(format, Signal(i, 1001 * c.in.channels)), c.in);
  }
  std::vector<vorn::Block*> sinks;
  for (std::size_t i = 0; i < c.outputs; ++i) {
    sinks.push_back(graph.Add("testsink"));
    EXPECT_TRUE(graph.Link(block, i, sinks.back(), 0, c.out));
  }
  EXPECT_EQ(graph.Run(), vorn::Route::StopReason::STOP_END_OF_FILE);
  Levels levels;
  for (vorn::Block* sink : sinks) {
    const Levels one = Decoded(format, Graph::Recorded(sink));
    levels.insert(levels.end(), one.begin(), one.end());
  }
  return levels;
}

class Formats : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(, Formats, testing::ValuesIn(CASES));

// Red if a format is decoded or encoded wrongly, if a sum wraps in place of stopping at full scale, or if a format
// leaves a block with less precision than it has.
TEST_P(Formats, SoundAlike) {
  const Levels floats = Output(GetParam(), SampleFormat::FLOAT_LE);
  EXPECT_GE(floats.size(), 1001U * GetParam().outputs);
  for (const SampleFormat format : testkit::FORMATS) {
    if ((Claimed(GetParam()) & vorn::FormatBit(format)) == 0) continue;
    const Levels levels = Output(GetParam(), format);
    ASSERT_EQ(levels.size(), floats.size()) << vorn::FormatName(format);
    const double bit = testkit::IsFloat(format) ? 0 : 1 / testkit::FullScale(format);
    for (std::size_t k = 0; k < floats.size(); ++k) {
      const double expected = bit == 0 ? floats[k] : std::clamp(floats[k], -1.0, 1 - bit);
      ASSERT_NEAR(levels[k], expected, bit / 2 + 2e-7) << vorn::FormatName(format) << ", sample " << k;
    }
  }
}

}  // namespace
