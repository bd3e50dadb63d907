/**
 * Part of <vorn/Plugin.h>: what a plug-in says of itself.
 *
 * The first half is the plain-C layout that a host reads through the symbol `DescribeBlock`, without creating a block.
 * The second half is what an author writes:
 *
 *     return vorn::Description("gain", "makes a stream louder or quieter")
 *         .Input(vorn::Port("in"))
 *         .Output(vorn::Port("out"))
 *         .Same(vorn::SAME_STREAM)
 *         .Takes(vorn::Parameter::Number(GAIN, "gain", "dB", -120, 60).Default(0).Positional().Live().Help("how much"))
 *         .Example("gain -6");
 */
#ifndef VORN_KIT_DESCRIPTION_H
#define VORN_KIT_DESCRIPTION_H

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <vorn/Block.h>
#include <vorn/kit/Refusal.h>
#include <vorn/kit/RouteBoard.h>
#include <vorn/kit/Streams.h>

namespace vorn {

/** What a host says of a plug-in, behind its name, where BlockInfo::kitVersion is not its own. */
inline std::string OtherKit(std::uint32_t itsVersion) {
  return "was built with version " + std::to_string(itsVersion) + " of the plug-in kit, this is version " +
         std::to_string(KIT_VERSION) + "; build it again";
}

enum class ParameterType : std::uint32_t {
  NUMBER = 0,   ///< a double
  INTEGER = 1,  ///< a whole number
  FLAG = 2,     ///< true or false
  WORD = 3,     ///< one of a few words
  TEXT = 4,     ///< any text
};

enum ParameterFlags : std::uint32_t {
  PARAMETER_REQUIRED = 1,      ///< must be given as an argument
  PARAMETER_LIVE = 2,          ///< may be set while the route runs; others while it is stopped, for the next start
  PARAMETER_READING = 4,       ///< a measurement: can be read, never set, and is no argument
  PARAMETER_READS_FILE = 8,    ///< the path of a file that the block reads
  PARAMETER_WRITES_FILE = 16,  ///< the path of a file that the block writes
};

/** One parameter, which is an argument as well unless it is a reading. Texts are never null; "" is none. */
struct ParameterInfo {
  std::uint32_t id;  ///< For SetParameter and GetParameter.
  ParameterType type;
  std::uint32_t flags;    ///< ParameterFlags.
  std::int32_t position;  ///< Place among the arguments given without a name, from 0; -1: by name only.
  double minimum;         ///< Of a number or integer; infinite where there is no limit.
  double maximum;
  const char* name;
  const char* unit;
  const char* words;         ///< Of a WORD: the words, separated by blanks.
  const char* defaultValue;  ///< As one would write it.
  const char* help;          ///< One line.
};

/** One endpoint, or several that are alike. */
struct EndpointInfo {
  const char* name;
  const char* help;
  FormatSet formats;          ///< The formats it takes or gives.
  std::uint32_t minChannels;  ///< 1 or more.
  std::uint32_t maxChannels;  ///< UINT32_MAX: any number.
};

/** Fields that a block wants equal on all endpoints that are linked. */
enum SameFields : std::uint32_t {
  SAME_NOTHING = 0,
  SAME_RATE = 1,
  SAME_FORMAT = 2,
  SAME_CHANNELS = 4,
  SAME_FRAME = 8,
  SAME_STREAM = 15,
};

enum BlockFlags : std::uint32_t {
  BLOCK_READS_FIFO = 1,      ///< takes its samples from a FIFO: see AttachProducer
  BLOCK_WRITES_FIFO = 2,     ///< puts its samples into a FIFO: see AttachConsumer
  BLOCK_OWN_PARAMETERS = 4,  ///< has more parameters once it is created: ask the block for its table
  BLOCK_SETS_PACE = 8,       ///< waits for a device or its like: see PluginBlock::IsPaced
};

/** Why planStreams refuses. Texts end with a 0, and are cut where they are too long. */
struct PlanRefusal {
  About kind;
  std::uint32_t index;  ///< Of the endpoint.
  char name[64];        ///< Of the argument.
  char text[1000];      ///< The whole line: see Refusal::Text.
};

/** Everything a plug-in says of its block. Valid while the plug-in is loaded. */
struct BlockInfo {
  std::uint32_t kitVersion;  ///< Compare with KIT_VERSION before reading on.
  std::uint32_t flags;       ///< BlockFlags.
  const char* name;
  const char* summary;   ///< What it does, in one line.
  const char* example;   ///< How one would write it in a one-line pipeline.
  const char* perFrame;  ///< What else than arithmetic a frame costs once the route runs; empty: nothing.
  std::uint32_t same;    ///< SameFields.
  std::uint32_t minInputs, maxInputs;
  std::uint32_t minOutputs, maxOutputs;
  std::uint32_t inputCount,
      outputCount;  ///< Lengths of the next two; where shorter than the maximum, the last repeats.
  const EndpointInfo* inputs;
  const EndpointInfo* outputs;
  std::uint32_t parameterCount;
  const ParameterInfo* parameters;

  /**
   * Works out the streams that leave a block, before there is one.
   *
   * @param arguments as CreateBlock would get them.
   * @param in the streams that come in, by input index. @param out by output index: what is asked for comes in (what
   * the graph says of the link; `linked` 0 for an output that is not used) and is completed with what the block makes
   * of it. A field that stays unknown is for the host to choose.
   * @param refusal says where the answer is negative what does not fit, and which block would mend it. May be null.
   * @return 0, or negative.
   */
  int (*planStreams)(const char* const* arguments, std::size_t argumentCount, const Stream* in, std::size_t inCount,
                     Stream* out, std::size_t outCount, PlanRefusal* refusal);
};

/** The exported symbol "DescribeBlock". */
using DescribeBlockFunction = const BlockInfo* (*)();

/** What a host says of a plug-in, behind its name, whose table cannot be read on; empty: all texts and lists are there. */
inline std::string FaultOf(const BlockInfo& info) {
  const std::string fault = "describes itself wrongly: ";
  if (!info.name || !info.summary || !info.example) return fault + "no name, summary or example";
  if (!info.perFrame) return fault + "no text of what a frame costs";
  if ((info.inputCount > 0 && !info.inputs) || (info.outputCount > 0 && !info.outputs)) return fault + "no endpoints";
  for (const auto& [list, count] : {std::pair{info.inputs, info.inputCount}, {info.outputs, info.outputCount}}) {
    for (std::uint32_t i = 0; i < count; ++i) {
      if (!list[i].name || !list[i].help) return fault + "endpoint " + std::to_string(i) + " has no name or help";
    }
  }
  if (info.parameterCount > 0 && !info.parameters) return fault + "no parameters";
  for (std::uint32_t i = 0; i < info.parameterCount; ++i) {
    const ParameterInfo& p = info.parameters[i];
    const bool isWhole = p.name && p.unit && p.words && p.defaultValue && p.help;
    if (!isWhole) return fault + "parameter " + std::to_string(i) + " has a text that is null, not \"\"";
  }
  return {};
}

/** A number as one would write it: the shortest text that reads back as the same; whole ones without an exponent. */
inline std::string NumberText(double value) {
  char text[32];
  const bool isWhole = std::fabs(value) < 1e15 && value == std::trunc(value);
  const auto form = isWhole ? std::chars_format::fixed : std::chars_format::general;
  return {text, std::to_chars(text, text + sizeof text, value, form).ptr};
}

/** One parameter, for Description::Takes. The id is unique in the block, below RESERVED_PARAMETERS. */
class Parameter {
 public:
  static Parameter Number(unsigned id, const char* name, const char* unit, double minimum, double maximum) {
    return {id, ParameterType::NUMBER, name, unit, minimum, maximum};
  }
  static Parameter Integer(unsigned id, const char* name, const char* unit, double minimum, double maximum) {
    return {id, ParameterType::INTEGER, name, unit, minimum, maximum};
  }
  /** `true` or `false`; also yes, no, on, off, 1, 0. False unless Default says otherwise. */
  static Parameter Flag(unsigned id, const char* name) {
    return Parameter(id, ParameterType::FLAG, name, "", 0, 1).Default("false");
  }
  /** One of `choices`, which are separated by blanks. The first one unless Default says otherwise. */
  static Parameter Word(unsigned id, const char* name, std::string choices) {
    Parameter made(id, ParameterType::WORD, name, "", 0, 0);
    made.defaultValue = choices.substr(0, choices.find(' '));
    made.words = std::move(choices);
    return made;
  }
  static Parameter Text(unsigned id, const char* name) { return {id, ParameterType::TEXT, name, "", 0, 0}; }
  /** A number that the block measures. */
  static Parameter Reading(unsigned id, const char* name, const char* unit) {
    Parameter made(id, ParameterType::NUMBER, name, unit, -std::numeric_limits<double>::infinity(),
                   std::numeric_limits<double>::infinity());
    made.flags = PARAMETER_READING;
    return made;
  }

  template <class N, std::enable_if_t<std::is_arithmetic_v<N>, int> = 0>
  Parameter&& Default(N value) && {
    if constexpr (std::is_same_v<N, bool>) return std::move(*this).Default(value ? "true" : "false");
    return std::move(*this).Default(NumberText(static_cast<double>(value)));
  }
  Parameter&& Default(std::string text) && { return defaultValue = std::move(text), std::move(*this); }
  Parameter&& Default(const char* text) && { return std::move(*this).Default(std::string(text)); }
  Parameter&& Help(const char* line) && { return help = line, std::move(*this); }
  /** May be given without its name; the order of such parameters in the table is the order of the arguments. */
  Parameter&& Positional() && { return positional = true, std::move(*this); }
  Parameter&& Required() && { return flags |= PARAMETER_REQUIRED, std::move(*this); }
  /** A text that is the path of a file; "-" is standard input or output. Hosts keep others away from what is written. */
  Parameter&& ReadsFile() && { return flags |= PARAMETER_READS_FILE, std::move(*this); }
  Parameter&& WritesFile() && { return flags |= PARAMETER_WRITES_FILE, std::move(*this); }
  Parameter&& Live() && { return flags |= PARAMETER_LIVE, std::move(*this); }

  bool IsReading() const { return (flags & PARAMETER_READING) != 0; }
  bool IsLive() const { return (flags & PARAMETER_LIVE) != 0; }
  bool IsRequired() const { return (flags & PARAMETER_REQUIRED) != 0; }

  unsigned id;
  ParameterType type;
  std::uint32_t flags = 0;
  bool positional = false;
  double minimum;
  double maximum;
  std::string name;
  std::string unit;
  std::string words;
  std::string defaultValue;
  std::string help;

 private:
  Parameter(unsigned parameterId, ParameterType parameterType, const char* parameterName, const char* itsUnit,
            double least, double most)
      : id(parameterId), type(parameterType), minimum(least), maximum(most), name(parameterName), unit(itsUnit) {}
};

/** One endpoint, for Description::Input and its like. Takes every format and any channel count unless told. */
struct Port {
  explicit Port(const char* portName, const char* line = "") : name(portName), help(line) {}
  Port& Takes(FormatSet set) { return formats = set, *this; }
  Port& Channels(std::uint32_t least, std::uint32_t most) { return minChannels = least, maxChannels = most, *this; }

  const char* name;
  const char* help;
  FormatSet formats = ALL_FORMATS;
  std::uint32_t minChannels = 1;
  std::uint32_t maxChannels = std::numeric_limits<std::uint32_t>::max();
};

/** What an author says of a block: returned by the static function Describe() of its class. */
class Description {
 public:
  /** Endpoints of one kind: how many may be linked, and what each is. */
  struct Ports {
    std::uint32_t least = 0;
    std::uint32_t most = 0;
    std::vector<EndpointInfo> each;

    void Add(std::uint32_t atLeast, std::uint32_t atMost, const Port& port) {
      least += atLeast;
      most += atMost;
      each.push_back({port.name, port.help, port.formats, port.minChannels, port.maxChannels});
    }
    const EndpointInfo& At(std::size_t index) const { return each[index < each.size() ? index : each.size() - 1]; }
  };

  Description(const char* blockName, const char* line) : name(blockName), summary(line) {}

  /** One more input, which must be linked. */
  Description& Input(const Port& port) { return inputs.Add(1, 1, port), *this; }
  /** One more input, which may be left unlinked. */
  Description& OptionalInput(const Port& port) { return inputs.Add(0, 1, port), *this; }
  /** Several inputs that are alike. Comes last among the inputs. */
  Description& Inputs(std::uint32_t least, std::uint32_t most, const Port& port) {
    return inputs.Add(least, most, port), *this;
  }
  Description& Output(const Port& port) { return outputs.Add(1, 1, port), *this; }
  Description& OptionalOutput(const Port& port) { return outputs.Add(0, 1, port), *this; }
  Description& Outputs(std::uint32_t least, std::uint32_t most, const Port& port) {
    return outputs.Add(least, most, port), *this;
  }
  /** Fields that must be equal on all linked endpoints: SAME_RATE | SAME_CHANNELS, say. */
  Description& Same(std::uint32_t fields) { return same = fields, *this; }
  /** One more argument and parameter. */
  Description& Takes(Parameter parameter) { return parameters.push_back(std::move(parameter)), *this; }
  Description& ReadsFifo() { return flags |= BLOCK_READS_FIFO, *this; }
  Description& WritesFifo() { return flags |= BLOCK_WRITES_FIFO, *this; }
  /** It waits for a device or its like, which brings every frame of the route a deadline. A FIFO does so too, unsaid. */
  Description& SetsPace() { return flags |= BLOCK_SETS_PACE, *this; }
  /** Arguments by names that are not in this table are kept for the block's constructor: see PluginBlock::Extend. */
  Description& OwnParameters() { return flags |= BLOCK_OWN_PARAMETERS, *this; }
  /** What Process() does besides arithmetic: system calls, locks, allocations. Left out: none of them after the first frames. */
  Description& PerFrame(const char* line) { return perFrame = line, *this; }
  Description& Example(const char* line) { return example = line, *this; }

  const char* name;
  const char* summary;
  const char* example = "";
  const char* perFrame = "";
  std::uint32_t flags = 0;
  std::uint32_t same = SAME_NOTHING;
  Ports inputs;
  Ports outputs;
  std::vector<Parameter> parameters;
};

/** Keeps a description together with its plain-C view. */
class DescribedBlock {
 public:
  DescribedBlock(Description described, decltype(BlockInfo::planStreams) planStreams)
      : description(std::move(described)) {
    const Description& d = description;
    std::int32_t position = 0;
    for (const Parameter& p : d.parameters) {
      parameters.push_back({p.id, p.type, p.flags, p.positional ? position++ : -1, p.minimum, p.maximum, p.name.c_str(),
                            p.unit.c_str(), p.words.c_str(), p.defaultValue.c_str(), p.help.c_str()});
    }
    info = {KIT_VERSION,
            d.flags,
            d.name,
            d.summary,
            d.example,
            d.perFrame,
            d.same,
            d.inputs.least,
            d.inputs.most,
            d.outputs.least,
            d.outputs.most,
            Count(d.inputs),
            Count(d.outputs),
            d.inputs.each.data(),
            d.outputs.each.data(),
            static_cast<std::uint32_t>(parameters.size()),
            parameters.data(),
            planStreams};
  }
  DescribedBlock(const DescribedBlock&) = delete;
  DescribedBlock& operator=(const DescribedBlock&) = delete;

  const BlockInfo& Info() const { return info; }

 private:
  static std::uint32_t Count(const Description::Ports& ports) { return static_cast<std::uint32_t>(ports.each.size()); }

  const Description description;
  std::vector<ParameterInfo> parameters;
  BlockInfo info{};
};

}  // namespace vorn

#endif
