// vorn-run: runs a graph with what the command line says, and tells how it went.
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <new>

#include "CrashNotice.h"
#include "Display.h"
#include "Options.h"
#include "StopSignals.h"
#include "support/StandardStreams.h"

namespace vorn::run {
namespace {

enum ExitStatus { ENDED = 0, FAILED = 1, NOT_BUILT = 2, CUT_SHORT = 3 };

Graph Read(const Options& options) {
  if (!options.recording.empty()) return Graph::FromRecording(options.recording);
  if (options.pipeline) return Graph::FromPipeline(*options.pipeline, "-e");
  if (options.graphFile != "-") return Graph::FromFile(options.graphFile, options.variables);
  return Graph::FromText({std::istreambuf_iterator<char>(std::cin), {}}, "-", options.variables);
}

/** All that is there and all that comes, so that no frame waits for a page. @return whether that was granted. */
std::string LockMemory() {
  if (mlockall(MCL_CURRENT | MCL_FUTURE) == 0) return "memory locked";
  const bool isLimit = errno == ENOMEM || errno == EPERM;
  return std::string("memory not locked: ") + std::strerror(errno) +
         (isLimit ? "; raise the limit 'memlock' (ulimit -l), or give CAP_IPC_LOCK" : "");
}

class Program {
 public:
  explicit Program(const Options& newOptions) : options(newOptions), display(options.isQuiet), graph(Read(options)) {}

  /** An exit status, or less the signal that the program is to die of. */
  int Run() {
    if (options.syncs) {
      if (const auto error = graph.SetAll("sync=true", "--sync")) return Refuse(*error);
    }
    if (options.keepsOutputs) {
      if (const auto error = graph.SetAll("clobber=false", "--no-clobber")) return Refuse(*error);
    }
    for (const std::string& setting : options.settings) {
      if (const auto error = graph.Set(setting, "--set")) return Refuse(*error);
    }
    graph.TakeLog(options.logLevel);
    if (const auto error = options.writesDot ? graph.Plan() : graph.Check()) return Refuse(*error);
    if (options.writesDot) return Print(graph.ToDot());
    if (options.checks) return Print(options.writesJson ? graph.ToJson() : graph.ToTable());
    if (options.writesJson && graph.WritesStandardOutput()) {
      return Refuse({{"--json", 0, 0}, "a block writes its sound to standard output; expected another path for it"});
    }
    if (const auto error = options.dumpFolder.empty() ? std::nullopt : graph.SetDump(options.dumpFolder)) {
      return Refuse({{"--dump", 0, 0}, error->text});
    }
    return options.recording.empty() ? Report(RunGraph()) : Replay();
  }

 private:
  Graph::Result RunGraph() {
    Graph::RunOptions run;
    run.duration = options.duration;
    run.realtimePriority = options.realtimePriority;
    run.onNotice = [this](const std::string& text) { display.Say(text); };
    run.onWarning = [this](const std::string& text) { display.Complain(text); };
    if (display.ShowsProgress()) {
      run.onProgress = [this](const auto& figures, double elapsed) { display.Progress(figures, elapsed); };
    }
    if (options.realtimePriority > 0) display.Say(LockMemory());
    NameWhoExits();  // before the library, which is there by now, has a go at its end
    const StopSignals signals(graph);
    return graph.Run(run);
  }

  int Replay() {
    const Graph::Result result = RunGraph();
    if (result.end != Graph::End::STREAM) return Report(result);
    const auto compared = graph.CompareWithRecording(options.settling);
    if (const auto* error = std::get_if<Graph::Error>(&compared)) return Refuse(*error);
    const auto& outputs = std::get<0>(compared);
    for (const std::string& line : ReplayLines(outputs)) display.Say(line);
    if (const std::string limit = graph.LimitOfRecording(); !limit.empty())
      display.Say("not compared to the end: " + limit);
    if (options.writesJson) Print(graph.ToJson(result, outputs));
    const auto different = std::ranges::find_if(outputs, [](const auto& one) { return !one.IsSame(); });
    if (different == outputs.end()) return ENDED;
    display.Complain("differs first at " + WhereText(*different, *different->firstDifference));
    return FAILED;
  }

  int Report(const Graph::Result& result) {
    if (result.error) display.Complain(result.error->ToString());
    const Graph::Figures figures = graph.CurrentFigures();
    const std::string how = HowItEnded(result);
    if (!result.error || figures.frames > 0) display.Say(how + ": " + SummaryText(figures, result.elapsedSeconds));
    if (!result.error) {
      for (const std::string& line : ReadingLines(graph.CurrentReadings())) display.Say(line);
    }
    if (options.writesJson) Print(graph.ToJson(result));
    if (result.error) return FAILED;
    if (result.signal) return -result.signal;
    return result.end == Graph::End::STREAM ? ENDED : CUT_SHORT;
  }

  static std::string HowItEnded(const Graph::Result& result) {
    const std::string how = result.signal ? strsignal(result.signal) : result.Name();
    if (result.end == Graph::End::DURATION || result.end == Graph::End::STOPPED) {
      return how + ", before the end of the stream";
    }
    return how;
  }

  int Refuse(const Graph::Error& error) {
    display.Complain(error.ToString());
    return NOT_BUILT;
  }

  static int Print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    return ENDED;
  }

  const Options& options;
  Display display;
  Graph graph;
};

int Run(int argc, char** argv) try {
  const auto options = ReadOptions(argc, argv);
  if (const int* status = std::get_if<int>(&options)) return *status;
  std::signal(SIGPIPE, SIG_IGN);  // a reader of our lines that has gone must not cost the files
  return Program(std::get<Options>(options)).Run();
} catch (const std::bad_alloc&) {
  std::fputs("vorn-run: out of memory\n", stderr);
  return FAILED;
} catch (const std::exception& e) {
  std::fprintf(stderr, "vorn-run: %s\n", e.what());
  return FAILED;
}

/** What was printed and did not arrive is a failure, also of a run that went well. */
int Finish(int status) {
  const std::string problem = FlushOutput();
  if (problem.empty()) return status;
  std::fprintf(stderr, "vorn-run: %s\n", problem.c_str());
  return status > ENDED ? status : FAILED;
}

}  // namespace
}  // namespace vorn::run

int main(int argc, char** argv) {
  vorn::OpenStandardStreams();
  vorn::run::NameWhoExits();
  const int status = vorn::run::Finish(vorn::run::Run(argc, argv));
  if (status >= 0) return status;
  // Whoever waits for us, a shell with a loop say, is to see that it was a signal.
  std::signal(-status, SIG_DFL);
  std::raise(-status);
  return 128 - status;
}
