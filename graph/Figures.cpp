#include "Figures.h"

#include <algorithm>

namespace vorn::graph {
namespace {

/** The first link on one side of a block; null: none. */
const LinkPlan* LinkOf(const GraphPlan& plan, std::size_t node, std::size_t LinkPlan::*end) {
  const auto found = std::ranges::find(plan.links, node, end);
  return found == plan.links.end() ? nullptr : &*found;
}

void TakeFarther(Figures& figures, std::uint64_t samples, std::uint32_t rate) {
  const double seconds = static_cast<double>(samples) / rate;
  if (seconds <= figures.seconds) return;
  figures.samples = samples;
  figures.seconds = seconds;
}

void Add(Figures& figures, const BlockCounters& counters, const Stream& stream) {
  figures.areKnown = true;
  figures.frames = std::max(figures.frames, counters.frames.load(std::memory_order_relaxed));
  TakeFarther(figures, counters.samples.load(std::memory_order_relaxed), stream.rate);
}

void AddLength(std::optional<double>& longest, bool isFirst, const std::optional<double>& length) {
  if (isFirst) {
    longest = length;
  } else {
    longest = longest && length ? std::optional(std::max(*longest, *length)) : std::nullopt;
  }
}

std::optional<double> LengthOf(const Stream& stream) {
  if (stream.length < 0) return std::nullopt;
  return static_cast<double>(stream.length) / stream.rate;
}

}  // namespace

Figures FiguresOf(const GraphPlan& plan, const LiveGraph& live, std::size_t route) {
  Figures ofSources;
  Figures ofSinks;
  bool isFirstSource = true;
  std::uint64_t resets = 0;
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
    if (plan.graph.nodes[i].isFifo || plan.graph.nodes[i].route != route) continue;
    const LinkPlan* in = LinkOf(plan, i, &LinkPlan::to);
    const LinkPlan* out = LinkOf(plan, i, &LinkPlan::from);
    if (!in && out) {
      AddLength(ofSources.length, isFirstSource, LengthOf(out->stream));
      isFirstSource = false;
    }
    const BlockCounters* counters = live.Counters(i);
    if (!counters) continue;
    resets = std::max(resets, counters->resets.load(std::memory_order_relaxed));
    if (!in && out) Add(ofSources, *counters, out->stream);
    if (in && !out) Add(ofSinks, *counters, in->stream);
  }
  Figures figures = ofSources.areKnown ? ofSources : ofSinks;
  figures.length = ofSources.length;
  figures.errorFrames = resets;
  return figures;
}

Figures FiguresOf(const GraphPlan& plan, const LiveGraph& live) {
  Figures all;
  for (std::size_t i = 0; i < plan.graph.routes.size(); ++i) {
    const Figures one = FiguresOf(plan, live, i);
    AddLength(all.length, i == 0, one.length);
    all.areKnown = all.areKnown || one.areKnown;
    all.frames += one.frames;
    all.errorFrames += one.errorFrames;
    if (one.seconds > all.seconds) {
      all.samples = one.samples;
      all.seconds = one.seconds;
    }
  }
  return all;
}

}  // namespace vorn::graph
