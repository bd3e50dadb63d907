// Makes a graph from a seed: FIFOs, and the routes that they join.
#pragma once

#include "BlockMaker.h"

namespace randomgraphs {

class FifoMaker : protected BlockMaker {
 protected:
  using BlockMaker::BlockMaker;

  struct Crossing {
    std::size_t route = 0;  ///< that reads
    long prefill = 0;
    Frame frame = {};  ///< that is read
    long capacity = 0;
  };

  std::vector<std::size_t> RoutesApartFrom(std::size_t route) const {
    std::vector<std::size_t> apart;
    for (std::size_t i = 0; i < islands.size(); ++i) {
      if (islands[i] != islands[route]) apart.push_back(i);
    }
    return apart;
  }

  void Unite(std::size_t route, std::size_t other) {
    std::replace(islands.begin(), islands.end(), std::size_t{islands[other]}, std::size_t{islands[route]});
  }

  /** @return the FIFO that `end` fills. */
  End Send(const End& end, const Crossing& crossing) {
    const End sink = Append("fifosink", "", end);
    End fifo = Append("", "", sink, LATER);
    graph.nodes.back().amount = crossing.prefill;
    graph.nodes.back().capacity = crossing.capacity;
    fifo.route = crossing.route;
    return fifo;
  }

  End Cross(const End& end, const Crossing& crossing) {
    End read = Append("fifosource", "", Send(end, crossing));
    if (crossing.frame.samples != end.frame.samples) {
      graph.nodes.back().links = "frame=" + std::to_string(crossing.frame.samples);
    }
    read.frame = crossing.frame;
    return read;
  }

  Crossing NewCrossing(const End& end, std::size_t route) {
    static const std::vector<long> PREFILLS = {1, 480, 5000};
    return {route, dice.Chance(80) ? 0 : dice.Pick(PREFILLS), dice.Chance(70) ? NewFrame() : end.frame};
  }

  /** One FIFO on the way from island to island: the smallest one is enough. */
  void CrossSomewhere() {
    const End end = TakeEnd();
    const auto routes = RoutesApartFrom(end.route);
    if (routes.empty()) return Keep(Change(end));
    Crossing crossing = NewCrossing(end, dice.Pick(routes));
    if (dice.Chance(30)) {
      crossing.capacity =
          crossing.prefill + 2 * std::max(end.frame.samples, crossing.frame.samples) + dice.Between(0, 1000);
    }
    Unite(end.route, crossing.route);
    Keep(Cross(end, crossing));
  }

  /** Paths that part in one route and meet again in another, some of them by way of a third. */
  void JoinThroughFifos() {
    const End end = TakeEnd();
    auto routes = RoutesApartFrom(end.route);
    if (routes.empty()) return Keep(Diamond(end));
    const std::size_t to = dice.Pick(routes);
    Unite(end.route, to);
    routes = RoutesApartFrom(end.route);
    Ends legs = Tee(end, 2 + dice.Below(2));
    for (std::size_t i = 0; i < legs.size(); ++i) {
      End& leg = legs[i];
      if (dice.Chance(50)) leg = Leg(leg, end);
      if (i == 1 && !routes.empty() && dice.Chance(30)) {
        const std::size_t by = dice.Pick(routes);
        leg = Cross(leg, NewCrossing(leg, by));
        Unite(by, to);
        if (dice.Chance(50)) leg = Leg(leg, end);
      }
      leg = Cross(leg, NewCrossing(leg, to));
      if (dice.Chance(30)) leg = Leg(leg, end);
      if (i > 0) leg = Like(leg, legs[0], true);
    }
    Keep(Mix(legs));
  }

  /** A source in a route where nothing holds its samples up, so that the least prefill is enough. */
  End TightSource() { return Source(dice.Below(islands.size()), true); }

  /** Between the ways that a FIFO joins, nothing gathers more than MOST_FRAME; what does before holds both up alike. */
  long Prefill(bool isTight, const Frame& frame) {
    static const std::vector<long> MORE = {0, 1, 480};
    return isTight ? frame.samples + dice.Pick(MORE) : 16 * MOST_FRAME + dice.Between(0, 1000);
  }

  /** What a loop begins with. */
  End LoopSource(bool isTight) {
    const End end = isTight ? TightSource() : TakeEnd();
    return end.frame.isSmall ? end : Reframe(end, NewFrame());
  }

  /** Sends a stream to another route, by chance and where there is one that does not hang together with this one. */
  bool SendAway(End& sent, std::size_t percent, const Frame& frame) {
    const auto routes = RoutesApartFrom(sent.route);
    if (routes.empty() || !dice.Chance(percent)) return false;
    const std::size_t by = dice.Pick(routes);
    Unite(sent.route, by);
    sent = Cross(sent, {by, 0, frame});
    return true;
  }

  /** The stream goes to another route, or through a FIFO of its own, comes back later, and is added to itself. */
  void SendAndReturn() {
    const bool isTight = dice.Chance(50);
    const End end = LoopSource(isTight);
    Ends both = Tee(end, 2);
    End sent = ChangeInStep(both[1]);
    if (SendAway(sent, 70, isTight ? end.frame : NewFrame())) {
      if (!isTight && dice.Chance(30)) sent = Reframe(sent, NewFrame());
      if (dice.Chance(30)) {
        const Ends heard = Tee(sent, 2);
        AddSink(heard[0]);
        sent = heard[1];
      }
      sent = ChangeInStep(sent);
    }
    const End returned = Cross(sent, {end.route, Prefill(isTight, end.frame), end.frame});
    Keep(Mix({ChangeInStep(both[0]), ChangeInStep(returned)}));
  }

  /** A sum that comes back to itself, later. Such an echo has no end of its own. */
  void FeedBack() {
    const bool isTight = dice.Chance(50);
    const End end = LoopSource(isTight);
    Node reader{"fifosource"};
    reader.links = StreamWords(end);
    reader.law = [](const Node&, const Signals&) { return Signals{Signal()}; };  // the sum counts it
    const End looped = Add(std::move(reader), end);
    const End sum = Mix({end, looped}, false);

    const Ends both = Tee(sum, 2);
    const long delay = dice.Chance(50) ? 0 : dice.Between(1, 2000);
    End sent = delay > 0 ? Delay(both[1], delay) : both[1];
    SendAway(sent, 50, isTight ? end.frame : NewFrame());
    const long prefill = Prefill(isTight, end.frame);
    graph.nodes[looped.node].in = {{Send(sent, {end.route, prefill, end.frame}).node, 0}};
    graph.nodes[sum.node].loop = prefill + delay;
    Keep(both[0]);
  }

  // Routes that FIFOs join, directly or not, are one island: to join them once more could make them wait for each
  // other.
  std::vector<std::size_t> islands;  // by route
};

}  // namespace randomgraphs
