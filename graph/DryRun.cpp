#include "DryRun.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vorn::graph {
namespace {

constexpr int MOST_PASSES = 400;
constexpr std::size_t NO_LINK = ~std::size_t{0};
constexpr double ENDLESS = std::numeric_limits<double>::infinity();

/** At most how much can come before something else comes first. Limits only ever grow from pass to pass. */
struct Amount {
  double count = ENDLESS;
  Wait limit{};  // what else, where the count is not endless

  void LimitTo(double most, Wait by) {
    if (most < count) *this = {most, by};
  }
};

/** What went through a FIFO, in samples. */
struct Passed {
  Amount written{0};
  Amount taken{0};
};

/** A FIFO that one source fills, through blocks that give out as many samples as come in. */
struct Filled {
  std::size_t fifo;
  double held = 0;  // samples that the blocks may keep
};

struct Source {
  std::size_t node;
  std::size_t route;
  double frame;
  double length;  // in samples
  double steady;  // samples that it gives a frame a cycle: nobody behind it holds it back so long
  std::vector<Filled> fills = {};
  std::size_t join = 0;  // link into a block that lines it up with others, where that is all that it feeds
  double ahead = 0;      // of those others, at most; 0: there is no such block
};

class DryRun {
 public:
  DryRun(const GraphPlan& newPlan, const std::vector<std::size_t>& newOrder)
      : plan(newPlan),
        order(newOrder),
        steady(plan.blocks.size()),
        passed(plan.fifos.size()),
        frames(plan.blocks.size()),
        samples(plan.links.size()) {
    for (std::size_t i = order.size(); i-- > 0;) steady[order[i]] = SteadyBehind(order[i]);
    for (const std::size_t node : order) AddSource(node);
    for (std::size_t i = 0; i < plan.fifos.size(); ++i) AddFilled(i);
  }

  std::vector<Wait> Find() {
    for (int pass = 0; pass < MOST_PASSES; ++pass) {
      before = passed;
      RunSources();
      RunBlocks();
      for (const Source& source : sources) LineUp(source);
      RunBlocks();
      Write();
      if (std::ranges::equal(passed, before, AreEqual)) break;
    }
    for (std::size_t i = 0; i < passed.size(); ++i) {
      if (auto circle = CircleFrom({i, false}); !circle.empty()) return circle;
    }
    return {};
  }

 private:
  static bool AreEqual(const Passed& a, const Passed& b) {
    return a.written.count == b.written.count && a.taken.count == b.taken.count;
  }

  void AddSource(std::size_t node) {
    const BlockPlan& block = plan.blocks[node];
    if (!block.ins.empty() || block.outs.empty()) return;
    const LinkPlan& out = plan.links[block.outs.front()];
    const double length = out.stream.length < 0 ? ENDLESS : static_cast<double>(out.stream.length);
    sources.push_back({node, out.route, static_cast<double>(out.stream.frame), length, steady[node]});
    FindJoin(sources.back());
  }

  /** Blocks that join streams, or give out shorter frames than come in, hold back what is before them, once they got some. */
  double SteadyBehind(std::size_t node) const {
    double least = ENDLESS;
    for (const std::size_t out : plan.blocks[node].outs) {
      const LinkPlan& link = plan.links[out];
      const auto frame = static_cast<double>(link.stream.frame);
      least = std::min(least, MayHoldBack(link) ? frame : std::max(frame, steady[link.to]));
    }
    return least;
  }

  bool MayHoldBack(const LinkPlan& link) const {
    const BlockPlan& block = plan.blocks[link.to];
    return !block.plugIn.info || block.ins.size() > 1 || std::ranges::any_of(block.outs, [&](std::size_t out) {
      const Stream& stream = plan.links[out].stream;
      return stream.rate != link.stream.rate || stream.frame < link.stream.frame;
    });
  }

  /** A block that lines up streams has a source wait that is a frame ahead of the others. */
  void FindJoin(Source& source) const {
    double ahead = 2 * source.frame;
    for (std::size_t node = source.node; plan.blocks[node].outs.size() == 1;) {
      source.join = plan.blocks[node].outs.front();
      const LinkPlan& link = plan.links[source.join];
      const BlockPlan& next = plan.blocks[link.to];
      if (!next.plugIn.info || link.stream.rate != plan.links[plan.blocks[source.node].outs.front()].stream.rate)
        return;
      ahead += 2 * static_cast<double>(link.stream.frame);
      if (next.ins.size() > 1 && !next.outs.empty()) source.ahead = ahead;
      if (next.ins.size() > 1) return;
      node = link.to;
    }
  }

  void AddFilled(std::size_t fifo) {
    Filled filled{fifo};
    std::size_t node = plan.fifos[fifo].writer;
    if (!plan.blocks[node].waits) return;
    for (const Stream* behind = nullptr; !plan.blocks[node].ins.empty();) {
      if (!plan.blocks[node].plugIn.info || plan.blocks[node].ins.size() > 1) return;
      const LinkPlan& link = plan.links[plan.blocks[node].ins.front()];
      if (behind && behind->rate != link.stream.rate) return;
      if (behind && behind->frame != link.stream.frame) {
        filled.held += static_cast<double>(std::max(behind->frame, link.stream.frame));
      }
      behind = &link.stream;
      node = link.from;
    }
    const auto source = std::ranges::find(sources, node, &Source::node);
    if (source != sources.end()) source->fills.push_back(filled);
  }

  // A pass

  void RunSources() {
    std::vector<Amount> cycles(plan.routes.size());
    for (const Source& source : sources) {
      Amount& most = frames[source.node];
      most = MostFrames(source);
      if (most.count * source.frame < source.steady && !TakesAny(source.node))
        cycles[source.route].LimitTo(most.count, most.limit);
    }
    for (const Source& source : sources) {
      const Amount& most = cycles[source.route];
      Take(source, most);
      frames[source.node].LimitTo(most.count, most.limit);
      if (frames[source.node].count * source.frame >= source.length) frames[source.node] = {};
    }
  }

  Amount MostFrames(const Source& source) const {
    Amount most;
    if (const std::size_t fifo = plan.blocks[source.node].reads; plan.blocks[source.node].waits) {
      const double there = Filling(fifo) / source.frame;
      most.LimitTo(TakesAny(source.node) ? there : std::floor(there), {fifo, false});
    }
    for (const auto& [fifo, held] : source.fills) {
      const auto empty = static_cast<double>(plan.fifos[fifo].capacity - plan.fifos[fifo].prefill);
      const double room = empty + passed[fifo].taken.count + held;
      most.LimitTo(1 + std::floor(room / source.frame), {fifo, true});
    }
    return most.count * source.frame >= source.length ? Amount() : most;
  }

  /** With short frames, a cycle for each sample. Of a prefill alone it is a frame a cycle all the same. */
  bool TakesAny(std::size_t node) const {
    const BlockPlan& block = plan.blocks[node];
    return block.takesAny && passed[block.reads].written.count > 0;
  }

  /** Against what the others bring without being lined up: two that held each other back would creep. */
  void LineUp(const Source& source) {
    if (source.ahead == 0) return;
    const LinkPlan& link = plan.links[source.join];
    const Amount others = Arrived(plan.blocks[link.to], link.stream.rate, source.join);
    const double most = std::floor((others.count + source.ahead) / source.frame);
    frames[source.node].LimitTo(most, others.limit);
    const std::size_t fifo = plan.blocks[source.node].reads;
    if (fifo != BlockPlan::NO_FIFO) passed[fifo].taken.LimitTo(most * source.frame, others.limit);
  }

  /** Everything that ever was in it. */
  double Filling(std::size_t fifo) const {
    return static_cast<double>(plan.fifos[fifo].prefill) + passed[fifo].written.count;
  }

  /** A reader may be a frame ahead of others in its route that wait. */
  void Take(const Source& source, const Amount& cycles) {
    const std::size_t fifo = plan.blocks[source.node].reads;
    if (fifo == BlockPlan::NO_FIFO) return;
    const double ahead = plan.routes[source.route].reads.size() > 1 ? 1 : 0;
    Amount taken = frames[source.node];
    taken.LimitTo(cycles.count + ahead, cycles.limit);
    passed[fifo].taken = {taken.count * source.frame, taken.limit};
  }

  void RunBlocks() {
    for (const std::size_t node : order) {
      const BlockPlan& block = plan.blocks[node];
      for (const std::size_t out : block.outs) samples[out] = Given(block, node, plan.links[out].stream);
    }
  }

  void Write() {
    for (std::size_t i = 0; i < passed.size(); ++i) {
      passed[i].written = Arrived(plan.blocks[plan.fifos[i].writer], plan.fifos[i].stream.rate);
      const BlockPlan& reader = plan.blocks[plan.fifos[i].reader];
      if (!reader.plugIn.info || !reader.ins.empty()) passed[i].taken = {};
    }
  }

  /** Whole frames, of what all inputs brought. */
  Amount Given(const BlockPlan& block, std::size_t node, const Stream& out) const {
    const auto frame = static_cast<double>(out.frame);
    if (block.ins.empty()) return {frames[node].count * frame, frames[node].limit};
    Amount given = Arrived(block, out.rate);
    if (!block.plugIn.info && given.count > 0) return {};
    given.count = std::floor(given.count / frame) * frame;
    return given;
  }

  /** @param except a link that does not count. */
  Amount Arrived(const BlockPlan& block, double rate, std::size_t except = NO_LINK) const {
    Amount least;
    for (const std::size_t in : block.ins) {
      if (in == except) continue;
      least.LimitTo(std::ceil(samples[in].count * rate / plan.links[in].stream.rate), samples[in].limit);
    }
    return least;
  }

  // What it came to

  /** From limit to limit, until one comes again; nothing where one still moves. */
  std::vector<Wait> CircleFrom(Wait wait) const {
    std::vector<Wait> path;
    while (std::ranges::find(path, wait) == path.end()) {
      path.push_back(wait);
      const auto amount = wait.forRoom ? &Passed::taken : &Passed::written;
      const auto [count, limit] = passed[wait.fifo].*amount;
      if (count == ENDLESS || count != (before[wait.fifo].*amount).count) return {};
      wait = limit;
    }
    path.erase(path.begin(), std::ranges::find(path, wait));
    return path;
  }

  const GraphPlan& plan;
  const std::vector<std::size_t>& order;
  std::vector<double> steady;  // by node, as of a source
  std::vector<Source> sources;
  std::vector<Passed> passed;  // by FIFO
  std::vector<Passed> before;
  std::vector<Amount> frames;   // by node, of sources
  std::vector<Amount> samples;  // by link
};

}  // namespace

std::vector<Wait> FindDeadlock(const GraphPlan& plan, const std::vector<std::size_t>& order) {
  if (plan.fifos.empty()) return {};
  return DryRun(plan, order).Find();
}

}  // namespace vorn::graph
