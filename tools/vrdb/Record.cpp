// A recording is a folder: the graph, what leaves every block, and a manifest that says what belongs together and how
// much of it can be replayed. The manifest is renewed with each look at the process, so that a recording is one at any
// time, also where vrdb or the process is killed.
//
// What was dumped before the last look that showed no change of the graph was made by the graph that was saved. So the
// sizes of the files are taken before each look.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include <vorn/kit/Streams.h>

#include "Save.h"
#include "support/Format.h"
#include "support/Printable.h"
#include "support/WholeFile.h"

namespace vrdb {
namespace {

namespace fs = std::filesystem;
using support::ListOf;
using support::Member;
using support::Named;
using support::NumberOf;
using support::TextOf;
using Clock = std::chrono::steady_clock;

constexpr const char* MANIFEST = "recording.json";
constexpr const char* GRAPH = "graph.dot";
constexpr std::chrono::milliseconds BETWEEN_LOOKS{200};
constexpr double STANDS_AFTER = 1;  // seconds in the same call of a block

struct Request {
  std::string folder;
  bool resets = false;
  std::optional<double> seconds;
};

Result ReadRequest(const Words& words, Request& request) {
  const std::string usage = "; usage: record [--reset] DIR [SECONDS]";
  Words plain;
  for (std::size_t i = 1; i < words.size(); ++i) {
    if (words[i] == "--reset") {
      request.resets = true;
    } else if (words[i].starts_with("--")) {
      return {WRONG_USAGE, "'" + words[i] + "' is not expected here" + usage};
    } else {
      plain.push_back(words[i]);
    }
  }
  if (plain.empty() || plain.size() > 2) return {WRONG_USAGE, "expected a folder, and perhaps a time" + usage};
  request.folder = plain[0];
  if (plain.size() < 2) return {};
  double seconds = 0;
  const char* const end = plain[1].data() + plain[1].size();
  const auto read = std::from_chars(plain[1].data(), end, seconds);
  if (read.ec != std::errc() || read.ptr != end || !(seconds > 0 && seconds < 1e9)) {
    return {WRONG_USAGE, "SECONDS: expected a number above 0, got '" + plain[1] + "'" + usage};
  }
  request.seconds = seconds;
  return {};
}

/** Whether somebody asked this program to end, for as long as it lives. */
class Ending {
 public:
  Ending() {
    asked = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { asked = 1; };
    for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
      sigaction(SIGNALS[i], &action, &before[i]);
      if (before[i].sa_handler == SIG_IGN) sigaction(SIGNALS[i], &before[i], nullptr);  // as somebody has it
    }
  }
  ~Ending() {
    for (std::size_t i = 0; i < SIGNALS.size(); ++i) sigaction(SIGNALS[i], &before[i], nullptr);
  }
  Ending(const Ending&) = delete;
  Ending& operator=(const Ending&) = delete;

  static bool IsAsked() { return asked != 0; }

 private:
  static constexpr std::array SIGNALS = {SIGINT, SIGTERM, SIGHUP};
  static inline volatile std::sig_atomic_t asked = 0;
  std::array<struct sigaction, SIGNALS.size()> before{};
};

/** The file of what leaves an output, as the library names it. */
std::string DumpName(const std::string& route, const Json& link) {
  const Json& from = Member(link, "from");
  return route + '-' + TextOf(from, "block") +
         support::Format("-O%02.0f-%.0fHz-", NumberOf(from, "port").value_or(0), NumberOf(link, "rate").value_or(0)) +
         TextOf(link, "format") + support::Format("-%.0fch.pcm", NumberOf(link, "channels").value_or(0));
}

std::size_t SampleBytes(const Json& link) {
  vorn::SampleFormat format{};
  if (!vorn::ParseFormat(TextOf(link, "format"), format)) return 0;
  return vorn::BytesPerSample(format) * static_cast<std::size_t>(NumberOf(link, "channels").value_or(1));
}

class Recorder {
 public:
  Recorder(Shell& newShell, const Request& newRequest)
      : shell(newShell), request(newRequest), folder(fs::absolute(newRequest.folder).lexically_normal().string()) {}

  Result Record() {
    if (Result result = Begin(); result.code != DONE) return result;
    Result result = Watch();
    End(result);
    if (const std::string problem = WriteManifest(true); !problem.empty()) return {FAILED, problem};
    Tell();
    return result;
  }

 private:
  struct Output {
    Json json;
    std::string path;
    std::size_t sampleBytes = 0;
    std::uintmax_t samples = 0;  // at the last look
  };

  Result Begin() {
    Json events, stats;
    if (Result result = shell.Look({"events", "once"}, events); result.code != DONE) return result;
    lastEvent = LastOf(events);
    if (Result result = shell.Look({"stats"}, stats); result.code != DONE) return result;
    if (Result result = CheckThatAllMove(stats); result.code != DONE) return result;
    errorFrames = ErrorFramesIn(stats);
    if (Result result = LookAtGraph(shell, graph, saved); result.code != DONE) return result;
    if (Result result = MakeFolder(); result.code != DONE) return result;
    DescribeOutputs();
    if (const std::string problem = support::WriteWhole(folder + '/' + GRAPH, saved.text); !problem.empty()) {
      return {FAILED, problem};
    }
    if (const std::string problem = WriteManifest(false); !problem.empty()) return {FAILED, problem};
    return SwitchOn();
  }

  /** A route that stands would keep the recording waiting, and begin it when nobody expects it any more. */
  static Result CheckThatAllMove(const Json& stats) {
    for (const Json& route : ListOf(stats, "routes")) {
      const std::string why = TextOf(route, "why");
      const bool stands = why == "waits" || why == "sleeps" || why == "busy";
      if (!stands || NumberOf(route, "since").value_or(0) < STANDS_AFTER) continue;
      return {FAILED, "not recorded, since a route stands: " + support::Printable(TextOf(route, "text"))};
    }
    return {};
  }

  Result MakeFolder() {
    if (fs::exists(folder + '/' + MANIFEST)) {
      return {FAILED, "'" + request.folder + "' has a recording already; expected a new folder"};
    }
    std::set<std::string> needed = {folder};
    for (const SavedGraph::Node& node : saved.nodes) {  // a block that was given by path has it in its name
      const std::string path = folder + '/' + node.route + '-' + node.block;
      needed.insert(path.substr(0, path.rfind('/')));
    }
    const uid_t owner = shell.target.Monitor() ? shell.target.Monitor()->Answering().uid : geteuid();
    for (const std::string& path : needed) {
      std::error_code problem;
      fs::create_directories(path, problem);
      if (problem) return {FAILED, "cannot make '" + path + "': " + problem.message()};
      if (geteuid() == 0 && owner != 0 && chown(path.c_str(), owner, static_cast<gid_t>(-1)) < 0) {
        return {FAILED, "cannot give '" + path + "' to the user of the process: " + std::strerror(errno)};
      }
    }
    return {};
  }

  void DescribeOutputs() {
    for (const SavedGraph::Node& node : saved.nodes) {
      const Json& route = Named(ListOf(graph, "routes"), node.route);
      const Json& links = ListOf(route, "links");
      const auto leadsTo = [&](const Json& link) { return TextOf(Member(link, "to"), "block") == node.block; };
      const bool isSource = std::ranges::none_of(links, leadsTo);
      for (const Json& link : links) {
        if (TextOf(Member(link, "from"), "block") != node.block) continue;
        const std::string file = DumpName(node.route, link);
        Output output;
        output.json = {{"route", node.route},
                       {"block", node.block},
                       {"node", node.name},
                       {"plugIn", TextOf(Named(ListOf(route, "blocks"), node.block), "plugIn")},
                       {"port", Member(Member(link, "from"), "port")},
                       {"file", file},
                       {"rate", Member(link, "rate")},
                       {"format", Member(link, "format")},
                       {"channels", Member(link, "channels")},
                       {"source", isSource}};
        output.path = folder + '/' + file;
        output.sampleBytes = SampleBytes(link);
        outputs.push_back(std::move(output));
      }
    }
  }

  Result SwitchOn() {
    Json answer;
    Words words = {"dump"};
    if (request.resets) words.emplace_back("reset");
    words.push_back(folder);
    Result result = shell.target.Do(words, shell.patience, answer);
    if (result.code != DONE) {
      SwitchOff();
      return result;
    }
    began = Clock::now();
    time = std::time(nullptr);
    routes = Json::array();
    for (const Json& route : ListOf(answer, "routes")) {
      const bool stopped = support::IsTrue(route, "stopped");
      if (stopped) mayStart.insert(TextOf(route, "name"));
      const char* const begin = stopped ? "start" : request.resets ? "reset" : "middle";
      routes.push_back({{"name", TextOf(route, "name")}, {"begins", begin}, {"fromStart", stopped || request.resets}});
    }
    LookForChanges();
    if (limit.empty()) return {};
    SwitchOff();
    fs::remove(folder + '/' + MANIFEST);
    return {FAILED, "not recorded, since the graph changed just then: " + limit};
  }

  Result SwitchOff() {
    Json answer;
    Patience patience = shell.patience;
    patience.cancelled = nullptr;
    return shell.target.Do({"dump", "off"}, patience, answer);
  }

  /** Until it is over. */
  Result Watch() {
    const Ending ending;
    for (;;) {
      if (request.seconds && Elapsed() >= *request.seconds) return how = "time", Result();
      if (Ending::IsAsked() || (shell.patience.cancelled && shell.patience.cancelled()))
        return how = "stopped", Result();
      if (HaveAllEnded()) return how = "routes ended", Result();
      const double left = request.seconds ? *request.seconds - Elapsed() : 1;
      const auto pause = std::min(BETWEEN_LOOKS, std::chrono::milliseconds(static_cast<long>(1000 * left) + 1));
      const timespec rest = {0, std::chrono::nanoseconds(pause).count()};
      nanosleep(&rest, nullptr);  // a signal ends it
      if (const Result result = LookAgain(); result.code != DONE) {
        how = "process gone";
        hasEnded = result.code == NO_CONSOLE;
        return hasEnded ? Result() : result;
      }
      if (const std::string problem = WriteManifest(false); !problem.empty()) return {FAILED, problem};
    }
  }

  void End(const Result& result) {
    if (hasEnded) {
      if (limit.empty()) limit = "the process ended " + Ago() + ", and nobody knows what changed after the last look";
      return;
    }
    if (result.code == DONE && SwitchOff().code == DONE) {
      isComplete = true;
      LookAgain();
    } else if (limit.empty()) {
      limit = "the recording could not be ended in order";
    }
  }

  std::string Ago() const { return support::Format("after %.1f s", Elapsed()); }
  double Elapsed() const { return std::chrono::duration<double>(Clock::now() - began).count(); }

  /** Sizes first: see above. */
  Result LookAgain() {
    std::vector<std::uintmax_t> samples;
    for (const Output& output : outputs) {
      std::error_code none;
      const auto bytes = fs::file_size(output.path, none);
      samples.push_back(none || output.sampleBytes == 0 ? 0 : bytes / output.sampleBytes);
    }
    if (Result result = LookForChanges(); result.code != DONE) return result;
    for (std::size_t i = 0; limit.empty() && i < outputs.size(); ++i) outputs[i].samples = samples[i];
    return {};
  }

  Result LookForChanges() {
    Json events, stats;
    if (Result result = shell.Look({"events", "once"}, events); result.code != DONE) return result;
    if (Result result = shell.Look({"stats"}, stats); result.code != DONE) return result;
    for (const Json& event : ListOf(events, "events")) {
      if (NumberOf(event, "number").value_or(0) > lastEvent) Take(event);
    }
    lastEvent = std::max(lastEvent, LastOf(events));
    for (const auto& [route, count] : ErrorFramesIn(stats)) {
      if (count > errorFrames[route]) Limit(route + " lost a frame, and its blocks began anew");
    }
    states.clear();
    for (const Json& route : ListOf(stats, "routes")) states[TextOf(route, "name")] = TextOf(route, "status");
    return {};
  }

  static double LastOf(const Json& events) {
    const Json& list = ListOf(events, "events");
    return list.empty() ? 0 : NumberOf(list.back(), "number").value_or(0);
  }

  void Take(const Json& event) {
    const std::string kind = TextOf(event, "kind"), route = TextOf(event, "route"), block = TextOf(event, "block");
    const bool isOurs = std::ranges::any_of(routes, [&](const Json& one) { return TextOf(one, "name") == route; });
    if (!isOurs) return;
    if (kind == "started" && mayStart.erase(route) > 0) return;
    const bool changes = kind == "edited" || kind == "started" || kind == "broken";
    if (changes) Limit(route + (block.empty() ? "" : ": " + block) + ": " + TextOf(event, "text"));
  }

  void Limit(const std::string& why) {
    if (limit.empty()) limit = support::Format("after %.1f s ", Elapsed()) + support::Printable(why);
  }

  static std::map<std::string, double> ErrorFramesIn(const Json& stats) {
    std::map<std::string, double> counts;
    for (const Json& route : ListOf(stats, "routes")) {
      counts[TextOf(route, "name")] = NumberOf(route, "errorFrames").value_or(0);
    }
    return counts;
  }

  /** Of routes that have run. */
  bool HaveAllEnded() const {
    return mayStart.empty() && std::ranges::all_of(routes, [&](const Json& route) {
             const auto state = states.find(TextOf(route, "name"));
             return state == states.end() || state->second == "stopped" || state->second == "dead";
           });
  }

  std::string WriteManifest(bool isOver) const {
    const Json& process = Member(graph, "process");
    Json list = Json::array();
    for (const Output& output : outputs) {
      list.push_back(output.json);
      list.back()["replayable"] = output.samples;
    }
    const std::string open = "vrdb was not there to the end of it";
    const Json manifest = {{"version", 1},
                           {"graph", GRAPH},
                           {"library", Member(process, "library")},
                           {"process", {{"pid", Member(process, "pid")}, {"name", Member(process, "name")}}},
                           {"folder", workingFolder},
                           {"time", static_cast<std::int64_t>(time)},
                           {"seconds", isOver ? Elapsed() : 0},
                           {"ended", how},
                           {"complete", isComplete},
                           {"limit", limit.empty() && !isOver ? open : limit},
                           {"leftOut", saved.leftOut},
                           {"routes", routes},
                           {"outputs", list}};
    return support::WriteWhole(folder + '/' + MANIFEST, support::ToText(manifest, 2) + "\n");
  }

  void Tell() const {
    std::printf("Recorded %.1f s of %zu outputs; 'vorn-run --replay %s' runs them again\n", Elapsed(), outputs.size(),
                request.folder.c_str());
    if (!limit.empty()) shell.Notice("can be replayed in part only: " + limit);
  }

  Shell& shell;
  const Request& request;
  const std::string folder;
  const std::string workingFolder = FolderOf(shell.target.Process());
  Json graph;
  SavedGraph saved;
  std::vector<Output> outputs;
  Json routes = Json::array();
  std::map<std::string, std::string> states;  // by route
  std::map<std::string, double> errorFrames;
  std::set<std::string> mayStart;  // routes that stood still when the recording began
  double lastEvent = 0;
  Clock::time_point began = Clock::now();
  std::time_t time = 0;
  std::string limit;  // why not all can be replayed
  std::string how;    // it ended
  bool isComplete = false;
  bool hasEnded = false;  // the process
};

}  // namespace

Result RunRecord(Shell& shell, const Words& words) {
  Request request;
  if (Result result = ReadRequest(words, request); result.code != DONE) return result;
  if (Result result = shell.target.Choose(shell.patience); result.code != DONE) return result;
  return Recorder(shell, request).Record();
}

}  // namespace vrdb
