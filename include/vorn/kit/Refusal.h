/**
 * Part of <vorn/Plugin.h>: why a block refuses something, as fields for programs and as a line for people.
 *
 *     return vorn::Refusal::Input(0).Field("rate").Got("44100 Hz").Takes("48000 Hz");
 *     return "no FIFO to read";
 *     return {};
 *
 * A function that returns a Refusal may return a plain text as well; an empty one says that all is well.
 */
#ifndef VORN_KIT_REFUSAL_H
#define VORN_KIT_REFUSAL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace vorn {

/** What a refusal is about. Plug-ins and hosts exchange these numbers. */
enum class About : std::uint32_t {
  NOTHING = 0,    ///< Nothing is refused.
  BLOCK = 1,      ///< The block as a whole.
  ARGUMENT = 2,   ///< An argument, by name.
  INPUT = 3,      ///< An input, by index.
  OUTPUT = 4,     ///< An output, by index.
  PARAMETER = 5,  ///< A parameter that was set or read: by name, or by its id as index where no parameter has it.
};

/** How a line on this begins: "argument 'gain'", "input 1"; empty for the whole block. */
inline std::string LabelOf(About about, std::uint32_t index, const std::string& name) {
  switch (about) {
    case About::ARGUMENT: return "argument '" + name + "'";
    case About::INPUT: return "input " + std::to_string(index);
    case About::OUTPUT: return "output " + std::to_string(index);
    case About::PARAMETER: return name.empty() ? "parameter " + std::to_string(index) : "parameter '" + name + "'";
    default: return "";
  }
}

/** Why an argument, a parameter, a stream or a start is refused; empty where all is well. */
class Refusal {
 public:
  Refusal() = default;
  /** A line of the block's own, about the block as a whole. An empty one refuses nothing. */
  Refusal(std::string text) : about(text.empty() ? About::NOTHING : About::BLOCK), line(std::move(text)) {}
  Refusal(const char* text) : Refusal(std::string(text)) {}

  static Refusal Argument(std::string itsName) { return {About::ARGUMENT, 0, std::move(itsName)}; }
  static Refusal Parameter(std::string itsName) { return {About::PARAMETER, 0, std::move(itsName)}; }
  static Refusal Parameter(unsigned id) { return {About::PARAMETER, id, ""}; }
  static Refusal Input(std::size_t i) { return {About::INPUT, static_cast<std::uint32_t>(i), ""}; }
  static Refusal Output(std::size_t i) { return {About::OUTPUT, static_cast<std::uint32_t>(i), ""}; }
  static Refusal Endpoint(bool isInput, std::size_t i) { return isInput ? Input(i) : Output(i); }

  /** What of a stream does not fit: rate, format, channels, frame; several are separated by blanks. */
  Refusal& Field(std::string names) { return field = std::move(names), *this; }
  Refusal& Got(std::string came) { return got = std::move(came), *this; }
  Refusal& Takes(std::string wanted) { return takes = std::move(wanted), *this; }
  /** What mends it: "put 'resample' before it". */
  Refusal& Advice(std::string remedy) { return advice = std::move(remedy), *this; }
  /** What is wrong, where "got ..." does not say it: "missing", "given twice". */
  Refusal& Problem(std::string what) { return problem = std::move(what), *this; }
  /** The whole line, where it does not follow from the fields. */
  Refusal& Line(std::string text) { return line = std::move(text), *this; }

  /** True where nothing is refused. */
  bool empty() const { return about == About::NOTHING; }

  std::string Label() const { return LabelOf(about, index, name); }

  /** What the fields say: "got 48000 Hz, takes 16000 Hz as input 0; put 'resample' before it". */
  std::string Reason() const {
    std::string text = problem.empty() && !got.empty() ? "got " + got : problem;
    if (!takes.empty()) text += (text.empty() ? "" : problem.empty() ? ", " : "; ") + ("takes " + takes);
    if (!advice.empty()) text += (text.empty() ? "" : "; ") + advice;
    return text;
  }

  /** One line: the label, then the reason; or the block's own. */
  std::string Text() const {
    if (!line.empty() || empty()) return line;
    const std::string label = Label();
    return label.empty() ? Reason() : label + ": " + Reason();
  }

  About about = About::NOTHING;
  std::uint32_t index = 0;
  std::string name;
  std::string field;
  std::string got;
  std::string takes;
  std::string advice;
  std::string problem;
  std::string line;

 private:
  Refusal(About subject, std::uint32_t itsIndex, std::string itsName)
      : about(subject), index(itsIndex), name(std::move(itsName)) {}
};

}  // namespace vorn

#endif
