/**
 * Every command of vrdb, once: what dispatch, the check of arguments, help, completion and the manual page's test go
 * by.
 */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Style.h"
#include "Words.h"

namespace vrdb {

class Shell;
struct Result;

/** What an argument is: how it is checked, and what completes it. */
enum class Takes {
  ROUTE,
  FREE_ROUTE,    ///< the name of a route that is not there yet
  BLOCK,         ///< of the route named before it
  INSTANCE,      ///< a block or a link of that route, or '!'
  LINK,          ///< of the route named before it
  PLUGIN,        ///< a plug-in, by its bare name or as a file of the process
  KIND,          ///< the same, also without lib and .so
  BOOLEAN,       ///< true or false
  FORMAT,        ///< a sample format that the console takes
  UNSIGNED,      ///< 0 to 4294967295
  INTEGER,       ///< a number with or without a sign
  PARAMETER,     ///< a parameter of the block named before it, by its name or its number
  DUMP_FOLDER,   ///< a folder of the process, or --
  PROCESS_FILE,  ///< anything; file names as the process sees them complete it
  OWN_FILE,      ///< a file where vrdb runs
  COMMAND,
  EDIT,    ///< commands in braces
  VALUE,   ///< of the parameter named before it
  OPTION,  ///< may stand anywhere; the command checks it
};

enum class Count { ONE, OPTIONAL, ANY };

struct Argument {
  std::string_view name;
  Takes takes;
  Count count = Count::ONE;
};

/** How the console's reply tells whether a command was done. */
struct Verdict {
  std::string_view success;  ///< how the reply begins when it was; if empty,
  std::string_view failure;  ///< the whole reply when it was not
};

using Runner = Result (*)(Shell& shell, const Words& words);

struct Command {
  std::string_view word;
  std::string_view usage;  ///< "newroute NAME"
  std::vector<Argument> arguments;
  std::string_view help;     ///< one line
  std::string_view details;  ///< lines that `help WORD` adds; may be empty
  Verdict verdict;
  Runner run;    ///< null: the words are sent as they are
  bool changes;  ///< asks first where it would wait for a route, or stop one; takes --wait and --force
};

const std::vector<Command>& Commands();
/** Null for a word that is no command of vrdb; the console has the last word on those. */
const Command* FindCommand(std::string_view word);

const std::vector<std::string>& LinkFormats();

/** A line a command: its word, and what it is for. */
std::string ListCommands(const Style& style);
/** What is wrong with these words, the command among them, in one line; empty: nothing. */
std::string WrongUsage(const Command& command, const Words& words);
/** Whether the console's reply to these words says that it failed. */
bool SaysFailure(const Words& words, std::string_view reply);

}  // namespace vrdb
