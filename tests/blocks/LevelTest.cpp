// The figures of level, against arithmetic and against the loudness that EBU Tech 3341 says its test signals have.
#include <gtest/gtest.h>

#include "testkit/TestGraph.h"

namespace {

using testkit::Graph;

// Plays seconds of a tone of 1000 Hz, each at a level in dBFS, in frames that do not fit the meter's windows.
class LevelTest : public testing::Test {
 protected:
  using Steps = std::vector<std::pair<double, double>>;

  void Play(const Steps& steps, const std::vector<std::string>& args, bool hasOutput, unsigned channels = 2) {
    const testkit::StreamSpec stream = testkit::Floats(48000, channels, 4801);
    meter = graph.Add("level", args, false, !hasOutput);
    if (hasOutput) sink = graph.Record(meter, 0, stream);
    x.clear();
    for (const auto& [level, seconds] : steps) {
      for (long i = 0; i < std::lround(48000 * seconds); ++i) {
        const double t = static_cast<double>(x.size() / channels) / 48000;
        x.resize(x.size() + channels, static_cast<float>(std::pow(10, level / 20) * std::sin(2 * M_PI * 1000 * t)));
      }
    }
    graph.Feed(meter, 0, x, stream);
    ASSERT_EQ(graph.Run(), testkit::END_OF_FILE);
  }

  std::map<std::string, double> Readings() { return graph.Numbers(meter); }

  Graph graph;
  vorn::Block *meter = nullptr, *sink = nullptr;
  std::vector<float> x;  // played
};

// Red if a sample is missed or changed, a window has a wrong length, or a figure of the whole is not.
TEST_F(LevelTest, MeasuresTheWholeAndTheLastMoment) {
  Play({{-10, 1}, {-20, 1}}, {"oversample=yes"}, true);
  EXPECT_EQ(Graph::RecordedFloats(sink), x);
  auto readings = Readings();
  EXPECT_NEAR(readings["peak"], -10, 0.001);
  EXPECT_NEAR(readings["true-peak"], -10, 0.05);
  EXPECT_NEAR(readings["rms"], 10 * std::log10((0.1 + 0.01) / 2 / 2), 0.001);
  EXPECT_NEAR(readings["recent-peak"], -20, 0.001);
  EXPECT_NEAR(readings["recent-rms"], -23.01, 0.01);
  EXPECT_NEAR(readings["momentary"], -20, 0.05);  // both channels: 3 dB more than the RMS of one
  EXPECT_NEAR(readings["short-term"], 10 * std::log10((0.1 + 0.01) / 3), 0.1);

  graph->Reset(meter);
  for (const auto& [name, value] : Readings()) {
    EXPECT_TRUE(name == "range" || (value == -INFINITY) == (name != "oversample")) << name;  // that is no reading
  }
}

// Red if the pauses count, or the loud part alone, or if what is no number is more than a pause.
TEST_F(LevelTest, LeavesPausesOutOfTheLoudness) {
  Play({{-72, 3}, {-36, 3}, {NAN, 1}, {INFINITY, 1}, {-23, 20}, {-36, 3}, {-72, 3}}, {}, false);
  auto readings = Readings();
  EXPECT_NEAR(readings["integrated"], -23, 0.1);
  graph->DeleteAll();
  Play({{-20, 20}, {-30, 20}}, {}, false);
  EXPECT_NEAR(Readings()["range"], 10, 1);
}

// Red if a channel counts as one at another place.
TEST_F(LevelTest, WeighsChannelsByTheirPlaces) {
  for (const auto& [channels, weight] : {std::pair{6U, 3 + 2 * 1.41}, {7U, 7.0}, {8U, 3 + 4 * 1.41}}) {
    Play({{-20, 1}}, {}, false, channels);
    EXPECT_NEAR(Readings()["momentary"], -20 + 10 * std::log10(weight / 2), 0.05) << channels;
    graph->DeleteAll();
  }
}

}  // namespace
