// What is worked out of the FIFOs of a graph: how large they are, what goes round, and what would stand still.
#include <gtest/gtest.h>

#include "FakePlugIns.h"
#include "GraphFile.h"
#include "Resolver.h"

namespace vorn::graph {
namespace {

Result<GraphPlan> Plan(const std::string& body) {
  const auto read = ReadGraphFile("digraph { node [shape=box] " + body + "}", "f", {});
  if (const auto* error = std::get_if<Error>(&read)) return *error;
  FakePlugIns plugIns;
  return Resolve(std::get<0>(read), plugIns, [](std::size_t, const BlockPlan&) { return std::vector<Stream>(); });
}

/** The capacities by FIFO, or what is wrong. */
std::string Capacities(const std::string& body) {
  const auto plan = Plan(body);
  if (const auto* error = std::get_if<Error>(&plan)) return error->text;
  std::string text;
  for (const FifoPlan& fifo : std::get<GraphPlan>(plan).fifos) text += std::to_string(fifo.capacity) + " ";
  return text;
}

/** The blocks that follow, by name. */
std::string Followers(const std::string& body) {
  const auto plan = Plan(body);
  if (const auto* error = std::get_if<Error>(&plan)) return error->text;
  const auto& [graph, routes, blocks, links, fifos] = std::get<GraphPlan>(plan);
  std::string names;
  for (std::size_t i = 0; i < blocks.size(); ++i) names += blocks[i].follows ? graph.nodes[i].name + " " : "";
  return names;
}

std::string Fifo(const std::string& name, const std::string& attributes = "") {
  return name + " [shape=ellipse " + attributes + "] ";
}

/** One route that writes f and reads it back. `way` leads from a source to the writer. */
std::string OneRoute(const std::string& fifo, const std::string& way = "any -> writer ") {
  return way + "reader -> sink [frame=480] " + Fifo("f", fifo) + "writer -> f -> reader ";
}

/** Route A sends to B over f1, and gets it back over f2; `back` leads through B. */
std::string SendAndReturn(const std::string& f1, const std::string& f2, const std::string& back = "br -> bw ") {
  return "bw [block=writer] br [block=reader] send [block=writer] ret [block=reader] "
         "subgraph cluster_RouteA { any -> mix; ret -> mix; tee [block=any] mix -> tee -> {send sink} } "
         "subgraph cluster_RouteB { " +
         back + "} " + Fifo("f1", f1) + Fifo("f2", f2) + "send -> f1 -> br; bw -> f2 -> ret ";
}

/** Route A sends over f1 and f2, route B joins both; `in` and `out` are the ways to w1 and behind r1. */
std::string Diamond(const std::string& f1, const std::string& f2, const std::string& in = "tee -> w1 ",
                    const std::string& out = "r1 -> mix ") {
  return "w1 [block=writer] w2 [block=writer] r1 [block=reader] r2 [block=reader] tee [block=any] "
         "subgraph cluster_RouteA { any -> tee -> w2; " +
         in + "} subgraph cluster_RouteB { " + out + " r2 -> mix -> sink } " + Fifo("f1", f1) + Fifo("f2", f2) +
         "w1 -> f1 -> r1; w2 -> f2 -> r2 ";
}

const std::string GATHER = "g [block=any] any -> g; g -> writer [frame=9600] ";
const std::string GATHER_BACK = "g [block=any] x [block=any] br -> g; g -> x [frame=9600] x -> bw [frame=480] ";
const std::string GATHER_IN = "g [block=any] tee -> g; g -> w1 [frame=9600] ";
const std::string GATHER_OUT =
    "g [block=any] x [block=any] r1 -> g [frame=480] g -> x [frame=9600] x -> mix [frame=480] ";
const std::string WAITS = "closes a cycle, in which everybody would wait: ";
const std::string IN_ONE = WAITS + "'reader' (RouteA) for 'f'; ";
const std::string IN_TWO = WAITS + "'br' (RouteB) for 'f1', 'ret' (RouteA) for 'f2'; ";
const std::string SPLIT = "put 'writer' and 'reader' into routes of their own";

struct Case {
  std::string body;
  std::string expected;
};

// Red if a graph is taken that hangs, or if the number would not let it run.
TEST(FifoPlanning, RefusesLoopsThatWaitForThemselves) {
  const Case cases[] = {
      // Before anything is written, the reader wants a frame.
      {OneRoute(""), "FIFO 'f' " + IN_ONE + "give it a prefill of 480, or " + SPLIT},
      {OneRoute("prefill=479"), "FIFO 'f' " + IN_ONE + "give it a prefill of 480, not 479, or " + SPLIT},
      {SendAndReturn("", ""), "FIFO 'f2' " + IN_TWO + "give it a prefill of 480"},
      {SendAndReturn("prefill=479", "prefill=479"), "FIFO 'f2' " + IN_TWO + "give it a prefill of 480, not 479"},
      // Blocks gather: 20 frames are read before one of 9600 samples is written.
      {OneRoute("prefill=9599", GATHER), "FIFO 'f' " + IN_ONE + "give it a prefill of 10080, not 9599, or " + SPLIT},
      {SendAndReturn("", "prefill=9599", GATHER_BACK), "FIFO 'f2' " + IN_TWO + "give it a prefill of 19680, not 9599"},
      // A resampler looks ahead, 2048 samples at 8000 Hz; and pauses its source, but not the reader beside it.
      {SendAndReturn(
           "", "", "g [block=any] x [block=any] br -> g; g -> x [rate=8000 frame=80] x -> bw [rate=48000 frame=480] "),
       "FIFO 'f2' " + IN_TWO + "give it a prefill of 25056"},
      {OneRoute("", "g [block=any] x [block=any] any -> g; g -> x [rate=8000] x -> writer [rate=48000] "),
       "FIFO 'f' " + IN_ONE + SPLIT},
      // More is read than written, or written than read, whatever is in it at first.
      {OneRoute("prefill=4800", "any -> writer [frame=400] ") + "reader [whole=true] ",
       "FIFO 'f' " + IN_ONE +
           "no prefill is enough, since in the long run more is read than written; make the frames "
           "equally long, or " +
           SPLIT},
      {OneRoute("prefill=480", "any -> writer [frame=500] "),
       "FIFO 'f' is too small, and everybody would wait: 'writer' (RouteA) for room in 'f'; no capacity is enough, "
       "since "
       "in the long run more is written than read; make the frames equally long"},
  };
  for (const auto& [body, expected] : cases) EXPECT_EQ(Capacities(body), expected) << body;
}

// Red if something is refused that runs.
TEST(FifoPlanning, TakesLoopsThatCanStart) {
  const std::string cases[] = {
      OneRoute("prefill=480"),
      OneRoute("prefill=9600", GATHER),
      OneRoute("prefill=4800", "any -> writer [frame=400] "),
      // The stream ends before 9600 samples are there, and what there is goes on.
      OneRoute("prefill=1440", "g [block=any] s [block=source args=x] s -> g [frame=480] g -> writer [frame=9600] "),
      // Somebody else holds the reader back: the mix, until both have brought something.
      "g [block=any] x [block=any] any -> g; g -> x [frame=9600] x -> mix [frame=480] reader -> mix [frame=480] "
      "mix -> writer " +
          Fifo("f", "prefill=480") + "writer -> f -> reader ",
      SendAndReturn("", "prefill=480"),
      SendAndReturn("prefill=480", ""),
      SendAndReturn("prefill=9600", "", GATHER_BACK),
      // Who does not wait starts, and nothing is known of a block that does not describe itself.
      OneRoute("") + "reader [blocking=false] ",
      OneRoute("") + "reader [args=no] ",
      OneRoute("") + "reader [block=bare first=true] ",
      "subgraph cluster_RouteA { any -> writer } subgraph cluster_RouteB { bare } " + Fifo("f") +
          "writer -> f -> bare ",
      // A source and a reader that one block lines up: neither waits for the other for ever.
      "rate=8000 channels=1 s [block=any] m [block=mix] g [block=any] t [block=any] s -> m [frame=80] "
      "reader -> m [frame=80] m -> g [frame=80] g -> t [frame=480] t -> writer [frame=480] t -> sink [frame=480] " +
          Fifo("f", "prefill=5000 capacity=7000") + "writer -> f -> reader ",
  };
  for (const std::string& body : cases) {
    EXPECT_TRUE(std::holds_alternative<GraphPlan>(Plan(body))) << body << "\n" << Capacities(body);
  }
}

/** Route A writes f1 and f2, route B passes f2 on by f3, gathering, and route C joins f1 and f3. */
std::string OverThird(const std::string& f1) {
  return "w1 [block=writer] w2 [block=writer] w3 [block=writer] r1 [block=reader] r2 [block=reader] r3 [block=reader] "
         "subgraph cluster_RouteA { tee [block=any] any -> tee -> {w1 w2} } "
         "subgraph cluster_RouteB { g [block=any] r2 -> g; g -> w3 [frame=9600] } "
         "subgraph cluster_RouteC { r1 -> mix [frame=480] r3 -> mix [frame=480] mix -> sink } " +
         Fifo("f1", f1) + Fifo("f2") + Fifo("f3") + "w1 -> f1 -> r1; w2 -> f2 -> r2; w3 -> f3 -> r3 ";
}

// Red if a FIFO is too small for what another way gathers, or a FIFO without another way grows; if a capacity is taken
// with which both routes wait, or one is refused that suffices.
TEST(FifoPlanning, MakesRoomForWhatParallelWaysGather) {
  const std::string read = "r1 -> mix [frame=480] ", small =
                                                         " is too small, and everybody would wait: 'r1' (RouteB) for "
                                                         "'f1', 'w2' (RouteA) for room in 'f2'; give it a capacity of ";
  const Case cases[] = {
      {Diamond("", ""), "4800 4800 "},
      {Diamond("", "", GATHER_IN, read), "57600 24000 "},
      {Diamond("", "", "tee -> w1 ", GATHER_OUT), "43200 43200 "},
      {Diamond("", "", "tee -> w1 ", "x [block=any] r1 -> x [frame=9600] x -> mix [frame=480] "), "76800 43200 "},
      {"rate=8000 " + Diamond("", "", "g [block=any] tee -> g; g -> w1 [rate=48000 frame=480] ",
                              "x [block=any] r1 -> x [frame=480] x -> mix [rate=8000 frame=80] "),
       "53952 8992 "},
      {OverThird(""), "24000 24000 57600 "},
      {OverThird("capacity=4800"),
       "FIFO 'f1' is too small, and everybody would wait: 'w1' (RouteA) for room in 'f1', 'r3' (RouteC) for 'f3', 'r2' "
       "(RouteB) for 'f2'; give it a capacity of 24000, not 4800"},
      {Diamond("", "capacity=8000", GATHER_IN, read), "FIFO 'f2'" + small + "24000, not 8000"},
      {Diamond("", "capacity=9600", GATHER_IN, read), "57600 9600 "},
      {Diamond("", "capacity=4800", "tee -> w1 ", GATHER_OUT), "FIFO 'f2'" + small + "43200, not 4800"},
      {Diamond("", "capacity=960"), "4800 960 "},
      {Diamond("prefill=9600", "capacity=960", GATHER_IN, read), "67200 960 "}};
  for (const auto& [body, expected] : cases) EXPECT_EQ(Capacities(body), expected) << body;
}

// Red if a source of a loop keeps its route going for ever, or one that brings something new ends with the others.
TEST(StreamOrder, FindsWhatOnlyGoesRound) {
  const std::string tail = "subgraph cluster_RouteC { r3 [block=reader] sink3 [block=sink] r3 -> sink3 } " +
                           Fifo("f3") + "w3 [block=writer] w3 -> f3 -> r3 ",
                    fill = "prefill=480", split = "t [block=any] br -> t -> {bw w3} ";
  const Case cases[] = {{OneRoute(fill), ""},
                        {Diamond("", ""), ""},
                        {SendAndReturn("", fill), "ret "},
                        {SendAndReturn(fill, fill), "ret "},
                        {SendAndReturn(fill, ""), "br ret "},
                        {"reader -> writer " + Fifo("f", fill) + "writer -> f -> reader ", "reader "},
                        {SendAndReturn(fill, "", split) + tail, "br ret r3 "},
                        {SendAndReturn("", fill, split) + tail, "ret "}};
  for (const auto& [body, expected] : cases) EXPECT_EQ(Followers(body), expected) << body;
}

TEST(GraphPlan, KnowsWhatFeedsARouteAndWhatItFeeds) {
  const auto plan = Plan(SendAndReturn("", "prefill=480"));
  const auto& [graph, routes, blocks, links, fifos] = std::get<GraphPlan>(plan);
  for (const std::size_t i : {0, 1}) {
    EXPECT_EQ(routes[i].reads, std::vector{1 - i});
    EXPECT_EQ(routes[i].writes, std::vector{i});
  }
  std::string firsts;
  for (const RoutePlan& route : routes) {
    for (const std::size_t node : route.firsts) firsts += graph.nodes[node].name + ' ';
  }
  EXPECT_EQ(firsts, "ret any br ");
}

}  // namespace
}  // namespace vorn::graph
