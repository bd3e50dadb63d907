#include "Top.h"

#include <sys/time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <thread>

#include "LocalCommands.h"
#include "ReportJson.h"
#include "support/Format.h"

namespace vrdb {
namespace {

std::string UtcNow() {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  char seconds[32];
  std::strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S.", &parts);
  return seconds + std::to_string(1000 + now.tv_usec / 1000).substr(1) + "Z";
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

void PrintLines(const Sample& sample, const Rates& rates) {
  const char* time = sample.time.c_str();
  for (const RouteStatus& route : sample.report.routes) {
    const auto rate = rates.FramesPerSecond(route.name);
    const std::string text = rate ? support::Format("%.1f", *rate) : "-";
    std::printf("%s route %s %s %s %ju %ju\n", time, route.name.c_str(), route.status.c_str(), text.c_str(),
                static_cast<std::uintmax_t>(route.frames), static_cast<std::uintmax_t>(route.errors));
  }
  for (const FifoStatus& fifo : sample.report.fifos) {
    std::printf("%s fifo %s %ld %ld %ld\n", time, fifo.name.c_str(), fifo.samples, fifo.capacity, fifo.percent);
  }
}

void Print(const Sample& sample, const Rates& rates, bool json) {
  if (json) {
    std::puts(SampleToJson(sample, rates).c_str());
  } else if (sample.result.code == DONE) {
    PrintLines(sample, rates);
  } else {
    std::cerr << "vrdb: " << sample.result.message << std::endl;
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
  Rates rates;
  for (long taken = 1;; ++taken) {
    const Sample sample = TakeSample(shell);
    rates.Add(sample);
    if (sample.result.code != CANCELLED) Print(sample, rates, options.json);
    const bool over = taken == options.count || sample.result.code == CANCELLED || std::ferror(stdout) != 0;
    if (over) return {sample.result.code, ""};
    WaitUntil(sample.when + ToDuration(options.interval), shell.patience);
  }
}

}  // namespace

Sample TakeSample(Shell& shell) {
  Sample sample;
  std::string reply;
  sample.result = shell.Ask({"status"}, reply);
  sample.when = std::chrono::steady_clock::now();
  sample.time = UtcNow();
  sample.process = shell.Process();
  sample.report = ParseStatus(reply);
  return sample;
}

void Rates::Add(const Sample& sample) {
  before = std::move(now);
  now = {sample.when, sample.process.pid, {}};
  for (const RouteStatus& route : sample.report.routes) now.routes[route.name] = {route.frames, route.errors};
}

std::optional<Rates::Pair> Rates::Compare(const std::string& route) const {
  const auto old = before.routes.find(route);
  const auto young = now.routes.find(route);
  if (before.pid != now.pid || old == before.routes.end() || young == now.routes.end()) return {};
  if (young->second.frames < old->second.frames || young->second.errors < old->second.errors) return {};
  return Pair{old->second, young->second};
}

std::optional<double> Rates::FramesPerSecond(const std::string& route) const {
  const auto pair = Compare(route);
  const double seconds = std::chrono::duration<double>(now.when - before.when).count();
  if (!pair || seconds <= 0) return {};
  return static_cast<double>(pair->now.frames - pair->before.frames) / seconds;
}

bool Rates::HasNewErrors(const std::string& route) const {
  const auto pair = Compare(route);
  return pair && pair->now.errors > pair->before.errors;
}

Result RunTop(Shell& shell, const Words& words) {
  TopOptions options;
  if (Result wrong = ReadOptions(words, options); wrong.code != DONE) return wrong;
  const bool onTerminal = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
  if (options.batch || options.json || !onTerminal) return PrintSamples(shell, options);
  return WatchOnScreen(shell, options);
}

}  // namespace vrdb
