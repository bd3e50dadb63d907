// Start, stop, and the check of the graph.
#include <pthread.h>

#include "testkit/RouteTest.h"

const std::string STARTED = "I ~Started|OnStarted|I ~Status is RUNNING|";
const std::string BROKEN_END = "I ~Status is BROKEN_RUNNING, wait for new actions...";
const std::string BROKEN = "I ~Stopping|I ~Stopped|OnStopped 1|" + BROKEN_END;

// Red if a broken graph is told to the caller of Start, is looked at again without an action, or stays broken.
TEST_F(RouteTest, WaitsForAGraphThatIsWhole) {
  Probe* out = Add(*route, LAST, "out");
  Log::Keep("EWI");
  EXPECT_EQ(route->Start() + route->Reset(out) + route->Stop() + route->Stop(), 0);
  const std::string noFirst = "E ~No first block(s)|" + BROKEN + "|";
  EXPECT_EQ(Log::Take(), Lines(STARTED + noFirst + noFirst + "I ~Stopping|I ~Stopped|OnStopped 0"));

  Probe* src = Add(*route, FIRST, "src", Script{0, 0, 0, -21, -21, 0});
  Log::Take();
  EXPECT_EQ(route->Start(), 0);
  Log::WaitFor(BROKEN_END);
  const std::string error = src < out ? "E ~@src (who is non-last-block) has no active output endpoint|"
                                      : "E ~@out (who is non-first-block) has no active input endpoint|";
  EXPECT_EQ(Log::Take(), Lines(STARTED + error + BROKEN));
  Join(*route, src, out);
  Log::WaitFor("OnStopped 2");
  EXPECT_EQ(Log::Take(), Lines("I ~lnk_0: Created @src(O00) --> (I00)@out|" + STARTED +
                               "I ~@src: End of file|I ~Stopping|I ~Stopped|OnStopped 2"));
  EXPECT_EQ(route->OkFrames(), 3u);
  RunToEnd();
  EXPECT_EQ(route->OkFrames(), 0u);  // of the second run

  Log::Take();
  EXPECT_EQ(route->Start(), 0);
  EXPECT_TRUE(WaitUntil([&] { return route->OkFrames() > 5; }));
  EXPECT_EQ(route->Start(), 0);
  EXPECT_GT(route->OkFrames(), 5u);
  EXPECT_EQ(route->Delete(route->FindInstance("lnk_0")), 0);
  Log::WaitFor(BROKEN_END);
  EXPECT_EQ(Log::Take(), Lines(STARTED + "I ~lnk_0: Deleted|" + error + BROKEN));
}

// Red if a failure changes the status, is retried, or keeps its number from the caller.
TEST_F(RouteTest, PassesOnWhyABlockDoesNotStartOrStop) {
  Probe* sound = Add(*route, ALONE, "a", Script{-21, 0});
  Block* broken = route->NewBlock("libstartfails.so", true, true, {});
  Log::Take();
  EXPECT_EQ(route->Start(), -7);
  EXPECT_TRUE(sound->starts == (sound < broken) && sound->stops == 0 && sound->calls == 0);
  EXPECT_EQ(Log::Take(), Lines("E ~Failed to start startfails_0 (ret=-7)"));
  route->Delete(broken);
  route->NewBlock("libstopfails.so", true, true, {});
  Log::Take();
  EXPECT_EQ(route->Start(), 0);
  EXPECT_TRUE(WaitUntil([&] { return sound->calls > 5; }));  // the end of the file does not stop it either
  EXPECT_EQ(route->Stop(), -8);
  EXPECT_TRUE(WaitUntil([&, calls = sound->calls.load()] { return sound->calls > calls; }));
  const std::string failure = "|I ~Stopping|E ~Failed to stop stopfails_0 (ret=-8)";
  EXPECT_EQ(Log::Take(), Lines(STARTED + "I ~@a: End of file" + failure + failure));
}

// Red if a positive result of Start counts as a failure or as a start, or the flags given to NewBlock count.
TEST_F(RouteTest, AsksABlockAgainThatAnswersStartWithMoreThanZero) {
  struct SaysAlone : Probe {
    SaysAlone(bool, bool) : Probe(true, true, "a", {0, 0, 0, -21}) { startResult = 3; }
  };
  Probe* block = Add<SaysAlone>(*route, MIDDLE);
  RunToEnd();
  EXPECT_EQ(block->starts, 5);  // by the action, and before each of four cycles
  EXPECT_EQ(block->stops, 0);
}

struct Refusal : Probe {
  Refusal(bool isFirst, bool isLast, int result) : Probe(isFirst, isLast, "b") { startResult = result; }
  int Start() override { return pthread_detach(pthread_self()), startResult; }  // nobody will join this thread
};

// Red if the result of a start that no caller waits for is taken for what the thread does next, and tried again.
TEST_F(RouteTest, EndsItsThreadWhenABlockAddedToItDoesNotStart) {
  static auto& lost = *new std::vector<RouteImpl*>;  // nothing that waits for these routes returns
  for (int result : {-2, -20, -7}) {
    lost.push_back(new RouteImpl("RouteL", nullptr, ""));
    Add(*lost.back(), ALONE, "a");
    EXPECT_EQ(lost.back()->Start(), 0);
    Log::Keep("EI");
    Add<Refusal>(*lost.back(), ALONE, result);
    EXPECT_TRUE(WaitUntil([] { return TasksNamed("RouteL").empty(); }));
    const std::string error = "E RouteL: Failed to start @b (ret=" + std::to_string(result) + ")";
    EXPECT_EQ(Log::Take(), Lines("I RouteL: @b: Created|" + error));
  }
}
