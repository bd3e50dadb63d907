#include "Monitor/Json.h"

#include <array>
#include <cstdio>

namespace vorn::monitor {
namespace {

constexpr std::string_view UNKNOWN = "\xEF\xBF\xBD";

bool IsTail(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

/** How many bytes the character at the start of a text has; 0: it is none. Neither longer than need be nor a surrogate. */
std::size_t CharacterIn(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char head = byte(0);
  if (head < 0x80) return 1;
  const std::size_t length = head >= 0xF0 ? 4 : head >= 0xE0 ? 3 : 2;
  if (head < 0xC2 || head > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (!IsTail(text[i])) return 0;
  }
  const bool isOdd = (head == 0xE0 && byte(1) < 0xA0) || (head == 0xED && byte(1) > 0x9F) ||
                     (head == 0xF0 && byte(1) < 0x90) || (head == 0xF4 && byte(1) > 0x8F);
  return isOdd ? 0 : length;
}

std::string Escaped(char c) {
  std::array<char, 8> text;
  std::snprintf(text.data(), text.size(), "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
  return text.data();
}

}  // namespace

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  while (!text.empty()) {
    const std::size_t length = CharacterIn(text);
    const char c = text[0];
    if (length == 0) {
      quoted += UNKNOWN;
    } else if (c == '"' || c == '\\') {
      (quoted += '\\') += c;
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      quoted += Escaped(c);
    } else {
      quoted += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return quoted + '"';
}

Object& Object::Add(const char* name, double value) {
  std::array<char, 400> number;
  std::snprintf(number.data(), number.size(), "%.6f", value);
  return AddJson(name, number.data());
}

Object Begin(const std::string& request) {
  constexpr int VERSION = 1;
  Object answer;
  return answer.Add("version", VERSION).Add("request", request);
}

Object Failure(const std::string& request, const std::string& text) { return Begin(request).Add("error", text); }

}  // namespace vorn::monitor
