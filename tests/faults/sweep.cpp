// Runs vorn-run again and again, with one call failing in each run, for every call that there is: see inject.cpp.
//
//   fault-sweep INJECTOR VORN_RUN [STEP]
//
// Of allocations every STEP-th is tried, of all else every call. A run has to end by itself, with a status and a line
// that tell how it was; with status 0 its file has to be the right one, byte for byte. Prints how the runs ended, and
// each that should not have ended so.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr auto TOO_LONG = std::chrono::seconds(20);
constexpr int NO_LIBRARY = 127;  // the loader's status

const struct Scenario {
  std::vector<std::string> args;
  const char* output;
} SCENARIOS[] = {
    {{"-e", "tone length=0.05 ! filesink in.wav"}, "in.wav"},
    {{"-e", "filesource in.wav ! gain -6 ! filesink out.flac"}, "out.flac"},
    {{"fifo.dot"}, "out.wav"},
};
constexpr const char* FIFO_GRAPH = R"(digraph {
  subgraph cluster_RouteA { src [block=filesource, args="in.wav"] put [block=fifosink] src -> put }
  subgraph cluster_RouteB { get [block=fifosource] out [block=filesink, args="out.wav"] get -> out }
  fifo [shape=ellipse]
  put -> fifo -> get
})";

std::string Contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct Ended {
  std::string how;  // "exit 0", "signal 6", "hangs"
  std::string said;
  std::string made;
};

class Sweep {
 public:
  Sweep(const char* newInjector, const char* newProgram, long newStep)
      : injector(newInjector), program(newProgram), step(newStep) {}

  /** @return whether all went well. */
  bool Try(const Scenario& newScenario) {
    scenario = &newScenario;
    const Ended whole = RunWith("none:0");
    right = whole.made;
    std::printf("%s: %s without a fault\n", scenario->output, whole.how.c_str());
    if (whole.how != "exit 0") return std::fputs(whole.said.c_str(), stdout), false;
    std::istringstream counts(Contents("counts"));  // each run writes its own
    for (auto [kind, calls] = std::pair<std::string, long>(); counts >> kind >> calls;) Try(kind, calls);
    std::ofstream(scenario->output, std::ios::binary) << right;
    return faults == 0;
  }

 private:
  void Try(const std::string& kind, long calls) {
    std::map<std::string, int> ends;
    for (long n = 1; n <= calls; n += kind == "malloc" ? step : 1) {
      const Ended ended = RunWith(kind + ':' + std::to_string(n));
      ++ends[ended.how];
      if (IsGood(ended)) continue;
      ++faults;
      std::printf("  %s:%ld: %s: %s\n%s", kind.c_str(), n, "should not have ended so", ended.how.c_str(),
                  ended.said.c_str());
    }
    std::printf("  %s: %ld calls", kind.c_str(), calls);
    for (const auto& [how, count] : ends) std::printf(", %d x %s", count, how.c_str());
    std::puts("");
    std::fflush(stdout);
  }

  bool IsGood(const Ended& ended) const {
    if (ended.how == "exit 0") return ended.made == right;
    const bool tells =
        ended.how == "exit 1" || ended.how == "exit 2" || ended.how == "exit " + std::to_string(NO_LIBRARY);
    return tells && !ended.said.empty();
  }

  Ended RunWith(const std::string& fault) const {
    std::filesystem::remove(scenario->output);
    const pid_t child = fork();
    if (child == 0) Become(fault);
    const auto until = std::chrono::steady_clock::now() + TOO_LONG;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > until) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return {"hangs", Contents("said"), ""};
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const std::string how = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                              : "signal " + std::to_string(WTERMSIG(status));
    return {how, Contents("said"), Contents(scenario->output)};
  }

  [[noreturn]] void Become(const std::string& fault) const {
    const int said = open("said", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(said, STDOUT_FILENO);
    dup2(said, STDERR_FILENO);
    setenv("LD_PRELOAD", injector, 1);
    setenv("VORN_INJECT", fault.c_str(), 1);
    setenv("VORN_INJECT_COUNTS", "counts", 1);
    std::vector<char*> argv{const_cast<char*>(program)};
    for (const std::string& arg : scenario->args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(program, argv.data());
    _exit(NO_LIBRARY);
  }

  const char* const injector;
  const char* const program;
  const long step;
  const Scenario* scenario = nullptr;
  std::string right;
  int faults = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return std::fputs("fault-sweep INJECTOR VORN_RUN [STEP]\n", stderr), 2;
  char folder[] = "/tmp/vorn-faults-XXXXXX";
  if (!mkdtemp(folder) || chdir(folder) != 0) return std::perror(folder), 2;
  std::ofstream("fifo.dot") << FIFO_GRAPH;
  Sweep sweep(argv[1], argv[2], argc > 3 ? std::max(std::atol(argv[3]), 1L) : 1);
  bool isGood = true;
  for (const Scenario& scenario : SCENARIOS) isGood = sweep.Try(scenario) && isGood;
  std::filesystem::remove_all(folder);
  return isGood ? 0 : 1;
}
