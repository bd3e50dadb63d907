// Graphs made by hand, each of which lost samples, hung, or was refused or taken for no good reason, and which random
// graphs hardly make.
#include <gtest/gtest.h>

#include "testkit/Process.h"
#include "testkit/TestGraph.h"

namespace {

using testkit::Samples, testkit::Sum;

/** 1, 2, 3 ... 10000, and again, so that the sum of two is a sample. Mono, 16 bits. */
Samples Ramp(long count) {
  Samples ramp;
  for (long k = 0; k < count; ++k) ramp.push_back(static_cast<std::int16_t>(1 + k % 10000));
  return ramp;
}

/** A block that plays NAME.raw. */
std::string Plays(const std::string& name, long rate = 48000, const std::string& more = "") {
  return name + " [block=filesource, args=\"" + name + ".raw format=S16_LE channels=1 rate=" + std::to_string(rate) +
         (more.empty() ? "" : ' ' + more) + "\"] ";
}

/** RouteA, which writes to two FIFOs, and RouteB, which mixes what comes. */
std::string ThroughTwoFifos(const std::string& routeA) {
  return "subgraph cluster_RouteA { k1 [block=fifosink] k2 [block=fifosink] " + routeA +
         " } subgraph cluster_RouteB { s1 [block=fifosource] s2 [block=fifosource] m [block=mix] s1 -> m:0 s2 -> m:1 "
         "m -> o } f1 [shape=ellipse] f2 [shape=ellipse] k1 -> f1 -> s1 k2 -> f2 -> s2";
}

struct HandMade {
  std::string name;
  std::string graph;                  ///< with `o`, which writes o.raw
  std::map<std::string, long> plays;  ///< files that hold a ramp, and how long
  std::optional<Samples> writes;      ///< what must be in o.raw, if it is known
  std::size_t count = 0;              ///< or only how many samples
  int status = 0;
  std::vector<std::string> says = {};  ///< on standard error
};

void PrintTo(const HandMade& made, std::ostream* to) { *to << made.name; }

const HandMade TABLE[] = {
    {"AJoinWithABacklogHoldsBackForTheBlockBehind",
     Plays("a", 8000, "frame=1000") + Plays("b", 8000, "frame=100") +
         "late [block=reframe, args=1000] m [block=mix] small [block=reframe, args=10] "
         "a -> m:0 b -> late -> m:1 m -> small -> o",
     {{"a", 16000}, {"b", 16000}},
     Sum(Ramp(16000), Ramp(16000))},
    {"ManyFramesBeforeAResamplerAreOneFrameBesideIt",
     Plays("a", 16000, "frame=100") + Plays("b", 48000) +
         "r [block=resample, args=48000] l [block=reframe, args=480] m [block=mix] a -> r -> l -> m:0 b -> m:1 m -> o",
     {{"a", 70000}, {"b", 200000}},
     {},
     210000},
    {"APathThatIsLateByMoreThanASecond",
     Plays("a", 8000, "frame=80") +
         "t [block=tee] late [block=reframe, args=9000] small [block=reframe, args=80] m [block=mix] "
         "a -> t -> m:0 t -> late -> small -> m:1 m -> o",
     {{"a", 16000}},
     Sum(Ramp(16000), Ramp(16000))},
    {"OneOfTwoSourcesIsHeldBack",
     Plays("a", 8000, "frame=480") + Plays("b", 8000, "frame=480") +
         "small [block=reframe, args=48] big [block=reframe, args=480] m [block=mix] "
         "a -> small -> big -> m:0 b -> m:1 m -> o",
     {{"a", 16000}, {"b", 16000}},
     Sum(Ramp(16000), Ramp(16000))},
    {"TwoFifosThatEndAtDifferentTimes",
     ThroughTwoFifos(Plays("a") + Plays("b") + "a -> k1 b -> k2"),
     {{"a", 1000}, {"b", 16000}},
     Sum(Ramp(1000), Ramp(16000))},
    {"RoutesThatWaitForEachOtherAreFound",
     ThroughTwoFifos(Plays("a") + "t [block=tee] all [block=hoard] a -> t -> k1 t -> all -> k2"),
     {{"a", 30000}},
     {},
     0,
     1,
     {"f1", "f2"}},
    {"AResamplerFromAVeryLowRate",
     "a [block=tone, args=\"white rate=100 channels=1 samples=1000\"] r [block=resample, args=48000] a -> r -> o",
     {},
     {},
     480000},
    {"ALengthOfLessThanASamplePlaysNothing", Plays("a", 48000, "length=0.00001") + "a -> o", {{"a", 1000}}, Samples()},
};

class HandMadeTest : public testing::TestWithParam<HandMade> {};
INSTANTIATE_TEST_SUITE_P(All, HandMadeTest, testing::ValuesIn(TABLE), [](const auto& made) { return made.param.name; });

TEST_P(HandMadeTest, GivesEverySampleOrSaysWhyNot) {
  const HandMade& made = GetParam();
  const testkit::Folder folder;
  for (const auto& [name, samples] : made.plays) testkit::WriteSamples(folder / name + ".raw", Ramp(samples));
  testkit::Write(folder / "graph.dot", "digraph { channels=1 o [block=filesink, args=\"o.raw\"] " + made.graph + " }");
  const testkit::Ended ended = testkit::RunIn(folder / "", {VORN_RUN, "-q", "graph.dot"});
  EXPECT_EQ(ended.status, made.status) << ended.err;
  EXPECT_EQ(ended.err.empty(), made.says.empty()) << ended.err;
  for (const std::string& part : made.says) EXPECT_NE(ended.err.find(part), std::string::npos) << ended.err;
  const Samples got = testkit::ReadSamples(folder / "o.raw");
  EXPECT_EQ(got.size(), made.writes ? made.writes->size() : made.count);
  EXPECT_TRUE(!made.writes || got == *made.writes);
}

}  // namespace
