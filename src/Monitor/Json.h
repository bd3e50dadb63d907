// Writes JSON: objects and lists, from the inside to the outside, on one line.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorn::monitor {

/** In quotes. Bytes that are no UTF-8 become U+FFFD: names of blocks are file names, which may have any. */
std::string Quoted(std::string_view text);

class List {
 public:
  void Add(const std::string& json) { text += (text.empty() ? "" : ",") + json; }
  bool IsEmpty() const { return text.empty(); }
  std::string Text() const { return '[' + text + ']'; }

 private:
  std::string text;
};

class Object {
 public:
  Object& Add(const char* name, std::string_view value) { return AddJson(name, Quoted(value)); }
  Object& Add(const char* name, const char* value) { return Add(name, std::string_view(value)); }
  Object& Add(const char* name, std::same_as<bool> auto value) { return AddJson(name, value ? "true" : "false"); }
  template <std::integral Number>
  requires(!std::same_as<Number, bool>) Object& Add(const char* name, Number value) {
    return AddJson(name, std::to_string(value));
  }
  /** With six digits behind the point: seconds, microseconds, shares. */
  Object& Add(const char* name, double value);
  Object& Add(const char* name, const Object& value) { return AddJson(name, value.Text()); }
  Object& Add(const char* name, const List& value) { return AddJson(name, value.Text()); }
  /** All members of another one. */
  Object& Add(const Object& more) {
    if (!more.text.empty()) text += (text.empty() ? "" : ",") + more.text;
    return *this;
  }
  std::string Text() const { return '{' + text + '}'; }

 private:
  Object& AddJson(const char* name, const std::string& json) {
    text += (text.empty() ? "\"" : ",\"") + std::string(name) + "\":" + json;
    return *this;
  }

  std::string text;
};

/** The start of every reply. */
Object Begin(const std::string& request);
/** A reply that says what is wrong. */
Object Failure(const std::string& request, const std::string& text);

}  // namespace vorn::monitor
