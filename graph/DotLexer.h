// The words of a DOT file. Takes what Graphviz takes of them, less HTML strings and badly delimited numbers.
#pragma once

#include <string_view>

#include "GraphDescription.h"

namespace vorn::graph {

struct Token {
  enum class Kind { END, ID, SYMBOL, KEYWORD };

  /** Whether this is that symbol ("->") or that keyword, in lower case. */
  bool Is(std::string_view wanted) const { return (kind == Kind::SYMBOL || kind == Kind::KEYWORD) && text == wanted; }
  bool IsId() const { return kind == Kind::ID; }

  Kind kind = Kind::END;
  std::string text;  ///< An id without its quotes.
  Origin at;
  Origin textAt;  ///< Where the text itself starts: behind the quote of a quoted id.
};

/** 'gain', or "the end of the file": for messages. */
std::string ToString(const Token& token);

class DotLexer {
 public:
  DotLexer(std::string_view newText, const std::string& file) : text(newText), here{file, 1, 1} {}

  Result<Token> Next();

 private:
  char Peek(std::size_t ahead = 0) const { return ahead < text.size() ? text[ahead] : '\0'; }
  char Take();
  Token TakeToken(Token::Kind kind, std::size_t length);
  std::optional<Error> SkipBlanksAndComments();
  Result<Token> TakeString();
  Result<Token> TakeNumber();
  Token TakeName();

  std::string_view text;
  Origin here;
};

}  // namespace vorn::graph
