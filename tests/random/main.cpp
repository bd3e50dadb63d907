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

/** What was expected and what came; empty where they are alike. */
using Failure = std::string;

std::string VornRun() {
  const char* const other = std::getenv("VORN_RUN");
  return other == nullptr ? VORN_RUN : other;
}

Failure CompareCounts(std::size_t sink, long expected, long got) {
  if (got == expected) return "";
  return NameOf(sink) + ": expected " + std::to_string(expected) + " samples, got " + std::to_string(got);
}

Failure JudgeEnd(const Graph& graph, const testkit::Ended& ended) {
  if (ended.hung) return "killed after " + std::to_string(testkit::HangLimit().count()) + " ms\n" + ended.err;
  const bool wasCut = graph.ending == Ending::DURATION && ended.status != 0;  // unless nobody wanted more
  const int expected = graph.ending == Ending::SIGNAL ? -SIGINT : wasCut ? 3 : 0;
  if (ended.status == expected && ended.err.empty()) return "";
  return "status " + std::to_string(ended.status) + " instead of " + std::to_string(expected) + ": " + ended.err;
}

/** Its own folder. One a thread. */
class Bench {
 public:
  Failure Try(Graph graph);

  /** As the last graph was run. */
  const std::string& Command() const { return command; }

 private:
  testkit::Ended Run(const Graph& graph);
  Failure JudgeSink(const Graph& graph, std::size_t sink, const Signal& expected, const std::string& json) const;
  std::vector<double> Levels(std::size_t node, vorn::SampleFormat format) const;

  const testkit::Folder folder;
  std::string command;
};

Failure Bench::Try(Graph graph) {
  const testkit::Ended ended = Run(graph);
  Failure failure = JudgeEnd(graph, ended);
  for (const std::size_t file : NodesOf(graph, "filesource")) {
    Node& node = graph.nodes[file];
    if (node.tap != 0) node.amount = static_cast<long>(Levels(node.tap, node.format).size() / node.channels);
  }
  for (const auto& [sink, signal] : ExpectedAtSinks(graph)) {
    if (failure.empty()) failure = JudgeSink(graph, sink, signal, ended.out);
  }
  return failure;
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

Failure Bench::JudgeSink(const Graph& graph, std::size_t sink, const Signal& expected, const std::string& json) const {
  const Node& node = graph.nodes[sink];
  if (node.block == "null") {  // its readings have the count
    const std::string name = "\"samples\": ";
    const std::size_t reading = json.find(name, json.find('"' + NameOf(sink) + "\": {"));
    return CompareCounts(sink, expected.samples, reading == json.npos ? -1 : std::atol(&json[reading + name.size()]));
  }
  const std::vector<double> got = Levels(sink, node.format);
  for (std::size_t i = 0; expected.levels && i < std::min(got.size(), expected.levels->size()); ++i) {
    const double right = (*expected.levels)[i];
    if (got[i] == right) continue;
    return NameOf(sink) + ": sample " + std::to_string(i / node.channels) + " must be " + std::to_string(right) +
           ", is " + std::to_string(got[i]);
  }
  return CompareCounts(sink, expected.samples, static_cast<long>(got.size() / node.channels));
}

std::vector<double> Bench::Levels(std::size_t node, vorn::SampleFormat format) const {
  const std::string bytes = testkit::Contents(folder / FileOf(node));
  return testkit::Decoded(format, {bytes.begin(), bytes.end()});
}

constexpr std::size_t MOST_REPORTS = 5;
constexpr unsigned WORKERS_A_CORE = 2;  // most of the time goes into files and processes that begin and end

/** @return how many failed. */
std::size_t RunAll(std::uint64_t first, std::uint64_t count) {
  std::cout << count << " graphs from seed " << first << std::endl;
  std::atomic<std::uint64_t> next{0};
  std::mutex mutex;
  std::size_t failed = 0;  // guarded
  const auto work = [&] {
    unshare(CLONE_NEWNET);  // the console has one address a network namespace
    Bench bench;
    for (std::uint64_t i; (i = next++) < count;) {
      const Graph graph = GraphMaker(first + i).Make();
      const Failure failure = bench.Try(graph);
      if (failure.empty()) continue;
      const std::lock_guard lock(mutex);
      std::cout << "\n=== seed " << first + i << std::endl;
      if (++failed > MOST_REPORTS) continue;
      std::cout << DotText(graph) << bench.Command() << "\n"
                << failure << "\nagain: random_graphs 1 " << first + i << std::endl;
    }
  };
  std::vector<std::thread> workers;
  for (unsigned i = 0; i < WORKERS_A_CORE * std::max(1U, std::thread::hardware_concurrency()); ++i) {
    workers.emplace_back(work);
  }
  for (std::thread& worker : workers) worker.join();
  std::cout << "\n" << count << " graphs from seed " << first << ": " << failed << " failed\n";
  return failed;
}

int Run(const std::vector<std::string>& args) {
  if (args.empty()) return std::cerr << "usage: random_graphs COUNT [SEED] | show SEED\n", 2;
  const std::uint64_t seed = args.size() > 1 ? std::stoull(args[1]) : std::random_device()() % 1000000000;
  if (args[0] == "show") return std::cout << DotText(GraphMaker(seed).Make()), 0;
  return RunAll(seed, std::stoull(args[0])) == 0 ? 0 : 1;
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
