// What resample does to a tone, to the count of samples and to their times.
#include <gtest/gtest.h>

#include <cmath>

#include "testkit/TestGraph.h"

namespace {

using testkit::Graph;
using testkit::StreamSpec;

StreamSpec Floats(unsigned rate, unsigned channels, long frame) {
  return {rate, vorn::SampleFormat::FLOAT_LE, channels, frame};
}

// Channel c is a tone of 100 * (c + 1) Hz, with a bell for a level: it starts and ends in silence.
std::vector<float> Tones(long samples, const StreamSpec& s, double seconds) {
  std::vector<float> x;
  for (long i = 0; i < samples; ++i) {
    const double t = static_cast<double>(i) / s.rate;
    const double level = std::exp(-std::pow((t / seconds - 0.5) * 8, 2)) / 2;
    for (unsigned c = 0; c < s.channels; ++c) {
      x.push_back(static_cast<float>(level * std::sin(2 * M_PI * 100 * (c + 1) * t)));
    }
  }
  return x;
}

class ResampleTest : public testing::Test {
 protected:
  // Plays `x` through the block and gives what arrived.
  std::vector<float> Run(const std::vector<float>& x, const StreamSpec& in, const StreamSpec& out,
                         const std::vector<std::string>& args = {}) {
    vorn::Block* block = graph.Add("resample", args);
    vorn::Block* source = graph.Feed(block, 0, x, in);
    vorn::Block* sink = graph.Record(block, 0, out);
    long played = 0;
    for (auto& frame : Graph::FramesOf(source)) {
      frame.stamp = 1000000 + played * 1000000 / in.rate;
      played += frame.samples;
    }
    EXPECT_EQ(graph.Run(), testkit::END_OF_FILE);
    frames = Graph::FramesOf(sink);
    const auto y = Graph::RecordedFloats(sink);
    graph->DeleteAll();
    return y;
  }

  Graph graph;
  testkit::Frames frames;  // as they arrived in the last run
};

// Red if a sample is lost or doubled, channels change places, the tone moves in time, or a frame in between is short.
TEST_F(ResampleTest, KeepsATonesLevelAndPlaceAndCountsExactly) {
  struct Case {
    StreamSpec in, out;
    long length;
    const char* quality;
    double error;
  };
  for (const Case& c : {Case{Floats(44100, 2, 441), Floats(48000, 2, 480), 44101, "high", 1e-5},
                        {Floats(48000, 3, 480), Floats(16000, 3, 160), 48002, "best", 1e-6},
                        {Floats(16000, 1, 512), Floats(48000, 1, 1536), 15999, "medium", 1e-4},
                        {Floats(8000, 1, 80), Floats(44100, 1, 100), 8001, "low", 1e-3},      // many frames for one
                        {Floats(48000, 2, 64), Floats(11025, 2, 1024), 47999, "high", 1e-5},  // one frame for many
                        {Floats(44101, 1, 480), Floats(44100, 1, 480), 44001, "high", 1e-5},
                        {Floats(22050, 2, 100), Floats(22050, 2, 333), 22051, "quick", 0}}) {
    const double seconds = static_cast<double>(c.length) / c.in.rate;
    const long expected = std::lround(seconds * c.out.rate);
    const auto y = Run(Tones(c.length, c.in, seconds), c.in, c.out, {std::to_string(c.out.rate), c.quality});
    const auto reference = Tones(expected, c.out, seconds);
    ASSERT_EQ(y.size(), reference.size()) << c.in.rate << " to " << c.out.rate;
    double worst = 0;
    for (std::size_t i = 0; i < y.size(); ++i) worst = std::max(worst, std::fabs(double{y[i]} - reference[i]));
    EXPECT_LE(worst, c.error) << c.in.rate << " to " << c.out.rate;
    long sent = 0;
    for (const auto& frame : frames) {
      EXPECT_EQ(frame.samples, std::min(c.out.frame, expected - sent));
      EXPECT_EQ(frame.stamp, 1000000 + sent * 1000000 / c.out.rate);
      sent += frame.samples;
    }
  }
}

}  // namespace
