// A program that runs graphs by <vorn/Graph.h> alone.
#include <gtest/gtest.h>
#include <pthread.h>
#include <vorn/Graph.h>

#include <cmath>
#include <csignal>
#include <thread>

#include "testkit/Files.h"
#include "tlogging.h"

namespace {

using vorn::Graph;
namespace fs = std::filesystem;

std::string Text(const std::optional<Graph::Error>& error) { return error ? error->ToString() : ""; }

struct GraphTest : testing::Test {
  const testkit::Folder folder;
};

TEST_F(GraphTest, RunsAFileToItsEndAndOnceMoreFromTheStart) {
  const std::string file =
      testkit::Write(folder / "g.dot",
                     "digraph { a [block=moody, samples=\"$n\"] b [block=moody, measure=true, file=\"$out\"] a -> b }");
  const std::string out = folder / "out";
  Graph graph = Graph::FromFile(file, {{"n", "12345"}, {"out", out}});
  EXPECT_FALSE(graph.CurrentFigures().areKnown);
  for (int run = 0; run < 2; ++run) {
    fs::remove(out);
    const Graph::Result result = graph.Run();
    EXPECT_EQ(result.end, Graph::End::STREAM) << Text(result.error);
    EXPECT_EQ(fs::file_size(out), 12345 * 4 + 4);
    const Graph::Figures figures = graph.CurrentFigures();
    EXPECT_TRUE(figures.samples == 12345 && figures.frames == 1235);
    EXPECT_TRUE(figures.seconds == 12.345 && figures.length == 12.345);
    const auto readings = graph.CurrentReadings();
    ASSERT_EQ(readings.size(), 2U);
    EXPECT_TRUE(readings[0].block == "a" && std::isnan(readings[0].value));
    EXPECT_EQ(readings[1].block + ' ' + readings[1].name + ' ' + readings[1].unit, "b last steps");
    EXPECT_EQ(readings[1].value, 12344.25);
  }
  EXPECT_EQ(Text(graph.SetAll("samples=7")), "");
  EXPECT_NE(Text(graph.SetAll("samples")), "");
  EXPECT_EQ(graph.Run().end, Graph::End::STREAM);
  EXPECT_EQ(fs::file_size(out), 7 * 4 + 4U);
}

TEST_F(GraphTest, AnswersErrorsAsValuesWithTheirPlaces) {
  Graph missing = Graph::FromFile(folder / "none.dot");
  for (const auto& error : {missing.Set("a.b=c"), missing.Plan(), missing.Check(), missing.Run().error}) {
    EXPECT_EQ(Text(error), folder / "none.dot" + ": cannot be read; expected a graph file");
  }
  EXPECT_EQ(missing.ToDot() + missing.ToTable() + missing.ToJson(), "");

  Graph wrong = Graph::FromText("digraph {\n a [block=moody] b [block=moody]\n a -> b [rate=5]\n}", "text");
  const Graph::Result result = wrong.Run();
  EXPECT_EQ(result.end, Graph::End::NOT_BUILT);
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->at.ToString(), "text:3:4");
  EXPECT_EQ(result.error->text.find("block 'a', output 0"), 0U) << result.error->text;
  EXPECT_NE(wrong.ToJson(result).find("\"end\": \"not built\""), std::string::npos);
  EXPECT_EQ(Text(wrong.Set("a.rate=5")), "");
  EXPECT_EQ(Text(wrong.Check()), "") << "it was mended";
  EXPECT_EQ(Text(wrong.Set("c.rate=5", "here")),
            "here c.rate=5: expected node.parameter=value, where node is one of: a, b");
}

// Red if a stop that comes early is forgotten, or comes again in the next run; or if a run takes signals.
TEST_F(GraphTest, StopsFromAnyThreadAndBeforeItHasBegun) {
  Graph graph = Graph::FromPipeline("moody ! moody");
  for (int i = 0; i < 20; ++i) {
    std::thread stopper([&] { graph.Stop(i); });
    const Graph::Result result = graph.Run();
    stopper.join();
    EXPECT_EQ(result.end, Graph::End::STOPPED) << Text(result.error);
    EXPECT_EQ(result.signal, i);
    EXPECT_STREQ(result.Name(), i == 0 ? "stopped" : "signal");
  }
  Graph::RunOptions options;
  options.duration = std::chrono::milliseconds(1);
  EXPECT_EQ(graph.Run(options).end, Graph::End::DURATION) << "an old stop came again";

  options.duration.reset();
  struct sigaction action {};
  sigset_t blocked;
  options.onProgress = [&](const Graph::Figures& figures, double) {
    sigaction(SIGINT, nullptr, &action);
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    if (figures.frames > 0) graph.Stop();
  };
  EXPECT_EQ(graph.Run(options).end, Graph::End::STOPPED);
  EXPECT_TRUE(action.sa_handler == SIG_DFL && sigismember(&blocked, SIGINT) == 0);
}

TEST_F(GraphTest, RouteNamesAreOneAProcess) {
  Graph first = Graph::FromPipeline("moody 5 ! moody");
  std::optional<Graph> second(Graph::FromPipeline("moody 5 ! moody"));
  EXPECT_EQ(Text(second->Check()), "");
  EXPECT_NE(Text(first.Check()).find("RouteA could not be made"), std::string::npos);
  second.reset();
  EXPECT_EQ(first.Run().end, Graph::End::STREAM);
}

TEST_F(GraphTest, TakesTheLogOnlyWhereItIsTold) {
  const std::string log = folder / "log";
  ASSERT_EQ(_tlogging_set_file(log.c_str()), 0);
  EXPECT_EQ(Text(Graph::FromPipeline("moody 5 ! moody refuse=yes").Run().error),
            "pipeline:1:11: block 'moody_1': out of sorts");
  Graph stillborn = Graph::FromPipeline("moody 5 ! moody born=no");
  EXPECT_EQ(Text(stillborn.Run().error), "pipeline:1:11: block 'moody_1' could not be made; the log says why");
  for (const char* reason : {"out of sorts", "not today"}) {
    EXPECT_NE(testkit::Contents(log).find(reason), std::string::npos) << reason;
  }

  const auto size = fs::file_size(log);
  stillborn.TakeLog();
  EXPECT_EQ(Text(stillborn.Run().error), "pipeline:1:11: block 'moody_1' could not be made: moody: not today");
  EXPECT_EQ(fs::file_size(log), size);
}

}  // namespace
