#include "Monitor/Edits.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <span>

#include "Block/SampleFormat.h"
#include "Monitor/Json.h"

namespace vorn::monitor {
namespace {

constexpr std::string_view BLANKS = " \t\r\n\v\f";

/** What is wrong with a request. */
struct Wrong {
  std::string text;
};

using Words = std::span<const Word>;

/** A plug-in's file, of which a name alone says enough. */
std::string FileOf(const std::string& plugIn) {
  const bool isFile = plugIn.find('/') != plugIn.npos || plugIn.find(".so") != plugIn.npos;
  return isFile ? plugIn : "lib" + plugIn + ".so";
}

template <class Number>
Number NumberIn(const Word& word, const char* what) {
  Number number{};
  const char* const end = word.text.data() + word.text.size();
  const auto read = std::from_chars(word.text.data(), end, number);
  if (read.ec != std::errc() || read.ptr != end || word.text.empty()) {
    throw Wrong{std::string(what) + ": expected a number, got '" + word.text + "'"};
  }
  return number;
}

bool FlagIn(const Word& word, const char* what) {
  if (word.text == "true" || word.text == "false") return word.text == "true";
  throw Wrong{std::string(what) + ": expected true or false, got '" + word.text + "'"};
}

SampleFormat FormatIn(const Word& word) {
  std::string names;
  for (std::uint32_t i = 0; i <= static_cast<std::uint32_t>(SampleFormat::FLOAT_BE); ++i) {
    const char* const name = FormatToString(static_cast<SampleFormat>(i));
    if (word.text == name) return static_cast<SampleFormat>(i);
    names += (i == 0 ? "" : ", ") + std::string(name);
  }
  throw Wrong{"FORMAT: expected one of " + names + ", got '" + word.text + "'"};
}

Edit::Texts TextsOf(Words words) {
  Edit::Texts texts;
  for (const Word& word : words) texts.push_back(word.text);
  return texts;
}

// The words behind the route.

void Insert(Edit& edit, Words words) { edit.Insert(words[0].text, FileOf(words[1].text), TextsOf(words.subspan(2))); }
void Remove(Edit& edit, Words words) { edit.Remove(words[0].text); }
void Replace(Edit& edit, Words words) { edit.Replace(words[0].text, FileOf(words[1].text), TextsOf(words.subspan(2))); }
void Tap(Edit& edit, Words words) { edit.Tap(words[0].text, FileOf(words[1].text), TextsOf(words.subspan(2))); }
void Delete(Edit& edit, Words words) { edit.Delete(words[0].text); }

void NewBlock(Edit& edit, Words words) {
  edit.NewBlock(FileOf(words[0].text), FlagIn(words[1], "ISFIRST"), FlagIn(words[2], "ISLAST"),
                TextsOf(words.subspan(3)));
}

void NewLink(Edit& edit, Words words) {
  edit.NewLink(NumberIn<unsigned>(words[0], "RATE"), FormatIn(words[1]), NumberIn<unsigned>(words[2], "CHANNELS"),
               NumberIn<long>(words[3], "SAMPLES"), words[4].text, NumberIn<std::size_t>(words[5], "OUT"),
               words[6].text, NumberIn<std::size_t>(words[7], "IN"));
}

void SetParameter(Edit& edit, Words words) {
  edit.SetParameter(words[0].text, words[1].text, TextsOf(words.subspan(2)));
}

struct Command {
  const char* word;
  void (*add)(Edit& edit, Words words);
  std::size_t least;  // words behind the route
  bool takesMore;
  bool isRequest;  // also alone
  const char* usage;
};

constexpr Command COMMANDS[] = {
    {"insert", Insert, 2, true, true, "insert ROUTE LINK PLUG-IN [ARG...]"},
    {"remove", Remove, 1, false, true, "remove ROUTE BLOCK"},
    {"replace", Replace, 2, true, true, "replace ROUTE BLOCK PLUG-IN [ARG...]"},
    {"tap", Tap, 2, true, true, "tap ROUTE LINK PLUG-IN [ARG...]"},
    {"newblock", NewBlock, 3, true, false, "newblock ROUTE PLUG-IN ISFIRST ISLAST [ARG...]"},
    {"newlink", NewLink, 8, false, false, "newlink ROUTE RATE FORMAT CHANNELS SAMPLES SRC OUT SINK IN"},
    {"delete", Delete, 1, false, false, "delete ROUTE INSTANCE"},
    {"setparam", SetParameter, 2, true, false, "setparam ROUTE BLOCK PARAMETER [VALUE...]"},
};

const Command* FindCommand(const std::string& word) {
  const auto found =
      std::find_if(std::begin(COMMANDS), std::end(COMMANDS), [&](const Command& c) { return word == c.word; });
  return found == std::end(COMMANDS) ? nullptr : found;
}

std::string CommandWords() {
  std::string words;
  for (const Command& command : COMMANDS) words += (words.empty() ? "" : ", ") + std::string(command.word);
  return words;
}

/** Adds one command. @return its route. */
const std::string& AddCommand(Edit& edit, Words words) {
  const Command* const command = words.empty() ? nullptr : FindCommand(words[0].text);
  if (!command) {
    throw Wrong{"expected one of " + CommandWords() + (words.empty() ? "" : ", got '" + words[0].text + "'")};
  }
  const std::size_t count = words.size() < 2 ? 0 : words.size() - 2;
  const bool fits = words.size() >= 2 && count >= command->least && (count == command->least || command->takesMore);
  if (!fits) throw Wrong{std::string("expected ") + command->usage};
  command->add(edit, words.subspan(2));
  return words[1].text;
}

/** The commands between braces. @return the route of all of them. */
std::string AddBatch(Edit& edit, Words words) {
  if (words.size() < 3 || !words[1].Is("{") || !words.back().Is("}")) {
    throw Wrong{"expected edit { COMMAND ; COMMAND ... }, with blanks around { ; and }"};
  }
  std::optional<std::string> route;
  int number = 0;
  for (Words rest = words.subspan(2, words.size() - 3); !rest.empty();) {
    const auto stop = std::find_if(rest.begin(), rest.end(), [](const Word& word) { return word.Is(";"); });
    const auto length = static_cast<std::size_t>(stop - rest.begin());
    const Words command = rest.first(length);
    rest = rest.subspan(std::min(length + 1, rest.size()));
    if (command.empty()) continue;
    const std::string where = "command " + std::to_string(++number) + ": ";
    try {
      const std::string& its = AddCommand(edit, command);
      if (route && *route != its) throw Wrong{"an edit is of one route, expected " + *route + ", got '" + its + "'"};
      route = its;
    } catch (const Wrong& wrong) {
      throw Wrong{where + wrong.text};
    }
  }
  if (!route) throw Wrong{"there is no command between the braces"};
  return *route;
}

List NamesOf(const std::vector<EditResult::Item>& items) {
  List names;
  for (const EditResult::Item& item : items) names.Add(Quoted(item.name));
  return names;
}

/** The first word, and where it ends. */
std::string_view FirstWord(std::string_view line, std::size_t& end) {
  const std::size_t begin = std::min(line.find_first_not_of(BLANKS), line.size());
  end = std::min(line.find_first_of(BLANKS, begin), line.size());
  return line.substr(begin, end - begin);
}

}  // namespace

bool SplitWords(std::string_view line, std::vector<Word>& words) {
  words.clear();
  for (std::size_t i = line.find_first_not_of(BLANKS); i < line.size(); i = line.find_first_not_of(BLANKS, i)) {
    Word word;
    bool isOpen = false;
    for (; i < line.size() && (isOpen || BLANKS.find(line[i]) == BLANKS.npos); ++i) {
      if (line[i] == '"') {
        isOpen = !isOpen;
        word.isQuoted = true;
        continue;
      }
      if (isOpen && line[i] == '\\' && i + 1 < line.size()) ++i;
      word.text += line[i];
    }
    if (isOpen) return false;
    words.push_back(std::move(word));
  }
  return true;
}

bool Edits::Takes(const std::string& line) {
  std::size_t end = 0;
  const std::string_view request = FirstWord(line, end);
  const auto isIt = [&](const Command& command) { return command.isRequest && request == command.word; };
  return request == "edit" || request == "do" || std::any_of(std::begin(COMMANDS), std::end(COMMANDS), isIt);
}

std::string Edits::Answer(const std::string& line) const {
  std::size_t end = 0;
  const std::string request(FirstWord(line, end));
  try {
    if (request == "do") return Do(line.substr(end));
    if (!Takes(line)) throw Wrong{"expected insert, remove, replace, tap, edit or do, got '" + request + "'"};
    std::vector<Word> words;
    if (!SplitWords(line, words)) throw Wrong{"a quote is not closed"};
    Edit edit;
    const std::string route = request == "edit" ? AddBatch(edit, words) : AddCommand(edit, words);
    return Execute(request, route, edit);
  } catch (const Wrong& wrong) {
    return Failure(request, wrong.text).Text();
  } catch (const std::exception& e) {
    return Failure(request, e.what()).Text();
  }
}

std::string Edits::Execute(const std::string& request, const std::string& routeName, const Edit& edit) const {
  const auto route = process.findRoute(routeName);
  if (!route) throw Wrong{"no route '" + routeName + "'"};
  const EditResult result = route->Execute(edit);
  if (!result.ok) return Failure(request, result.reason).Text();
  return Begin(request)
      .Add("route", routeName)
      .Add("ok", true)
      .Add("made", NamesOf(result.made))
      .Add("deleted", NamesOf(result.deleted))
      .Text();
}

/** The console splits its commands itself, and its text alone says what came of them. */
std::string Edits::Do(const std::string& line) const {
  std::stringstream args(line);
  std::string word;
  std::string reply;
  if (!(args >> word)) throw Wrong{"expected do COMMAND"};
  if (!process.runCommand(word, args, reply)) throw Wrong{"the console has no command '" + word + "'"};
  return Begin("do").Add("reply", reply).Text();
}

}  // namespace vorn::monitor
