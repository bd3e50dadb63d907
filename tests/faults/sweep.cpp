// Runs vorn-run again and again, with one call failing in each run, for every call that there is: see inject.cpp.
//
//   fault-sweep INJECTOR VORN_RUN [STEP]
//
// Of allocations every STEP-th is tried, of all else every call. A run has to end by itself, with a status and a line
// that tell how it was; with status 0 its file has to be the right one, byte for byte, and otherwise that or what stood
// there before. Prints how the runs ended, and each that should not have ended so.
#include <cstdio>
#include <map>

#include "testkit/Process.h"

namespace {

constexpr int NO_LIBRARY = 127;  // the loader's status

const struct Scenario {
  std::vector<std::string> args;
  const char* output;
  const char* before = "what stood there before";
} SCENARIOS[] = {
    {{"--no-clobber", "-e", "tone length=0.05 ! filesink in.wav"}, "in.wav", ""},
    {{"--sync", "-e", "filesource in.wav ! gain -6 ! filesink out.flac"}, "out.flac"},
    {{"fifo.dot"}, "out.wav"},
};
constexpr const char* FIFO_GRAPH = R"(digraph {
  subgraph cluster_RouteA { src [block=filesource, args="in.wav"] put [block=fifosink] src -> put }
  subgraph cluster_RouteB { get [block=fifosource] out [block=filesink, args="out.wav"] get -> out }
  fifo [shape=ellipse]
  put -> fifo -> get
})";

class Sweep {
 public:
  Sweep(const std::string& newInjector, const std::string& newProgram, long newStep)
      : injector(newInjector), program(newProgram), step(newStep) {
    testkit::Write(folder / "fifo.dot", FIFO_GRAPH);
  }

  /** @return whether all went well. */
  bool Try(const Scenario& newScenario) {
    scenario = &newScenario;
    const testkit::Ended whole = RunWith("none:0");
    const std::string right = Made();
    std::printf("%s: exit %d without a fault\n%s", scenario->output, whole.status, whole.err.c_str());
    if (whole.status != 0) return false;
    std::istringstream counts(testkit::Contents(folder / "counts"));  // each run writes its own
    for (auto [kind, calls] = std::pair<std::string, long>(); counts >> kind >> calls;) Try(kind, calls, right);
    testkit::Write(folder / scenario->output, right);
    return faults == 0;
  }

 private:
  void Try(const std::string& kind, long calls, const std::string& right) {
    std::map<int, int> ends;
    for (long n = 1; n <= calls; n += kind == "malloc" ? step : 1) {
      const testkit::Ended ended = RunWith(kind + ':' + std::to_string(n));
      ++ends[ended.status];
      const bool tells = ended.status == 1 || ended.status == 2 || ended.status == NO_LIBRARY;
      const bool isSafe = Made() == right || Made() == scenario->before;
      if (ended.status == 0 ? Made() == right : isSafe && tells && !(ended.out + ended.err).empty()) continue;
      ++faults;
      std::printf("  %s:%ld should not have ended with %d%s:\n%s", kind.c_str(), n, ended.status,
                  ended.hung ? ", it hung" : "", ended.err.c_str());
    }
    // What makes a file whole must not fail unheard, although the file looks right.
    if ((kind == "fsync" || kind == "output") && ends.contains(0)) ++faults, std::puts("  unheard:");
    std::printf("  %s: %ld calls", kind.c_str(), calls);
    for (const auto& [status, count] : ends) std::printf(", %d x %d", count, status);
    std::puts("");
    std::fflush(stdout);
  }

  std::string Made() const { return testkit::Contents(folder / scenario->output); }

  testkit::Ended RunWith(const std::string& fault) const {
    std::filesystem::remove(folder / scenario->output);
    if (*scenario->before != 0) testkit::Write(folder / scenario->output, scenario->before);
    std::vector<std::string> command{"/usr/bin/env", "LD_PRELOAD=" + injector, "VORN_INJECT=" + fault,
                                     "VORN_INJECT_COUNTS=counts", program};
    command.insert(command.end(), scenario->args.begin(), scenario->args.end());
    return testkit::RunIn(folder / "", command);
  }

  const testkit::Folder folder;
  const std::string injector;
  const std::string program;
  const long step;
  const Scenario* scenario = nullptr;
  int faults = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return std::fputs("fault-sweep INJECTOR VORN_RUN [STEP]\n", stderr), 2;
  using std::filesystem::absolute;  // the runs have a folder of their own
  Sweep sweep(absolute(argv[1]), absolute(argv[2]), argc > 3 ? std::max(std::atol(argv[3]), 1L) : 1);
  bool isGood = true;
  for (const Scenario& scenario : SCENARIOS) isGood = sweep.Try(scenario) && isGood;
  return isGood ? 0 : 1;
}
