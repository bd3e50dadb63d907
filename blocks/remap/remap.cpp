// remap: makes the channels of its outputs from those of its inputs: picked, swapped, joined, split, or added up with
// gains. Samples that are only moved stay as they are, bit for bit.
#include <algorithm>
#include <array>
#include <cstring>

#include <vorn/Plugin.h>

#include "ChannelMap.h"
#include "Shuffle.h"

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
    inputsNeeded = inputs.size();
    while (inputsNeeded > 0 && ChannelsNeeded(map, inputsNeeded - 1) == 0) --inputsNeeded;
    mixes = !std::all_of(map.begin(), map.end(), OnlyMoves);
    FindSources();
    for (const auto& [index, ep] : ActiveOutEps()) {
      shuffles[index] = OnlyMoves(map[index]) ? Shuffle(BytesOf(map[index], Out(index).format), sources) : Shuffle();
    }
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      if (!InEp(i).IsActive() && ChannelsNeeded(map, i) > 0) return Refuse(NotLinked(i));
      if (InEp(i).IsActive()) inputs[i].Prepare(In(i));
    }
    return 0;
  }

  long Process() override {
    if (mixes) decoded.fill(nullptr);
    FindSources();
    for (const auto& [index, ep] : ActiveOutEps()) {
      Out(index).samples = In(ActiveInEps().begin()->first).samples;
      if (OnlyMoves(map[index])) {
        Move(map[index], shuffles[index], Out(index));
      } else {
        Mix(map[index], Out(index));
      }
    }
    return vorn::FRAME_DONE;
  }

 private:
  void FindSources() {
    for (std::size_t i = 0; i < inputsNeeded; ++i) {
      sources[i] = {};
      if (InEp(i).IsActive()) sources[i] = {In(i).data, In(i).channels * vorn::BytesPerSample(In(i).format)};
    }
  }

  static std::vector<Shuffle::Place> BytesOf(const ChannelList& channels, vorn::SampleFormat format) {
    const std::size_t bytes = vorn::BytesPerSample(format);
    std::vector<Shuffle::Place> places;
    for (const Channel& channel : channels) {
      for (std::size_t b = 0; b < bytes; ++b) {
        places.push_back({channel.empty() ? Shuffle::SILENCE : channel[0].input,
                          channel.empty() ? 0 : channel[0].channel * bytes + b});
      }
    }
    return places;
  }

  // The shuffle leaves what fills no period of it, or all.
  void Move(const ChannelList& channels, const Shuffle& shuffle, vorn::FrameBuffer& out) {
    const std::size_t bytes = vorn::BytesPerSample(out.format);
    const std::size_t step = channels.size() * bytes;
    const long done = shuffle.Move(sources, out.data, out.samples);
    if (done == out.samples) return;
    for (std::size_t c = 0; c < channels.size(); ++c) {
      Lane<const std::uint8_t> from = FirstOf(channels[c], bytes);
      from.first += static_cast<std::size_t>(done) * from.step;
      MoveSamples(bytes, from, {out.data + static_cast<std::size_t>(done) * step + c * bytes, step},
                  out.samples - done);
    }
  }

  Lane<const std::uint8_t> FirstOf(const Channel& channel, std::size_t bytes) const {
    static constexpr std::uint8_t SILENCE[4] = {};
    if (channel.empty() || sources[channel[0].input].step == 0) return {SILENCE, 0};
    const Shuffle::Source& source = sources[channel[0].input];
    return {source.data + channel[0].channel * bytes, source.step};
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
  bool mixes = false;
  std::size_t inputsNeeded = 0;
  Shuffle::Sources sources;  // of the frame at hand
  std::array<Shuffle, vorn::Endpoint::COUNT> shuffles;
  std::array<vorn::DoubleFrame, vorn::Endpoint::COUNT> inputs;
  std::array<const double*, vorn::Endpoint::COUNT> decoded;  // of the frame at hand
  std::vector<double> sum;
};

}  // namespace

VORN_PLUGIN(Remap)
