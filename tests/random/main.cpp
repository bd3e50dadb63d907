// Random graphs: each is run by vorn-run, and its sinks must receive what a model says.
//
//   random_graphs COUNT [SEED]        so many graphs from so many seeds in a row; without SEED, from any
//   random_graphs show SEED           prints a graph
//   random_graphs shrink SEED         leaves out of a graph that fails what it fails without
//
// RANDOM_GRAPHS_TIMEOUT is how many seconds a graph may take before it counts as hanging, VORN_RUN another program to
// try.
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "GraphMaker.h"
#include "Shrink.h"
#include "Trial.h"

namespace {

using namespace randomgraphs;
namespace fs = std::filesystem;

constexpr std::size_t MOST_REPORTS = 5;
constexpr std::size_t MOST_SEEDS = 8;
constexpr unsigned WORKERS_A_CORE = 2;     // most of the time goes into files and processes that begin and end
constexpr std::uint64_t FRAMES_AGAIN = 5;  // every so many-th graph is run with other frames as well

fs::path Scratch() {
  std::string name = (fs::temp_directory_path() / "random-graphs-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name + ": cannot be made");
  return name;
}

class Series {
 public:
  Series(std::uint64_t newFirst, std::uint64_t newCount) : first(newFirst), count(newCount), scratch(Scratch()) {}
  ~Series() { fs::remove_all(scratch); }
  Series(const Series&) = delete;
  Series& operator=(const Series&) = delete;

  /** @return how many failed. */
  std::size_t Run() {
    std::vector<std::thread> workers;
    const std::uint64_t most = WORKERS_A_CORE * std::max(1U, std::thread::hardware_concurrency());
    for (std::uint64_t i = 0; i < std::min(most, count); ++i) {
      workers.emplace_back([this, i] { Work(scratch / std::to_string(i)); });
    }
    for (std::thread& worker : workers) worker.join();
    return Summarise();
  }

 private:
  void Work(const fs::path& folder) {
    // The console has one address a network namespace.
    unshare(CLONE_NEWNET);
    Bench bench(folder);
    for (std::uint64_t i; (i = next++) < count;) {
      const std::uint64_t seed = first + i;
      const bool again = seed % FRAMES_AGAIN == 0;
      const auto failure = TrySeed(bench, seed, again);
      Count(GraphMaker(seed, 0).Make(), failure.has_value());
      if (failure) Report(bench, seed, *failure);
    }
  }

  static std::string ClassOf(const Graph& graph) {
    if (graph.ending != Ending::BY_ITSELF) return "stopped from outside";
    if (NodesOf(graph, Work::FIFO).empty()) return "one route";
    const bool hasLoop = std::ranges::any_of(graph.nodes, &Node::closesLoop);
    return hasLoop ? "FIFOs that lead back" : "FIFOs between routes";
  }

  void Count(const Graph& graph, bool failed) {
    const std::lock_guard lock(mutex);
    auto& [tried, bad] = classes[ClassOf(graph)];
    ++tried;
    bad += failed ? 1 : 0;
  }

  void Report(const Bench& bench, std::uint64_t seed, const Failure& failure) {
    const std::lock_guard lock(mutex);
    auto& seeds = failures[failure.kind];
    seeds.push_back(seed);
    if (seeds.size() > 1 || failures.size() > MOST_REPORTS) return;
    std::cout << "\n=== seed " << seed << ": " << failure.kind << "\n"
              << DotText(GraphMaker(seed, 0).Make()) << bench.Command() << "\n"
              << failure.text << "\nagain: random_graphs 1 " << seed << std::endl;
  }

  std::size_t Summarise() {
    std::vector<std::pair<std::size_t, std::string>> kinds;
    std::size_t failed = 0;
    for (auto& [kind, seeds] : failures) {
      std::sort(seeds.begin(), seeds.end());
      failed += seeds.size();
      kinds.emplace_back(seeds.size(), kind);
    }
    std::sort(kinds.rbegin(), kinds.rend());
    std::cout << "\n" << count << " graphs from seed " << first << ": " << failed << " failed\n";
    for (const auto& [name, counts] : classes) {
      std::cout << "  " << name << ": " << counts.second << " of " << counts.first << "\n";
    }
    for (const auto& [howMany, kind] : kinds) {
      std::cout << "  " << howMany << "  " << kind << "\n      seeds";
      const auto& seeds = failures[kind];
      for (std::size_t i = 0; i < std::min(MOST_SEEDS, seeds.size()); ++i) std::cout << ' ' << seeds[i];
      std::cout << (seeds.size() > MOST_SEEDS ? " ...\n" : "\n");
    }
    return failed;
  }

  const std::uint64_t first;
  const std::uint64_t count;
  const fs::path scratch;
  std::atomic<std::uint64_t> next{0};

  std::mutex mutex;
  // Guarded.
  std::map<std::string, std::vector<std::uint64_t>> failures;          // seeds by kind
  std::map<std::string, std::pair<std::size_t, std::size_t>> classes;  // of graphs: how many there were, and failed
};

int Shrink(std::uint64_t seed) {
  const fs::path scratch = Scratch();
  {
    unshare(CLONE_NEWNET);
    Bench bench(scratch);
    const Graph graph = GraphMaker(seed, 0).Make();
    auto failure = bench.Try(graph);
    if (!failure) return std::cout << "seed " << seed << " does not fail\n", 0;
    const Graph least = Shrunk(graph, [&](const Graph& smaller) {
      const auto now = bench.Try(smaller);
      if (!now || now->kind != failure->kind) return false;
      failure = now;
      return true;
    });
    bench.Try(least);
    std::cout << DotText(least) << bench.Command() << "\n" << failure->kind << "\n" << failure->text << "\n";
  }
  return 1;
}

std::uint64_t AnySeed() {
  std::random_device device;
  return device() % 1000000000;
}

int Run(const std::vector<std::string>& args) {
  if (args.empty()) return std::cerr << "usage: random_graphs COUNT [SEED] | show SEED | shrink SEED\n", 2;
  const std::uint64_t seed = args.size() > 1 ? std::stoull(args[1]) : AnySeed();
  if (args[0] == "show") return std::cout << DotText(GraphMaker(seed, 0).Make()), 0;
  if (args[0] == "shrink") return Shrink(seed);
  const std::uint64_t count = std::stoull(args[0]);
  std::cout << count << " graphs from seed " << seed << std::endl;
  return Series(seed, count).Run() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run({argv + 1, argv + argc});
  } catch (const std::exception& problem) {
    std::cerr << "random_graphs: " << problem.what() << "\n";
    return 2;
  }
}
