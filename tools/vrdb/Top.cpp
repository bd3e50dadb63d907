#include "Top.h"

#include <sys/time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <thread>

#include "LocalCommands.h"
#include "Names.h"
#include "StatusText.h"
#include "support/Format.h"

namespace vrdb {
namespace {

using support::NumberOf;

std::string UtcNow() {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  char seconds[32];
  std::strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S.", &parts);
  return seconds + std::to_string(1000 + now.tv_usec / 1000).substr(1) + "Z";
}

double UnixNow() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

std::chrono::steady_clock::duration ToDuration(double seconds) {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

Result ReadOptions(const Words& words, TopOptions& options) {
  CLI::App app("", "top");
  app.set_help_flag();
  app.add_flag("-b,--batch", options.batch);
  app.add_flag("--json", options.json);
  app.add_option("-n", options.count)->check(CLI::PositiveNumber);
  app.add_option("-i,--interval", options.interval)->check(CLI::Range(0.01, 86400.0));
  try {
    app.parse(Words(words.rbegin(), words.rend() - 1));
  } catch (const CLI::ParseError& error) {
    return {WRONG_USAGE, std::string("top: ") + error.what()};
  }
  return {};
}

// New columns come at the end: scripts count them.
void PrintLines(const Json& stats) {
  const std::string time = UtcNow();
  for (const Json& route : support::ListOf(stats, "routes")) {
    const std::string why = Shown(route, "why");
    std::printf("%s route %s %s %s %s %s %s %s %s\n", time.c_str(), Shown(route, "name").c_str(),
                StatusWord(Shown(route, "status")).c_str(), NumberText(route, "framesPerSecond", 1).c_str(),
                NumberText(route, "frames", 0).c_str(), NumberText(route, "errorFrames", 0).c_str(),
                NumberText(route, "processorShare", 1, 100).c_str(), NumberText(route, "xruns", 0).c_str(),
                why.empty() ? "-" : why.c_str());
  }
  for (const Json& fifo : support::ListOf(stats, "fifos")) {
    const double count = NumberOf(fifo, "count").value_or(0);
    const double capacity = NumberOf(fifo, "capacity").value_or(0);
    std::printf("%s fifo %s %.0f %.0f %.0f\n", time.c_str(), Shown(fifo, "name").c_str(), count, capacity,
                capacity > 0 ? std::floor(count * 100 / capacity) : 0);
  }
}

void Print(const Shell& shell, const Result& result, const Json& stats, bool json) {
  if (json) {
    const Json failure = {{"time", UnixNow()}, {"error", result.message}};
    std::puts(support::ToText(result.code == DONE ? stats : failure).c_str());
  } else if (result.code == DONE) {
    PrintLines(stats);
  } else {
    shell.Complain(result);
  }
  std::fflush(stdout);
}

// Also in a session, where Ctrl-C ends the command and not vrdb.
void WaitUntil(std::chrono::steady_clock::time_point end, const Patience& patience) {
  constexpr std::chrono::milliseconds STEP{50};
  while (std::chrono::steady_clock::now() < end && !(patience.cancelled && patience.cancelled())) {
    std::this_thread::sleep_until(std::min(end, std::chrono::steady_clock::now() + STEP));
  }
}

// The process may come and go meanwhile; the last sample decides how the command ended.
Result PrintSamples(Shell& shell, const TopOptions& options) {
  for (long taken = 1;; ++taken) {
    const auto when = std::chrono::steady_clock::now();
    Json stats;
    const Result result = shell.Look({"stats"}, stats);
    if (result.code != CANCELLED) Print(shell, result, stats, options.json);
    const bool over = taken == options.count || result.code == CANCELLED || std::ferror(stdout) != 0;
    if (over) return {result.code, ""};
    WaitUntil(when + ToDuration(options.interval), shell.patience);
  }
}

}  // namespace

Result RunTop(Shell& shell, const Words& words) {
  TopOptions options;
  if (Result wrong = ReadOptions(words, options); wrong.code != DONE) return wrong;
  const bool onTerminal = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
  if (options.batch || options.json || !onTerminal) return PrintSamples(shell, options);
  return WatchOnScreen(shell, options);
}

}  // namespace vrdb
