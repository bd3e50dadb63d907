// vorn-run: options, description, plan, live graph, run.
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "Display.h"
#include "Json.h"
#include "OneLiner.h"
#include "Options.h"
#include "PlanText.h"
#include "Readings.h"
#include "Resolver.h"
#include "Settings.h"

namespace vorn::run {
namespace {

using namespace graph;

enum ExitStatus { ENDED = 0, FAILED = 1, NOT_BUILT = 2 };

Result<std::string> ReadText(const std::string& file) {
  if (file == "-") return std::string(std::istreambuf_iterator<char>(std::cin), {});
  std::ifstream stream(file, std::ios::binary);
  std::string text;
  std::array<char, 4096> part;  // read(), unlike an iterator, tells of a failure by the stream's state: a folder is one
  while (stream.read(part.data(), part.size()) || stream.gcount() > 0) {
    text.append(part.data(), static_cast<std::size_t>(stream.gcount()));
  }
  if (!stream.is_open() || stream.bad()) return Error{{file, 0, 0}, "cannot be read; expected a graph file"};
  return text;
}

Result<GraphDescription> Read(const Options& options) {
  if (options.pipeline) return ReadOneLiner(*options.pipeline);
  const auto text = ReadText(options.graphFile);
  if (const auto* error = std::get_if<Error>(&text)) return *error;
  return ReadGraphFile(std::get<std::string>(text), options.graphFile, options.variables);
}

std::optional<Error> PrepareDump(const std::string& folder, LiveGraph& live) {
  if (folder.empty()) return std::nullopt;
  std::error_code problem;
  std::filesystem::create_directories(folder, problem);
  if (problem) return Error{{"--dump", 0, 0}, "'" + folder + "' cannot be made: " + problem.message()};
  live.SetDump(folder);
  return std::nullopt;
}

class Program {
 public:
  explicit Program(const Options& newOptions) : options(newOptions), display(options.isQuiet) {}

  /** An exit status, or less the signal that the program is to die of. */
  int Run() {
    auto read = Read(options);
    if (const auto* error = std::get_if<Error>(&read)) return Refuse(*error);
    GraphDescription graph = std::get<GraphDescription>(std::move(read));
    LoadedPlugIns plugIns;
    for (const std::string& setting : options.settings) {
      if (const auto error = ApplySetting(graph, plugIns, setting)) return Refuse(*error);
    }

    Vorn::Instance();  // reads its configuration first, so that ours of the log is the last
    LogTail log(options.logLevel);
    RouteEvents events;
    std::deque<RouteWatch> watches;
    std::vector<Route::Callbacks*> callbacks;
    for (std::size_t i = 0; i < graph.routes.size(); ++i) {
      callbacks.push_back(&watches.emplace_back(i, options.realtimePriority, events));
    }
    LiveGraph live(graph, callbacks, log);
    const auto plan = Resolve(
        graph, plugIns, [&](std::size_t node, const BlockPlan& block) { return live.AskForStreams(node, block); });
    if (const auto* error = std::get_if<Error>(&plan)) return Refuse(*error);
    return Use(std::get<GraphPlan>(plan), live, events, log);
  }

 private:
  int Use(const GraphPlan& plan, LiveGraph& live, RouteEvents& events, LogTail& log) {
    if (options.writesDot) return Print(DotOf(plan));
    if (const auto error = live.Build(plan)) return Refuse(*error);
    if (options.checks) return Print(options.writesJson ? JsonOf(plan) : TableOf(plan));
    if (const auto error = PrepareDump(options.dumpFolder, live)) return Refuse(*error);

    Runner runner(plan, live, events, log, display);
    const RunResult result = runner.Run(options.duration);
    if (result.error) display.Complain(ToString(*result.error));
    const Figures figures = FiguresOf(plan, live);
    const std::string how = result.signal ? strsignal(result.signal) : NameOf(result.end);
    if (!result.error || figures.frames > 0) display.Say(how + ": " + SummaryText(figures, result.elapsedSeconds));
    for (std::size_t i = 0; i < plan.blocks.size() && !result.error; ++i) {
      if (const std::string text = ReadingsText(plan, live, i); !text.empty()) display.Say(text);
    }
    if (options.writesJson) Print(JsonOf(plan, live, result));
    if (result.end == RunResult::End::FAILURE) return FAILED;
    return result.signal ? -result.signal : ENDED;
  }

  int Refuse(const Error& error) {
    display.Complain(ToString(error));
    return NOT_BUILT;
  }

  static int Print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    return std::fflush(stdout) == 0 ? ENDED : FAILED;
  }

  const Options& options;
  Display display;
};

}  // namespace
}  // namespace vorn::run

int main(int argc, char** argv) {
  const auto options = vorn::run::ReadOptions(argc, argv);
  if (const int* status = std::get_if<int>(&options)) return *status;
  std::signal(SIGPIPE, SIG_IGN);  // a reader of our lines that has gone must not cost the files
  const int status = vorn::run::Program(std::get<vorn::run::Options>(options)).Run();
  if (status >= 0) return status;
  // Whoever waits for us, a shell with a loop say, is to see that it was a signal.
  std::signal(-status, SIG_DFL);
  std::raise(-status);
  return 128 - status;
}
