/** vrdb: the command line of the client of console and monitor. */
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>

#include "CommandTable.h"
#include "Shell.h"
#include "support/StandardStreams.h"
#ifdef VRDB_WITH_SESSION
#include "Session.h"
#endif

namespace {

using namespace vrdb;

struct Options {
  std::optional<std::string> script;
  std::string process;
  bool keepGoing = false;
  bool atomic = false;
  Permission permission;
  double timeout = 10;
  Words words;
};

int Complain(int code, const std::string& message) {
  if (!message.empty()) std::cerr << "vrdb: " << message << std::endl;
  return code;
}

class HelpText : public CLI::Formatter {
  std::string make_usage(const CLI::App*, std::string) const override {
    return "Usage: vrdb [OPTIONS] [COMMAND [ARGUMENT ...]]\n"
           "Without COMMAND: a session on a terminal, or one command a line from standard input.\n";
  }
};

void Declare(CLI::App& app, Options& options) {
  app.formatter(std::make_shared<HelpText>());
  app.footer("Commands ('vrdb help COMMAND' explains one):\n" + ListCommands(Style(STDOUT_FILENO)) +
             "\nExit status: 0 done, 1 it failed or was not done, 2 wrong usage, 3 no console and no monitor, 4 no "
             "answer in time");
  app.prefix_command();
  app.set_version_flag("--version", "vrdb " VORN_VERSION);
  app.add_option("-f,--file", options.script, "Run the commands in a file, one a line; - is standard input")
      ->type_name("FILE");
  app.add_option("-p,--process", options.process, "The process, by its number or name, if not that with the console")
      ->type_name("PID|NAME");
  app.add_flag("--atomic", options.atomic, "With -f: carry the file out as one edit, or not at all");
  app.add_flag("--wait", options.permission.wait, "Send a command also where a route has to carry it out that stands");
  app.add_flag("--force", options.permission.force, "Send a command also where it stops a running route");
  app.add_flag("-k,--keep-going", options.keepGoing, "Go on after a command that failed");
  app.add_option("--timeout", options.timeout, "How long to wait for an answer, 10 if not said; 0 waits for ever")
      ->check(CLI::Range(0.0, 1e6).description(""))
      ->type_name("SECONDS");
}

int RunLines(Shell& shell, std::istream& lines, const std::string& name, const Options& options) {
  return options.atomic ? shell.RunAtomically(lines, name) : shell.RunScript(lines, name, options.keepGoing);
}

int RunFile(Shell& shell, const std::string& name, const Options& options) {
  if (name == "-") return RunLines(shell, std::cin, "standard input", options);
  std::ifstream file(name);
  file.peek();  // a folder can be opened, but not read
  if (!file.is_open() || file.bad()) {
    return Complain(WRONG_USAGE, "cannot read '" + name + "': " + std::strerror(errno));
  }
  return RunLines(shell, file, name, options);
}

// A reply that was lost on its way to a file is no success.
int Finish(int code) {
  const std::string problem = vorn::FlushOutput();
  return problem.empty() ? code : Complain(code == DONE ? FAILED : code, problem);
}

int RunInteractively([[maybe_unused]] Shell& shell) {
#ifdef VRDB_WITH_SESSION
  return RunSession(shell);
#else
  return Complain(
      WRONG_USAGE,
      "built without libedit, so there is no session; give a command (--help lists them), -f FILE, or a pipe");
#endif
}

int Run(Shell& shell, const Options& options) {
  if (!options.words.empty()) {
    if (options.words.front().substr(0, 1) == "-") {
      return Complain(WRONG_USAGE, "'" + options.words.front() + "' is no option; --help lists them");
    }
    if (options.script) return Complain(WRONG_USAGE, "either -f FILE or a command, not both");
    if (options.atomic) return Complain(WRONG_USAGE, "--atomic is for the commands of -f FILE");
    if (isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1) shell.confirm = ConfirmOnTerminal;
    const Result result = shell.Run(options.words);
    shell.Complain(result);
    return result.code;
  }
  if (options.script) return RunFile(shell, *options.script, options);
  const bool isSession = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1 && !options.atomic;
  if (isSession) return RunInteractively(shell);
  return RunFile(shell, "-", options);
}

}  // namespace

int main(int argc, char** argv) {
  vorn::OpenStandardStreams();
  Options options;
  CLI::App app("Looks into, and edits, the graphs of a running process.", "vrdb");
  Declare(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return Finish(app.exit(error));
    return Complain(WRONG_USAGE, std::string(error.what()) + "; --help lists the options");
  }
  options.words = app.remaining();
  if (!options.words.empty() && options.words.front() == "--") options.words.erase(options.words.begin());
  Patience patience;
  patience.limit = std::chrono::milliseconds(std::lround(std::ceil(options.timeout * 1000)));
  if (isatty(STDERR_FILENO) == 1) patience.busy = [](const std::string& notice) { Complain(DONE, notice); };
  Shell shell(patience, options.process, options.permission);
  return Finish(Run(shell, options));
}
