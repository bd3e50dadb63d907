// Edits running routes at random, with operators at the console, and looks whether anything is lost, stands or leaks.
//
//   soak [SECONDS [SEED]]
//
// A pair of routes that nobody edits has to carry every sample in order meanwhile. After a warm-up, and again at the
// end, all is taken down: there must not be more descriptors, threads and memory in use then. Whoever does not get on
// for a minute is named, and the program aborts. The same seed makes the same edits, at other moments.
#include <gtest/gtest.h>
#include <malloc.h>
#include <tlogging.h>

#include <random>

#include "Pair.h"
#include "testkit/ConsoleClient.h"
#include "testkit/Files.h"

namespace soak {

void Need(bool holds, const std::string& otherwise) {
  if (holds) return;
  std::printf("soak: %s\n", otherwise.c_str());
  std::fflush(stdout);
  std::_Exit(1);
}

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testkit::ConsoleClient;

constexpr auto PATIENCE = 60s;
constexpr long HEAP_SLACK = 8 << 10;  // what the system's libraries keep for themselves

std::atomic<bool> isOver{false};
Worker workers[] = {{"the main thread"}, {"editor 0"}, {"editor 1"}, {"operator 0"}, {"operator 1"}};
Worker& untouched = Judge::watched;

void Watch(const std::stop_token& stop) {
  std::vector<std::pair<long, Clock::time_point>> seen(std::size(workers) + 1);
  while (!stop.stop_requested()) {
    std::this_thread::sleep_for(100ms);
    for (std::size_t i = 0; i < seen.size(); ++i) {
      const Worker& worker = i < std::size(workers) ? workers[i] : untouched;
      const char* const step = worker.step;
      auto& [count, since] = seen[i];
      if (step == nullptr || worker.count != count) count = worker.count, since = Clock::now();
      if (Clock::now() - since < PATIENCE) continue;
      std::printf("soak: %s stands in '%s' for a minute, after %ld steps\n", worker.name, step, count);
      std::fflush(stdout);
      std::abort();
    }
  }
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
void BeOperator(Worker& worker, Dice dice) {
  static const Words COMMANDS = Commands();
  while (!isOver) {
    worker.Do("connect");
    ConsoleClient client;
    for (long asks = dice.Between(0, 6); asks > 0; --asks) {
      const std::string& command = dice.Pick(COMMANDS);
      worker.Do(command.c_str());
      const std::string reply = client.Ask(command);
      Need(!reply.ends_with("(late)") && !reply.ends_with("(end)"), "no reply to " + command);
    }
    client.Send(dice.Pick(COMMANDS).substr(0, static_cast<std::size_t>(dice.Between(1, 12))));
  }
  worker.step = nullptr;
}

void BeEditor(Worker& worker, const char* routes, Dice dice) {
  worker.Do("build");
  {
    Pair pair(routes, dice);
    while (!isOver) pair.Edit(worker);
    worker.Do("take down");
  }
  worker.step = nullptr;
}

void Run(std::chrono::seconds time, Dice& dice) {
  const auto next = [&] { return Dice(dice.Below(1UL << 62)); };
  isOver = false;
  workers[0].Do("build");
  {
    Pair pair("YZ", next(), Make<Judge>());
    pair.StartBoth();
    untouched.step = "a frame";
    std::vector<std::thread> threads;
    for (int i : {1, 2}) threads.emplace_back(BeEditor, std::ref(workers[i]), i == 1 ? "AB" : "CD", next());
    for (int i : {3, 4}) threads.emplace_back(BeOperator, std::ref(workers[i]), next());
    for (const auto end = Clock::now() + time; Clock::now() < end;) {
      workers[0].Do("clear the dumps");
      std::this_thread::sleep_for(50ms);
      for (const auto& dump : fs::directory_iterator("dumps")) fs::remove(dump);
    }
    isOver = true;
    for (std::thread& thread : threads) workers[0].Do("join"), thread.join();
    workers[0].Do("take down");
    untouched.step = nullptr;
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
    std::fflush(stdout);
  }
  static long Entries(const char* folder) { return std::distance(fs::directory_iterator(folder), {}); }
  long descriptors, threads, heap;
};

int Main(long seconds, unsigned long seed) {
  std::printf("soak: %ld s with seed %lu\n", seconds, seed);
  std::fflush(stdout);
  const testkit::Folder folder;
  fs::current_path(folder / "");
  fs::create_directory("dumps");
  vorn::Vorn::Instance()->HasConsole();
  _tlogging_disable_options(TLOGGING_STDOUT | TLOGGING_STDERR);
  const std::jthread watchdog(Watch);
  Dice dice(seed);
  const std::chrono::seconds warmUp(std::max(2L, seconds / 6));

  Run(warmUp, dice);
  const Usage before("after the warm-up");
  Run(std::max(std::chrono::seconds(seconds) - warmUp, 1s), dice);
  const Usage after("at the end");
  std::printf(
      "soak: %ld samples in order, %ld and %ld steps of editors, %ld edits of what ran, %ld and %ld of operators\n",
      untouched.count.load(), workers[1].count.load(), workers[2].count.load(), Pair::editsOfRunning.load(),
      workers[3].count.load(), workers[4].count.load());
  Need(after.descriptors <= before.descriptors, "descriptors were left open");
  Need(after.threads <= before.threads, "threads were left");
  Need(after.heap <= before.heap + HEAP_SLACK, "memory was lost");
  Need(untouched.count > 0 && Pair::editsOfRunning > 0, "nothing was edited while it ran");
  Need(!testing::UnitTest::GetInstance()->Failed(), "the console broke its protocol");
  workers[0].step = nullptr;
  fs::current_path("/");
  return 0;
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
  return soak::Main(argc > 1 ? std::atol(argv[1]) : 60,
                    argc > 2 ? std::strtoul(argv[2], nullptr, 10) : std::random_device()());
}
