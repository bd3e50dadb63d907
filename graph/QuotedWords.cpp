#include "QuotedWords.h"

namespace vorn::graph {
namespace {

constexpr std::string_view BLANKS = " \t\r\n";

class Splitter {
 public:
  Splitter(std::string_view newText, const Origin& start) : text(newText), here(start) {}

  Result<std::vector<SplitWord>> Split() {
    std::vector<SplitWord> words;
    while (SkipBlanks()) {
      SplitWord word;
      word.at = here;
      if (auto error = ReadWord(word)) return *error;
      words.push_back(std::move(word));
    }
    return words;
  }

 private:
  bool AtEnd() const { return text.empty(); }
  bool AtBlank() const { return BLANKS.find(text.front()) != BLANKS.npos; }

  char Take() {
    const char c = text.front();
    text.remove_prefix(1);
    if (c == '\n') {
      ++here.line;
      here.column = 1;
    } else {
      ++here.column;
    }
    return c;
  }

  bool SkipBlanks() {
    while (!AtEnd() && AtBlank()) Take();
    return !AtEnd();
  }

  std::optional<Error> ReadWord(SplitWord& word) {
    while (!AtEnd() && !AtBlank()) {
      const Origin at = here;
      const char c = Take();
      if (c == '"' || c == '\'') {
        word.isQuoted = true;
        if (!ReadQuoted(c, word.text)) return Error{at, std::string("this ") + c + " is never closed"};
      } else if (c == '\\') {
        if (AtEnd()) return Error{at, "a backslash ends the text; it needs a character behind it"};
        word.isQuoted = true;
        word.text += Take();
      } else {
        word.text += c;
      }
    }
    return std::nullopt;
  }

  bool ReadQuoted(char quote, std::string& out) {
    while (!AtEnd()) {
      char c = Take();
      if (c == quote) return true;
      if (c == '\\' && quote == '"' && !AtEnd()) c = Take();
      out += c;
    }
    return false;
  }

  std::string_view text;
  Origin here;
};

}  // namespace

Result<std::vector<SplitWord>> SplitWords(std::string_view text, const Origin& start) {
  return Splitter(text, start).Split();
}

}  // namespace vorn::graph
