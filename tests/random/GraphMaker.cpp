#include "GraphMaker.h"

#include <algorithm>
#include <string>

#include <vorn/Plugin.h>

#include "testkit/Samples.h"

namespace randomgraphs {
namespace {

constexpr std::size_t MOST_NODES = 45;
constexpr std::size_t MOST_ROUTES = 4;

const std::vector<unsigned> RATES = {8000, 16000, 44100, 48000};

vorn::SampleFormat AnyFormat(Dice& dice) {
  return dice.Chance(50) ? vorn::SampleFormat::S16_LE : testkit::FORMATS[dice.Below(std::size(testkit::FORMATS))];
}

}  // namespace

GraphMaker::GraphMaker(std::uint64_t seed, unsigned variant) : dice(seed), pace(seed * 1000003 + variant) {}

Graph GraphMaker::Make() {
  graph.frame = FrameSize(pace);
  baseRate = dice.Pick(RATES);
  baseFormat = AnyFormat(dice);
  islands.resize(dice.Chance(55) ? 1 : 1 + dice.Below(MOST_ROUTES));
  for (std::size_t i = 0; i < islands.size(); ++i) islands[i] = i;
  mayLoop = dice.Chance(45);
  ChooseEnding();
  AddSources();
  const std::size_t steps = dice.Below(graph.ending == Ending::BY_ITSELF ? 12 : 6);
  for (std::size_t i = 0; i < steps && graph.nodes.size() < MOST_NODES; ++i) Grow();
  Close();
  Shuffle();
  return graph;
}

void GraphMaker::ChooseEnding() {
  if (!dice.Chance(6)) return;
  graph.ending = dice.Chance(50) ? Ending::DURATION : Ending::SIGNAL;
  graph.endMicros = graph.ending == Ending::DURATION ? 1000 * dice.Between(2, 30) : dice.Between(0, 5000);
}

void GraphMaker::AddSources() {
  const std::size_t sources = 1 + dice.Below(3);
  for (std::size_t i = 0; i < sources; ++i) Keep(Source(0, NewFrame()));
  for (std::size_t route = 1; route < islands.size(); ++route) {
    if (dice.Chance(40)) Keep(Source(route, NewFrame()));
  }
}

void GraphMaker::Grow() {
  const std::size_t turn = dice.Below(100);
  if (turn < 28) return Keep(Change(TakeEnd()));
  if (turn < 38) return Keep(Tee(TakeEnd(), 2 + dice.Below(2)));
  if (turn < 56) return Keep(Join(TakeSome(4)));
  if (turn < 60) return Keep(Split(TakeEnd()));
  if (turn < 70) return Keep(Diamond(TakeEnd()));
  if (turn < 80) return CrossSomewhere();
  if (turn < 86) return JoinThroughFifos();
  if (turn < 90) return Keep(Source(dice.Below(islands.size()), NewFrame()));
  if (!mayLoop) return Keep(Change(TakeEnd()));
  if (turn < 95) return SendAndReturn();
  if (turn < 98) return FeedBack();
  Postpone();
}

/** Sinks for all ends; some share a null. */
void GraphMaker::Close() {
  while (!ends.empty()) {
    if (!dice.Chance(12)) {
      AddSink(TakeEnd());
      continue;
    }
    const Ends some = TakeSome(3);
    Node node{Work::NULL_SINK, "null"};
    for (const End& end : some) node.in.push_back({end.node, end.port});
    Add(node, some[0]);
  }
}

/** Blocks run in the order in which they are made, where nothing else says it. */
void GraphMaker::Shuffle() {
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) graph.order.push_back(i);
  for (std::size_t i = graph.order.size(); i > 1; --i) std::swap(graph.order[i - 1], graph.order[pace.Below(i)]);
}

long GraphMaker::FrameSize(Dice& from) {
  static const std::vector<long> USUAL = {80, 100, 160, 441, 480, 481, 512, 960, 1000};
  if (from.Chance(2)) return 1;
  return from.Chance(60) ? from.Pick(USUAL) : from.Between(7, MOST_FRAME);
}

GraphMaker::Frame GraphMaker::BigFrame() {
  static const std::vector<long> USUAL = {4800, 9000, 9600, 24000};
  return {pace.Chance(50) ? pace.Pick(USUAL) : pace.Between(2000, 30000), ++frames, false};
}

GraphMaker::End GraphMaker::Add(Node node, const End& end) {
  node.route = end.route;
  node.format = end.format;
  node.channels = end.channels;
  graph.nodes.push_back(std::move(node));
  End added = end;
  added.node = graph.nodes.size() - 1;
  added.port = 0;
  return added;
}

GraphMaker::End GraphMaker::Append(Work work, const char* block, const std::string& args, const End& end) {
  Node node{work, block, args};
  node.in = {{end.node, end.port}};
  return Add(std::move(node), end);
}

void GraphMaker::AddSink(const End& end) { Append(Work::FILE_SINK, "filesink", FileOf(graph.nodes.size()), end); }

GraphMaker::End GraphMaker::TakeEnd() {
  if (ends.empty()) return Source(0, NewFrame());
  const std::size_t at = dice.Below(ends.size());
  const End end = ends[at];
  ends.erase(ends.begin() + static_cast<std::ptrdiff_t>(at));
  return end;
}

GraphMaker::Ends GraphMaker::TakeSome(std::size_t most) {
  Ends some{TakeEnd()};
  const std::size_t wanted = 2 + dice.Below(most - 1);
  for (std::size_t i = ends.size(); i-- > 0 && some.size() < wanted;) {
    if (ends[i].route != some[0].route) continue;
    some.push_back(ends[i]);
    ends.erase(ends.begin() + static_cast<std::ptrdiff_t>(i));
  }
  return some;
}

// Sources

long GraphMaker::Length() {
  static const std::vector<long> ODD = {0, 1, 479, 480, 481, 44101};
  return dice.Chance(50) ? dice.Pick(ODD) : dice.Between(2, dice.Chance(50) ? 2000 : 60000);
}

GraphMaker::End GraphMaker::Source(std::size_t route, Frame frame) {
  End end;
  end.route = route;
  end.rate = dice.Chance(80) ? baseRate : dice.Pick(RATES);
  end.format = dice.Chance(75) ? baseFormat : AnyFormat(dice);
  end.channels = dice.Chance(70) ? 1 : 2;
  end.frame = frame.isFixed || dice.Chance(70) ? frame : Frame{graph.frame};
  const std::string frameText = end.frame.number != 0 ? " frame=" + std::to_string(end.frame.samples) : "";
  const long samples = Length();
  if (graph.ending == Ending::BY_ITSELF && dice.Chance(15)) return Noise(end, samples, frameText);
  return File(end, samples, frameText);
}

/** Where a run is stopped, how far a source came is seen in a file beside. */
GraphMaker::End GraphMaker::File(End end, long samples, const std::string& frameText) {
  const bool isStopped = graph.ending != Ending::BY_ITSELF;
  Node node{Work::FILE, "filesource"};
  node.endless = isStopped && (graph.nodes.empty() || dice.Chance(80));
  node.amount = node.endless ? 44101 : samples;
  node.args = FileOf(graph.nodes.size()) + " format=" + vorn::FormatName(end.format) +
              " rate=" + std::to_string(end.rate) + " channels=" + std::to_string(end.channels) + frameText +
              (node.endless ? " loop=true" : "");
  end = Add(std::move(node), end);
  if (!isStopped) return end;
  const Ends both = Tee(end, 2);
  graph.nodes[end.node].tap = graph.nodes.size();
  AddSink(both[1]);
  return both[0];
}

GraphMaker::End GraphMaker::Noise(const End& end, long samples, const std::string& frameText) {
  Node node{Work::NOISE, "tone"};
  node.amount = samples;
  node.seed = 1 + static_cast<unsigned>(dice.Below(2));
  node.args = "white samples=" + std::to_string(samples) + " seed=" + std::to_string(node.seed) +
              " format=" + vorn::FormatName(end.format) + " rate=" + std::to_string(end.rate) +
              " channels=" + std::to_string(end.channels) + frameText;
  return Add(std::move(node), end);
}

}  // namespace randomgraphs
