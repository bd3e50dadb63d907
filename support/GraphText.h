// How names, values and arguments are written in a graph file, so that its reader has them back as they were.
#pragma once

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>
#include <string>
#include <string_view>

namespace support {

/** A backslash that DOT does not take as it is: before a double quote, or at the end of a line, which it joins to the next. */
inline bool IsReadByDot(std::string_view text, std::size_t at) {
  return text[at] == '\\' && at + 1 < text.size() && std::string_view("\"\r\n").find(text[at + 1]) != text.npos;
}

/** DOT has no way to write some backslashes. Arguments have: see QuoteWord. */
inline bool IsHardToWrite(std::string_view text) {
  if (text.ends_with('\\')) return true;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (IsReadByDot(text, i)) return true;
  }
  return false;
}

/** One argument among others, in quotes where it needs them. */
inline std::string QuoteWord(const std::string& text) {
  if (!text.empty() && text != "!" && text.find_first_of(" \t\r\n\"'\\") == text.npos) return text;
  std::string quoted = "'";
  for (std::size_t i = 0; i < text.size(); ++i) {
    quoted += text[i] == '\'' ? "'\\''" : text.substr(i, 1);
    if (IsReadByDot(text, i)) quoted += "''";
  }
  return quoted + '\'';
}

/** As a DOT string. Not for a text that IsHardToWrite. @param dollar how it is written: in values, not in names. */
inline std::string DotText(const std::string& text, const char* dollar = "$$") {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '\\';
    quoted += c == '$' ? std::string(dollar) : std::string(1, c);
  }
  return quoted + '"';
}

/** Letters, digits and '_', and no keyword. */
inline bool IsPlainId(const std::string& text) {
  const auto isOfId = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
  constexpr std::string_view KEYWORDS[] = {"digraph", "edge", "graph", "node", "strict", "subgraph"};
  std::string word = text;
  for (char& c : word) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return !text.empty() && std::ranges::all_of(text, isOfId) && !std::isdigit(static_cast<unsigned char>(text[0])) &&
         std::ranges::find(KEYWORDS, word) == std::end(KEYWORDS);
}

/** In quotes where it needs them. */
inline std::string DotId(const std::string& text, const char* dollar = "$$") {
  long number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = !text.empty() && read.ec == std::errc() && read.ptr == text.data() + text.size();
  return isNumber || IsPlainId(text) ? text : DotText(text, dollar);
}

/** The name of a node. */
inline std::string NodeId(const std::string& name) { return DotId(name, "$"); }

/** Attributes that change the drawing alone. A parameter of such a name is given in args. */
inline bool IsForTheDrawing(std::string_view name) {
  constexpr std::string_view NAMES[] = {
      "URL",      "arrowhead", "bgcolor", "color",     "comment",  "constraint", "fillcolor", "fontcolor", "fontname",
      "fontsize", "headlabel", "label",   "labeljust", "labelloc", "margin",     "minlen",    "nodesep",   "pencolor",
      "penwidth", "rankdir",   "ranksep", "splines",   "style",    "taillabel",  "tooltip",   "weight",    "xlabel"};
  static_assert(std::ranges::is_sorted(NAMES));
  return std::ranges::binary_search(NAMES, name);
}

/** Attributes of a node that are no parameters of its block. */
inline bool IsReservedAttribute(std::string_view name) {
  constexpr std::string_view NAMES[] = {"args", "block", "first", "last", "shape"};
  return IsForTheDrawing(name) || std::ranges::find(NAMES, name) != std::end(NAMES);
}

/**
 * What is told to a block: its arguments, and its parameters by name as attributes, or as arguments where an attribute
 * cannot say them. All but the first pieces of a node's attribute list: ", args=..., gain=-6".
 */
class BlockText {
 public:
  void AddArgument(const std::string& text) { args += ' ' + QuoteWord(text); }
  void AddParameter(const std::string& name, const std::string& value) {
    if (IsHardToWrite(value) || IsHardToWrite(name) || IsReservedAttribute(name)) {
      AddArgument(name + '=' + value);
    } else {
      parameters += ", " + DotId(name, "$") + '=' + DotId(value);
    }
  }
  std::string ToString() const { return (args.empty() ? "" : ", args=" + DotText(args.substr(1))) + parameters; }

 private:
  std::string args;
  std::string parameters;
};

}  // namespace support
