// Plug-ins of the swh collection in the block, against what they are known to do.
#include <gtest/gtest.h>

#include "testkit/LogFile.h"
#include "testkit/Samples.h"
#include "testkit/TestGraph.h"

namespace {

using testkit::Graph;
using Samples = std::vector<float>;
using Channels = std::vector<Samples>;

const std::string SWH = "http://plugin.org.uk/swh-plugins/";
constexpr long LENGTH = 4801;

testkit::StreamSpec Floats(unsigned channels, long frame) { return testkit::Floats(48000, channels, frame); }

// Half of full scale, each channel another.
Channels Noise(std::size_t channels) {
  const auto numbers = testkit::RandomNumbers(vorn::SampleFormat::FLOAT_LE, channels * LENGTH);
  Channels noise(channels);
  for (std::size_t i = 0; i < numbers.size(); ++i) noise[i % channels].push_back(static_cast<float>(numbers[i] / 4));
  return noise;
}

Samples Interleaved(const Channels& channels) {
  Samples x;
  for (std::size_t i = 0; i < channels[0].size(); ++i) {
    for (const Samples& channel : channels) x.push_back(channel[i]);
  }
  return x;
}

void ExpectNear(const Samples& got, const Samples& played, double factor) {
  ASSERT_EQ(got.size(), played.size());
  for (std::size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(got[i], played[i] * factor, 1e-4) << i;
}

class Lv2Test : public testing::Test {
 protected:
  static void SetUpTestSuite() { setenv("LV2_PATH", (BUNDLES / ".:/usr/lib/lv2").c_str(), 1); }

  Samples Run(const std::vector<std::string>& args, const Channels& in, unsigned outputs, long frame,
              const Channels& side = {}) {
    graph->DeleteAll();
    block = graph.Add("lv2", args, in.empty());
    vorn::Block* sink = graph.Add("testsink", in.empty() ? std::vector<std::string>{"10"} : std::vector<std::string>{});
    EXPECT_TRUE(graph.Link(block, 0, sink, 0, Floats(outputs, frame + 1)));
    std::size_t input = 0;
    for (const Channels& channels : {in, side}) {
      if (channels.empty()) continue;
      graph.Feed(block, input++, Interleaved(channels), Floats(static_cast<unsigned>(channels.size()), frame));
    }
    EXPECT_EQ(graph.Run(), testkit::END_OF_FILE);
    return Graph::RecordedFloats(sink);
  }

  inline static const testkit::Folder BUNDLES;  // of plug-ins that are broken
  testkit::LogFile log;
  Graph graph;
  vorn::Block* block = nullptr;  // of the last run
};

// Red if a sample is lost or doubled at the end, channels change places, or a side chain is not what is listened to.
TEST_F(Lv2Test, DoesWhatThePlugInDoes) {
  const Channels three = Noise(3);
  const Channels two = Noise(2);
  const std::vector<std::string> ducks{SWH + "sc3", "chain_bal=1", "threshold=-30", "ratio=10"};
  for (const long frame : {1L, 7L, 480L, 1201L}) {
    ExpectNear(Run({SWH + "amp", "gain=6"}, three, 3, frame), Interleaved(three), std::pow(10, 0.3));
    ExpectNear(Run(ducks, two, 2, frame, {Samples(LENGTH)}), Interleaved(two), 1);
    const Samples ducked = Run(ducks, two, 2, frame, {two[0]});
    EXPECT_LT(std::fabs(ducked[9000] / Interleaved(two)[9000]), 0.5);
    EXPECT_EQ(Run(ducks, two, 2, frame), ducked);

    const Samples circle = Run({SWH + "sinCos"}, {}, 2, frame);
    ASSERT_EQ(circle.size(), 20U * static_cast<std::size_t>(frame + 1));
    EXPECT_EQ(circle[1], 1);
    for (std::size_t i = 0; i < circle.size(); i += 2) ASSERT_NEAR(std::hypot(circle[i], circle[i + 1]), 1, 1e-6) << i;
  }
}

// Red if the delay is left in, or the end with it.
TEST_F(Lv2Test, TakesTheDelayOut) {
  for (const long frame : {1L, 7L, 480L, 1201L}) {
    ExpectNear(Run({SWH + "lookaheadLimiter", "limit=0", "delay_s=0.02"}, Noise(2), 2, frame), Interleaved(Noise(2)),
               1);
    EXPECT_EQ(graph.Numbers(block)["latency"], 960);
  }
}

// Red if a control jumps, or does not arrive within the frame.
TEST_F(Lv2Test, MovesAControlOverOneFrame) {
  block = graph.Add("lv2", {SWH + "amp"});
  graph.Feed(block, 0, Samples(960, 1), Floats(1, 480));
  vorn::Block* sink = graph.Record(block, 0, Floats(1, 480));
  ASSERT_TRUE(graph.RunAfterSetting(block, 1, "-40"));
  const Samples x = Graph::RecordedFloats(sink);
  ASSERT_EQ(x.size(), 960U);
  EXPECT_LT(x[0] - x[479], 1);
  for (std::size_t i = 0; i < x.size(); ++i) {
    const double progress = std::min(1.0, (std::floor(static_cast<double>(i) / 16) + 1) / 30);
    ASSERT_NEAR(x[i], std::pow(10, -2 * progress), 1e-5) << i;
  }
}

// Each is broken in one way. Red if one runs all the same, or the log does not say why it does not.
TEST_F(Lv2Test, SaysWhatIsWrongWithAPlugIn) {
  const auto bundle = [&](const std::string& name, const std::string& port, const std::string& more = "") {
    std::filesystem::create_directory(BUNDLES / name + ".lv2");
    testkit::Write(BUNDLES / name + ".lv2/manifest.ttl",
                   "@prefix lv2: <http://lv2plug.in/ns/lv2core#> . @prefix doap: <http://usefulinc.com/ns/doap#> .\n"
                   "<urn:test:" +
                       name + "> a lv2:Plugin ; doap:name \"" + name +
                       "\" ; lv2:binary <none.so> ; lv2:port [ a lv2:InputPort, " + port +
                       " ; lv2:index 0 ; lv2:symbol \"in\" ; lv2:name \"in\" ]" + more + " .\n");
  };
  bundle("needy", "lv2:AudioPort", " ; lv2:requiredFeature <urn:test:magic>");
  bundle("missing", "lv2:AudioPort");
  bundle("odd", "<urn:test:Odd>");
  for (const auto& [uri, line] :
       {std::pair<std::string, std::string>{"urn:test:needy",
                                            "it needs the feature urn:test:magic, which is not known here"},
        {"urn:test:odd", "its port 'in' is of a kind that is not known here"},
        {"urn:test:none", "not installed; takes one of those that 'lv2ls' lists\n"},
        {"amp", "not installed; takes one of those that 'lv2ls' lists, such as " + SWH + "amp\n"}}) {
    EXPECT_EQ(graph.Add("lv2", {uri}), nullptr);
    EXPECT_TRUE(log.Has("LV2 plug-in '" + uri + "': " + line)) << log.Text();
  }
  EXPECT_EQ(graph.Add("lv2", {SWH + "amp", "gian=3"}), nullptr);
  EXPECT_TRUE(log.Has("argument 'gian': unknown; takes uri gain")) << log.Text();
  ASSERT_TRUE(graph.Chain({graph.Add("testsource"), graph.Add("lv2", {"urn:test:missing"})}, Floats(1, 480)));
  EXPECT_EQ(graph->Start(), -20);
  EXPECT_TRUE(log.Has("LV2 plug-in 'urn:test:missing': cannot be loaded, or not run at 48000 Hz")) << log.Text();
}

}  // namespace
