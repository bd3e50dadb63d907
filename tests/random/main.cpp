// Random graphs: each is run by vorn-run, and its sinks must receive what a model says.
//
//   random_graphs COUNT [SEED]        so many graphs from so many seeds in a row; without SEED, from any
//   random_graphs show SEED           prints a graph
//
// VORN_TEST_PATIENCE is how many seconds a graph may take before it counts as hanging, VORN_RUN another program to try.
#include <sched.h>

#include <csignal>
#include <iostream>
#include <mutex>
#include <thread>

#include <vorn/Plugin.h>

#include "GraphMaker.h"
#include "testkit/Process.h"

namespace {

using namespace randomgraphs;

/** What was expected and what came. */
using Failure = std::string;

std::string VornRun() {
  const char* const other = std::getenv("VORN_RUN");
  return other == nullptr ? VORN_RUN : other;
}

Failure WrongCount(std::size_t sink, long expected, long got) {
  return NameOf(sink) + ": expected " + std::to_string(expected) + " samples, got " + std::to_string(got);
}

/** Its own folder. One a thread. */
class Bench {
 public:
  std::optional<Failure> Try(Graph graph);

  /** As the last graph was run. */
  const std::string& Command() const { return command; }

 private:
  testkit::Ended Run(const Graph& graph);
  std::optional<Failure> JudgeEnd(const Graph& graph, const testkit::Ended& ended) const;
  std::optional<Failure> JudgeSink(const Graph& graph, std::size_t sink, const Signal& expected,
                                   const std::string& json) const;
  std::vector<double> Levels(std::size_t node, vorn::SampleFormat format) const;

  const testkit::Folder folder;
  std::string command;
};

std::optional<Failure> Bench::Try(Graph graph) {
  const testkit::Ended ended = Run(graph);
  if (auto failure = JudgeEnd(graph, ended)) return failure;
  for (const std::size_t file : NodesOf(graph, "filesource")) {
    Node& node = graph.nodes[file];
    if (node.tap != 0) node.amount = static_cast<long>(Levels(node.tap, node.format).size() / node.channels);
  }
  for (const auto& [sink, signal] : ExpectedAtSinks(graph)) {
    if (auto failure = JudgeSink(graph, sink, signal, ended.out)) return failure;
  }
  return std::nullopt;
}

testkit::Ended Bench::Run(const Graph& graph) {
  for (const auto& entry : std::filesystem::directory_iterator(folder / "")) std::filesystem::remove_all(entry);
  for (const std::size_t file : NodesOf(graph, "filesource")) {
    const Node& node = graph.nodes[file];
    const auto bytes =
        testkit::Encoded(node.format, *FileContents(file, node.contents, node.channels, node.format).levels);
    testkit::Write(folder / FileOf(file), {bytes.begin(), bytes.end()});
  }
  testkit::Write(folder / "graph.dot", DotText(graph));
  std::vector<std::string> words{VornRun(), "-q", "--json", "graph.dot"};
  std::optional<testkit::Interruption> interruption;
  if (graph.ending == Ending::DURATION) {
    words.insert(words.begin() + 1, {"--duration", std::to_string(graph.endMicros / 1000) + "ms"});
  }
  if (graph.ending == Ending::SIGNAL) {
    const std::size_t tap = graph.nodes[NodesOf(graph, "filesource")[0]].tap;
    words.insert(words.begin() + 1, {"--set", NameOf(tap) + ".inplace=true"});  // its first samples are waited for
    interruption = {folder / FileOf(tap), testkit::Signals({SIGINT}), std::chrono::microseconds(graph.endMicros)};
  }
  command.clear();
  for (const std::string& word : words) command += word + ' ';
  if (interruption) command += "(SIGINT " + std::to_string(graph.endMicros) + " us after the first samples)";
  return testkit::RunIn(folder / "", words, interruption);
}

std::optional<Failure> Bench::JudgeEnd(const Graph& graph, const testkit::Ended& ended) const {
  if (ended.hung) return "killed after " + std::to_string(testkit::HangLimit().count()) + " ms\n" + ended.err;
  const bool wasCut = graph.ending == Ending::DURATION && ended.status != 0;  // unless nobody wanted more
  const int expected = graph.ending == Ending::SIGNAL ? -SIGINT : wasCut ? 3 : 0;
  if (ended.status == expected && ended.err.empty()) return std::nullopt;
  return "status " + std::to_string(ended.status) + " instead of " + std::to_string(expected) + ": " + ended.err;
}

std::optional<Failure> Bench::JudgeSink(const Graph& graph, std::size_t sink, const Signal& expected,
                                        const std::string& json) const {
  const Node& node = graph.nodes[sink];
  if (node.block == "null") {  // its readings have the count
    const std::string name = "\"samples\": ";
    const std::size_t reading = json.find(name, json.find('"' + NameOf(sink) + "\": {"));
    const long got = reading == json.npos ? -1 : std::atol(&json[reading + name.size()]);
    return got == expected.samples ? std::nullopt : std::optional(WrongCount(sink, expected.samples, got));
  }
  const std::vector<double> got = Levels(sink, node.format);
  if (expected.levels) {
    const auto [a, b] = std::mismatch(got.begin(), got.end(), expected.levels->begin(), expected.levels->end());
    if (a != got.end() && b != expected.levels->end()) {
      return NameOf(sink) + ": sample " + std::to_string((a - got.begin()) / node.channels) + " must be " +
             std::to_string(*b) + ", is " + std::to_string(*a);
    }
  }
  const long count = static_cast<long>(got.size() / node.channels);
  return count == expected.samples ? std::nullopt : std::optional(WrongCount(sink, expected.samples, count));
}

std::vector<double> Bench::Levels(std::size_t node, vorn::SampleFormat format) const {
  const std::string bytes = testkit::Contents(folder / FileOf(node));
  return testkit::Decoded(format, {bytes.begin(), bytes.end()});
}

constexpr std::size_t MOST_REPORTS = 5;
constexpr unsigned WORKERS_A_CORE = 2;  // most of the time goes into files and processes that begin and end

class Series {
 public:
  /** @return how many failed. */
  std::size_t Run(std::uint64_t first, std::uint64_t count) {
    std::cout << count << " graphs from seed " << first << std::endl;
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < WORKERS_A_CORE * std::max(1U, std::thread::hardware_concurrency()); ++i) {
      workers.emplace_back([&] { Work(first, count); });
    }
    for (std::thread& worker : workers) worker.join();
    std::cout << "\n" << count << " graphs from seed " << first << ": " << failed << " failed\n";
    return failed;
  }

 private:
  void Work(std::uint64_t first, std::uint64_t count) {
    unshare(CLONE_NEWNET);  // the console has one address a network namespace
    Bench bench;
    for (std::uint64_t i; (i = next++) < count;) {
      if (const auto failure = bench.Try(GraphMaker(first + i).Make())) Report(bench, first + i, *failure);
    }
  }

  void Report(const Bench& bench, std::uint64_t seed, const Failure& failure) {
    const std::lock_guard lock(mutex);
    ++failed;
    if (failed > MOST_REPORTS) return void(std::cout << "\n=== seed " << seed << std::endl);
    std::cout << "\n=== seed " << seed << "\n"
              << DotText(GraphMaker(seed).Make()) << bench.Command() << "\n"
              << failure << "\nagain: random_graphs 1 " << seed << std::endl;
  }

  std::atomic<std::uint64_t> next{0};
  std::mutex mutex;
  std::size_t failed = 0;  // guarded
};

int Run(const std::vector<std::string>& args) {
  if (args.empty()) return std::cerr << "usage: random_graphs COUNT [SEED] | show SEED\n", 2;
  const std::uint64_t seed = args.size() > 1 ? std::stoull(args[1]) : std::random_device()() % 1000000000;
  if (args[0] == "show") return std::cout << DotText(GraphMaker(seed).Make()), 0;
  return Series().Run(seed, std::stoull(args[0])) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const char* const others = std::getenv("LD_LIBRARY_PATH");  // beside the plug-ins that are made for tests
  const std::string path = VORN_TEST_PLUGIN_DIR + (others == nullptr ? std::string() : std::string(":") + others);
  setenv("LD_LIBRARY_PATH", path.c_str(), 1);
  try {
    return Run({argv + 1, argv + argc});
  } catch (const std::exception& problem) {
    std::cerr << "random_graphs: " << problem.what() << "\n";
    return 2;
  }
}
