// Edits running routes at random, with operators at the console, and looks whether anything is lost, stands or leaks.
//
//   soak [SECONDS [SEED]]
//
// A pair of routes that nobody edits has to carry every sample in order meanwhile. After a warm-up, and again at the
// end, all is taken down: there must not be more descriptors, threads and memory in use then. Where that takes a minute
// longer than it was asked to, the program says what each thread is at, and aborts. The same seed makes the same edits,
// at other moments.
#include <gtest/gtest.h>
#include <malloc.h>
#include <tlogging.h>

#include <csignal>
#include <random>

#include "Pair.h"
#include "testkit/ConsoleClient.h"
#include "testkit/Files.h"

namespace soak {

void Need(bool holds, const std::string& otherwise) {
  if (holds) return;
  std::printf("soak: %s\n", otherwise.c_str());
  std::_Exit(1);
}

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testkit::ConsoleClient;

constexpr unsigned PATIENCE = 60;     // in seconds
constexpr long HEAP_SLACK = 8 << 10;  // what the system's libraries keep for themselves

std::atomic<bool> isOver{false};
Step steps[] = {"main thread", "editor 0", "editor 1", "operator 0", "operator 1"};

void TellSteps(int) {
  for (const Step& step : steps) std::printf("soak: thread %td stands in '%s'\n", &step - steps, step.load());
  std::abort();
}

Words Commands() {
  std::istringstream text(
      "status|status --dot|help|loglevel 0|loglevel 4|loglevel 6|setdump dumps|setdump --|newroute RouteM|"
      "newblock RouteM libprobe.so true false " +
      Make<Source>()[0] + "|newblock RouteM libprobe.so false true " + Make<Sink>()[0] +
      "|newlink RouteM 48000 S32_LE 1 48 probe_src_0 0 probe_snk_0 0|start RouteM|start RouteM|"
      "stop RouteM|delete RouteM lnk_0|delete RouteM probe_src_0|delete RouteM probe_snk_0|delete RouteM !|"
      "getparam RouteA gain_0 4294967040|setparam RouteB gain_0 0 -3|getparam RouteD fifosource_0 4294967040|"
      "getparam RouteY probe_src_0 1");
  Words commands;
  for (std::string command; std::getline(text, command, '|');) commands.push_back(command);
  return commands;
}

/** Asks some things, and leaves in the middle of another: before half an address, or the name of another folder. */
void BeOperator(Step& step, Dice dice) {
  static const Words COMMANDS = Commands();
  while (!isOver) {
    step = "connect";
    ConsoleClient client;
    for (long asks = dice.Between(0, 6); asks > 0; --asks) {
      const std::string& command = dice.Pick(COMMANDS);
      step = command.c_str();
      const std::string reply = client.Ask(command);
      Need(!reply.ends_with("(late)") && !reply.ends_with("(end)"), "no reply to " + command);
    }
    client.Send(dice.Pick(COMMANDS).substr(0, static_cast<std::size_t>(dice.Between(1, 12))));
  }
}

void BeEditor(Step& step, const char* routes, Dice dice) {
  Pair pair(routes, dice);
  while (!isOver) pair.Edit(step);
  step = "take down";
}

void Run(std::chrono::seconds time, Dice& dice) {
  const auto next = [&] { return Dice(dice.Below(1UL << 62)); };
  isOver = false;
  {
    Pair pair("YZ", next(), Make<Judge>());
    pair.StartBoth();
    std::vector<std::thread> threads;
    for (int i : {1, 2}) threads.emplace_back(BeEditor, std::ref(steps[i]), i == 1 ? "AB" : "CD", next());
    for (int i : {3, 4}) threads.emplace_back(BeOperator, std::ref(steps[i]), next());
    for (const auto end = Clock::now() + time; Clock::now() < end;) {
      std::this_thread::sleep_for(50ms);
      for (const auto& dump : fs::directory_iterator("dumps")) fs::remove(dump);
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
    Need(testkit::WaitUntil([before = Judge::taken.load()] { return Judge::taken > before; }),
         "the untouched pair stands");
  }
  ConsoleClient client;
  for (const char* command : {"delete RouteM !", "setdump --", "loglevel 4"}) client.Ask(command);
  Need(client.Ask("status") == "No route\nNo fifo\n", "a route or a FIFO is left");
}

struct Usage {
  explicit Usage(const char* when) {
    const ConsoleClient client;  // so that the one before has gone for sure
    client.Send("status"), client.AwaitReply();
    descriptors = Entries("/proc/self/fd"), threads = Entries("/proc/self/task");
    heap = static_cast<long>(mallinfo2().uordblks + mallinfo2().hblkhd);
    std::printf("soak: %s: %ld descriptors, %ld threads, %ld bytes of heap in use\n", when, descriptors, threads, heap);
  }
  static long Entries(const char* folder) { return std::distance(fs::directory_iterator(folder), {}); }
  long descriptors, threads, heap;
};

int Main(long seconds, unsigned long seed) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  std::printf("soak: %ld s with seed %lu\n", seconds, seed);
  std::signal(SIGALRM, TellSteps);
  alarm(static_cast<unsigned>(seconds) + PATIENCE);
  const testkit::Folder folder;
  fs::current_path(folder / "");
  fs::create_directory("dumps");
  vorn::Vorn::Instance()->HasConsole();
  _tlogging_disable_options(TLOGGING_STDOUT | TLOGGING_STDERR);
  Dice dice(seed);
  const std::chrono::seconds warmUp(std::max(2L, seconds / 6));

  Run(warmUp, dice);
  const Usage before("after the warm-up");
  Run(std::max(std::chrono::seconds(seconds) - warmUp, 1s), dice);
  const Usage after("at the end");
  std::printf("soak: %ld samples in order, %ld edits of what ran\n", Judge::taken.load(), Pair::editsOfRunning.load());
  Need(after.descriptors <= before.descriptors, "descriptors were left open");
  Need(after.threads <= before.threads, "threads were left");
  Need(after.heap <= before.heap + HEAP_SLACK, "memory was lost");
  Need(Pair::editsOfRunning > 0, "nothing was edited while it ran");
  Need(!testing::UnitTest::GetInstance()->Failed(), "the console broke its protocol");
  fs::current_path("/");
  return 0;
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
  return soak::Main(argc > 1 ? std::atol(argv[1]) : 60,
                    argc > 2 ? std::strtoul(argv[2], nullptr, 10) : std::random_device()());
}
