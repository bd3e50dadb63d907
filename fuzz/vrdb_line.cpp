// A line that is typed into vrdb, with what completes it. The first line of the input is what was typed; the next
// two what the monitor would say of the graph and of parameters; the rest is a reply of the console.
#include "CommandTable.h"
#include "Completion.h"
#include "Input.h"

using fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::string line = input.Line();
  const auto graph = support::Json::parse(input.Line(), nullptr, false);
  const auto parameters = support::Json::parse(input.Line(), nullptr, false);
  const std::string_view reply = input.Rest();

  const vrdb::SplitLine split = vrdb::Split(line);
  Require(split.error.empty() || !split.words.empty(), "An error of nothing");
  const bool isCarried = vrdb::CannotCarry(split.words).empty();
  Require(isCarried || line.find('\0') != line.npos, "Words of a line that are not carried");
  const vrdb::Command* const command = split.words.empty() ? nullptr : vrdb::FindCommand(split.words.front());
  if (command) vrdb::WrongUsage(*command, split.words);
  if (!split.words.empty()) vrdb::SaysFailure(split.words, reply);

  vrdb::Live live;
  live.graph = [&] { return graph; };
  live.parameters = [&](const std::string&, const std::string&) { return parameters; };
  live.process = [] { return -1; };  // whose files nobody sees
  const std::string start = line.substr(line.find_last_of(" \t") + 1);
  const vrdb::Words words = vrdb::Complete(line, live);
  for (const std::string& word : words) Require(word.compare(0, start.size(), start) == 0, "Another beginning");
  Require(words.empty() || vrdb::CommonBeginning(words).size() >= start.size(), "A beginning that is too short");
  return 0;
}
