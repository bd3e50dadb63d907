// Random graphs: each is run by vorn-run, and its sinks must receive what a model says.
//
//   random_graphs COUNT [SEED]        so many graphs from so many seeds in a row; without SEED, from any
//   random_graphs show SEED           prints a graph
//
// VORN_TEST_PATIENCE is how many seconds a graph may take before it counts as hanging, VORN_RUN another program to try.
#include <sched.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "GraphMaker.h"
#include "Trial.h"

namespace {

using namespace randomgraphs;

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
    for (const auto& [kind, seeds] : failures) {
      std::cout << "\n" << seeds.size() << "  " << kind << "\n  seeds";
      for (const std::uint64_t seed : seeds) std::cout << ' ' << seed;
    }
    std::cout << "\n" << count << " graphs from seed " << first << ": " << failed << " failed\n";
    return failed;
  }

 private:
  void Work(std::uint64_t first, std::uint64_t count) {
    unshare(CLONE_NEWNET);  // the console has one address a network namespace
    Bench bench;
    for (std::uint64_t i; (i = next++) < count;) {
      if (const auto failure = bench.Try(first + i)) Report(bench, first + i, *failure);
    }
  }

  void Report(const Bench& bench, std::uint64_t seed, const Failure& failure) {
    const std::lock_guard lock(mutex);
    ++failed;
    const bool isNew = failures[failure.kind].empty();
    failures[failure.kind].insert(seed);
    if (!isNew || failures.size() > MOST_REPORTS) return;
    std::cout << "\n=== seed " << seed << ": " << failure.kind << "\n"
              << DotText(GraphMaker(seed, 0).Make()) << bench.Command() << "\n"
              << failure.text << "\nagain: random_graphs 1 " << seed << std::endl;
  }

  std::atomic<std::uint64_t> next{0};
  std::mutex mutex;
  // Guarded.
  std::map<std::string, std::set<std::uint64_t>> failures;  // seeds by kind
  std::size_t failed = 0;
};

int Run(const std::vector<std::string>& args) {
  if (args.empty()) return std::cerr << "usage: random_graphs COUNT [SEED] | show SEED\n", 2;
  const std::uint64_t seed = args.size() > 1 ? std::stoull(args[1]) : std::random_device()() % 1000000000;
  if (args[0] == "show") return std::cout << DotText(GraphMaker(seed, 0).Make()), 0;
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
