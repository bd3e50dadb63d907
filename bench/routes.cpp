// routes: 26 chains of 8 plain blocks at once, as the routes of one process and as processes with a route each.
//
// Prints a row of each: name, number of routes, nanoseconds for a frame of all of them (median, least, most).
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "Blocks.h"

namespace {

using namespace bench;

constexpr int ROUTES = 26;
constexpr std::size_t BLOCKS = 8;

void InOneProcess(long frames) {
  std::vector<std::unique_ptr<RelayGraph>> graphs;
  for (char name[] = "RouteA"; name[5] <= 'Z'; ++name[5]) {
    graphs.push_back(std::make_unique<RelayGraph>(Shape::CHAIN, Style::PLAIN, BLOCKS, name));
  }
  for (const auto& graph : graphs) graph->Start(frames);
  for (const auto& graph : graphs) graph->Wait();
}

void InProcesses(long frames) {
  for (int i = 0; i < ROUTES; ++i) {
    if (fork() > 0) continue;
    if (std::freopen("/dev/null", "w", stderr) == nullptr) _exit(1);  // one of them alone gets the console
    RelayGraph graph(Shape::CHAIN, Style::PLAIN, BLOCKS);
    graph.Start(frames);
    graph.Wait();
    _exit(0);
  }
  for (int status = 0; wait(&status) > 0;) {
    if (status != 0) Die("a process failed");
  }
}

void Measure(const char* name, void (*run)(long), long frames) {
  Runs runs;
  for (int i = 0; i < RunCount(); ++i) {
    const Mark from = Mark::Now();
    const pid_t child = fork();  // nobody finds threads of the run before
    if (child == 0) run(frames), _exit(0);
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) Die(name);
    runs.Add(from, Mark::Now(), static_cast<double>(frames));
  }
  std::printf("%s\t%d\t", name, ROUTES);
  runs.PrintWall();
  std::printf("\n");
  std::fflush(stdout);
}

}  // namespace

int main() {
  const long frames = Length(300'000);
  Measure("processes", InProcesses, frames);
  Measure("vorn", InOneProcess, frames);
}
