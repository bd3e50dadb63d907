#include "DotLexer.h"

#include <algorithm>

namespace vorn::graph {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t LONGEST_STRING = 16000;  // Graphviz gives up a little later

bool IsBlank(char c) { return " \t\r\n\f\v"sv.find(c) != std::string_view::npos; }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

std::string LowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

bool IsKeyword(std::string_view word) {
  constexpr std::string_view KEYWORDS[] = {"digraph", "edge", "graph", "node", "strict", "subgraph"};
  return std::ranges::find(KEYWORDS, word) != std::end(KEYWORDS);
}

/** As Graphviz reads one: -?(.5 | 5 | 5. | 5.5). 0: none. */
std::size_t LengthOfNumber(std::string_view text) {
  std::size_t i = text.starts_with('-') ? 1 : 0;
  std::size_t digits = 0;
  for (; i < text.size() && IsDigit(text[i]); ++i) ++digits;
  if (i < text.size() && text[i] == '.') {
    for (++i; i < text.size() && IsDigit(text[i]); ++i) ++digits;
  }
  return digits ? i : 0;
}

}  // namespace

std::string ToString(const Token& token) {
  return token.kind == Token::Kind::END ? "the end of the file" : '\'' + token.text + '\'';
}

char DotLexer::Take() {
  const char c = text.front();
  text.remove_prefix(1);
  ++here.column;
  if (c == '\n') {
    ++here.line;
    here.column = 1;
  }
  return c;
}

Token DotLexer::TakeToken(Token::Kind kind, std::size_t length) {
  Token token{kind, std::string(text.substr(0, length)), here, here};
  for (std::size_t i = 0; i < length; ++i) Take();
  return token;
}

std::optional<Error> DotLexer::SkipBlanksAndComments() {
  while (!text.empty()) {
    if (IsBlank(Peek())) {
      Take();
    } else if (Peek() == '#' || text.starts_with("//")) {
      while (!text.empty() && Peek() != '\n') Take();
    } else if (text.starts_with("/*")) {
      const Origin start = here;
      Take();
      Take();
      while (!text.empty() && !text.starts_with("*/")) Take();
      if (text.empty()) return Error{start, "this comment is never closed; expected '*/'"};
      Take();
      Take();
    } else {
      break;
    }
  }
  return std::nullopt;
}

Result<Token> DotLexer::TakeString() {
  Token token{Token::Kind::ID, {}, here, here};
  Take();
  token.textAt = here;
  while (!text.empty() && Peek() != '"') {
    if (Peek() == '\0') return Error{here, "a NUL byte; expected text"};
    if (text.starts_with("\\\n")) {  // a line that goes on
      Take();
      Take();
      continue;
    }
    // The one escape of DOT is \": other backslashes stay, and a pair of them guards no quote.
    if (text.starts_with("\\\\")) {
      token.text += Take();
    } else if (text.starts_with("\\\"")) {
      Take();
    }
    token.text += Take();
  }
  if (text.empty()) return Error{token.at, "this string is never closed; expected '\"'"};
  Take();
  if (token.text.size() > LONGEST_STRING) {
    return Error{token.at, "this string is longer than " + std::to_string(LONGEST_STRING) + " bytes"};
  }
  return token;
}

Result<Token> DotLexer::TakeNumber() {
  const Token token = TakeToken(Token::Kind::ID, LengthOfNumber(text));
  if (IsLetter(Peek()) || Peek() == '.') {
    return Error{token.at, "'" + token.text + Peek() + "' is neither a number nor a name; put it in quotes"};
  }
  return token;
}

Token DotLexer::TakeName() {
  const auto end = std::ranges::find_if_not(text, [](char c) { return IsLetter(c) || IsDigit(c); });
  Token token = TakeToken(Token::Kind::ID, end - text.begin());
  if (const std::string word = LowerCase(token.text); IsKeyword(word)) {
    token.kind = Token::Kind::KEYWORD;
    token.text = word;
  }
  return token;
}

Result<Token> DotLexer::Next() {
  if (const auto error = SkipBlanksAndComments()) return *error;
  const char c = Peek();
  if (text.empty()) return Token{Token::Kind::END, {}, here, here};
  if (text.starts_with("->")) return TakeToken(Token::Kind::SYMBOL, 2);
  if ("{}[]=;,:"sv.find(c) != std::string_view::npos) return TakeToken(Token::Kind::SYMBOL, 1);
  if (c == '"') return TakeString();
  if (LengthOfNumber(text)) return TakeNumber();
  if (IsLetter(c)) return TakeName();
  if (text.starts_with("--")) return Error{here, "'--' has no direction; expected '->'"};
  if (c == '<') return Error{here, "HTML strings are not taken; use \"quotes\""};
  if (c == '$') return Error{here, "a '$' outside of quotes; write \"$name\""};
  if (c == '+') return Error{here, "joining strings with '+' is not taken; write one string"};
  if (c < ' ' || c == '\x7f') return Error{here, "byte " + std::to_string(c) + " is no text"};
  return Error{here, std::string("'") + c + "' is not taken here; put names with other characters in quotes"};
}

}  // namespace vorn::graph
