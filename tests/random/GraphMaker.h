// Makes a graph from a seed.
#pragma once

#include "FifoMaker.h"

namespace randomgraphs {

/**
 * Every graph that it makes can run to its end: inputs of a join bring as many samples a second, and where a loop of
 * routes or FIFOs waits for itself there is prefill enough. Lengths, frame sizes, delays and FIFOs are otherwise as odd
 * as they come.
 */
class GraphMaker : FifoMaker {
 public:
  explicit GraphMaker(std::uint64_t seed) : FifoMaker(seed) {}

  Graph Make() {
    graph.frame = FrameSize();
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
    for (std::size_t i = dice.Chance(30) ? graph.nodes.size() : 0; i-- > 0;) CutOff(i);
    Shuffle();
    return graph;
  }

 private:
  static constexpr std::size_t MOST_NODES = 45;
  static constexpr std::size_t MOST_ROUTES = 4;

  void ChooseEnding() {
    if (!dice.Chance(6)) return;
    graph.ending = dice.Chance(50) ? Ending::DURATION : Ending::SIGNAL;
    graph.endMicros = graph.ending == Ending::DURATION ? 1000 * dice.Between(2, 30) : dice.Between(0, 5000);
  }

  void AddSources() {
    const std::size_t sources = 1 + dice.Below(3);
    for (std::size_t i = 0; i < sources; ++i) Keep(Source(0));
    for (std::size_t route = 1; route < islands.size(); ++route) {
      if (dice.Chance(40)) Keep(Source(route));
    }
  }

  void Grow() {
    const std::size_t turn = dice.Below(100);
    if (turn < 28) return Keep(Change(TakeEnd()));
    if (turn < 38) return Keep(Tee(TakeEnd(), 2 + dice.Below(2)));
    if (turn < 56) return Keep(Join(TakeSome(4)));
    if (turn < 60) return Keep(Split(TakeEnd()));
    if (turn < 70) return Keep(Diamond(TakeEnd()));
    if (turn < 80) return CrossSomewhere();
    if (turn < 86) return JoinThroughFifos();
    if (turn < 90) return Keep(Source(dice.Below(islands.size())));
    if (!mayLoop) return Keep(Change(TakeEnd()));
    if (turn < 95) return SendAndReturn();
    FeedBack();
  }

  /** Sinks for all ends; some share a null. */
  void Close() {
    while (!ends.empty()) {
      if (!dice.Chance(12)) {
        AddSink(TakeEnd());
        continue;
      }
      const Ends some = TakeSome(3);
      Node node{"null"};
      for (const End& end : some) node.in.push_back({end.node, end.port});
      node.law = [](const Node&, const Signals& in) {
        Signals all(1);
        for (const Signal& signal : in) all[0].samples += signal.samples;
        return all;
      };
      Add(node, some[0]);
    }
  }

  /**
   * Where no other way leads. Threads that are joined in several places may wait for each other, and streams that a
   * thread reads without joining them drift apart.
   */
  void CutOff(std::size_t node) {
    const auto& in = graph.nodes[node].in;
    if (in.size() != 1 || graph.nodes[node].block.empty() || graph.nodes[in[0].node].block.empty()) return;
    std::vector<bool> isReached(graph.nodes.size());
    isReached[node] = true;
    for (bool isNew = true; isNew;) {
      isNew = false;
      for (std::size_t i = 0; i < isReached.size(); ++i) {
        for (const Feed& feed : graph.nodes[i].in) {
          if (i == node || isReached[i] == isReached[feed.node]) continue;
          isReached[i] = isReached[feed.node] = isNew = true;
        }
      }
    }
    graph.nodes[node].isCutOff = !isReached[in[0].node] && dice.Chance(30);
  }

  /** Blocks run in the order in which they are made, where nothing else says it. */
  void Shuffle() {
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) graph.order.push_back(i);
    for (std::size_t i = graph.order.size(); i > 1; --i) std::swap(graph.order[i - 1], graph.order[dice.Below(i)]);
  }

  bool mayLoop = false;
};

}  // namespace randomgraphs
