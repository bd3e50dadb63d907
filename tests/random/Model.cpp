#include "Model.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "testkit/Samples.h"

namespace randomgraphs {
namespace {

using Levels = std::vector<double>;

Signal Make(long samples, unsigned channels, Levels levels) {
  return {samples, channels, std::make_shared<const Levels>(std::move(levels))};
}

std::size_t CountOf(long samples, unsigned channels) { return static_cast<std::size_t>(samples) * channels; }

/** The values that a file of this format holds: small, so that sums of a few stay exact. */
std::uint64_t HighestOf(vorn::SampleFormat format) {
  switch (vorn::BytesPerSample(format)) {
    case 1: return 7;
    case 2: return 1000;
    case 3: return 200000;
    default: return testkit::IsFloat(format) ? 4096 : 1U << 26;
  }
}

/** Never silence, and another one at every place of every file. */
double LevelAt(std::size_t node, std::size_t place, vorn::SampleFormat format) {
  std::uint64_t mixed = (static_cast<std::uint64_t>(node) << 40) + place + 1;
  mixed = (mixed ^ mixed >> 31) * 0x9E3779B97F4A7C15U;
  mixed = (mixed ^ mixed >> 29) * 0xBF58476D1CE4E5B9U;
  const auto value = static_cast<double>(1 + (mixed ^ mixed >> 32) % HighestOf(format));
  return value / (testkit::IsFloat(format) ? 65536 : testkit::FullScale(format));
}

/** What is left of a level in a sample of this format. */
double Stored(vorn::SampleFormat format, double level) {
  const double scale = testkit::FullScale(format);
  return testkit::Nearest(format, level * scale) / scale;
}

Signal Later(const Signal& in, long zeros) {
  Signal late{in.samples + zeros, in.channels, nullptr};
  if (!in.levels) return late;
  Levels levels(CountOf(zeros, in.channels), 0);
  levels.insert(levels.end(), in.levels->begin(), in.levels->end());
  return Make(late.samples, in.channels, std::move(levels));
}

double At(const Signal& signal, long sample, std::size_t channel) {
  return sample < signal.samples ? (*signal.levels)[CountOf(sample, signal.channels) + channel] : 0;
}

class Evaluation {
 public:
  Evaluation(const Graph& newGraph, const std::map<std::size_t, long>& newLengths, const NoiseOf& newNoise)
      : graph(newGraph), lengths(newLengths), noise(newNoise), outputs(graph.nodes.size()) {}

  std::map<std::size_t, Signal> AtSinks() {
    std::map<std::size_t, Signal> sinks;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
      const Node& node = graph.nodes[i];
      if (node.work == Work::FILE_SINK) sinks[i] = In(node, 0);
      if (node.work == Work::NULL_SINK) sinks[i] = Counted(node);
      outputs[i] = OutputsOf(i);
    }
    return sinks;
  }

 private:
  const Signal& In(const Node& node, std::size_t input) const {
    const auto& from = outputs[node.in[input].node];
    return from.size() == 1 ? from[0] : from[node.in[input].port];  // all outputs of a tee are alike
  }

  std::vector<Signal> OutputsOf(std::size_t index) const {
    const Node& node = graph.nodes[index];
    switch (node.work) {
      case Work::FILE: return {Played(index)};
      case Work::NOISE: return {noise(node, LengthOf(index))};
      case Work::SAME: return {In(node, 0)};
      case Work::SILENCE: return {Silence(In(node, 0))};
      case Work::DELAY:
      case Work::FIFO: return {Later(In(node, 0), node.amount)};
      case Work::SUM: return {Sum(node)};
      case Work::REMAP: return Remapped(node);
      case Work::CONVERT: return {Converted(node)};
      case Work::RESAMPLE: return {Resampled(node)};
      default: return {};
    }
  }

  long LengthOf(std::size_t source) const {
    const auto known = lengths.find(source);
    return known == lengths.end() ? graph.nodes[source].amount : known->second;
  }

  Signal Played(std::size_t index) const {
    const Signal round = FileContents(graph, index);
    const long samples = graph.nodes[index].endless ? LengthOf(index) : std::min(LengthOf(index), round.samples);
    Levels levels;
    levels.reserve(CountOf(samples, round.channels));
    for (std::size_t left = CountOf(samples, round.channels); left > 0;) {
      const std::size_t part = std::min(left, round.levels->size());
      levels.insert(levels.end(), round.levels->begin(), round.levels->begin() + static_cast<std::ptrdiff_t>(part));
      left -= part;
    }
    return Make(samples, round.channels, std::move(levels));
  }

  static Signal Silence(const Signal& in) {
    return Make(in.samples, in.channels, Levels(CountOf(in.samples, in.channels), 0));
  }

  long Longest(const Node& node, std::size_t inputs) const {
    long longest = 0;
    for (std::size_t i = 0; i < inputs; ++i) longest = std::max(longest, In(node, i).samples);
    return longest;
  }

  /** Whether all samples are known that these inputs bring. */
  bool IsKnown(const Node& node, std::size_t inputs) const {
    for (std::size_t i = 0; i < inputs; ++i) {
      if (!In(node, i).levels) return false;
    }
    return true;
  }

  Signal Sum(const Node& node) const {
    const std::size_t inputs = node.in.size() - (node.loop > 0 ? 1 : 0);
    const long samples = Longest(node, inputs);
    if (!IsKnown(node, inputs)) return {samples, node.channels, nullptr};
    Levels levels(CountOf(samples, node.channels));
    const auto loop = CountOf(node.loop, node.channels);
    for (std::size_t k = 0; k < levels.size(); ++k) {
      double sum = loop > 0 && k >= loop ? levels[k - loop] : 0;
      for (std::size_t i = 0; i < inputs; ++i) {
        const Levels& added = *In(node, i).levels;
        if (!node.muted[i] && k < added.size()) sum += added[k];
      }
      levels[k] = Stored(node.format, sum);
    }
    return Make(samples, node.channels, std::move(levels));
  }

  std::vector<Signal> Remapped(const Node& node) const {
    const long samples = Longest(node, node.in.size());
    const bool isKnown = IsKnown(node, node.in.size());
    std::vector<Signal> outs;
    for (const auto& output : node.map) {
      outs.push_back({samples, static_cast<unsigned>(output.size()), nullptr});
      if (!isKnown) continue;
      Levels levels;
      for (long k = 0; k < samples; ++k) {
        for (const auto& terms : output) {
          double sum = 0;
          for (const Term& term : terms) {
            sum += (term.inverted ? -1 : 1) * At(In(node, term.input), k, term.channel);
          }
          levels.push_back(Stored(node.format, sum));
        }
      }
      outs.back() = Make(samples, outs.back().channels, std::move(levels));
    }
    return outs;
  }

  Signal Converted(const Node& node) const {
    const Signal& in = In(node, 0);
    if (!in.levels) return in;
    Levels levels = *in.levels;
    for (double& level : levels) level = Stored(node.format, level);
    return Make(in.samples, in.channels, std::move(levels));
  }

  Signal Resampled(const Node& node) const {
    const Signal& in = In(node, 0);
    const auto [from, to] = node.rates;
    if (from == to) return in;
    return {(in.samples * to + from / 2) / from, in.channels, nullptr};
  }

  Signal Counted(const Node& node) const {
    Signal sum;
    for (std::size_t i = 0; i < node.in.size(); ++i) sum.samples += In(node, i).samples;
    return sum;
  }

  const Graph& graph;
  const std::map<std::size_t, long>& lengths;
  const NoiseOf& noise;
  std::vector<std::vector<Signal>> outputs;  // by node
};

}  // namespace

Signal FileContents(const Graph& graph, std::size_t node) {
  const Node& file = graph.nodes[node];
  Levels levels(CountOf(file.amount, file.channels));
  for (std::size_t k = 0; k < levels.size(); ++k) levels[k] = LevelAt(node, k, file.format);
  return Make(file.amount, file.channels, std::move(levels));
}

std::map<std::size_t, Signal> ExpectedAtSinks(const Graph& graph, const std::map<std::size_t, long>& lengths,
                                              const NoiseOf& noise) {
  return Evaluation(graph, lengths, noise).AtSinks();
}

}  // namespace randomgraphs
