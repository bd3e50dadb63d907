// Blocks that move samples and leave them as they are: remap, null.
#include <gtest/gtest.h>

#include "testkit/TestGraph.h"

namespace {

using testkit::Graph, testkit::StreamSpec, testkit::Samples, testkit::Count, testkit::END_OF_FILE;
StreamSpec Frames(long samples, unsigned channels = 1) { return {.channels = channels, .frame = samples}; }

// Red if channels, inputs or outputs are swapped, or a gain is another one than was written.
TEST(Moving, RemapFollowsItsMap) {
  Graph graph;
  const std::pair<const char*, std::vector<Samples>> cases[] = {
      {"1,0", {{200, 100}}},
      {"0:0,1:0", {{100, 1100}}},
      {"2/0/_", {{300}, {100}, {0}}},
      {" 1:2..1 , 0:0..1 ", {{1300, 1200, 100, 200}}},
      {"0*0.5+1:1/-1:0,_", {{1250}, {-1100, 0}}},
      {"0*20dB-1*-2-2*+3,1", {{500, 200}}},
  };
  const auto repeat = [](const Samples& instant) {  // louder and softer
    Samples samples;
    for (int k = 0; k < 501; ++k) {
      for (const int sample : instant) samples.push_back(static_cast<Samples::value_type>(sample * (1 + k % 7)));
    }
    return samples;
  };
  for (const auto& [map, outputs] : cases) {
    SCOPED_TRACE(map);
    vorn::Block* block = graph.Add("remap", {map});
    graph.Feed(block, 0, repeat({100, 200, 300}), Frames(480, 3));
    graph.Feed(block, 1, repeat({1100, 1200, 1300}), Frames(480, 3));
    std::vector<vorn::Block*> sinks;
    for (const Samples& output : outputs) {
      sinks.push_back(graph.Record(block, sinks.size(), Frames(480, static_cast<unsigned>(output.size()))));
    }
    ASSERT_EQ(graph.Run(), END_OF_FILE);
    for (std::size_t o = 0; o < sinks.size(); ++o) EXPECT_EQ(Graph::Recorded16(sinks[o]), repeat(outputs[o]));
    graph->DeleteAll();
  }
  std::string map = "0";
  while (map.size() < 2 * vorn::Endpoint::COUNT - 1) map += "/0";
  EXPECT_NE(graph.Add("remap", {map}), nullptr);
  EXPECT_EQ(graph.Add("remap", {map + "/0"}), nullptr);
}

// Red if null takes only streams that are alike, or miscounts them.
TEST(Moving, NullCountsWhatItDrops) {
  Graph graph;
  vorn::Block* block = graph.Add("null");
  graph.Feed(block, 0, Count(1000), Frames(480));
  graph.Feed(block, 5, Count(2 * 301), Frames(100, 2));
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(graph.Run(), END_OF_FILE);
    auto readings = graph.Numbers(block);
    EXPECT_EQ(readings["frames"], 7);
    EXPECT_EQ(readings["samples"], 1301);
  }
}

}  // namespace
