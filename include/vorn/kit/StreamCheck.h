/** Part of <vorn/Plugin.h>: whether streams fit a block, and how to say that they do not. */
#ifndef VORN_KIT_STREAM_CHECK_H
#define VORN_KIT_STREAM_CHECK_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <vorn/kit/Description.h>
#include <vorn/kit/Refusal.h>
#include <vorn/kit/Streams.h>

namespace vorn {

/** Collects all that is wrong with one endpoint, so that one line names every field, and what would mend it. */
class Misfit {
 public:
  void Add(const char* field, const std::string& came, const std::string& wanted, const char* mender) {
    fields += (fields.empty() ? "" : " ") + std::string(field);
    got += (got.empty() ? "" : " ") + came;
    taken += (taken.empty() ? "" : " ") + wanted;
    menders += (menders.empty() ? "'" : ", '") + std::string(mender) + "'";
  }

  /** @param like the endpoint whose stream is wanted, or empty. @return all that was added, or empty. */
  Refusal Of(bool input, std::size_t index, const std::string& like) const {
    if (got.empty()) return {};
    return Refusal::Endpoint(input, index)
        .Field(fields)
        .Got(got)
        .Takes(taken + (like.empty() ? "" : " as " + like))
        .Advice("put " + menders + (input ? " before it" : " after it"));
  }

 private:
  std::string fields;
  std::string got;
  std::string taken;
  std::string menders;
};

inline std::string ChannelText(std::uint32_t channels) {
  return std::to_string(channels) + (channels == 1 ? " channel" : " channels");
}

inline std::string ChannelRange(const EndpointInfo& port) {
  if (port.minChannels == port.maxChannels) return ChannelText(port.minChannels);
  if (port.maxChannels == std::numeric_limits<std::uint32_t>::max()) return ChannelText(port.minChannels) + " or more";
  return std::to_string(port.minChannels) + " to " + ChannelText(port.maxChannels);
}

/** One endpoint by itself: does the block have it, and does it take this format and channel count? */
inline Refusal CheckEndpoint(const Description::Ports& ports, bool input, std::size_t index, const Stream& stream) {
  if (index >= ports.most) {
    const char* kind = input ? " input" : " output";
    return Refusal::Endpoint(input, index)
        .Problem("no such endpoint")
        .Takes(std::to_string(ports.most) + kind + (ports.most == 1 ? "" : "s"));
  }
  const EndpointInfo& port = ports.At(index);
  const auto format = static_cast<SampleFormat>(stream.format);
  Misfit misfit;
  if (stream.format >= 0 && (port.formats & FormatBit(format)) == 0) {
    misfit.Add("format", FormatName(format), FormatNames(port.formats), "convert");
  }
  if (stream.channels != 0 && (stream.channels < port.minChannels || stream.channels > port.maxChannels)) {
    misfit.Add("channels", ChannelText(stream.channels), ChannelRange(port), "remap");
  }
  return misfit.Of(input, index, "");
}

/** The fields that must be equal, of one stream against another. What is not known on either side fits. */
inline Refusal CheckSame(std::uint32_t same, bool input, std::size_t index, const Stream& stream, const Stream& model,
                         const std::string& modelLabel) {
  Misfit misfit;
  if ((same & SAME_RATE) != 0 && stream.rate != 0 && model.rate != 0 && stream.rate != model.rate) {
    misfit.Add("rate", std::to_string(stream.rate) + " Hz", std::to_string(model.rate) + " Hz", "resample");
  }
  if ((same & SAME_FORMAT) != 0 && stream.format >= 0 && model.format >= 0 && stream.format != model.format) {
    misfit.Add("format", FormatName(static_cast<SampleFormat>(stream.format)),
               FormatName(static_cast<SampleFormat>(model.format)), "convert");
  }
  if ((same & SAME_CHANNELS) != 0 && stream.channels != 0 && model.channels != 0 && stream.channels != model.channels) {
    misfit.Add("channels", ChannelText(stream.channels), ChannelText(model.channels), "remap");
  }
  if ((same & SAME_FRAME) != 0 && stream.frame != 0 && model.frame != 0 && stream.frame != model.frame) {
    misfit.Add("frame", std::to_string(stream.frame) + " samples a frame", std::to_string(model.frame), "reframe");
  }
  return misfit.Of(input, index, modelLabel);
}

/**
 * All streams of a block against its description: endpoints that exist and are linked, formats, channels, fields that
 * must be equal. @param in,out by index; entries with `linked` 0 are no links. @return the first misfit, or empty.
 */
inline Refusal CheckStreams(const Description& description, const std::vector<Stream>& in,
                            const std::vector<Stream>& out) {
  Stream model;
  std::string modelLabel;
  for (const bool input : {true, false}) {
    const Description::Ports& ports = input ? description.inputs : description.outputs;
    const std::vector<Stream>& streams = input ? in : out;
    std::uint32_t linked = 0;
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (streams[i].linked == 0) continue;
      ++linked;
      Refusal refusal = CheckEndpoint(ports, input, i, streams[i]);
      if (refusal.empty()) refusal = CheckSame(description.same, input, i, streams[i], model, modelLabel);
      if (!refusal.empty()) return refusal;
      if (modelLabel.empty()) modelLabel = Refusal::Endpoint(input, i).Label();
      model.Complete(streams[i]);
    }
    if (linked < ports.least) {
      const std::string got = std::to_string(linked) + (input ? " inputs" : " outputs") + " linked";
      const std::string takes = std::to_string(ports.least) + (ports.most > ports.least ? " or more" : "");
      return Refusal(got + ", takes " + takes).Got(got).Takes(takes);
    }
  }
  return {};
}

}  // namespace vorn

#endif
