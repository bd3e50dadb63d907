#include "CommandTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <map>

#include <vorn/kit/Streams.h>

#include "Edits.h"
#include "LocalCommands.h"
#include "Save.h"

namespace vrdb {
namespace {

constexpr std::array FAILURES = {"Failed to ", "Can't find ", "error: ", "Unknown command ", "Invalid argument"};

bool StartsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

template <typename Integer>
bool IsNumber(const std::string& word) {
  Integer number;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size();
}

bool IsOneOf(const std::string& word, const std::vector<std::string>& words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// What was expected in place of this word; empty: it will do.
std::string Expected(Takes takes, const std::string& word) {
  switch (takes) {
    case Takes::BOOLEAN: return word == "true" || word == "false" ? "" : "true or false";
    case Takes::FORMAT: return IsOneOf(word, LinkFormats()) ? "" : "one of " + Join(LinkFormats(), ", ");
    case Takes::UNSIGNED: return IsNumber<std::uint32_t>(word) ? "" : "a whole number from 0 on";
    case Takes::INTEGER: return IsNumber<std::int64_t>(word) ? "" : "a whole number";
    case Takes::PARAMETER:
      if (word.find_first_of("+-0123456789") != 0 || IsNumber<std::uint32_t>(word)) return "";
      return "a parameter's name, or its number from 0 on";
    default: return "";
  }
}

bool IsCheckedByItself(const Command& command) {
  return !command.arguments.empty() && command.arguments.front().takes == Takes::OPTION;
}

// What the arguments in the table's usages are.
Takes KindOf(std::string_view name) {
  static const std::map<std::string_view, Takes> KINDS = {
      {"ROUTE", Takes::ROUTE},       {"NAME", Takes::FREE_ROUTE}, {"BLOCK", Takes::BLOCK},
      {"SRC", Takes::BLOCK},         {"SINK", Takes::BLOCK},      {"INSTANCE", Takes::INSTANCE},
      {"SOFILE", Takes::PLUGIN},     {"ISFIRST", Takes::BOOLEAN}, {"ISLAST", Takes::BOOLEAN},
      {"ARG", Takes::PROCESS_FILE},  {"RATE", Takes::UNSIGNED},   {"FORMAT", Takes::FORMAT},
      {"CHANNELS", Takes::UNSIGNED}, {"SAMPLES", Takes::INTEGER}, {"OUT", Takes::UNSIGNED},
      {"IN", Takes::UNSIGNED},       {"KEY", Takes::PARAMETER},   {"VALUE", Takes::VALUE},
      {"PATH", Takes::DUMP_FOLDER},  {"LEVEL", Takes::INTEGER},   {"DIR", Takes::OWN_FILE},
      {"SECONDS", Takes::VALUE},     {"FILE", Takes::OWN_FILE},   {"COMMAND", Takes::COMMAND},
      {"LINK", Takes::LINK},         {"PLUG-IN", Takes::KIND},
  };
  return name.substr(0, 1) == "-" || name == "on|off" ? Takes::OPTION : KINDS.at(name);
}

// "newblock ROUTE ... [ARG ...]": one argument a word, or a pair of brackets.
std::vector<Argument> ReadArguments(std::string_view usage) {
  if (usage.find('{') != usage.npos) return {{"COMMAND", Takes::EDIT, Count::ANY}};
  std::vector<Argument> arguments;
  for (auto at = usage.find(' '); at != std::string_view::npos;) {
    const bool optional = usage[at + 1] == '[';
    const auto begin = at + (optional ? 2 : 1);
    at = optional ? usage.find(']', begin) + 1 : usage.find(' ', begin);
    if (at == usage.size()) at = std::string_view::npos;
    const auto text = usage.substr(begin, at == std::string_view::npos ? at : at - begin);
    const auto name = text.substr(0, text.find_first_of(" ]"));
    const bool repeated = text.find("...") != std::string_view::npos;
    arguments.push_back({name, KindOf(name), repeated ? Count::ANY : optional ? Count::OPTIONAL : Count::ONE});
  }
  return arguments;
}

Command Make(std::string_view usage, std::string_view help, Verdict verdict, Runner run,
             std::string_view details = "") {
  const bool changes = run == nullptr || run == RunParameter || run == RunEdit;
  return {usage.substr(0, usage.find(' ')), usage, ReadArguments(usage), help, details, verdict, run, changes};
}

constexpr Runner SEND = nullptr;
constexpr Verdict LOCAL;

Verdict DoneIf(std::string_view beginning) { return {beginning, ""}; }
Verdict FailedIf(std::string_view reply) { return {"", reply}; }

std::vector<Command> MakeCommands() {
  return {
      Make("status [--dot|--json]", "Show routes, blocks, streams and FIFOs", FailedIf("Invalid argument\n"), RunStatus,
           "--dot prints the graph in the language of Graphviz, --json a report for programs."),
      Make("newroute NAME", "Make a route", DoneIf("Created "), SEND, "Routes are called RouteA to RouteZ."),
      Make("newblock ROUTE SOFILE ISFIRST ISLAST [ARG ...]", "Load a plug-in and add its block to a route",
           DoneIf("Created "), SEND,
           "ISFIRST: the block needs no input. ISLAST: it needs no output. true or false.\n"
           "What an ARG means is the block's own affair. File names are those of the\n"
           "process, from its current folder."),
      Make("newlink ROUTE RATE FORMAT CHANNELS SAMPLES SRC OUT SINK IN",
           "Link output OUT of block SRC to input IN of block SINK", DoneIf("Created "), SEND,
           "RATE is in Hz; SAMPLES, per channel, is the size of a frame.\n"
           "OUT and IN count from 0."),
      Make("start ROUTE", "Start a route", DoneIf("Started "), SEND),
      Make("stop ROUTE", "Stop a route", DoneIf("Stopped "), SEND),
      Make("setparam ROUTE BLOCK KEY [VALUE ...]", "Set a parameter of a block, also while it runs",
           DoneIf("Success\n"), RunParameter,
           "KEY is the parameter's number, or its name where the block tells names."),
      Make("getparam ROUTE BLOCK KEY", "Show a parameter of a block", FailedIf("Failed to get parameter\n"),
           RunParameter, "KEY is the parameter's number, or its name where the block tells names."),
      Make("params [ROUTE] [BLOCK]", "List the parameters and readings of blocks that tell them", LOCAL, RunParams),
      Make("delete ROUTE INSTANCE", "Delete a block or a link, or with ! the whole route", DoneIf("Deleted "), SEND,
           "A block takes its links along. Most command interpreters want the ! quoted: '!'."),
      Make("setdump PATH", "Write what blocks put out, and the log, to a folder", DoneIf("Done\n"), SEND,
           "The folder must be there. Each output gets a file of raw samples that ends in\n"
           ".pcm, the log goes to vorn.log. With -- in place of PATH both end."),
      Make("loglevel LEVEL", "Set how much the process logs", DoneIf("Success\n"), SEND,
           "0 nothing, 2 errors, 3 warnings, 4 changes of state, 5 tracing, 6 every frame."),
      Make("insert ROUTE LINK PLUG-IN [ARG ...]", "Put a block into a link, without a gap", LOCAL, RunEdit,
           "Carried out between two cycles, as are remove, replace, tap and edit: whole or not\n"
           "at all, and no other block stops. PLUG-IN is a block's name (gain) or its file."),
      Make("remove ROUTE BLOCK", "Take a block out and join its neighbours, without a gap", LOCAL, RunEdit),
      Make("replace ROUTE BLOCK PLUG-IN [ARG ...]", "Put another block in a block's place, without a gap", LOCAL,
           RunEdit, "The links stay."),
      Make("tap ROUTE LINK PLUG-IN [ARG ...]", "Hang a block beside a link, without a gap", LOCAL, RunEdit,
           "What goes through the link reaches the block as well, by a tee where there is none."),
      Make("edit { COMMAND ; COMMAND ... }", "Make several changes of one route at once, without a gap", LOCAL, RunEdit,
           "A COMMAND is newblock, newlink, delete, setparam, insert, remove, replace or tap.\n"
           "Command interpreters want it quoted: vrdb edit 'COMMAND; COMMAND'."),
      Make("why [ROUTE]", "Say why a route does what it does, or each of them", LOCAL, RunWhy),
      Make("timing [on|off] [--json]", "Show what blocks and cycles take, or switch measuring on or off", LOCAL,
           RunTiming,
           "Times are in microseconds, without the time that a block slept. share: the part of a\n"
           "frame's duration. Measuring costs a reading of the clock a block."),
      Make("events [-f|--follow] [--json]", "Show what happened; with -f also what happens from now on", LOCAL,
           RunEvents),
      Make("log", "Show the last lines of the process's log", LOCAL, RunLog),
      Make("processes [--json]", "List the processes that use libvorn, and their routes", LOCAL, RunProcesses),
      Make("top [--batch] [--json] [-n COUNT] [-i SECONDS]", "Watch routes and FIFOs live", LOCAL, RunTop,
           "q ends, h shows the keys. --batch prints plain lines instead, --json an object a\n"
           "line; with -n COUNT times."),
      Make("graph [FILE]", "Draw what is there into FILE.svg, .png, .pdf or .dot", LOCAL, RunGraph,
           "Drawing takes Graphviz. Without FILE the text of the graph is printed."),
      Make("save [FILE]", "Write the running graph to a file that vorn-run takes", LOCAL, RunSave,
           "Edits and the values that parameters have now are in it. Without FILE it is printed."),
      Make("record [--reset] DIR [SECONDS]", "Record what leaves every block, for vorn-run --replay", LOCAL, RunRecord,
           "Ends after SECONDS, with Ctrl-C, or with the routes. DIR is made. With --reset all blocks\n"
           "forget what they hold at the beginning: one hears it, and the replay is exact from there."),
      Make("help [COMMAND]", "List the commands, or explain one", LOCAL, RunHelp),
      Make("quit", "End the session, or the script", LOCAL, RunQuit),
      Make("exit", "The same as quit", LOCAL, RunQuit),
  };
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> COMMANDS = MakeCommands();
  return COMMANDS;
}

const Command* FindCommand(std::string_view word) {
  for (const Command& command : Commands()) {
    if (command.word == word) return &command;
  }
  return nullptr;
}

const std::vector<std::string>& LinkFormats() {
  constexpr vorn::FormatSet PACKED = vorn::Formats({vorn::SampleFormat::S24_3LE, vorn::SampleFormat::S24_3BE});
  static const std::vector<std::string> FORMATS = Split(vorn::FormatNames(vorn::ALL_FORMATS & ~PACKED)).words;
  return FORMATS;
}

std::string ListCommands(const Style& style) {
  std::string list;
  for (const Command& command : Commands()) {
    const std::string word = std::string(command.word) + std::string(11 - command.word.size(), ' ');
    list += "  " + style(Look::BOLD, word) + std::string(command.help) + "\n";
  }
  return list;
}

std::string WrongUsage(const Command& command, const Words& words) {
  if (IsCheckedByItself(command)) return {};
  const std::string usage = "; usage: " + std::string(command.usage);
  std::size_t next = 1;
  for (const Argument& argument : command.arguments) {
    const std::string name(argument.name);
    if (argument.count == Count::ANY) return {};
    if (next == words.size()) return argument.count == Count::ONE ? name + " is missing" + usage : "";
    const std::string& word = words[next++];
    const std::string expected = Expected(argument.takes, word);
    if (!expected.empty()) return name + ": expected " + expected + ", got '" + word + "'" + usage;
  }
  return next == words.size() ? "" : "'" + words[next] + "' is one argument too many" + usage;
}

// A value that getparam answers may begin with any words, so only the whole text of the failure counts there.
bool SaysFailure(const Words& words, std::string_view reply) {
  if (const Command* command = FindCommand(words.front())) {
    const auto& [success, failure] = command->verdict;
    if (!success.empty()) return !StartsWith(reply, success);
    return reply == failure || reply == "Unknown command '" + words.front() + "'\n";
  }
  return std::any_of(FAILURES.begin(), FAILURES.end(), [&](const char* text) { return StartsWith(reply, text); });
}

}  // namespace vrdb
