// What is worked out of a graph before anything is built, and what is refused.
#include <gtest/gtest.h>

#include <set>

#include "Cuts.h"
#include "FakePlugIns.h"
#include "GraphFile.h"
#include "OneLiner.h"
#include "PlanText.h"
#include "Resolver.h"
#include "Settings.h"
#include "testkit/Files.h"

namespace vorn::graph {
namespace {

/** What a block says that can only be asked once it is made. */
Result<std::vector<Stream>> Ask(std::size_t, const BlockPlan& block) {
  if (!block.args.empty()) return Error{{}, "asked in vain"};
  Stream stream;
  stream.channels = 6;
  return std::vector<Stream>{stream};
}

Result<GraphPlan> Plan(const Result<GraphDescription>& read, const std::vector<std::string>& settings = {}) {
  if (const auto* error = std::get_if<Error>(&read)) return *error;
  GraphDescription graph = std::get<0>(read);
  FakePlugIns plugIns;
  for (const std::string& setting : settings) {
    if (auto error = ApplySetting(graph, plugIns, setting, "--set")) return *error;
  }
  if (auto error = Cut(graph)) return *error;
  return Resolve(graph, plugIns, Ask);
}

Result<GraphPlan> PlanFile(const std::string& body) { return Plan(ReadGraphFile("digraph {" + body + "}", "f", {})); }

/** a:0>b:0 rate format channels frame, then the FIFOs, then what is first or last of its own will. */
std::string Show(const Result<GraphPlan>& result) {
  if (const auto* error = std::get_if<Error>(&result)) return error->ToString();
  const auto& plan = std::get<GraphPlan>(result);
  const auto& nodes = plan.graph.nodes;
  const auto show = [](const Stream& stream) {
    return std::to_string(stream.rate) + ' ' + FormatName(static_cast<SampleFormat>(stream.format)) + ' ' +
           std::to_string(stream.channels) + ' ' + std::to_string(stream.frame);
  };
  std::string text;
  for (const LinkPlan& link : plan.links) {
    text += nodes[link.from].name + ':' + std::to_string(link.out) + '>' + nodes[link.to].name + ':' +
            std::to_string(link.in) + ' ' + show(link.stream) + "; ";
  }
  for (const FifoPlan& fifo : plan.fifos) {
    text += nodes[fifo.writer].name + '>' + nodes[fifo.node].name + '>' + nodes[fifo.reader].name + ' ' +
            show(fifo.stream) + ' ' + std::to_string(fifo.capacity) + '/' + std::to_string(fifo.prefill) + "; ";
  }
  return text;
}

struct Case {
  const char* body;
  const char* shown;
};

const Case PLANS[] = {
    // Streams: the edge, then the block, then what came into it, then the defaults of route and program.
    {"s [block=source args=x] s -> any -> sink", "s:0>any:0 44100 S16_LE 1 441; any:0>sink:0 44100 S16_LE 1 441; "},
    {"rate=8000 format=BYTE s [block=source args=x] s -> any [frame=7] any -> sink [rate=16000 frame=9]",
     "s:0>any:0 44100 BYTE 1 7; any:0>sink:0 16000 BYTE 1 9; "},
    {"rate=50 any -> sink", "any:0>sink:0 50 S16_LE 2 1; "},
    {"any -> sink", "any:0>sink:0 48000 S16_LE 2 480; "},
    {"\"a$b\" [block=any] \"a$b\" -> sink", "a$b:0>sink:0 48000 S16_LE 2 480; "},
    {"s [block=source args=x] bare -> t; t [block=any] t -> bare2 bare2 [block=bare] s -> t:2",
     "bare:0>t:0 48000 S16_LE 6 480; t:0>bare2:0 48000 S16_LE 6 480; s:0>t:2 44100 S16_LE 1 441; "},
    // Ports: those that are said, and the lowest free ones, also under those said later.
    {"t [block=any] a [block=any] t -> {a sink} t:0 -> a:1 t -> a",
     "t:1>a:0 48000 S16_LE 2 480; t:2>sink:0 48000 S16_LE 2 480; t:0>a:1 48000 S16_LE 2 480; t:3>a:2 48000 S16_LE 2 "
     "480; "},
    // FIFOs pass on the stream, and are as large as their users need.
    {"subgraph cluster_RouteB { reader -> sink } subgraph cluster_RouteA { any -> writer [rate=8000 channels=1] } "
     "f [shape=ellipse] writer -> f -> reader",
     "reader:0>sink:0 8000 S16_LE 1 80; any:0>writer:0 8000 S16_LE 1 80; writer>f>reader 8000 S16_LE 1 80 800/0; "},
    {"subgraph cluster_RouteA { any -> writer [frame=500] } subgraph cluster_RouteB { reader -> sink [frame=1200] } "
     "f [shape=ellipse prefill=3] writer -> f -> reader [rate=48000]",
     "any:0>writer:0 48000 S16_LE 2 500; reader:0>sink:0 48000 S16_LE 2 1200; writer>f>reader 48000 S16_LE 2 1200 "
     "4803/3; "},
    // Cuts: the parts are routes of their own, on the streams that they would have had, and ports stay.
    {"subgraph cluster_RouteC { rate=8000 a [block=any] b [block=any] a -> b:1 [frame=7 cut=true] a -> b [cut=true] "
     "b -> gain } subgraph cluster_RouteA { cut1_x [block=any] cut1_x -> sink } gain -> cut1_x [cut=true]",
     "a:0>cut0_sink:0 8000 S16_LE 2 7; cut0_source:0>b:1 8000 S16_LE 2 7; a:1>cut2_sink:0 8000 S16_LE 2 80; "
     "cut2_source:0>b:0 8000 S16_LE 2 80; b:0>gain:0 8000 S16_LE 2 80; cut1_x:0>sink:0 8000 S16_LE 2 80; "
     "gain:0>cut3_sink:0 "
     "8000 S16_LE 2 80; cut3_source:0>cut1_x:0 8000 S16_LE 2 80; cut0_sink>cut0>cut0_source 8000 S16_LE 2 7 960/0; "
     "cut2_sink>cut2>cut2_source 8000 S16_LE 2 80 960/0; cut3_sink>cut3>cut3_source 8000 S16_LE 2 80 800/0; "},
    // A cycle that a FIFO with a prefill closes: the reader's stream is known first.
    {"reader -> writer f [shape=ellipse prefill=480] writer -> f -> reader [channels=1]",
     "reader:0>writer:0 48000 S16_LE 1 480; writer>f>reader 48000 S16_LE 1 480 5280/480; "},
};

const Case MISTAKES[] = {
    {"a [block=gian]", "f:1:19: no block 'gian'"},
    {"gain [gian=3]", "f:1:16: block 'gain' has no parameter 'gian'; gain has gain smooth"},
    {"any -> g g [block=gain gain=99] g -> sink",
     "f:1:38: block 'g': argument 'gain': got '99', takes a number from -120"},
    {"any -> g g [block=gain args=loud] g -> sink", "f:1:17: block 'g': argument 'gain': got 'loud'"},
    {"s [block=source args=missing] s -> sink", "f:1:10: block 's': missing: No such file"},
    {"s [block=source path=odd] s -> sink", "f:1:31: block 's': input 0: an odd line"},
    {"s [block=source args=late] s -> sink", "f:1:39: block 's', output 0 (to 'sink'): device 'x': too late"},
    {"s [block=source args=huge] s -> sink",
     "f:1:10: block 's', output 0: makes 44100 Hz mono, 9223372036854775807 samples a frame, which no link can have"},
    {"s [block=source] s -> sink", "f:1:10: block 's': argument 'path': missing"},
    {"bare [x=3]", "f:1:16: block 'bare': its plug-in does not say"},
    {"bare [args=x] bare -> sink", "asked in vain"},
    {"gain -> sink", "f:1:10: block 'gain' needs 1 input, but nothing leads to it"},
    {"any -> gain", "f:1:17: block 'gain' needs 1 output, but nothing takes from it"},
    {"any -> mix -> sink", "f:1:17: block 'mix' needs 2 inputs, but 1 is linked"},
    {"a [block=any] any -> mix:3 a -> mix:0 mix:0 -> sink", "f:1:31: block 'mix' needs input 1, but only others"},
    {"any [first=false] any -> sink", "f:1:10: block 'any': first=false, but no input is linked; leave 'first' out"},
    {"any -> gain -> sink gain [last=true]", "f:1:17: block 'gain': last=true, but it needs an output"},
    {"any -> sink -> any2 any2 [block=any]", "f:1:22: block 'sink' has no output 0; it has none"},
    {"any:3 -> gain:1 -> sink", "f:1:16: block 'gain' has no input 1; it has 1, number 0"},
    {"a [block=any] any:3 -> a; any:3 -> sink", "f:1:36: output 3 of 'any' has a link already"},
    // Mismatches: both ends, every field, what would mend it.
    {"s [block=source args=x] s -> sink [rate=48000 channels=2]",
     "f:1:36: block 's', output 0 (to 'sink'): got 48000 Hz stereo from the graph, makes 44100 Hz mono; put 'resample' "
     "and 'remap' "
     "after it"},
    {"a [block=any] b [block=any] a -> mix -> sink b -> mix [rate=8000 format=BYTE frame=480]",
     "f:1:57: block 'mix', input 1 (from 'b'): got 8000 Hz BYTE, takes 48000 Hz S16_LE as input 0; put 'resample', "
     "'convert' before"},
    {"any -> sink [channels=5]",
     "f:1:14: block 'sink', input 0 (from 'any'): got 5 channels, takes 1 to 2 channels; put 'remap'"},
    // Shapes of the graph.
    {"a [block=any] b [block=any] c [block=any] c -> sink a -> b; b -> a; b -> c",
     "f:1:72: a -> b -> a is a cycle; close it by a FIFO with a prefill"},
    {"any -> any", "f:1:14: any -> any is a cycle"},
    {"subgraph cluster_RouteA { a [block=any] } subgraph cluster_RouteB { b [block=any] } a -> b",
     "f:1:96: 'a' is in RouteA and 'b' in RouteB; join routes by a FIFO"},
    {"any -> sink t [block=any] any -> t:1 [cut=true] t -> any2 -> sink2 any2 [block=any] sink2 [block=sink] any -> t",
     "f:1:40: blocks 'any' and 't' are joined on another way too; cut that as well"},
    {"f [shape=ellipse] any -> f [cut=true]", "f:1:32: a FIFO joins threads as it is; leave 'cut' out"},
    // FIFOs.
    {"f [shape=ellipse] g [shape=ellipse] f -> g", "f:1:48: a FIFO leads to a block"},
    {"f [shape=ellipse] any -> writer -> f", "f:1:10: FIFO 'f' has no reader; expected 'writer -> f -> reader'"},
    {"f [shape=ellipse] any -> writer -> f -> gain",
     "f:1:47: block 'gain' reads from no FIFO; put a 'fifosource' behind 'f'"},
    {"f [shape=ellipse] any -> f", "f:1:32: block 'any' writes to no FIFO; put a 'fifosink' before 'f'"},
    {"f [shape=ellipse] any -> {w v} -> f w [block=writer] v [block=writer]", "f:1:41: FIFO 'f' has a second writer"},
    {"f [shape=ellipse] g [shape=ellipse] any -> writer -> {f g}",
     "f:1:60: block 'writer' writes to FIFO 'f' already; a block takes one"},
    {"f [shape=ellipse] any -> writer -> f:1", "f:1:42: FIFO 'f' is not joined by a port"},
    {"f [shape=ellipse] any -> writer -> f [frame=3]", "f:1:42: FIFO 'f' has no frames"},
    {"f [shape=ellipse] any -> writer writer -> f [rate=1] f -> reader [rate=2]",
     "f:1:65: FIFO 'f' is 2 Hz here and 1 Hz"},
    {"any -> writer", "f:1:17: block 'writer' has no FIFO; add 'f [shape=ellipse]' and an edge 'writer -> f'"},
    {"f [shape=ellipse] any -> writer -> f -> reader reader -> sink [rate=8000 frame=480]",
     "f:1:10: FIFO 'f': 'writer' writes 48000 Hz, 'reader' reads 8000 Hz; put 'resample' before 'writer'"},
    {"f [shape=ellipse capacity=959] any -> writer -> f -> reader -> sink",
     "f:1:10: FIFO 'f': a capacity of 959 samples is less than two frames: 'writer' writes 480, 'reader' reads 480; "
     "expected at "
     "least 960"},
};

TEST(Resolver, WorksOutPortsAndStreams) {
  for (const auto& [body, shown] : PLANS) EXPECT_EQ(Show(PlanFile(body)), shown) << body;
}

TEST(Resolver, SaysWhatDoesNotFitAndWhatWouldMendIt) {
  for (const auto& [body, begin] : MISTAKES) {
    EXPECT_TRUE(Show(PlanFile(body)).starts_with(begin)) << body << "\n" << Show(PlanFile(body));
  }
}

/** The arguments of every block, by name, in no order. */
std::map<std::string, std::multiset<std::string>> ArgsOf(const GraphPlan& plan) {
  std::map<std::string, std::multiset<std::string>> args;
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
    args[plan.graph.nodes[i].name] = {plan.blocks[i].args.begin(), plan.blocks[i].args.end()};
  }
  return args;
}

// Red if --dot leaves anything open, or writes what the reader does not read back.
TEST(PlanText, ReadsBackAsTheSameGraph) {
  std::vector<Result<GraphPlan>> plans;
  for (const Case& plan : PLANS) plans.push_back(PlanFile(plan.body));
  const char* const hard = R"(source 'my $file\"x' ! bare 'q=a"b\' "it's" '' node=$x ! any ! gain 3 ! sink)";
  plans.push_back(Plan(ReadOneLiner(hard, "-e"),
                       {"any_0.label=x", "any_0.p=\\", "any_0.q=\"", "any_0.r=\\\"$", "gain_0.smooth=yes"}));
  for (const auto& plan : plans) {
    ASSERT_TRUE(std::holds_alternative<GraphPlan>(plan)) << Show(plan);
    const std::string dot = DotOf(std::get<GraphPlan>(plan));
    const auto again = Plan(ReadGraphFile(dot, "f", {}));
    ASSERT_TRUE(std::holds_alternative<GraphPlan>(again)) << Show(again) << "\n" << dot;
    EXPECT_EQ(DotOf(std::get<GraphPlan>(again)), dot);
    EXPECT_EQ(ArgsOf(std::get<GraphPlan>(again)), ArgsOf(std::get<GraphPlan>(plan)));
  }
}

TEST(Settings, TakeThePlaceOfWhatTheGraphSays) {
  const struct {
    const char *pipeline, *setting, *args;
  } cases[] = {{"gain", "gain_0.gain=2", "gain=2 "},
               {"gain 1 yes", "gain_0.gain=2", "smooth=yes gain=2 "},
               {"gain smooth=no gain=1", "gain_0.smooth=yes", "gain=1 smooth=yes "},
               {"gain", "gain_0.gain", "--set gain_0.gain: expected node.parameter=value"},
               {"gain", "gain.gain=2",
                "--set gain.gain=2: expected node.parameter=value, where node is one of: any_0, gain_0, sink_0"},
               {"gain", "gain_0.x=2", "--set gain_0.x=2: block 'gain_0' has no parameter 'x'; gain has gain smooth"}};
  for (const auto& [pipeline, setting, args] : cases) {
    const auto plan = Plan(ReadOneLiner("any ! " + std::string(pipeline) + " ! sink", "-e"), {setting});
    const auto* error = std::get_if<Error>(&plan);
    std::string shown = error ? error->ToString() : "";
    for (std::size_t i = 0; !error && i < std::get<0>(plan).blocks[1].args.size(); ++i) {
      shown += std::get<0>(plan).blocks[1].args[i] + ' ';
    }
    EXPECT_EQ(shown, args);
  }
}

TEST(Resolver, CutsIntoNoMoreRoutesThanThereAre) {
  std::string chain = "node [block=any] edge [cut=true] n0";
  for (int i = 1; i <= 25; ++i) chain += " -> n" + std::to_string(i);
  EXPECT_TRUE(std::holds_alternative<GraphPlan>(PlanFile(chain)));
  EXPECT_TRUE(
      Show(PlanFile(chain + " -> n26")).ends_with("a graph has 26 routes, cuts included; this would be one more"));
}

TEST(Resolver, KeepsOthersAwayFromAFileThatIsWritten) {
  const testkit::Folder folder;
  std::filesystem::create_directory(folder / "sub");
  const std::string in = testkit::Write(folder / "in", "x"), other = folder / "other";
  std::filesystem::create_symlink(in, folder / "symbolic");
  std::filesystem::create_hard_link(in, folder / "hard");
  const auto shown = [&](const std::string& read, const std::string& a, const std::string& b) {
    const std::string text =
        Show(PlanFile("s [block=source path=\"" + read + "\"] t [block=any] a [block=sink path=\"" + a +
                      "\"] b [block=sink path=\"" + b + "\"] s -> t t -> a t -> b"));
    return text.substr(std::min(text.find("block"), text.size()));
  };
  EXPECT_EQ(shown(in, other, other + "2") + shown(in, "/dev/null", "/dev/null"), "");
  for (const char* name : {"in", "symbolic", "hard", "sub/../in"}) {
    const std::string path = folder / name, alias = path == in ? "" : " as '" + in + "'";
    EXPECT_TRUE(shown(in, path, other).starts_with("block 'a' writes '" + path + "', which block 's' reads" + alias));
  }
  EXPECT_TRUE(shown(in, other, folder / "sub/../other").starts_with("block 'b' writes"));
  EXPECT_TRUE(shown(in, "-", "-").starts_with("block 'b' writes standard output, which block 'a' writes"));
  EXPECT_NE(Show(PlanFile("a [block=sink path=x] s [block=source path=x] s -> a")).find("'s' reads 'x', which"),
            std::string::npos);
}

// Red if a stream behind a block of which nothing is known has the length of the one before it, or if first and last do
// not follow from the edges, unless they are said.
TEST(Resolver, KnowsLengthsAndEnds) {
  const auto plan = PlanFile("source [args=x] any [first=true] bare [last=true] source -> any -> bare -> sink");
  ASSERT_TRUE(std::holds_alternative<GraphPlan>(plan)) << Show(plan);
  const auto& [graph, routes, blocks, links, fifos] = std::get<GraphPlan>(plan);
  EXPECT_TRUE(links[0].stream.length == 1000 && links[2].stream.length == -1);
  std::string flags;
  for (const BlockPlan& block : blocks) flags += block.first ? "F" : block.last ? "L" : "-";
  EXPECT_EQ(flags, "FFLL");
}

}  // namespace
}  // namespace vorn::graph
