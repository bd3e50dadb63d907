// What resample does to a tone, to the count of samples and to their times.
#include <gtest/gtest.h>

#include "testkit/TestGraph.h"

namespace {

using testkit::Floats, testkit::Graph, testkit::StreamSpec;

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

// Red if a sample is lost or doubled, channels change places, the tone moves in time, or a frame in between is short.
TEST(Resample, KeepsATonesLevelAndPlaceAndCountsExactly) {
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
    Graph graph;
    vorn::Block* block = graph.Add("resample", {std::to_string(c.out.rate), c.quality});
    Graph::Stamp(graph.Feed(block, 0, Tones(c.length, c.in, seconds), c.in), 1000000, c.in.rate);
    vorn::Block* sink = graph.Record(block, 0, c.out);
    ASSERT_EQ(graph.Run(), testkit::END_OF_FILE);
    const auto y = Graph::RecordedFloats(sink);
    const auto reference = Tones(expected, c.out, seconds);
    ASSERT_EQ(y.size(), reference.size()) << c.in.rate << " to " << c.out.rate;
    double worst = 0;
    for (std::size_t i = 0; i < y.size(); ++i) worst = std::max(worst, std::fabs(double{y[i]} - reference[i]));
    EXPECT_LE(worst, c.error) << c.in.rate << " to " << c.out.rate;
    long sent = 0;
    for (const auto& frame : Graph::FramesOf(sink)) {
      EXPECT_EQ(frame.samples, std::min(c.out.frame, expected - sent));
      EXPECT_EQ(frame.stamp, 1000000 + sent * 1000000 / c.out.rate);
      sent += frame.samples;
    }
  }
}

}  // namespace
