// Plug-ins for the resolver, described with the kit but made of nothing else.
#pragma once

#include <vorn/Plugin.h>

#include "PlugIns.h"

namespace vorn::graph {

/** Makes 44100 Hz mono of 1000 samples; the format is for others to choose. */
struct Source {
  static Description Describe() {
    return Description("source", "")
        .Outputs(1, 2, Port("out"))
        .Takes(Parameter::Text(0, "path").ReadsFile().Positional().Required());
  }
  static Refusal PlanStreams(const Parameters& parameters, const std::vector<Stream>&, std::vector<Stream>& out) {
    if (parameters.Text(0) == "missing") return "missing: No such file";
    if (parameters.Text(0) == "odd") return Refusal::Argument("path").Line("input 0: an odd line");
    if (parameters.Text(0) == "late") return Refusal::Output(0).Field("rate").Line("device 'x': too late");
    for (Stream& stream : out) {
      stream.rate = 44100;
      stream.channels = 1;
      stream.length = 1000;
      if (parameters.Text(0) == "huge") stream.frame = std::numeric_limits<long>::max();
    }
    return {};
  }
};
struct Any {
  static Description Describe() {
    return Description("any", "").Inputs(0, 32, Port("in")).Outputs(0, 32, Port("out")).OwnParameters();
  }
};
struct Gain {
  static Description Describe() {
    return Description("gain", "")
        .Input(Port("in"))
        .Output(Port("out"))
        .Same(SAME_STREAM)
        .Takes(Parameter::Number(0, "gain", "dB", -120, 60).Default(0.0).Positional())
        .Takes(Parameter::Flag(1, "smooth").Positional());
  }
};
struct Mix {
  static Description Describe() {
    return Description("mix", "").Inputs(2, 8, Port("in")).Output(Port("out")).Same(SAME_STREAM);
  }
};
struct Sink {
  static Description Describe() {
    return Description("sink", "")
        .Input(Port("in").Channels(1, 2))
        .Takes(Parameter::Text(0, "path").WritesFile().Positional());
  }
};
struct Reader {
  static Description Describe() {
    return Description("reader", "")
        .Output(Port("out"))
        .OptionalInput(Port("in"))
        .Takes(Parameter::Flag(0, "blocking").Default("true").Positional())
        .Takes(Parameter::Flag(1, "whole").Default("true"))
        .ReadsFifo();
  }
};
struct Writer {
  static Description Describe() {
    return Description("writer", "").Input(Port("in")).OptionalOutput(Port("out")).WritesFifo();
  }
};

class FakePlugIns final : public PlugIns {
 public:
  /** `bare` does not describe itself; what is not known here is an error, or `any`. */
  explicit FakePlugIns(bool hasAll = false) : othersAreAny(hasAll) {}

  Result<PlugIn> Find(const Word& name) override {
    static const std::map<std::string, const BlockInfo*> KNOWN = {
        {"source", DescribePluginBlock<Source>()},     {"any", DescribePluginBlock<Any>()},
        {"gain", DescribePluginBlock<Gain>()},         {"mix", DescribePluginBlock<Mix>()},
        {"sink", DescribePluginBlock<Sink>()},         {"reader", DescribePluginBlock<Reader>()},
        {"writer", DescribePluginBlock<Writer>()},     {"bare", nullptr},
        {"fifosource", DescribePluginBlock<Reader>()}, {"fifosink", DescribePluginBlock<Writer>()}};
    const auto found = KNOWN.find(name.text);
    if (found != KNOWN.end()) return PlugIn{SoFileName(name.text), found->second};
    const bool isWritable = name.text.find('\\') == name.text.npos;  // DOT cannot say all that ends in a backslash
    if (othersAreAny && isWritable) return PlugIn{SoFileName(name.text), DescribePluginBlock<Any>()};
    return Error{name.at, "no block '" + name.text + "'"};
  }

 private:
  const bool othersAreAny;
};

}  // namespace vorn::graph
