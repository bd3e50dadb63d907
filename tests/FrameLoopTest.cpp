// Frame cycles: who is called in which wave, what is committed, what is counted.

#include <random>

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
    for (auto [early, isFed] : {std::pair{true, false}, {false, false}, {true, true}, {false, true}}) {
      Renew();
      const Ends ends = isFed ? MIDDLE : FIRST;
      Probe *a = Add(*route, ends, "a"), *b = Add(*route, ends, "b"), *out = Add(*route, LAST, "out");
      Probe* src = isFed ? Add(*route, FIRST, "src", Script{0, -21}) : nullptr;
      if (isFed) Join(*route, src, std::max(a, b), 0, 0), Join(*route, src, std::min(a, b), 1, 0);
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

struct Echo : Probe {
  using Probe::Probe;
  long ProcessFrame() override {
    sinceTwice = std::exchange(cycle, source->calls) == source->calls ? 0 : sinceTwice + 1;
    return Probe::ProcessFrame();
  }
  Probe* source = nullptr;
  int cycle = 0;
  std::atomic<int> sinceTwice{0};  // cycles since one that called it twice
};

// Red if a cycle leaves out a link that was made while the route ran, or goes over one that is deleted.
TEST_F(RouteTest, FollowsLinksThatChangeWhileItRuns) {
  Probe *src = Add(*route, FIRST, "src"), *mid = Add(*route, MIDDLE, "mid");
  Echo* out = Add<Echo>(*route, LAST, "out");
  out->source = src;
  Join(*route, src, mid), Join(*route, mid, out);
  Log::Keep("");
  route->Start();
  EXPECT_TRUE(WaitUntil([&] { return out->sinceTwice > 2; }));
  Link* link = Join(*route, src, out, 1, 1);  // behind mid, and behind src
  EXPECT_TRUE(WaitUntil([&] { return out->sinceTwice == 0; }));
  route->Delete(link);
  EXPECT_TRUE(WaitUntil([&] { return out->sinceTwice > 2; }));
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

struct Bare : Block {
  using Block::Block;
  long ProcessFrame() override { return 0; }
};

/** All that a cycle can read from its first blocks on. */
std::string Seen(const FramePlan& plan) {
  std::ostringstream seen;
  seen << plan.Size() << ' ' << plan.MostInWave() << ' ' << plan.IsComplete();
  std::vector<const FramePlan::Visit*> wave(plan.First());
  for (std::size_t i = 0; i < wave.size(); ++i) {
    seen << '\n' << wave[i]->block << wave[i]->name << wave[i]->label;
    for (const auto& [from, to] : wave[i]->copies) seen << ' ' << from << '>' << to;
    for (const FramePlan::Visit* after : wave[i]->after) {
      seen << ' ' << after->block;
      if (std::ranges::find(wave, after) == wave.end()) wave.push_back(after);
    }
  }
  return seen.str();
}

// Red if an edit leaves something of a plan as it was.
TEST(FramePlan, IsLikeOneMadeAnewAfterAnyEdits) {
  Log::Keep("");
  std::mt19937 random(1);
  std::vector<std::unique_ptr<Block>> blocks;
  std::vector<std::unique_ptr<Link>> links;
  const auto any = [&](const auto& all) { return all.begin() + static_cast<std::ptrdiff_t>(random() % all.size()); };
  FramePlan plan;
  for (int edit = 0; edit < 5000; ++edit) {
    const auto unlink = [&](std::size_t i) {
      for (const Endpoint* ep :
           {static_cast<const Endpoint*>(links[i]->SourceEp()), static_cast<const Endpoint*>(links[i]->SinkEp())}) {
        plan.Touch(*ep->Owner());
      }
      links.erase(links.begin() + static_cast<std::ptrdiff_t>(i));
    };
    switch (random() % 8) {
      case 0:
      case 1:
        blocks.push_back(std::make_unique<Bare>(random() % 3 == 0, random() % 3 == 0));
        plan.Enter(*blocks.back());
        break;
      case 2: {
        if (blocks.empty()) break;
        const auto block = any(blocks);
        for (std::size_t i = links.size(); i-- > 0;) {
          if (links[i]->SourceEp()->Owner() == block->get() || links[i]->SinkEp()->Owner() == block->get()) unlink(i);
        }
        plan.Leave(**block);
        blocks.erase(block);
        break;
      }
      case 3:
        if (!links.empty()) unlink(random() % links.size());
        break;
      case 4:
        if (random() % 100 == 0) links.clear(), blocks.clear(), plan.Clear();
        break;
      default: {
        if (blocks.empty()) break;
        auto link = std::make_unique<Link>("RouteA", "lnk", 1, SampleFormat::BYTE, 1, 1);
        Block &source = **any(blocks), &sink = **any(blocks);
        if (link->Connect(&source.OutEp(random() % 4), &sink.InEp(random() % 4)) < 0) break;
        plan.Touch(source), plan.Touch(sink);
        links.push_back(std::move(link));
      }
    }
    if (random() % 4 != 0) continue;
    FramePlan anew;
    for (const auto& block : blocks) anew.Enter(*block);
    anew.Refresh(), plan.Refresh();
    ASSERT_EQ(Seen(plan), Seen(anew)) << edit;
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
