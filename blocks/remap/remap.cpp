// remap: makes the channels of its outputs from those of its inputs: picked, swapped, joined, split, or added up with
// gains. Samples that are only moved stay as they are, bit for bit.
#include <algorithm>
#include <array>
#include <cstring>

#include <vorn/Plugin.h>

#include "ChannelMap.h"

namespace {

/** One channel among the others of its frame. */
template <class Sample>
struct Lane {
  Sample* first;
  std::size_t step;
};

template <std::size_t BYTES>
void MoveSamples(Lane<const std::uint8_t> from, Lane<std::uint8_t> to, long samples) {
  for (long k = 0; k < samples; ++k, from.first += from.step, to.first += to.step) {
    std::memcpy(to.first, from.first, BYTES);
  }
}

void MoveSamples(std::size_t bytes, Lane<const std::uint8_t> from, Lane<std::uint8_t> to, long samples) {
  switch (bytes) {
    case 1: return MoveSamples<1>(from, to, samples);
    case 2: return MoveSamples<2>(from, to, samples);
    case 3: return MoveSamples<3>(from, to, samples);
    default: return MoveSamples<4>(from, to, samples);
  }
}

void AddSamples(Lane<const double> from, double factor, Lane<double> to, long samples) {
  for (long k = 0; k < samples; ++k, from.first += from.step, to.first += to.step) *to.first += factor * *from.first;
}

vorn::Refusal NotLinked(std::size_t input) {
  return vorn::Refusal::Input(input).Problem("is not linked, and the map takes channels of it");
}

/** What an endpoint takes, where that is not so many channels. */
std::string Taken(const ChannelMap& map, bool input, std::size_t index, std::uint32_t channels) {
  if (input) {
    const std::size_t needed = ChannelsNeeded(map, index);
    return channels >= needed ? "" : vorn::ChannelText(static_cast<std::uint32_t>(needed)) + " or more for this map";
  }
  if (index >= map.size()) return "no link, as the map ends with output " + std::to_string(map.size() - 1);
  const auto made = static_cast<std::uint32_t>(map[index].size());
  return channels == made ? "" : vorn::ChannelText(made) + " for this map";
}

vorn::Refusal CheckChannels(const ChannelMap& map, bool input, const std::vector<vorn::Stream>& streams) {
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (streams[i].linked == 0 || (input && streams[i].channels == 0)) continue;
    const std::string taken = Taken(map, input, i, streams[i].channels);
    if (taken.empty()) continue;
    const std::string came = streams[i].channels != 0 ? vorn::ChannelText(streams[i].channels) : "";
    return vorn::Refusal::Endpoint(input, i).Field("channels").Got(came).Takes(taken);
  }
  return {};
}

class Remap : public vorn::PluginBlock {
 public:
  enum : unsigned { MAP };

  explicit Remap(const vorn::Setup& setup) : PluginBlock(setup), map(ParseChannelMap(Text(MAP))) {}

  static vorn::Description Describe() {
    return vorn::Description("remap", "picks, swaps, joins, splits and mixes channels")
        .Inputs(1, vorn::Endpoint::COUNT, vorn::Port("in", "inputs may differ in their channels"))
        .Outputs(1, vorn::Endpoint::COUNT, vorn::Port("out", "as many channels as the map says"))
        .Same(vorn::SAME_RATE | vorn::SAME_FORMAT | vorn::SAME_FRAME)
        .Takes(vorn::Parameter::Text(MAP, "map")
                   .Positional()
                   .Required()
                   .Help("the channels that leave: 1,0 swaps; 0/1 splits; 0:0,1:0 joins inputs 0 and 1; 4..7 picks "
                         "four; 0*0.5+1*-6dB mixes; -0 inverts; _ is silence"))
        .Example("remap 1,0");
  }

  static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                                   std::vector<vorn::Stream>& out) {
    const ChannelMap map = ParseChannelMap(parameters.Text(MAP));
    vorn::Stream made;
    for (std::size_t i = 0; i < vorn::Endpoint::COUNT; ++i) {
      const bool isLinked = i < in.size() && in[i].linked != 0;
      if (isLinked) made.Complete(in[i]);
      if (!isLinked && ChannelsNeeded(map, i) > 0) return NotLinked(i);
    }
    made.length = vorn::LongestOf(in);
    for (std::size_t i = 0; i < std::min(out.size(), map.size()); ++i) {
      made.channels = static_cast<std::uint32_t>(map[i].size());
      out[i].Complete(made);
    }
    const vorn::Refusal refusal = CheckChannels(map, true, in);
    return refusal.empty() ? CheckChannels(map, false, out) : refusal;
  }

 protected:
  vorn::Refusal CheckStream(bool input, std::size_t index, const vorn::FrameBuffer& stream) const override {
    return vorn::Refusal(Taken(map, input, index, stream.channels)).Field("channels");
  }

  void OnSet(unsigned) override { map = ParseChannelMap(Text(MAP)); }

  int Prepare() override {
    std::size_t most = 0;
    for (const auto& [index, ep] : ActiveOutEps()) {
      most = std::max(most, static_cast<std::size_t>(Out(index).samplesPerFrame) * Out(index).channels);
    }
    sum.reserve(most);
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      if (!InEp(i).IsActive() && ChannelsNeeded(map, i) > 0) return Refuse(NotLinked(i));
      if (InEp(i).IsActive()) inputs[i].Prepare(In(i));
    }
    return 0;
  }

  long Process() override {
    decoded.fill(nullptr);
    for (const auto& [index, ep] : ActiveOutEps()) {
      Out(index).samples = In(ActiveInEps().begin()->first).samples;
      if (OnlyMoves(map[index])) {
        Move(map[index], Out(index));
      } else {
        Mix(map[index], Out(index));
      }
    }
    return vorn::FRAME_DONE;
  }

 private:
  void Move(const ChannelList& channels, vorn::FrameBuffer& out) {
    const std::size_t bytes = vorn::BytesPerSample(out.format);
    for (std::size_t c = 0; c < channels.size(); ++c) {
      MoveSamples(bytes, Source(channels[c], bytes), {out.data + c * bytes, channels.size() * bytes}, out.samples);
    }
  }

  Lane<const std::uint8_t> Source(const Channel& channel, std::size_t bytes) const {
    static constexpr std::uint8_t SILENCE[4] = {};
    if (channel.empty() || !InEp(channel[0].input).IsActive()) return {SILENCE, 0};
    const vorn::FrameBuffer& in = In(channel[0].input);
    return {in.data + channel[0].channel * bytes, in.channels * bytes};
  }

  void Mix(const ChannelList& channels, vorn::FrameBuffer& out) {
    const std::size_t count = static_cast<std::size_t>(out.samples) * channels.size();
    sum.assign(count, 0);
    for (std::size_t c = 0; c < channels.size(); ++c) {
      for (const Term& term : channels[c]) {
        if (!InEp(term.input).IsActive()) continue;
        AddSamples({Decoded(term.input) + term.channel, In(term.input).channels}, term.factor,
                   {sum.data() + c, channels.size()}, out.samples);
      }
    }
    vorn::Encode(out.format, sum.data(), out.data, count);
  }

  const double* Decoded(std::size_t input) {
    if (decoded[input] == nullptr) decoded[input] = inputs[input].Read(In(input));
    return decoded[input];
  }

  ChannelMap map;
  std::array<vorn::DoubleFrame, vorn::Endpoint::COUNT> inputs;
  std::array<const double*, vorn::Endpoint::COUNT> decoded;  // of the frame at hand
  std::vector<double> sum;
};

}  // namespace

VORN_PLUGIN(Remap)
