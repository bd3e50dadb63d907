#include "Completion.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "CommandTable.h"
#include "Names.h"

namespace vrdb {
namespace {

namespace fs = std::filesystem;
using support::ListOf;
using support::TextOf;

enum class Files { ALL, FOLDERS, PLUGINS };

Words operator+(Words some, const Words& more) {
  some.insert(some.end(), more.begin(), more.end());
  return some;
}

bool Suits(const fs::directory_entry& entry, Files files) {
  std::error_code error;
  if (files == Files::ALL || entry.is_directory(error)) return true;
  return files == Files::PLUGINS && entry.path().filename().string().find(".so") != std::string::npos;
}

std::string Proc(const std::string& process, const char* entry) { return "/proc/" + process + "/" + entry; }

std::string OtherProcess(const Live& live) { return std::to_string(live.process()); }

Words List(const std::string& folder, const std::string& shownAs, bool hidden, Files files) {
  Words names;
  std::error_code error, unknown;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    const std::string name = at->path().filename();
    if ((name.front() == '.' && !hidden) || !Suits(*at, files)) continue;
    names.push_back(shownAs + name + (at->is_directory(unknown) ? "/" : ""));
  }
  return names;
}

// Names that begin with `start`, or might, in the file system and from the folder that the process sees.
Words FileNames(const std::string& start, const std::string& process, Files files) {
  const std::string folder = start.substr(0, start.rfind('/') + 1);
  const bool absolute = start.substr(0, 1) == "/";
  const bool hidden = start.substr(folder.size(), 1) == ".";
  return List(Proc(process, absolute ? "root" : "cwd/") + folder, folder, hidden, files);
}

// Bare names of plug-ins are found where the process's libvorn.so stands.
Words InstalledPlugins(const std::string& process) {
  std::ifstream maps(Proc(process, "maps"));
  for (std::string line; std::getline(maps, line);) {
    const auto path = line.find('/');
    const auto name = line.rfind("/libvorn.so");
    if (path == std::string::npos || name == std::string::npos) continue;
    return List(Proc(process, "root") + line.substr(path, name - path) + "/vorn", "", false, Files::PLUGINS);
  }
  return {};
}

// A bare name is not looked for in the process's own folder.
Words Plugins(const std::string& start, const std::string& process) {
  if (start.find('/') != std::string::npos) return FileNames(start, process, Files::PLUGINS);
  return FileNames(start, process, Files::FOLDERS) + InstalledPlugins(process);
}

// "libgain.so" is "gain" for an edit.
Words Kinds(const std::string& start, const std::string& process) {
  Words kinds = Plugins(start, process);
  for (std::string& kind : kinds) {
    const bool isBare = kind.rfind("lib", 0) == 0 && kind.size() > 6 && kind.compare(kind.size() - 3, 3, ".so") == 0;
    if (isBare) kind = kind.substr(3, kind.size() - 6);
  }
  return kinds;
}

Words NamesIn(const Json& list) {
  Words names;
  for (const Json& one : list) names.push_back(TextOf(one, "name"));
  return names;
}

Words FreeRouteNames(const Json& graph) {
  Words names;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    const std::string name = std::string("Route") + letter;
    if (RouteOf(graph, name).is_null()) names.push_back(name);
  }
  return names;
}

// Labels stand for blocks, too.
Words BlockNames(const Json& graph, const std::string& route) {
  const Json& blocks = ListOf(RouteOf(graph, route), "blocks");
  Words names = NamesIn(blocks);
  for (const Json& block : blocks) {
    if (const std::string label = TextOf(block, "label"); !label.empty()) names.push_back(label);
  }
  return names;
}

Words LinkNames(const Json& graph, const std::string& route) { return NamesIn(ListOf(RouteOf(graph, route), "links")); }

Words Alternatives(std::string words) {
  std::replace(words.begin(), words.end(), '|', ' ');
  return Split(words).words;
}

const Json& ParametersOf(const Json& answer, const std::string& route, const std::string& block) {
  return ListOf(BlockOf(answer, route, block), "parameters");
}

// "low|high"
Words ValuesOf(const std::string& name, const Json& parameters) {
  const Json& parameter = support::Named(parameters, name);
  const std::string range = TextOf(parameter, "range");
  if (range.find('|') != range.npos) return Alternatives(range);
  return TextOf(parameter, "type") == "flag" ? Words{"true", "false"} : Words{};
}

Words CommandWords() {
  Words words;
  for (const Command& command : Commands()) words.emplace_back(command.word);
  return words;
}

Words Options(const Command& command) {
  Words options;
  for (const Argument& argument : command.arguments) {
    for (std::string& option : Alternatives(std::string(argument.name))) options.push_back(std::move(option));
  }
  return options;
}

// The argument that the word at `position` is; the last one when it may be repeated.
const Argument* ArgumentAt(const Command& command, std::size_t position) {
  if (command.arguments.empty()) return nullptr;
  const Argument& last = command.arguments.back();
  if (position <= command.arguments.size()) return &command.arguments[position - 1];
  return last.count == Count::ANY || last.takes == Takes::OPTION ? &last : nullptr;
}

Words CompleteInEdit(const Words& before, const std::string& start, const Live& live);

Words Candidates(Words before, const std::string& start, const Live& live) {
  if (before.empty()) return CommandWords();
  const Command* command = FindCommand(before[0]);
  const Argument* argument = command ? ArgumentAt(*command, before.size()) : nullptr;
  if (!argument) return {};
  const std::string route = before.size() > 1 ? before[1] : "";
  const auto parameters = [&](auto&& use) {
    ResolveLabels(live.graph(), before);
    const Json answer = live.parameters(route, before[2]);
    return use(ParametersOf(answer, route, before[2]));
  };
  switch (argument->takes) {
    case Takes::ROUTE: return NamesIn(ListOf(live.graph(), "routes"));
    case Takes::FREE_ROUTE: return FreeRouteNames(live.graph());
    case Takes::BLOCK: return BlockNames(live.graph(), route);
    case Takes::LINK: return LinkNames(live.graph(), route);
    case Takes::INSTANCE: return BlockNames(live.graph(), route) + LinkNames(live.graph(), route) + Words{"!"};
    case Takes::PLUGIN: return Plugins(start, OtherProcess(live));
    case Takes::KIND: return Kinds(start, OtherProcess(live));
    case Takes::BOOLEAN: return {"true", "false"};
    case Takes::FORMAT: return LinkFormats();
    case Takes::PARAMETER: return parameters([](const Json& table) { return NamesIn(table); });
    case Takes::VALUE:
      if (before.size() != 4) return {};
      return parameters([&](const Json& table) { return ValuesOf(before[3], table); });
    case Takes::DUMP_FOLDER: return FileNames(start, OtherProcess(live), Files::FOLDERS) + Words{"--"};
    case Takes::PROCESS_FILE: return FileNames(start, OtherProcess(live), Files::ALL);
    case Takes::OWN_FILE: return FileNames(start, "self", Files::ALL);
    case Takes::COMMAND: return CommandWords();
    case Takes::EDIT: return CompleteInEdit(before, start, live);
    case Takes::OPTION: return Options(*command);
    case Takes::UNSIGNED:
    case Takes::INTEGER: return {};
  }
  return {};
}

// As if the command in it stood alone.
Words CompleteInEdit(const Words& before, const std::string& start, const Live& live) {
  const auto isBetween = [](const std::string& word) { return word == "{" || word == ";"; };
  const auto begin = std::find_if(before.rbegin(), before.rend() - 1, isBetween).base();
  const Words inner(begin, before.end());
  if (!inner.empty() && inner[0] == "edit") return {};
  return Candidates(inner, start, live);
}

}  // namespace

Words Complete(std::string_view line, const Live& live) {
  const auto begin = line.find_last_of(" \t") + 1;  // npos + 1 is 0: the first word
  const std::string start(line.substr(begin));
  Words words;
  for (const std::string& word : Candidates(Split(line.substr(0, begin)).words, start, live)) {
    if (word.compare(0, start.size(), start) == 0) words.push_back(word);
  }
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  return words;
}

std::string CommonBeginning(const Words& words) {
  std::string common = words.empty() ? "" : words.front();
  for (const std::string& word : words) {
    const auto end = std::mismatch(common.begin(), common.end(), word.begin(), word.end()).first;
    common.erase(end, common.end());
  }
  return common;
}

}  // namespace vrdb
