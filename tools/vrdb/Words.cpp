#include "Words.h"

#include <algorithm>

namespace vrdb {
namespace {

constexpr std::string_view BLANKS = " \t\n\v\f\r";

bool BeginsWithQuote(std::string_view text) { return text.substr(0, 1) == "\"" || text.substr(0, 1) == "'"; }

// "my file" and path="my file"
bool LooksQuoted(std::string_view word) {
  return BeginsWithQuote(word) || BeginsWithQuote(word.substr(word.find('=') + 1));
}

}  // namespace

SplitLine Split(std::string_view line) {
  SplitLine split;
  auto begin = line.find_first_not_of(BLANKS);
  while (begin != std::string_view::npos && line[begin] != '#') {
    const auto end = std::min(line.find_first_of(BLANKS, begin), line.size());
    split.words.emplace_back(line.substr(begin, end - begin));
    begin = line.find_first_not_of(BLANKS, end);
  }
  for (const std::string& word : split.words) {
    const bool quoted = LooksQuoted(word);
    const bool escaped = word.back() == '\\' && &word != &split.words.back();
    if (quoted || escaped) {
      split.error = word + ": " + (quoted ? "quotes keep" : "a backslash keeps") +
                    " no blank; the console splits at every one and takes all else as it stands";
    }
  }
  return split;
}

std::string CannotCarry(const Words& words) {
  for (const std::string& word : words) {
    if (word.empty()) return "an empty argument cannot be sent: the console splits at blanks";
    if (word.find_first_of(BLANKS) != std::string::npos) {
      return "'" + word + "': a blank inside an argument cannot be sent: the console splits at blanks";
    }
    if (word.find('\0') != std::string::npos) return "a NUL byte cannot be sent: it ends the command";
  }
  return {};
}

std::string Join(const Words& words, std::string_view between) {
  std::string joined;
  for (const std::string& word : words) joined += (joined.empty() ? "" : std::string(between)) + word;
  return joined;
}

}  // namespace vrdb
