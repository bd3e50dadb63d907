// Frame cycles: who is called in which wave, what is committed, what is counted.

#include "testkit/FailingNew.h"
#include "testkit/RouteTest.h"

#define ENDS(reason) "|I ~Stopping|I ~Stopped|OnStopped " #reason

// The lines of "src mid- out!": a block and what it answered. "1:0" counts good and failed cycles.
const std::map<std::string, std::string> LINES = {
    // clang-format off
    {"src", "V ~@src (first) is done"}, {"src-", "V ~@src (first) is done without output"}, {"src?", "V ~@src is pending"},
    {"mid", "V ~@mid is done"}, {"mid-", "V ~@mid is done without output"}, {"mid?", "V ~@mid is pending"},
    {"out", "V ~@out (last) is done"}, {"out-", "V ~@out (last) is done without output"}, {"MID", "V ~@mid (last) is done"},
    {"src.", "I ~@src: End of file" ENDS(2)}, {"mid.", "I ~@mid: Faded out" ENDS(0)}, {"mid!", "E ~@mid: Process frame timeout"},
    {"src!", "E ~@src: Process frame failed -1" ENDS(1)}, {"out!", "E ~@out: Process frame failed -5" ENDS(1)},
    {"src0", "E ~@src: Process frame failed 0" ENDS(1)}, {"2:0", "V ~2 frames processed OK, 0 error frame"},
    {"0:1", "V ~0 frame processed OK, 1 error frame"}, {"0:2", "V ~0 frame processed OK, 2 error frames"},
    {"1:0", "V ~1 frame processed OK, 0 error frame"}, {"1:1", "V ~1 frame processed OK, 1 error frame"},
    // clang-format on
};

const struct {
  Script src, mid, out;
  const char *trace, *committed;  // whose last call it was
  Ends midEnds = MIDDLE;
} CHAINS[] = {
    {{0, 0, -21}, {0}, {0}, "src mid out 1:0 src mid out 2:0 src.", "mid out "},
    {{-1, -1, 0, -21}, {-1, 0}, {-3}, "src? src? src mid? mid out- 1:0 src.", "mid out "},
    {{-3, 0, -21}, {-3}, {0}, "src- 1:0 src mid- 2:0 src.", "mid "},
    {{0}, {-22}, {0}, "src mid. 1:0", "src mid "},
    {{0}, {0}, {0, -5}, "src mid out 1:0 src mid out! 1:1", "src mid out "},
    {{0, 0, -21}, {-10}, {0}, "src mid! 0:1 src mid! 0:2 src.", ""},
    {{0, 0, -21}, {-10, 0}, {0}, "src mid! 0:1 src mid out 1:1 src.", "mid out "},
    // 64 bits count: the low 32 of the first two are -1, of the third 0.
    {{4294967295, -4294967297}, {0}, {0}, "src mid out 1:0 src! 1:1", "src mid out "},
    {{-4294967296}, {0}, {0}, "src0 0:1", "src "},
    {{0, -21}, {0}, {0}, "src MID 1:0 src.", "mid ", LAST},
};

// Red if a result means something else: other successors, commits, counts, resets, reasons or texts.
TEST_F(RouteTest, FollowsTheResultsOfBlocks) {
  for (const auto& chain : CHAINS) {
    Renew();
    Probe* const blocks[] = {Add(*route, FIRST, "src", chain.src), Add(*route, chain.midEnds, "mid", chain.mid),
                             Add(*route, LAST, "out", chain.out)};
    for (int i : {0, 1}) Join(*route, blocks[i], blocks[i + 1]);
    Log::Keep("EWIV");
    RunToEnd();
    std::string expected = "I ~Started|OnStarted|I ~Status is RUNNING", committed, token;
    for (std::istringstream trace(chain.trace); trace >> token;) expected += "|" + LINES.at(token);
    EXPECT_EQ(Log::Take(), Lines(expected));
    for (const Probe* block : blocks) {
      if (block->Committed()) committed += std::string(block->subname) + " ";
      EXPECT_EQ(static_cast<unsigned long long>(block->resets), route->ErrorFrames());
    }
    EXPECT_EQ(committed, chain.committed) << chain.trace;
  }
}

// Red if what a stop leaves of a wave, or what that wave would have led to, is called; or is not after another result.
TEST_F(RouteTest, VisitsAWaveInPointerOrderUntilABlockEndsIt) {
  for (auto [result, calls] : {std::pair{-10, 0}, {-21, 0}, {-22, 0}, {-5, 0}, {-3, 1}, {7, 1}}) {
    for (bool early : {true, false}) {
      Renew();
      Probe *a = Add(*route, FIRST, "a"), *b = Add(*route, FIRST, "b"), *out = Add(*route, LAST, "out");
      Join(*route, a, out, 0, 0), Join(*route, b, out, 0, 1);
      (early ? std::min(a, b) : std::max(a, b))->script = {result, -21};
      RunToEnd();
      EXPECT_EQ((early ? std::max(a, b) : out)->calls, calls) << result;
    }
  }
}

struct Patient : Probe {
  using Probe::Probe;
  long ProcessFrame() override { return ++polls, ActiveInEpsDataIsReady() ? Probe::ProcessFrame() : FRAME_PENDING; }
  int polls = 0;
};

// Red if a block is called once for each of its predecessors, or a wave too late.
TEST_F(RouteTest, CallsABlockOnceAWaveHoweverManyFeedIt) {
  Probe *src = Add(*route, FIRST, "src", Script{0, 0, 0, -21}),
        *mid[] = {Add(*route, MIDDLE, ""), Add(*route, MIDDLE, "")};
  Patient* join = Add<Patient>(*route, LAST, "join");
  for (std::size_t i : {0, 1}) Join(*route, src, mid[i], i), Join(*route, mid[i], join, 0, i);
  Join(*route, src, join, 31, 7);
  RunToEnd();
  EXPECT_TRUE(join->calls == 3 && mid[0]->calls == 3 && mid[1]->calls == 3);
  EXPECT_EQ(join->polls, 6);  // in the second wave beside its neighbours, in the third alone
}

struct Meter : Probe {
  using Probe::Probe;
  long ProcessFrame() override { return (calls == 1 ? before : after) = allocations, Probe::ProcessFrame(); }
  long before = 0, after = -1;
};

// The first cycle is the narrowest. Red if a wave that is wider than all before it grows a list, or a block that asks
// to be started again before each cycle costs one.
TEST_F(RouteTest, AllocatesNothingAfterTheFirstCycle) {
  for (int startResult : {0, 3}) {
    Renew();
    Script script(1000, 0);
    script.front() = -3, script.back() = -21;
    Meter* meter = Add<Meter>(*route, FIRST, "src", script);
    meter->startResult = startResult;
    for (std::size_t i = 0; i < 20; ++i) Join(*route, meter, Add(*route, LAST, "out"), i);
    Log::Keep("");
    RunToEnd();
    EXPECT_EQ(meter->after, meter->before);
    EXPECT_EQ(meter->starts, startResult ? 1001 : 1);
  }
}

struct Lost : Probe {
  explicit Lost(bool isFirst, bool isLast) : Probe(isFirst, isLast, "a", {-10, -21}) { Tell("made"); }
  ~Lost() override { Tell("gone"); }
  int Start() override { return Tell("start"), 0; }
  int Stop() override { return Tell("stop"), 0; }
  void Reset() override { Tell("reset"); }
  long ProcessFrame() override { return Tell("frame"), Probe::ProcessFrame(); }
  int OnInEpLinked(unsigned long) override { return Tell("in"), 0; }
  void OnOutEpUnlinked(unsigned long) override { Tell("out"); }
  int SetParameter(unsigned, const std::vector<std::string>&) override { return Tell("set"), 0; }
  static void Tell(const std::string& what) {
    const auto [where, block] = Route::Here();
    Log::Add(what + " " + (where ? where : "-") + " " + (block ? block : "-"));
  }
};
struct LostCallbacks : Route::Callbacks {
  void OnStarted() override { Lost::Tell("started"); }
  void OnStopped(Route::StopReason) override { Lost::Tell("stopped"); }
};

// Red if code of a block runs under another name or none, or the name stays when other code runs.
TEST_F(RouteTest, KnowsWhoseCodeAThreadRuns) {
  LostCallbacks client;
  route.reset(), route = std::make_unique<RouteImpl>("RouteA", &client, "");
  Log::Keep("");
  Block* block = Add<Lost>(*route, ALONE);
  Join(*route, block, block);
  route->SetParameter(block, 1, {});
  RunToEnd();
  route.reset();
  Lost::Tell("test");
  const std::string at = " RouteA @a|", none = " RouteA -|";
  EXPECT_EQ(Log::Take(), Lines("made RouteA libprobe.so|in" + at + "set" + at + "start" + at + "started" + none +
                               "frame" + at + "reset" + at + "frame" + at + "stop" + at + "stopped" + none + "out" +
                               at + "gone" + at + "test - -"));
}
