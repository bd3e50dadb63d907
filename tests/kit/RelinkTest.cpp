// Links that are replaced under a running block.
#include <gtest/gtest.h>

#include <vorn/kit/Conventions.h>

#include "testkit/TestGraph.h"

namespace {

using testkit::Graph;
using Action = vorn::Route::Action;

// Red if a block that made itself ready for one stream is given another: it would read past its frames.
TEST(Relink, ARunningBlockKeepsTheStreamsItWasPreparedFor) {
  vorn::FIFO* fifo = vorn::Vorn::Instance()->NewFIFO(48000, 2, 4800, 0);
  {
    Graph graph;
    const testkit::StreamSpec mono;
    vorn::Block* source = graph.Add("fifosource", {"blocking=no"});
    vorn::Block* sink = graph.Add("fifosink", {"blocking=no"});
    ASSERT_TRUE(graph.Chain({source, sink}, mono));
    ASSERT_EQ(vorn::AttachProducer(source, fifo), 0);
    ASSERT_EQ(vorn::AttachConsumer(sink, fifo), 0);
    ASSERT_EQ(graph->Start(), 0);

    // In one go, so that the route finds the graph whole before and after.
    const auto replaceLink = [&](unsigned channels) {
      Action actions[2]{};
      actions[0].type = Action::Type::DELETE;
      actions[0].del = {source->OutEp(0).AttachedLink(), -20};
      actions[1].type = Action::Type::NEW_LINK;
      actions[1].newLink = {mono.rate, mono.format, channels, 2 * mono.frame, &source, 0, &sink, 0, nullptr};
      graph->ExecuteActions(actions, 2);
      return actions[1].newLink.link != nullptr;
    };
    EXPECT_TRUE(replaceLink(1));
    EXPECT_FALSE(replaceLink(2));
    EXPECT_EQ(graph->Stop(), 0);
  }
  vorn::Vorn::Instance()->DeleteFIFO(fifo);
}

}  // namespace
