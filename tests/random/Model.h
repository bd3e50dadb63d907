// What every sink of a graph must receive, worked out stream by stream without frames, cycles or threads.
#pragma once

#include <algorithm>
#include <memory>

#include "Graph.h"
#include "testkit/Samples.h"

namespace randomgraphs {

/** A whole stream. Full scale is -1 to 1, channels are interleaved. */
struct Signal {
  long samples = 0;
  unsigned channels = 1;
  std::shared_ptr<const std::vector<double>> levels;  ///< None where only the count is known.
};

using Levels = std::vector<double>;

inline std::size_t CountOf(long samples, unsigned channels) { return static_cast<std::size_t>(samples) * channels; }

/** The values that a file of this format holds: small, so that sums of a few stay exact. */
inline std::uint64_t HighestOf(vorn::SampleFormat format) {
  switch (vorn::BytesPerSample(format)) {
    case 1: return 7;
    case 2: return 1000;
    case 3: return 200000;
    default: return testkit::IsFloat(format) ? 4096 : 1U << 26;
  }
}

/** Never silence, and another one at every place of every file. */
inline double LevelAt(std::size_t node, std::size_t place, vorn::SampleFormat format) {
  std::uint64_t mixed = (static_cast<std::uint64_t>(node) << 40) + place + 1;
  mixed = (mixed ^ mixed >> 31) * 0x9E3779B97F4A7C15U;
  mixed = (mixed ^ mixed >> 29) * 0xBF58476D1CE4E5B9U;
  const auto value = static_cast<double>(1 + (mixed ^ mixed >> 32) % HighestOf(format));
  return value / (testkit::IsFloat(format) ? 65536 : testkit::FullScale(format));
}

/** What is left of a level in a sample of this format. */
inline double Stored(vorn::SampleFormat format, double level) {
  const double scale = testkit::FullScale(format);
  return testkit::Nearest(format, level * scale) / scale;
}

/** What `level` says, in the node's format, of the samples so far, a sample and a channel. */
template <class Level>
Signal Make(long samples, const Node& node, unsigned channels, const Level& level) {
  Levels levels;
  levels.reserve(CountOf(samples, channels));
  for (long k = 0; k < samples; ++k) {
    for (unsigned c = 0; c < channels; ++c) levels.push_back(Stored(node.format, level(levels, k, c)));
  }
  return {samples, channels, std::make_shared<const Levels>(std::move(levels))};
}

inline double At(const Signal& signal, long sample, std::size_t channel) {
  const bool isThere = sample >= 0 && sample < signal.samples;
  return isThere ? (*signal.levels)[CountOf(sample, signal.channels) + channel] : 0;
}

/** What a FILE holds, in one round. */
inline Signal FileContents(const Graph& graph, std::size_t node) {
  const Node& file = graph.nodes[node];
  return Make(file.amount, file, file.channels, [&](const auto&, long k, std::size_t c) {
    return LevelAt(node, CountOf(k, file.channels) + c, file.format);
  });
}

class Evaluation {
 public:
  Evaluation(const Graph& newGraph, const std::map<std::size_t, long>& newLengths)
      : graph(newGraph), lengths(newLengths) {}

  std::map<std::size_t, Signal> AtSinks() {
    std::map<std::size_t, Signal> sinks;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
      const Node& node = graph.nodes[i];
      if (node.work == Work::FILE_SINK) sinks[i] = In(node, 0);
      for (std::size_t k = 0; node.work == Work::NULL_SINK && k < node.in.size(); ++k) {
        sinks[i].samples += In(node, k).samples;
      }
      outputs.push_back(OutputsOf(i));
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
      case Work::TONE: return {Tone(index)};
      case Work::SAME: return {In(node, 0)};
      case Work::SILENCE: return {Fill(node, node.channels, 0, [](const auto&, long, std::size_t) { return 0; })};
      case Work::DELAY:
      case Work::FIFO: return {Later(node)};
      case Work::SUM: return {Sum(node)};
      case Work::REMAP: return Remapped(node);
      case Work::CONVERT: return {Later(node)};
      case Work::RESAMPLE: return {Resampled(node)};
      default: return {};
    }
  }

  long LengthOf(std::size_t source) const {
    const auto known = lengths.find(source);
    return known == lengths.end() ? graph.nodes[source].amount : known->second;
  }

  Signal Played(std::size_t index) const {
    const Node& node = graph.nodes[index];
    const Signal round = FileContents(graph, index);
    const long samples = node.endless ? LengthOf(index) : std::min(LengthOf(index), round.samples);
    return Make(samples, node, node.channels,
                [&](const auto&, long k, std::size_t c) { return At(round, k % round.samples, c); });
  }

  Signal Tone(std::size_t index) const {
    const Node& node = graph.nodes[index];
    return Make(LengthOf(index), node, node.channels,
                [&](const auto&, long k, std::size_t) { return k % node.period < node.period / 2 ? 1 : -1; });
  }

  /** As long as the longest input and `more`, of what `level` says of the output so far, a sample and a channel. */
  template <class Level>
  Signal Fill(const Node& node, unsigned channels, long more, const Level& level) const {
    long longest = 0;
    bool isKnown = true;
    for (std::size_t i = 0; i < node.in.size() - (node.loop > 0 ? 1 : 0); ++i) {
      longest = std::max(longest, In(node, i).samples);
      isKnown = isKnown && In(node, i).levels;
    }
    return isKnown ? Make(longest + more, node, channels, level) : Signal{longest + more, channels, nullptr};
  }

  Signal Later(const Node& node) const {
    return Fill(node, node.channels, node.amount,
                [&](const auto&, long k, std::size_t c) { return At(In(node, 0), k - node.amount, c); });
  }

  Signal Sum(const Node& node) const {
    return Fill(node, node.channels, 0, [&](const Levels& before, long k, std::size_t c) {
      double sum = node.loop > 0 && k >= node.loop ? before[CountOf(k - node.loop, node.channels) + c] : 0;
      for (std::size_t i = 0; i < node.in.size() - (node.loop > 0 ? 1 : 0); ++i) {
        if (!node.muted[i]) sum += At(In(node, i), k, c);
      }
      return sum;
    });
  }

  std::vector<Signal> Remapped(const Node& node) const {
    std::vector<Signal> outs;
    for (const auto& output : node.map) {
      const auto channels = static_cast<unsigned>(output.size());
      outs.push_back(Fill(node, channels, 0, [&](const auto&, long k, std::size_t c) {
        double sum = 0;
        for (const Term& term : output[c]) {
          sum += (term.inverted ? -1 : 1) * At(In(node, term.input), k, term.channel);
        }
        return sum;
      }));
    }
    return outs;
  }

  Signal Resampled(const Node& node) const {
    const Signal& in = In(node, 0);
    const auto [from, to] = node.rates;
    return from == to ? in : Signal{(in.samples * to + from / 2) / from, in.channels, nullptr};
  }

  const Graph& graph;
  const std::map<std::size_t, long>& lengths;
  std::vector<std::vector<Signal>> outputs;  // by node
};

/**
 * By sink.
 *
 * @param lengths of sources that were stopped before their end, by node.
 */
inline std::map<std::size_t, Signal> ExpectedAtSinks(const Graph& graph, const std::map<std::size_t, long>& lengths) {
  return Evaluation(graph, lengths).AtSinks();
}

}  // namespace randomgraphs
