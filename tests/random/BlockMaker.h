// Makes a graph from a seed: blocks within a route.
#pragma once

#include "SourceMaker.h"

namespace randomgraphs {

inline const Law SILENCE = [](const Node& node, const Signals& in) {
  return Signals{MakeOf(in, 0, node.channels, node.format, [](const auto&, long, std::size_t) { return 0; })};
};
inline const Law LATER = [](const Node& node, const Signals& in) {
  return Signals{MakeOf(in, node.amount, node.channels, node.format,
                        [&](const auto&, long k, std::size_t c) { return At(in[0], k - node.amount, c); })};
};

/** A channel of an input, or its inverse. */
struct Term {
  std::size_t input;
  std::size_t channel;
  bool inverted;
};
/** By output and channel: the terms that are added. */
using ChannelMap = std::vector<std::vector<std::vector<Term>>>;

inline std::string MapText(const ChannelMap& map) {
  std::string text;
  for (const auto& output : map) {
    text += text.empty() ? "" : "/";
    for (const auto& terms : output) {
      text += &terms == &output[0] ? "" : ",";
      for (const Term& term : terms) {
        text += term.inverted ? "-" : &term == &terms[0] ? "" : "+";
        text += std::to_string(term.input) + ':' + std::to_string(term.channel);
      }
      if (terms.empty()) text += '_';
    }
  }
  return text;
}

class BlockMaker : protected SourceMaker {
 protected:
  using SourceMaker::SourceMaker;

  End Change(const End& end) {
    static const std::vector<long> DELAYS = {0, 1, 479, 480, 1000, 5000, 24000};
    const std::size_t turn = dice.Below(100);
    if (turn < 10) return Append("gain", "0", end);
    if (turn < 13) return Append("gain", "-inf", end, SILENCE);
    if (turn < 18) return Append("level", "", end);
    if (turn < 38) return Delay(end, dice.Pick(DELAYS));
    if (turn < 58) return Reframe(end, NewFrame());
    if (turn < 66) return Reframe(end, BigFrame());
    if (turn < 76) return Convert(end, testkit::FORMATS[dice.Below(std::size(testkit::FORMATS))]);
    if (turn < 88) return Resample(end, dice.Pick(RATES));
    return Remap({end}, {1 + static_cast<unsigned>(dice.Below(2))})[0];
  }

  /** The stream stays as it is, and every frame leaves in the cycle in which it came. */
  End ChangeInStep(const End& end) {
    switch (dice.Below(4)) {
      case 0: return Append("gain", "0", end);
      case 1: return Append("level", "", end);
      case 2: return Delay(end, dice.Between(0, 2000));
      default: return end;
    }
  }

  End Delay(const End& end, long samples) {
    const End late = Append("delay", "samples=" + std::to_string(samples), end, LATER);
    graph.nodes.back().amount = samples;
    return late;
  }

  End Reframe(const End& end, Frame frame) {
    const std::string size = std::to_string(frame.samples);
    const bool bySize = dice.Chance(70);
    End framed = Append(bySize ? "reframe" : "rechunk", bySize ? size : "", end);
    graph.nodes.back().links = bySize ? "" : "frame=" + size;
    framed.frame = frame;
    return framed;
  }

  End Convert(End end, vorn::SampleFormat format) {
    end.format = format;
    return Append("convert", vorn::FormatName(format), end, LATER);
  }

  End Resample(End end, unsigned rate) {
    const unsigned from = end.rate;
    end.rate = rate;
    End resampled = Append("resample", std::to_string(rate), end, [=](const Node&, const Signals& in) {
      const long samples = (in[0].samples * rate + from / 2) / from;
      return Signals{from == rate ? in[0] : Signal{samples, in[0].channels}};  // only the count is known
    });
    if (dice.Chance(40)) {
      resampled.frame = NewFrame();
      graph.nodes.back().links = "frame=" + std::to_string(resampled.frame.samples);
    } else {
      resampled.frame = {(end.frame.samples * rate + from - 1) / from, true, false};
    }
    return resampled;
  }

  /** @param outputs the channels of each. */
  Ends Remap(const Ends& ins, const std::vector<unsigned>& outputs) {
    Node node{"remap"};
    for (const End& in : ins) node.in.push_back({in.node, in.port});
    ChannelMap map;
    for (const unsigned channels : outputs) {
      map.emplace_back(channels);
      for (auto& terms : map.back()) {
        const std::size_t count = dice.Chance(80) ? 1 : 2 * dice.Below(2);
        for (std::size_t i = 0; i < count; ++i) {
          const std::size_t input = dice.Below(ins.size());
          terms.push_back({input, dice.Below(ins[input].channels), dice.Chance(15)});
        }
      }
    }
    node.args = MapText(map);
    node.law = [map](const Node& remap, const Signals& in) {
      Signals outs;
      for (const auto& output : map) {
        const auto sum = [&](const auto&, long k, std::size_t c) {
          double all = 0;
          for (const Term& term : output[c]) all += (term.inverted ? -1 : 1) * At(in[term.input], k, term.channel);
          return all;
        };
        outs.push_back(MakeOf(in, 0, static_cast<unsigned>(output.size()), remap.format, sum));
      }
      return outs;
    };
    Ends all(outputs.size(), Add(std::move(node), ins[0]));
    for (std::size_t i = 0; i < all.size(); ++i) {
      all[i].port = i;
      all[i].channels = outputs[i];
    }
    return all;
  }

  /** The same stream as that of the model, with the blocks that it takes. */
  End Like(End end, const End& model, bool withChannels) {
    if (end.rate != model.rate) end = Resample(end, model.rate);
    if (end.format != model.format) end = Convert(end, model.format);
    if (withChannels && end.channels != model.channels) end = Remap({end}, {model.channels})[0];
    if (end.frame.samples != model.frame.samples) end = Reframe(end, model.frame);
    return end;
  }

  End Mix(const Ends& ins, bool mayMute = true) {
    Node node{"mix"};
    std::vector<bool> muted;
    for (const End& in : ins) {
      node.in.push_back({in.node, in.port});
      muted.push_back(dice.Chance(4) && mayMute);
      node.args += (node.args.empty() ? "" : " ") + std::string(muted.back() ? "-inf" : "0");
    }
    if ((dice.Chance(70) || !mayMute) && node.args.find("inf") == std::string::npos) node.args.clear();
    node.law = [muted](const Node& mix, const Signals& in) {
      return Signals{MakeOf(in, 0, mix.channels, mix.format, [&](const Levels& before, long k, std::size_t c) {
        double sum = mix.loop > 0 && k >= mix.loop ? before[CountOf(k - mix.loop, mix.channels) + c] : 0;
        for (std::size_t i = 0; i < in.size(); ++i) sum += muted[i] ? 0 : At(in[i], k, c);
        return sum;
      })};
    };
    return Add(std::move(node), ins[0]);
  }

  Ends Join(Ends ins) {
    const bool mixes = dice.Chance(75);
    for (std::size_t i = 1; i < ins.size(); ++i) ins[i] = Like(ins[i], ins[0], mixes);
    if (mixes) return {Mix(ins)};
    std::vector<unsigned> outputs(1 + dice.Below(2));
    for (unsigned& channels : outputs) channels = 1 + static_cast<unsigned>(dice.Below(2));
    return Remap(ins, outputs);
  }

  Ends Split(const End& end) { return Remap({end}, {1, 1 + static_cast<unsigned>(dice.Below(2))}); }

  /** Some blocks, after which the stream is like it was before, but later. */
  End Leg(End end, const End& model) {
    for (std::size_t i = dice.Below(3); i > 0; --i) end = Change(end);
    return Like(end, model, true);
  }

  /** Paths that part and meet again, not equally late. */
  End Diamond(const End& end) {
    Ends legs = Tee(end, 2 + dice.Below(2));
    for (std::size_t i = dice.Chance(60) ? 1 : 0; i < legs.size(); ++i) legs[i] = Leg(legs[i], end);
    return Mix(legs);
  }
};

}  // namespace randomgraphs
