// Start, stop, and the check of the graph.
#include <pthread.h>

#include <future>

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

// Red if one missing link is overlooked, or another block named for it.
TEST_F(RouteTest, NamesTheBlockThatLacksALink) {
  for (const auto& [ends, missing] : {std::pair{FIRST, "non-last-block) has no active output endpoint"},
                                      {LAST, "non-first-block) has no active input endpoint"}}) {
    Renew();
    for (Ends any : {ALONE, ends, ALONE}) Add(*route, any, any == ALONE ? "a" : "b");
    route->Start();
    Log::WaitFor("E ~@b (who is " + std::string(missing));
  }
}

// Red if a failure changes the status, is retried, or keeps its number from the caller.
TEST_F(RouteTest, PassesOnWhyABlockDoesNotStartOrStop) {
  Probe *sound = Add(*route, ALONE, "a", Script{-21, 0}), *broken = Add(*route, ALONE, "b");
  broken->startResult = -7;
  Log::Take();
  EXPECT_EQ(route->Start(), -7);
  EXPECT_TRUE(sound->starts == (sound < broken) && sound->stops == 0 && sound->calls == 0);
  EXPECT_EQ(Log::Take(), Lines("E ~Failed to start @b (ret=-7)"));
  route->Delete(broken);
  Add(*route, ALONE, "b")->stopResult = -8;
  Log::Take();
  EXPECT_EQ(route->Start(), 0);
  EXPECT_TRUE(WaitUntil([&] { return sound->calls > 5; }));  // the end of the file does not stop it either
  EXPECT_EQ(route->Stop(), -8);
  EXPECT_TRUE(WaitUntil([&, calls = sound->calls.load()] { return sound->calls > calls; }));
  const std::string failure = "|I ~Stopping|E ~Failed to stop @b (ret=-8)";
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
  Refusal(bool isFirst, bool isLast, std::vector<int> newResults) : Probe(isFirst, isLast, "b"), results(newResults) {}
  int Start() override {
    const int result = results[std::min<std::size_t>(starts++, results.size() - 1)];
    if (result < 0) pthread_detach(pthread_self());  // nobody will join this thread
    return result;
  }
  std::vector<int> results;
};

// The four ways to a start that no caller waits for. Red if one's result is taken for what the thread does next, or is
// tried again.
TEST_F(RouteTest, EndsItsThreadWhenABlockDoesNotStartWithoutACaller) {
  static auto& lost = *new std::vector<RouteImpl*>;  // nothing that waits for these routes returns
  const auto expectLost = [](int result) {
    EXPECT_TRUE(WaitUntil([] { return TasksNamed("RouteL").empty(); }));
    EXPECT_TRUE(lost.back()->IsLost());
    EXPECT_TRUE(Log::Take().ends_with(Lines("E RouteL: Failed to start @b (ret=" + std::to_string(result) + ")")));
  };
  const auto renew = [] { return lost.emplace_back(new RouteImpl("RouteL", nullptr, "")); };
  for (int result : {-2, -20, -7}) {  // added
    Add(*renew(), ALONE, "a");
    EXPECT_EQ(lost.back()->Start(), 0);
    Add<Refusal>(*lost.back(), ALONE, std::vector{result});
    expectLost(result);
  }
  RouteImpl* mine = renew();  // mended
  EXPECT_EQ(mine->Start(), 0);
  Add<Refusal>(*mine, ALONE, std::vector{-5});
  expectLost(-5);
  Add<Refusal>(*renew(), ALONE, std::vector{3, 3, 3, -6});  // asked again
  lost.back()->Start();
  expectLost(-6);
  Refusal *a = Add<Refusal>(*(mine = renew()), ALONE, std::vector{0, -9}), *b = Add<Refusal>(*mine, ALONE, a->results);
  std::max<Refusal*>(a, b)->stopResult = -8;  // after the other was stopped
  EXPECT_EQ(mine->Start(), 0);
  EXPECT_EQ(mine->Stop(), -8);
  EXPECT_TRUE(WaitUntil([] { return TasksNamed("RouteL").empty(); }) && std::min<Refusal*>(a, b)->starts == 2);
}

struct Leaver : Probe {
  Leaver(bool isFirst, bool isLast) : Probe(isFirst, isLast, "l") {}
  ~Leaver() override { Log::Add("stops " + std::to_string(stops)); }
};
struct Thrower : Recorder {
  void OnStopped(Route::StopReason) override { told.set_value(); }
  std::promise<void> told;
};

// Red if a stop does otherwise than Block.h says, or what a callback throws goes further.
TEST_F(RouteTest, StopsAsItsHeaderSays) {
  Probe *slow = Add(*route, ALONE, "a"), *other = Add(*route, ALONE, "b");
  slow->stopResult = 4;
  for (int round = 1; round <= 2; ++round) {
    EXPECT_EQ(route->Start() + route->Stop(), 0);
    EXPECT_TRUE(slow->starts == 1 && slow->stops == round && other->starts == round && other->stops == round);
  }
  route->Start();
  Block* leaver = Add<Leaver>(*route, ALONE);
  route->Reset(leaver);  // it is started by now
  Log::Keep("");
  route->Delete(leaver);
  EXPECT_EQ(Log::Take(), Lines("stops 0"));

  Thrower thrower;
  route.reset(), route = std::make_unique<RouteImpl>("RouteA", &thrower, "");
  Log::Keep("E");
  EXPECT_EQ(route->Start() + route->DeleteAll() + route->Stop(), 0);  // incomplete, and once more, and at last
  const std::string thrown = "|E ~OnStopped() threw: std::future_error: Promise already satisfied";
  EXPECT_EQ(Log::Take(), Lines("OnStarted|E ~No first block(s)|E ~No first block(s)" + thrown + thrown));
  route.reset();
}
