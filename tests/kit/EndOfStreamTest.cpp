// What arrives at the end of graphs with the blocks of docs/kit.md, and with one that is made without the kit.
#include <gtest/gtest.h>

#include "testkit/TestGraph.h"

namespace {

using testkit::Graph, testkit::Samples, testkit::Count, testkit::StreamSpec, testkit::END_OF_FILE;

StreamSpec Frame(long samples) { return {.frame = samples}; }

// A wave is run in the order of the blocks' addresses, so every case runs with them made in either order.
class EndOfStream : public testing::TestWithParam<bool> {
 protected:
  std::vector<vorn::Block*> Add(const std::vector<std::string>& names) {
    std::vector<vorn::Block*> blocks(names.size());
    for (std::size_t i = 0, last = names.size() - 1; i <= last; ++i) {
      const std::size_t k = GetParam() ? last - i : i;
      blocks[k] = graph.Add(names[k]);
    }
    return blocks;
  }

  Graph graph;
};
INSTANTIATE_TEST_SUITE_P(, EndOfStream, testing::Bool());

// Red if a block without the kit is called with an empty frame, which hangs it, or one behind keeps the route alive.
TEST_P(EndOfStream, BlocksWithoutTheKitNeverSeeAnEmptyFrame) {
  const auto b = Add({"testsource", "rechunk", "testforeign", "gain", "testsink"});
  graph.Link(b[0], 0, b[1], 0, Frame(480));
  graph.Chain({b[1], b[2], b[3], b[4]}, Frame(1000));
  Graph::Play(b[0], Count(2500), Frame(480));
  ASSERT_EQ(graph.Run(), END_OF_FILE);
  EXPECT_EQ(Graph::Recorded16(b[4]), Count(2500));

  const auto more = Add({"rechunk", "testsink"});
  graph.Link(b[0], 1, more[0], 0, Frame(480));
  graph.Link(more[0], 0, more[1], 0, Frame(1000));
  Graph::FramesOf(b[4]).clear();
  ASSERT_EQ(graph.Run(), END_OF_FILE);
  EXPECT_EQ(Graph::Recorded16(b[4]), Count(2500));
  EXPECT_EQ(Graph::Recorded16(more[1]), Count(2500));
}

// Red if the thirty-line block of docs/kit.md is not what the page says.
TEST_P(EndOfStream, TheThirtyLinesOfThePageWork) {
  const auto b = Add({"testsource", "softclip", "testsink"});
  graph.Chain(b, Frame(480));
  Graph::Play(b[0], Samples{0, 16384, -32768, 32767}, Frame(480));
  EXPECT_EQ(graph->SetParameter(b[1], 0, {"6"}), 0);
  ASSERT_EQ(graph.Run(), END_OF_FILE);
  EXPECT_EQ(Graph::Recorded16(b[2]), (Samples{0, 24923, -31578, 31578}));
}

}  // namespace
