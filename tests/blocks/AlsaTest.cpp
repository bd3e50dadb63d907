// alsasource and alsasink without hardware: ALSA's file and null devices, in a configuration of the test's own.
#include <gtest/gtest.h>

#include "testkit/TestGraph.h"
#include "testkit/Wait.h"

namespace {

using testkit::Graph, testkit::StreamSpec, testkit::Samples, testkit::Count, testkit::END_OF_FILE;

class Alsa : public testing::Test {
 protected:
  Alsa() {
    testkit::Write(folder / "asound.conf",
                   "pcm.nothing { type null }\n"
                   "pcm.player { type file slave.pcm nothing file \"" +
                       folder / "played" +
                       "\" format raw }\n"
                       "pcm.recorder { type file slave.pcm nothing file /dev/null infile \"" +
                       folder / "recorded" + "\" format raw }\n");
    testkit::Write(folder / "recorded", "");
    setenv("ALSA_CONFIG_PATH", (folder / "asound.conf").c_str(), 1);
  }

  testkit::Folder folder;
};

// Red if the last, short frame, or what the device still holds, is not played.
TEST_F(Alsa, PlaysEverySampleOnceAlsoTheLastShortFrame) {
  for (const long count : {1L, 479L, 4801L}) {
    Graph graph;
    const StreamSpec spec{.channels = 1, .frame = 480};
    vorn::Block* source = graph.Add("testsource", {}, true);
    vorn::Block* sink = graph.Add("alsasink", {"player"});
    ASSERT_TRUE(graph.Chain({source, sink}, spec));
    Graph::Play(source, Count(count), spec);
    EXPECT_EQ(graph.Run(), END_OF_FILE);
    EXPECT_EQ(testkit::ReadSamples(folder / "played"), Count(count));
  }
}

TEST_F(Alsa, RecordsFromTheFirstSampleOnWithTimesThatGrow) {
  const Samples spoken = Count(4800);
  testkit::WriteSamples(folder / "recorded", spoken);
  Graph graph;
  vorn::Block* source = graph.Add("alsasource", {"recorder"});
  vorn::Block* sink = graph.Add("testsink", {"10"}, false, true);
  ASSERT_TRUE(graph.Chain({source, sink}, {.channels = 1, .frame = 480}));
  EXPECT_EQ(graph.Run(), END_OF_FILE);
  Samples heard = Graph::Recorded16(sink);
  heard.resize(spoken.size());
  EXPECT_EQ(heard, spoken);
  const auto& frames = Graph::FramesOf(sink);
  EXPECT_GT(frames[0].stamp, 0);
  EXPECT_LE(frames[0].stamp, frames[1].stamp);
}

TEST_F(Alsa, AnswersWhatTheDeviceDoesAndRefusesAnUnknownOne) {
  Graph graph;
  std::vector<std::string> streams;
  EXPECT_EQ(graph->GetParameter(graph.Add("alsasource", {"recorder", "rate=16000", "channels=1", "period=160"}),
                                vorn::PARAMETER_STREAMS, streams),
            0);
  EXPECT_EQ(streams, std::vector<std::string>{"rate=16000 format=S16_LE channels=1 frame=160"});
  vorn::Block* source = graph.Add("alsasource", {"no such device"});
  EXPECT_LT(graph->GetParameter(source, vorn::PARAMETER_STREAMS, streams), 0);
  ASSERT_TRUE(graph.Chain({source, graph.Add("testsink", {}, false, true)}, {}));
  EXPECT_LT(graph->Start(), 0);
}

// Red if an edit costs or doubles a sample where a device sets the pace, on its own link or behind it.
TEST_F(Alsa, LosesNothingWhileItsGraphIsEdited) {
  const Samples spoken = Count(1000000);
  testkit::WriteSamples(folder / "recorded", spoken);
  {
    Graph graph;
    vorn::Block* source = graph.Add("alsasource", {"recorder", "rate=48000", "channels=1"});
    vorn::Block* sink = graph.Add("alsasink", {"player"});
    ASSERT_TRUE(graph.Chain({source, sink}, {.channels = 1, .frame = 48}));
    ASSERT_EQ(graph->Start(), 0);
    const auto played = [&] { return std::filesystem::file_size(folder / "played") / sizeof spoken[0]; };
    for (int round = 0; round < 20 || played() < spoken.size() / 2; ++round) {
      EXPECT_TRUE(graph->Insert("lnk_0", "libgain.so", {}).ok);
      EXPECT_TRUE(graph->Tap("lnk_0", "libtestsink.so", {}).ok && graph->Remove("gain_0").ok);
      EXPECT_TRUE(graph->Remove("testsink_0").ok && graph->Remove("tee_0").ok);
    }
    EXPECT_TRUE(testkit::WaitUntil([&] { return played() >= spoken.size(); }));
    EXPECT_EQ(graph->Stop(), 0);
  }
  Samples heard = testkit::ReadSamples(folder / "played");
  heard.resize(spoken.size());
  EXPECT_EQ(heard, spoken);
}

}  // namespace
