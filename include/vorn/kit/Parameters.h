/** Part of <vorn/Plugin.h>: the values of a block's parameters, read from arguments and checked against its table. */
#ifndef VORN_KIT_PARAMETERS_H
#define VORN_KIT_PARAMETERS_H

#include <cassert>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <vorn/kit/Description.h>
#include <vorn/kit/ParameterLine.h>
#include <vorn/kit/Refusal.h>

namespace vorn {

/**
 * A table of parameters with a value for each.
 *
 * Values are looked up by id, in a short table without hashing: fine once a frame, not once a sample.
 *
 * Threads: the block's own. Any other may call Line(), TextOf() and Table() once the block is made.
 */
class Parameters {
 public:
  struct Value {
    double number = 0;
    std::string text;
    bool given = false;
    bool stale = false;  // `number` is newer than `text`
  };

  explicit Parameters(const Description& description)
      : extensible((description.flags & BLOCK_OWN_PARAMETERS) != 0), table(description.parameters) {
    values.reserve(table.size());
    for (const Parameter& parameter : table) values.push_back(DefaultOf(parameter));
  }

  /**
   * Reads the arguments of a block: `value`, by position, or `name=value`. What stands before the first '=' counts as a
   * name when it looks like one, so a path with a '=' in its last part is written path=...
   */
  Refusal Parse(const std::vector<std::string>& arguments) {
    std::size_t unnamed = 0;
    for (const std::string& argument : arguments) {
      const std::size_t equals = argument.find('=');
      const bool named = equals != std::string::npos && IsName(std::string_view(argument).substr(0, equals));
      Refusal refusal = named ? ParseNamed(argument.substr(0, equals), argument.substr(equals + 1))
                              : ParsePositional(unnamed++, argument);
      if (!refusal.empty()) return refusal;
    }
    for (std::size_t i = 0; i < table.size(); ++i) {
      if (!table[i].IsRequired() || values[i].given) continue;
      return Refusal::Argument(table[i].name).Problem("missing").Takes(Taken(table[i]));
    }
    return {};
  }

  /** Adds parameters that are known only now, and gives them the arguments that were kept for them. */
  Refusal Extend(const std::vector<Parameter>& more) {
    for (const Parameter& parameter : more) {
      table.push_back(parameter);
      values.push_back(DefaultOf(parameter));
    }
    for (const auto& [name, text] : std::exchange(kept, {})) {
      Refusal refusal = ParseNamed(name, text);
      if (!refusal.empty()) return refusal;
    }
    return KeptArguments();
  }

  /** Refuses arguments that Extend did not find a parameter for. */
  Refusal KeptArguments() const { return kept.empty() ? Refusal() : UnknownName(kept.front().first); }

  double Number(unsigned id) const { return At(id).number; }
  long Integer(unsigned id) const { return static_cast<long>(At(id).number); }
  bool Flag(unsigned id) const { return At(id).number != 0; }
  /** Place of a WORD among its words, from 0. */
  std::size_t Choice(unsigned id) const { return static_cast<std::size_t>(At(id).number); }
  /** The value of any parameter as text. */
  const std::string& Text(unsigned id) const { return At(id).text; }
  /** True once an argument or a SetParameter gave the value. */
  bool IsGiven(unsigned id) const { return At(id).given; }

  /** All there is to a value, for Restore() where a Set() turns out to be wrong. */
  const Value& ValueOf(unsigned id) const { return At(id); }
  void Restore(unsigned id, Value value) {
    const std::lock_guard<std::mutex> lock(mutex);
    values[IndexOf(id)] = std::move(value);
  }

  const Parameter* Find(unsigned id) const {
    const std::size_t i = IndexOf(id);
    return i < table.size() ? &table[i] : nullptr;
  }

  /** Sets a value from text. The value stays as it was where the text is refused. */
  Refusal Set(unsigned id, const std::string& text) {
    const std::size_t i = IndexOf(id);
    if (i == table.size()) return Refusal::Parameter(id).Problem("unknown");
    Refusal refusal = Refusal::Parameter(table[i].name);
    if (table[i].IsReading()) return refusal.Problem("can only be read");
    return Assign(i, refusal, text);
  }

  /** Stores a measurement. What is no reading stays as it was set. No allocation, no lock; read back as text with TextOf. */
  void Store(unsigned id, double number) {
    const std::size_t i = IndexOf(id);
    if (i == table.size() || !table[i].IsReading()) return;
    __atomic_store(&values[i].number, &number, __ATOMIC_RELAXED);
    __atomic_store_n(&values[i].stale, true, __ATOMIC_RELAXED);
  }

  /** The value of a parameter as GetParameter answers it. */
  std::string TextOf(std::size_t index) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const Value& value = values[index];
    if (!__atomic_load_n(&value.stale, __ATOMIC_RELAXED)) return value.text;
    double number = 0;
    __atomic_load(&value.number, &number, __ATOMIC_RELAXED);
    return NumberText(number);
  }

  const std::vector<Parameter>& Table() const { return table; }

  std::size_t IndexOf(unsigned id) const {
    std::size_t i = 0;
    while (i < table.size() && table[i].id != id) ++i;
    return i;
  }

  /** The line of a parameter in the table that the block answers: see ParameterLine. */
  std::string Line(std::size_t i) const {
    const Parameter& p = table[i];
    const char* access = p.IsReading() ? "read" : p.IsLive() ? "live" : "stopped";
    ParameterLine line{p.id, p.name, p.unit, RangeOf(p), TextOf(i), access, p.help};
    const std::lock_guard<std::mutex> lock(mutex);
    line.isGiven = values[i].given;
    return line.ToString();
  }

  /** What a parameter takes, in words: "a number from -120 to 60 dB". */
  static std::string Taken(const Parameter& p) {
    switch (p.type) {
      case ParameterType::NUMBER: return "a number" + Limits(p);
      case ParameterType::INTEGER: return "a whole number" + Limits(p);
      case ParameterType::FLAG: return "true or false";
      case ParameterType::WORD: return "one of: " + p.words;
      case ParameterType::TEXT: break;
    }
    return "a text";
  }

 private:
  static bool IsName(std::string_view text) {
    const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    if (text.empty() || !letter(text[0])) return false;
    for (const char c : text) {
      if (!letter(c) && !(c >= '0' && c <= '9') && c != '-' && c != '.') return false;
    }
    return true;
  }

  static Value DefaultOf(const Parameter& parameter) {
    Value value;
    if (!parameter.defaultValue.empty()) {
      [[maybe_unused]] const bool fits = Read(parameter, parameter.defaultValue, value);
      assert(fits && "the default of a parameter must be in its range");
    }
    return value;
  }

  Refusal ParseNamed(const std::string& name, const std::string& text) {
    for (std::size_t i = 0; i < table.size(); ++i) {
      if (table[i].name == name && !table[i].IsReading()) return Give(i, text);
    }
    if (!extensible) return UnknownName(name);
    kept.emplace_back(name, text);
    return {};
  }

  Refusal ParsePositional(std::size_t position, const std::string& text) {
    std::size_t seen = 0;
    for (std::size_t i = 0; i < table.size(); ++i) {
      if (table[i].positional && seen++ == position) return Give(i, text);
    }
    return Refusal::Argument(text).Problem("too many without a name").Takes(Names(true));
  }

  Refusal Give(std::size_t i, const std::string& text) {
    Refusal refusal = Refusal::Argument(table[i].name);
    if (values[i].given) return refusal.Problem("given twice");
    return Assign(i, refusal, text);
  }

  /** @param refusal says what the text was given as; returned, complete, where the text is not taken. */
  Refusal Assign(std::size_t i, Refusal& refusal, const std::string& text) {
    Value value;
    if (!Read(table[i], text, value)) return refusal.Got("'" + text + "'").Takes(Taken(table[i]));
    value.given = true;
    const std::lock_guard<std::mutex> lock(mutex);
    values[i] = std::move(value);
    return {};
  }

  Refusal UnknownName(const std::string& name) const {
    return Refusal::Argument(name).Problem("unknown").Takes(Names(false));
  }

  std::string Names(bool positionalOnly) const {
    std::string names;
    for (const Parameter& p : table) {
      if (p.IsReading() || (positionalOnly && !p.positional)) continue;
      names += (names.empty() ? "" : " ") + p.name;
    }
    return names.empty() ? "none" : names;
  }

  static bool Read(const Parameter& p, const std::string& text, Value& value) {
    value.text = text;
    switch (p.type) {
      case ParameterType::NUMBER: return ReadNumber<double>(p, text, value);
      case ParameterType::INTEGER: return ReadNumber<std::int64_t>(p, text, value);
      case ParameterType::FLAG: return ReadFlag(text, value);
      case ParameterType::WORD: return ReadWord(p.words, text, value);
      case ParameterType::TEXT: return true;
    }
    return false;
  }

  template <class N>
  static bool ReadNumber(const Parameter& p, const std::string& text, Value& value) {
    const char* begin = text.c_str();
    const char* end = begin + text.size();
    if (*begin == '+' && begin[1] != '-') ++begin;
    N number{};
    const auto result = std::from_chars(begin, end, number);
    if (result.ec != std::errc() || result.ptr != end) return false;
    value.number = static_cast<double>(number);
    value.text = NumberText(value.number);
    return value.number >= p.minimum && value.number <= p.maximum;  // never true for a NaN
  }

  static bool ReadFlag(const std::string& text, Value& value) {
    for (const char* yes : {"true", "yes", "on", "1"}) {
      if (text == yes) return value.number = 1, value.text = "true", true;
    }
    for (const char* no : {"false", "no", "off", "0"}) {
      if (text == no) return value.number = 0, value.text = "false", true;
    }
    return false;
  }

  static bool ReadWord(std::string_view words, std::string_view text, Value& value) {
    for (int place = 0; !words.empty(); ++place) {
      const std::string_view word = words.substr(0, words.find(' '));
      if (word == text) return value.number = place, true;
      words.remove_prefix(word.size() == words.size() ? word.size() : word.size() + 1);
    }
    return false;
  }

  static std::string Limits(const Parameter& p) {
    const std::string unit = p.unit.empty() ? "" : " " + p.unit;
    if (std::isinf(p.minimum) && std::isinf(p.maximum)) return unit.empty() ? "" : " of" + unit;
    if (std::isinf(p.minimum)) return " up to " + NumberText(p.maximum) + unit;
    if (std::isinf(p.maximum)) return " from " + NumberText(p.minimum) + unit;
    return " from " + NumberText(p.minimum) + " to " + NumberText(p.maximum) + unit;
  }

  static std::string RangeOf(const Parameter& p) {
    std::string range = p.words;
    if (p.IsReading()) return "";
    switch (p.type) {
      case ParameterType::NUMBER:
      case ParameterType::INTEGER: return NumberText(p.minimum) + ".." + NumberText(p.maximum);
      case ParameterType::FLAG: return "false|true";
      case ParameterType::WORD:
        for (char& c : range) c = c == ' ' ? '|' : c;
        return range;
      case ParameterType::TEXT: break;
    }
    return "";
  }

  const Value& At(unsigned id) const {
    const std::size_t i = IndexOf(id);
    assert(i < table.size() && "no such parameter in the block's table");
    return values[i];
  }

  bool extensible;
  std::vector<Parameter> table;
  std::vector<Value> values;
  mutable std::mutex mutex;  // held while a value that is no reading changes, and while another thread reads one
  std::vector<std::pair<std::string, std::string>> kept;  // arguments for parameters that Extend will add
};

}  // namespace vorn

#endif
