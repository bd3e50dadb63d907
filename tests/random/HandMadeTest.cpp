// Graphs made by hand, each of which lost samples, hung, or was refused or taken for no good reason.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <ostream>

#include "testkit/Process.h"

namespace {

/** Mono, 16 bits. */
using Samples = std::vector<std::int16_t>;

/** 1, 2, 3 ... 10000, and again, so that the sum of two is a sample. */
Samples Ramp(long count) {
  Samples ramp;
  for (long k = 0; k < count; ++k) ramp.push_back(static_cast<std::int16_t>(1 + k % 10000));
  return ramp;
}

/** So many zeros before. */
Samples Late(long zeros, const Samples& samples) {
  Samples late(static_cast<std::size_t>(zeros));
  late.insert(late.end(), samples.begin(), samples.end());
  return late;
}

Samples Sum(Samples a, Samples b) {
  if (a.size() < b.size()) a.swap(b);
  for (std::size_t i = 0; i < b.size(); ++i) a[i] = static_cast<std::int16_t>(a[i] + b[i]);
  return a;
}

/** A block that plays NAME.raw. */
std::string Plays(const std::string& name, long rate = 48000, const std::string& more = "") {
  return name + " [block=filesource, args=\"" + name + ".raw format=S16_LE channels=1 rate=" + std::to_string(rate) +
         (more.empty() ? "" : ' ' + more) + "\"] ";
}

/** A block that writes NAME.raw. */
std::string Writes(const std::string& name) { return name + " [block=filesink, args=\"" + name + ".raw\"] "; }

std::string RouteOf(const std::string& letter, const std::string& graph) {
  return "subgraph cluster_Route" + letter + " { " + graph + " } ";
}

struct HandMade {
  std::string name;
  std::string graph;
  std::map<std::string, long> plays;        ///< files that hold a ramp, and how long
  std::map<std::string, Samples> writes;    ///< what must be in which file
  std::map<std::string, long> counts = {};  ///< where only the count is known
  int status = 0;
  std::vector<std::string> says = {};  ///< on standard error
};

void PrintTo(const HandMade& made, std::ostream* to) { *to << made.name; }

const std::string TWO_ROUTES_JOIN =
    RouteOf("A", Plays("a") +
                     "t [block=tee] late [block=reframe, args=9600] back [block=reframe, args=480] "
                     "k1 [block=fifosink] k2 [block=fifosink] a -> t -> k1 t -> late -> back -> k2") +
    RouteOf("B",
            "s1 [block=fifosource] s2 [block=fifosource] m [block=mix] " + Writes("o") + "s1 -> m:0 s2 -> m:1 m -> o");

const std::string SEND = Plays("a") + "t [block=tee] k1 [block=fifosink] s2 [block=fifosource] m [block=mix] " +
                         Writes("o") + "a -> t -> m:0 t -> k1 s2 -> m:1 m -> o";
const std::string RETURN = "s1 [block=fifosource] k2 [block=fifosink] s1 -> k2";
const std::string SEND_AND_RETURN = RouteOf("A", SEND) + RouteOf("B", RETURN) + "f1 [shape=ellipse] k1 -> f1 -> s1 ";

const std::string FIFO_IN_ROUTE =
    Plays("a") + Writes("o") + "k [block=fifosink] s [block=fifosource] a -> k s -> o k -> f -> s f [shape=ellipse";

const HandMade TABLE[] = {
    {"ASourceThatEndsLeavesOthersWhatTheirBlocksHold",
     Plays("a") + Plays("b") + Writes("o") +
         "t [block=tee] n [block=null] d [block=delay, samples=5000] a -> t -> n:0 b -> n:1 t -> d -> o",
     {{"a", 5000}, {"b", 1}},
     {{"o", Late(5000, Ramp(5000))}}},
    {"ChainsThatAreNotConnectedRunToTheirOwnEnds",
     Plays("a") + Plays("b") + Writes("o") + Writes("p") + "a -> o b -> p",
     {{"a", 5280}, {"b", 30000}},
     {{"o", Ramp(5280)}, {"p", Ramp(30000)}}},
    {"AJoinWithABacklogHoldsBackForTheBlockBehind",
     Plays("a", 8000, "frame=1000") + Plays("b", 8000, "frame=100") + Writes("o") +
         "late [block=reframe, args=1000] m [block=mix] small [block=reframe, args=10] "
         "a -> m:0 b -> late -> m:1 m -> small -> o",
     {{"a", 16000}, {"b", 16000}},
     {{"o", Sum(Ramp(16000), Ramp(16000))}}},
    {"FramesOfOneSourceMayBeAThirdOfThoseOfTheOther",
     Plays("a", 48000, "frame=480") + Plays("b", 48000, "frame=160") + Writes("o") +
         "late [block=reframe, args=480] m [block=mix] a -> m:0 b -> late -> m:1 m -> o",
     {{"a", 100000}, {"b", 100000}},
     {{"o", Sum(Ramp(100000), Ramp(100000))}}},
    {"ManyFramesBeforeAResamplerAreOneFrameBesideIt",
     Plays("a", 16000, "frame=100") + Plays("b", 48000) + Writes("o") +
         "r [block=resample, args=48000] l [block=reframe, args=480] m [block=mix] a -> r -> l -> m:0 b -> m:1 m -> o",
     {{"a", 70000}, {"b", 200000}},
     {},
     {{"o", 210000}}},
    {"APathThatIsLateByMoreThanASecond",
     Plays("a", 8000, "frame=80") + Writes("o") +
         "t [block=tee] late [block=reframe, args=9000] small [block=reframe, args=80] m [block=mix] "
         "a -> t -> m:0 t -> late -> small -> m:1 m -> o",
     {{"a", 16000}},
     {{"o", Sum(Ramp(16000), Ramp(16000))}}},
    {"OneOfTwoSourcesIsHeldBack",
     Plays("a", 8000, "frame=480") + Plays("b", 8000, "frame=480") + Writes("o") +
         "small [block=reframe, args=48] big [block=reframe, args=480] m [block=mix] "
         "a -> small -> big -> m:0 b -> m:1 m -> o",
     {{"a", 16000}, {"b", 16000}},
     {{"o", Sum(Ramp(16000), Ramp(16000))}}},
    {"TwoFifosThatEndAtDifferentTimes",
     RouteOf("A", Plays("a") + Plays("b") + "k1 [block=fifosink] k2 [block=fifosink] a -> k1 b -> k2") +
         RouteOf("B", "s1 [block=fifosource] s2 [block=fifosource] m [block=mix] " + Writes("o") +
                          "s1 -> m:0 s2 -> m:1 m -> o") +
         "f1 [shape=ellipse] f2 [shape=ellipse] k1 -> f1 -> s1 k2 -> f2 -> s2",
     {{"a", 1000}, {"b", 16000}},
     {{"o", Sum(Ramp(1000), Ramp(16000))}}},
    {"SendAndReturnEnds",
     SEND_AND_RETURN + "f2 [shape=ellipse, prefill=960] k2 -> f2 -> s2",
     {{"a", 16000}},
     {{"o", Sum(Ramp(16000), Late(960, Ramp(16000)))}}},
    {"AFifoWithinARouteIsReadToItsEnd",
     FIFO_IN_ROUTE + ", prefill=480]",
     {{"a", 16000}},
     {{"o", Late(480, Ramp(16000))}}},
    {"PathsThroughTwoFifosOneOfThemLate",
     TWO_ROUTES_JOIN + "f1 [shape=ellipse] f2 [shape=ellipse] k1 -> f1 -> s1 k2 -> f2 -> s2",
     {{"a", 16000}},
     {{"o", Sum(Ramp(16000), Ramp(16000))}}},
    {"PathsThroughTwoFifosOneOfThemResampled",
     RouteOf("A", Plays("a", 8000, "frame=80") +
                      "t [block=tee] r [block=resample, args=48000] k1 [block=fifosink] k2 [block=fifosink] "
                      "a -> t -> r -> k1 t -> k2") +
         RouteOf("B", "s1 [block=fifosource] s2 [block=fifosource] r2 [block=resample, args=48000] m [block=mix] " +
                          Writes("o") + "s1 -> m:0 s2 -> r2 -> m:1 m -> o") +
         "f1 [shape=ellipse] f2 [shape=ellipse] k1 -> f1 -> s1 k2 -> f2 -> s2",
     {{"a", 16000}},
     {},
     {{"o", 96000}}},
    {"RoutesThatWaitForEachOtherAreFound",
     RouteOf("A", Plays("a") + "t [block=tee] all [block=hoard] k1 [block=fifosink] k2 [block=fifosink] "
                               "a -> t -> k1 t -> all -> k2") +
         RouteOf("B", "s1 [block=fifosource] s2 [block=fifosource] m [block=mix] " + Writes("o") +
                          "s1 -> m:0 s2 -> m:1 m -> o") +
         "f1 [shape=ellipse] f2 [shape=ellipse] k1 -> f1 -> s1 k2 -> f2 -> s2",
     {{"a", 30000}},
     {},
     {},
     1,
     {"f1", "f2"}},
    {"AResamplerFromAVeryLowRate",
     "a [block=tone, args=\"white rate=100 channels=1 samples=1000\"] r [block=resample, args=48000] " + Writes("o") +
         "a -> r -> o",
     {},
     {},
     {{"o", 480000}}},
    {"ALengthOfLessThanASamplePlaysNothing",
     Plays("a", 48000, "length=0.00001") + Writes("o") + "a -> o",
     {{"a", 1000}},
     {{"o", {}}}},
};

class HandMadeTest : public testing::TestWithParam<HandMade> {
 protected:
  void Put(const std::string& name, const Samples& samples) const {
    testkit::Write(folder / (name + ".raw"), {reinterpret_cast<const char*>(samples.data()), 2 * samples.size()});
  }
  Samples Get(const std::string& name) const {
    const std::string bytes = testkit::Contents(folder / (name + ".raw"));
    Samples samples(bytes.size() / 2);
    if (!samples.empty()) std::memcpy(samples.data(), bytes.data(), 2 * samples.size());
    return samples;
  }

  const testkit::Folder folder;
};

TEST_P(HandMadeTest, GivesEverySampleOrSaysWhyNot) {
  const HandMade& made = GetParam();
  for (const auto& [name, samples] : made.plays) Put(name, Ramp(samples));
  testkit::Write(folder / "graph.dot", "digraph { channels=1 " + made.graph + " }\n");
  const testkit::Ended ended = testkit::RunIn(folder / "", {VORN_RUN, "-q", "graph.dot"});
  EXPECT_EQ(ended.status, made.status) << ended.err;
  EXPECT_EQ(ended.err.empty(), made.says.empty()) << ended.err;
  for (const std::string& part : made.says) EXPECT_NE(ended.err.find(part), std::string::npos) << ended.err;
  for (const auto& [name, count] : made.counts) EXPECT_EQ(Get(name).size(), static_cast<std::size_t>(count)) << name;
  for (const auto& [name, samples] : made.writes) {
    const Samples got = Get(name);
    EXPECT_EQ(got.size(), samples.size()) << name;
    const auto [here, there] = std::mismatch(got.begin(), got.end(), samples.begin(), samples.end());
    EXPECT_TRUE(here == got.end() || there == samples.end()) << name << " differs at sample " << here - got.begin();
  }
}

INSTANTIATE_TEST_SUITE_P(All, HandMadeTest, testing::ValuesIn(TABLE), [](const auto& made) { return made.param.name; });

}  // namespace
