/** Part of <vorn/Plugin.h>: a line of a block's table of parameters, as PARAMETER_TABLE answers it. */
#ifndef VORN_KIT_PARAMETER_LINE_H
#define VORN_KIT_PARAMETER_LINE_H

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

/**
 * One parameter a line, fields separated by one blank, none of them empty or with a blank inside:
 *
 *     id name unit range value access help given
 *     0 gain dB -120..60 -6 live how%20much given
 *
 * `-` stands for no unit, no range, an empty value. A range is `low..high` with -inf and inf for no limit, or words
 * joined by `|`. Blanks and '%' inside a field are written %20 and %25, and a field that is just `-` is written %2D.
 * Access is `live` (set at any time), `stopped` (set while the route is stopped) or `read` (a measurement). `given`
 * says that the value came from an argument or was set, so that a block with the same values has to be told it. It is
 * left out otherwise, and then the help is too where there is none.
 */
struct ParameterLine {
  std::string ToString() const {
    std::string line = std::to_string(id);
    for (const std::string* field : {&name, &unit, &range, &value, &access}) line += ' ' + Escaped(*field);
    if (isGiven) return line + ' ' + Escaped(help) + " given";
    return help.empty() ? line : line + ' ' + Escaped(help);
  }

  /** Nothing, for a text that is no such line. */
  static std::optional<ParameterLine> Parse(std::string_view text) {
    const std::vector<std::string> fields = FieldsOf(text);
    if (fields.size() < 6) return std::nullopt;
    ParameterLine line;
    const char* const end = fields[0].data() + fields[0].size();
    const auto read = std::from_chars(fields[0].data(), end, line.id);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    std::size_t i = 1;
    for (std::string* field : {&line.name, &line.unit, &line.range, &line.value, &line.access}) *field = fields[i++];
    if (i < fields.size()) line.help = fields[i++];
    line.isGiven = i < fields.size() && fields[i] == "given";
    return line;
  }

  bool IsReading() const { return access == "read"; }

  // Plain texts; empty where there is nothing to say.
  unsigned id = 0;
  std::string name;
  std::string unit;
  std::string range;
  std::string value;
  std::string access;
  std::string help;
  bool isGiven = false;

 private:
  static std::string Escaped(const std::string& text) {
    static constexpr char HEX[] = "0123456789ABCDEF";
    if (text.empty()) return "-";
    if (text == "-") return "%2D";
    std::string escaped;
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte > ' ' && c != '%' && byte != 0x7F) {
        escaped += c;
      } else {
        escaped += {'%', HEX[byte >> 4], HEX[byte & 15]};
      }
    }
    return escaped;
  }

  static std::string Unescaped(std::string_view text) {
    if (text == "-") return {};
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
      unsigned char byte = 0;
      const char* const code = text.data() + i + 1;
      const bool isCode =
          text[i] == '%' && i + 2 < text.size() && std::from_chars(code, code + 2, byte, 16).ptr == code + 2;
      plain += isCode ? static_cast<char>(byte) : text[i];
      if (isCode) i += 2;
    }
    return plain;
  }

  static std::vector<std::string> FieldsOf(std::string_view text) {
    constexpr std::string_view BLANKS = " \t\r\n";
    std::vector<std::string> fields;
    for (auto begin = text.find_first_not_of(BLANKS); begin != text.npos;
         begin = text.find_first_not_of(BLANKS, begin)) {
      const auto end = std::min(text.find_first_of(BLANKS, begin), text.size());
      fields.push_back(Unescaped(text.substr(begin, end - begin)));
      begin = end;
    }
    return fields;
  }
};

}  // namespace vorn

#endif
