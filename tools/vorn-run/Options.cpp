#include "Options.h"

#include <CLI/CLI.hpp>

namespace vorn::run {
namespace {

constexpr const char* FOOTER =
    R"(A pipeline is blocks with their arguments, joined by '!', or by '!!' where a new thread begins:
  vorn-run -e "filesource 'my song.wav' ! gain -6 ! filesink quiet.flac"
A graph file is a Graphviz file; name=value fills the $name in it:
  vorn-run denoise.dot in=noisy.wav out=clean.wav

A recording that 'vrdb record DIR' made runs again, on files in place of devices:
  vorn-run --replay DIR

Exit status: 0 at the end of the stream; 1 when the run failed, or not all was there; 2 when the graph could not be
built; 3 when --duration ended it before. Ctrl-C, SIGTERM and SIGHUP end the run too, all files finished; the program
then dies of that signal (130, 143, 129 in a shell). A second signal ends it at once. With --replay: 0 when all outputs
are the same, 1 when one differs, 2 when it cannot be replayed.)";

/** 90, 1.5s, 500ms, 2m, 1h. */
std::string ReadDuration(const std::string& text, std::chrono::nanoseconds& duration) {
  const std::map<std::string, double> units = {{"", 1}, {"s", 1}, {"ms", 0.001}, {"m", 60}, {"min", 60}, {"h", 3600}};
  std::size_t used = 0;
  double number = -1;
  try {
    number = std::stod(text, &used);
  } catch (const std::exception&) {
  }
  const auto unit = units.find(text.substr(used));
  const double seconds = unit == units.end() ? -1 : number * unit->second;
  if (!(seconds >= 0 && seconds < 1e9)) return "expected a time such as 90, 1.5s, 500ms, 2m or 1h, got '" + text + "'";
  duration = std::chrono::nanoseconds(static_cast<long long>(seconds * 1e9));
  return {};
}

void AddTime(CLI::App& app, const std::string& name, const std::string& help,
             const std::function<void(std::chrono::nanoseconds)>& take) {
  const auto read = [name, take](const std::string& text) {
    std::chrono::nanoseconds time{};
    if (auto problem = ReadDuration(text, time); !problem.empty()) throw CLI::ValidationError(name, problem);
    take(time);
  };
  app.add_option_function<std::string>(name, read, help)->option_text("TIME");
}

std::string ReadVariable(const std::string& text, Graph::Variables& variables) {
  const std::size_t equals = text.find('=');
  if (equals == text.npos || equals == 0) return "expected name=value behind the graph file, got '" + text + "'";
  const auto [at, isNew] = variables.emplace(text.substr(0, equals), text.substr(equals + 1));
  return isNew ? "" : "'" + at->first + "=' is given twice";
}

/** What the parser cannot know. @return what is wrong, or empty. */
std::string Complete(Options& options, const std::vector<std::string>& rest) {
  if (options.pipeline && !options.recording.empty()) return "expected -e or --replay, got both";
  if (options.pipeline) {
    return rest.empty() ? ""
                        : "-e takes one text, so quote the whole pipeline; '" + rest.front() + "' is outside of it";
  }
  if (!options.recording.empty())
    return rest.empty() ? "" : "--replay takes one folder; what is '" + rest.front() + "'?";
  if (rest.empty()) return "expected a graph file, or -e 'PIPELINE'";
  options.graphFile = rest.front();
  for (std::size_t i = 1; i < rest.size(); ++i) {
    if (auto problem = ReadVariable(rest[i], options.variables); !problem.empty()) return problem;
  }
  return "";
}

}  // namespace

std::variant<Options, int> ReadOptions(int argc, char** argv) {
  Options options;
  std::vector<std::string> rest;
  CLI::App app("Runs an audio graph: a graph file, or a pipeline on one line.", "vorn-run");
  app.footer(FOOTER);
  app.set_version_flag("--version", "vorn-run " VORN_VERSION, "Print the version and exit");
  app.add_option("graph", rest, "The graph file (- is standard input), then what fills its $names")
      ->option_text("GRAPH.dot [name=value ...]");
  app.add_option("-e,--pipeline", options.pipeline, "Run this pipeline")->option_text("PIPELINE");
  app.add_flag("--check", options.checks, "Build the graph but do not start it; print its links with their streams");
  app.add_flag("--dot", options.writesDot, "Print the graph as a graph file with nothing left open, and exit");
  app.add_flag("--json", options.writesJson, "Print the result (with --check: the graph) as JSON");
  app.add_option("--set", options.settings, "Give a block's parameter another value; may be repeated")
      ->option_text("NODE.PARAMETER=VALUE")
      ->allow_extra_args(false);
  app.add_flag("--sync", options.syncs, "Have every filesink wait at its end until its file is on the disk");
  app.add_flag("--no-clobber", options.keepsOutputs, "Refuse to replace a file that is there already");
  app.add_option("--dump", options.dumpFolder, "Write what leaves every block to raw files in this folder")
      ->option_text("DIR");
  AddTime(app, "--duration", "Stop after this time on the clock: 90, 1.5s, 500ms, 2m, 1h",
          [&](std::chrono::nanoseconds time) { options.duration = time; });
  app.add_option("--replay", options.recording,
                 "Run a recording of 'vrdb record' again, and say whether all outputs are the same, bit by bit")
      ->option_text("DIR");
  AddTime(app, "--settle", "With --replay: how long a route that was recorded in the middle may differ at first (1s)",
          [&](std::chrono::nanoseconds time) { options.settling = time; });
  app.add_option("--realtime", options.realtimePriority,
                 "Ask for this real-time priority (SCHED_FIFO) for every route, and lock memory")
      ->option_text("1..99")
      ->check(CLI::Range(1, 99));
  app.add_flag("-q,--quiet", options.isQuiet, "Say nothing but errors");
  app.add_option(
         "--log-level", options.logLevel,
         "Show the library's log on standard error: 0 nothing, 2 errors, 3 warnings, 4 changes of state, 5 debugging, "
         "6 every frame")
      ->option_text("0..6")
      ->check(CLI::Range(0, 6));
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    std::cerr << "vorn-run: " << error.what() << "; see vorn-run --help\n";
    return 2;
  }
  if (const std::string problem = Complete(options, rest); !problem.empty()) {
    std::cerr << "vorn-run: " << problem << "; see vorn-run --help\n";
    return 2;
  }
  return options;
}

}  // namespace vorn::run
