// jitter: how late the frames of a route come that has one every 10 ms, after eight blocks in a row.
//
// Prints a row for each pace (a timer, the dummy driver of JACK), alone and beside four busy loops, with the ordinary
// schedule and with SCHED_FIFO: name, number of blocks, nanoseconds late: p50, p99, p99.9, most. Late is a frame that
// comes behind the rhythm of the one that came earliest. What the system does not grant, and JACK where there is none,
// is left out with a line on standard error.
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>

#include <cmath>
#include <optional>

#include "Blocks.h"
#include "Load.h"

namespace {

using namespace bench;

constexpr double PERIOD = 10e6;
constexpr long FIRST_FRAMES = 50;
constexpr std::size_t BLOCKS = 8;
constexpr int PRIORITY = 50;

long Frames() { return Length(1500); }

/** Waits for the next of the times that are a period apart. */
struct TimerSource : vorn::PluginBlock {
  using PluginBlock::PluginBlock;
  static vorn::Description Describe() { return vorn::Description("timer", "").Output(vorn::Port("out")); }
  int Prepare() override { return clock_gettime(CLOCK_MONOTONIC, &next); }
  long Process() override {
    next.tv_nsec += static_cast<long>(PERIOD);
    if (next.tv_nsec >= 1'000'000'000) ++next.tv_sec, next.tv_nsec -= 1'000'000'000;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    Out().samples = Out().samplesPerFrame;
    return vorn::FRAME_DONE;
  }
  timespec next{};
};

/** Asks for the schedule, and keeps when each frame came. */
struct ClockSink : vorn::PluginBlock {
  ClockSink(vorn::Setup setup, bool newIsReal, std::vector<double>& newTimes)
      : PluginBlock(std::move(setup)), isReal(newIsReal), times(newTimes) {}
  static vorn::Description Describe() { return vorn::Description("clock", "").Input(vorn::Port("in")); }
  long Process() override {
    if (std::exchange(isReal, false)) {
      const sched_param schedule{PRIORITY};
      if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &schedule) != 0) return vorn::FRAME_FAILED;
    }
    times.push_back(ReadClock(CLOCK_MONOTONIC));
    return times.size() < times.capacity() ? vorn::FRAME_DONE : vorn::FRAME_END_OF_FILE;
  }
  bool isReal;
  std::vector<double>& times;
};

/** A server without hardware, with the period of the route; gone with this object. */
class JackServer {
 public:
  explicit JackServer(bool isReal) : name("vorn-jitter-" + std::to_string(getpid())) {
    setenv("JACK_DEFAULT_SERVER", name.c_str(), 1);
    setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
    server = fork();
    if (server != 0) return;
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO), dup2(nowhere, STDERR_FILENO);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execlp("jackd", "jackd", isReal ? "-R" : "-r", "-n", name.c_str(), "-d", "dummy", "-r", "48000", "-p", "480",
           nullptr);
    _exit(1);
  }
  ~JackServer() { kill(server, SIGTERM), waitpid(server, nullptr, 0); }
  JackServer(const JackServer&) = delete;
  JackServer& operator=(const JackServer&) = delete;

 private:
  const std::string name;
  pid_t server;
};

enum class Pace { TIMER, JACK };

vorn::Block* AddSource(BenchRoute& route, Pace pace) {
  if (pace == Pace::JACK) return route->NewBlock("libjacksource.so", true, false, {});
  return route.Add([](bool first, bool last) { return MakeKitBlock<TimerSource>(first, last); }, true, false);
}

/** @return when each frame came; none where the route did not run, or was not granted the schedule. */
std::vector<double> Run(Pace pace, bool isReal) {
  std::vector<double> times;
  times.reserve(static_cast<std::size_t>(FIRST_FRAMES + Frames()));
  BenchRoute route;
  _tlogging_set_level(0);  // of a server that is not up yet
  vorn::Block* before = AddSource(route, pace);
  if (before == nullptr) return {};
  for (std::size_t i = 0; i < BLOCKS; ++i) {
    vorn::Block* relay = route.Add([](bool first, bool last) { return MakeKitBlock<KitRelay>(first, last); });
    route.Join(std::exchange(before, relay), 0, relay, 0);
  }
  vorn::Block* sink = route.Add(
      [&](bool first, bool last) { return MakeKitBlock<ClockSink>(first, last, isReal, times); }, false, true);
  route.Join(before, 0, sink, 0);
  for (int tries = 0; !route.TryStart(); ++tries) {  // the server comes up
    if (pace == Pace::TIMER || tries == 100) return {};
    usleep(50'000);
  }
  route.Wait();
  return times.size() == times.capacity() ? times : std::vector<double>();
}

void Print(const std::string& name, std::vector<double> times) {
  times.erase(times.begin(), times.begin() + FIRST_FRAMES);
  for (std::size_t i = 0; i < times.size(); ++i) times[i] -= PERIOD * static_cast<double>(i);
  std::sort(times.begin(), times.end());
  std::printf("%s\t%zu", name.c_str(), BLOCKS);
  for (const double part : {0.5, 0.99, 0.999, 1.0}) {
    const auto at = static_cast<std::size_t>(std::ceil(part * static_cast<double>(times.size()))) - 1;
    std::printf("\t%.0f", times[at] - times.front());
  }
  std::printf("\n");
}

void MeasureHere(const std::string& name, Pace pace, bool isLoaded, bool isReal) {
  const Load load(isLoaded ? 4 : 0);
  std::optional<JackServer> server;
  if (pace == Pace::JACK) server.emplace(isReal);
  if (isReal) mlockall(MCL_CURRENT | MCL_FUTURE);  // as vorn-run --realtime; it measures without, too
  const std::vector<double> times = Run(pace, isReal);
  if (!times.empty()) return Print(name, times);
  std::fprintf(stderr, "jitter: no %s\n", name.c_str());
}

/** In a process of its own, which no thread of another run disturbs. */
void Measure(Pace pace, bool isLoaded, bool isReal) {
  const std::string name = std::string(pace == Pace::TIMER ? "timer" : "jack") + (isLoaded ? ", loaded" : ", alone") +
                           (isReal ? ", fifo" : ", ordinary");
  const pid_t child = fork();
  if (child == 0) {
    MeasureHere(name, pace, isLoaded, isReal);
    std::exit(0);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) Die(name.c_str());
}

}  // namespace

int main() {
  for (const Pace pace : {Pace::TIMER, Pace::JACK}) {
    for (const bool isLoaded : {false, true}) {
      for (const bool isReal : {false, true}) Measure(pace, isLoaded, isReal);
    }
  }
}
