// Makes a graph from a seed: where streams begin and end.
#pragma once

#include <vorn/Plugin.h>

#include "Dice.h"
#include "Graph.h"
#include "testkit/Samples.h"

namespace randomgraphs {

const std::vector<unsigned> RATES = {8000, 16000, 44100, 48000};

inline vorn::SampleFormat AnyFormat(Dice& dice) {
  return dice.Chance(50) ? vorn::SampleFormat::S16_LE : testkit::FORMATS[dice.Below(std::size(testkit::FORMATS))];
}

inline const Law SAME = [](const Node&, const Signals& in) { return Signals{in[0]}; };

class SourceMaker {
 protected:
  static constexpr long MOST_FRAME = 2048;

  struct Frame {
    long samples = 0;
    bool isSaid = false;  ///< else it is the default of the file
    bool isSmall = true;  ///< not above MOST_FRAME
  };
  /** An output that leads nowhere yet. */
  struct End {
    std::size_t node = 0;
    std::size_t port = 0;
    std::size_t route = 0;
    unsigned rate = 48000;
    vorn::SampleFormat format = vorn::SampleFormat::S16_LE;
    unsigned channels = 1;
    Frame frame = {};
  };
  using Ends = std::vector<End>;

  explicit SourceMaker(std::uint64_t seed) : dice(seed) {}

  long FrameSize() {
    static const std::vector<long> USUAL = {80, 100, 160, 441, 480, 481, 512, 960, 1000};
    if (dice.Chance(2)) return 1;
    return dice.Chance(60) ? dice.Pick(USUAL) : dice.Between(7, MOST_FRAME);
  }
  Frame NewFrame() { return {FrameSize(), true}; }
  Frame BigFrame() {
    static const std::vector<long> USUAL = {4800, 9000, 9600, 24000};
    return {dice.Chance(50) ? dice.Pick(USUAL) : dice.Between(2000, 30000), true, false};
  }

  /** @return its output 0, like `end` but for the block. */
  End Add(Node node, const End& end) {
    node.route = end.route;
    node.format = end.format;
    node.channels = end.channels;
    graph.nodes.push_back(std::move(node));
    End added = end;
    added.node = graph.nodes.size() - 1;
    added.port = 0;
    return added;
  }

  /** Behind `end`. */
  End Append(const char* block, const std::string& args, const End& end, const Law& law = SAME) {
    Node node{block, args, law};
    node.in = {{end.node, end.port}};
    return Add(std::move(node), end);
  }

  void AddSink(const End& end) { Append("filesink", FileOf(graph.nodes.size()), end); }

  End TakeEnd() {
    if (ends.empty()) return Source(0);
    const std::size_t at = dice.Below(ends.size());
    const End end = ends[at];
    ends.erase(ends.begin() + static_cast<std::ptrdiff_t>(at));
    return end;
  }

  /** Ends of one route. */
  Ends TakeSome(std::size_t most) {
    Ends some{TakeEnd()};
    const std::size_t wanted = 2 + dice.Below(most - 1);
    for (std::size_t i = ends.size(); i-- > 0 && some.size() < wanted;) {
      if (ends[i].route != some[0].route) continue;
      some.push_back(ends[i]);
      ends.erase(ends.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return some;
  }

  long Length() {
    static const std::vector<long> ODD = {0, 1, 479, 480, 481, 44101};
    return dice.Chance(50) ? dice.Pick(ODD) : dice.Between(2, dice.Chance(50) ? 2000 : 60000);
  }

  /** @param isTight the link says its frames. */
  End Source(std::size_t route, bool isTight = false) {
    End end;
    end.route = route;
    end.rate = dice.Chance(80) ? baseRate : dice.Pick(RATES);
    end.format = dice.Chance(75) ? baseFormat : AnyFormat(dice);
    end.channels = dice.Chance(70) ? 1 : 2;
    end.frame = isTight || dice.Chance(70) ? NewFrame() : Frame{graph.frame};
    const long samples = Length();
    return graph.ending == Ending::BY_ITSELF && dice.Chance(15) ? Tone(end, samples) : File(end, samples);
  }

  static std::string StreamWords(const End& end) {
    return " format=" + std::string(vorn::FormatName(end.format)) + " rate=" + std::to_string(end.rate) +
           " channels=" + std::to_string(end.channels) +
           (end.frame.isSaid ? " frame=" + std::to_string(end.frame.samples) : "");
  }

  /** Where a run is stopped, how far a source came is seen in a file beside. */
  End File(End end, long samples) {
    const bool isStopped = graph.ending != Ending::BY_ITSELF;
    const std::size_t index = graph.nodes.size();
    const bool isEndless = isStopped && (graph.nodes.empty() || dice.Chance(80));
    Node node{"filesource", FileOf(index) + StreamWords(end) + (isEndless ? " loop=true" : "")};
    node.amount = node.contents = isEndless ? 44101 : samples;
    node.law = [=](const Node& file, const Signals&) {
      const Signal round = FileContents(index, file.contents, file.channels, file.format);
      const long played = isEndless ? file.amount : std::min(file.amount, file.contents);
      return Signals{Make(played, file.channels, file.format,
                          [&](const auto&, long k, std::size_t c) { return At(round, k % file.contents, c); })};
    };
    end = Add(std::move(node), end);
    if (!isStopped) return end;
    const Ends both = Tee(end, 2);
    graph.nodes[end.node].tap = graph.nodes.size();
    AddSink(both[1]);
    return both[0];
  }

  End Tone(const End& end, long samples) {
    const long period = dice.Below(2) == 0 ? 4 : 20;  // divides all rates
    const auto square = [=](const auto&, long k, std::size_t) { return k % period < period / 2 ? 1 : -1; };
    Node node{"tone"};
    node.args =
        "square " + std::to_string(end.rate / period) + " 0 samples=" + std::to_string(samples) + StreamWords(end);
    node.law = [=](const Node& tone, const Signals&) {
      return Signals{Make(samples, tone.channels, tone.format, square)};
    };
    return Add(std::move(node), end);
  }

  Ends Tee(const End& end, std::size_t outputs) {
    Ends all(outputs, Append("tee", "", end, [=](const Node&, const Signals& in) { return Signals(outputs, in[0]); }));
    for (std::size_t i = 0; i < outputs; ++i) all[i].port = i;
    return all;
  }

  void Keep(const End& end) { ends.push_back(end); }
  void Keep(const Ends& more) { ends.insert(ends.end(), more.begin(), more.end()); }

  Dice dice;
  Graph graph;
  unsigned baseRate = 48000;
  vorn::SampleFormat baseFormat = vorn::SampleFormat::S16_LE;
  Ends ends;
};

}  // namespace randomgraphs
