// The framework object: configuration, registries, threads, and its end.
#include <csignal>
#include <future>
#include <set>

#include "Vorn/VornImpl.h"
#include "testkit/RouteTest.h"

constexpr char NO_FILE[] = "/nonexistent/vorn.conf";

// Red if a key is read otherwise, out of order, or with a value of its own instead of the one before.
TEST(Vorn, ConfiguresTheLog) {
  const Folder folder;
  for (auto [text, calls] : std::initializer_list<std::pair<std::string, std::string>>{
           {"logtostdout=true\nlogtostderr=false\n", "|enable 1|disable 2"},
           {"logtostderr=true\nlogtostdout=false\n", "|disable 1|enable 2"},
           {"logtostdout=True\nlogtostderr=1\nloglevel=7\n", ""},
           {"loglevel=5\n", "|level 5|disable 16384"},
           {"loglevel=42\n", "|level 4"},
           {"loglevel=0x\n", "|level 0"},
           {"dumppath=/x\n", "|file /x/vorn.log"},
           {"dumppath=/x/\n", "|file /x/vorn.log"},
           {"dumppath=\nloglevel=3\n", "|level 3|file 3/vorn.log"},
           {"logtostdout=true\nlogtostderr=\n", "|enable 1|enable 2"}}) {
    const std::string path = folder.Write("[config]\n" + text);
    Log::Keep("T");
    const VornImpl vorn(path.c_str());
    EXPECT_EQ(Log::Take(), Lines("enable 16386|level 4" + calls)) << text;
  }
}

// Red if another name is taken, the number of a FIFO is not used again, or a stranger is deleted.
TEST(Vorn, NamesRoutesAndFIFOs) {
  VornImpl vorn(NO_FILE);
  Log::Keep("EWI");
  EXPECT_FALSE(vorn.NewRoute(nullptr, nullptr));
  std::string expected = "E Route name is nullptr\n";
  for (std::string name : {"", "Route", "Routea", "Route1", "RouteAB", "routeA", "Route[", "Route@", "RoutE "}) {
    EXPECT_FALSE(vorn.NewRoute(name.c_str(), nullptr)) << name;
    expected += "E Wrong route name '" + name + "', rename it to 'Route#' where '#' stands for [A-Z]\n";
  }
  EXPECT_EQ(Log::Take(), expected);
  Route* route = vorn.NewRoute("RouteA", nullptr);
  EXPECT_TRUE(route && vorn.NewRoute("RouteZ", nullptr) && !vorn.NewRoute("RouteA", nullptr));
  EXPECT_EQ(Log::Take(), Lines("I Created RouteA|I Created RouteZ|E Name 'RouteA' existed, need to rename"));
  for (Route* old : {route, route, static_cast<Route*>(nullptr)}) vorn.DeleteRoute(old);
  EXPECT_EQ(Log::Take(), Lines("I ~Status is EXIT|I ~Deleted|W Can't find route " + Pointer(route)));
  EXPECT_TRUE(vorn.NewRoute("RouteA", nullptr));

  FIFO* fifos[3];
  for (FIFO*& fifo : fifos) fifo = vorn.NewFIFO(48000, 4, 10, 0);
  EXPECT_THROW(vorn.NewFIFO(48000, 4, -1, 0), std::length_error);
  Log::Take();
  for (FIFO* old : {fifos[1], fifos[1], static_cast<FIFO*>(nullptr)}) vorn.DeleteFIFO(old);
  EXPECT_EQ(Log::Take(), Lines("W Can't find FIFO " + Pointer(fifos[1])));
  for (const char* name : {"fifo_1", "fifo_3"}) EXPECT_EQ(vorn.NewFIFO(48000, 4, 10, 0)->name, name);
}

// Red if a thread of the library takes a signal, has another name, or outlives the framework.
TEST(Vorn, OwnsQuietThreads) {
  {
    VornImpl vorn(NO_FILE);
    vorn.NewRoute("RouteQ", nullptr);
    for (const char* name : {"RouteQ", "vrdb"}) {
      EXPECT_TRUE(WaitUntil([&] { return TasksNamed(name).size() == 1; })) << name;
      const std::string status = TasksNamed(name).at(0);
      const unsigned long blocked = std::stoul(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
      for (int signal : {SIGHUP, SIGINT, SIGUSR1, SIGPIPE, SIGALRM, SIGTERM, SIGCHLD, SIGSEGV, SIGRTMIN, SIGRTMAX}) {
        EXPECT_TRUE(blocked >> (signal - 1) & 1) << signal;
      }
    }
  }
  EXPECT_TRUE(TasksNamed("RouteQ").empty() && TasksNamed("vrdb").empty());
}

struct Sleeper : Probe {
  Sleeper(bool isFirst, bool isLast, FIFO* source) : Probe(isFirst, isLast, "a"), fifo(source) {}
  long ProcessFrame() override { return ++calls, fifo->Produce(&sample, 1, true, nullptr); }
  FIFO* const fifo;
  char sample = 0;
};

// Red if a stop, a deletion or the end of the framework does not come through once the FIFO is shut down.
TEST(Vorn, EndsRoutesThatSleptInAFIFO) {
  Recorder callbacks;
  for (const std::string how : {"stop", "delete", "end"}) {
    auto vorn = std::make_unique<VornImpl>(NO_FILE);
    FIFO* fifo = vorn->NewFIFO(0, 1, 10, 0);
    Route* route = vorn->NewRoute("RouteA", &callbacks);
    Sleeper* sleeper = Add<Sleeper>(*route, ALONE, fifo);
    Log::Keep("E");
    EXPECT_EQ(route->Start(), 0);
    EXPECT_TRUE(WaitUntil([&] { return sleeper->calls == 1; }));
    if (how == "end") fifo->Shutdown();  // the FIFO goes with the framework
    auto ending = std::async(std::launch::async, [&] {
      how == "stop" ? void(route->Stop()) : how == "delete" ? vorn->DeleteRoute(route) : vorn.reset();
    });
    if (how != "end") fifo->Shutdown();
    ending.get();
    const std::string log = "OnStarted|E ~@a: Process frame failed -20|OnStopped 1";
    EXPECT_EQ(Log::Take(), Lines(log + (how == "stop" ? "" : "|OnExit")));
  }
}

// Red if a route does not get the folder of the file.
TEST(Vorn, GivesRoutesItsDumpFolder) {
  const Folder folder;
  VornImpl vorn(folder.Write("[config]\ndumppath=" + folder.path).c_str());
  Route* route = vorn.NewRoute("RouteA", nullptr);
  Join(*route, Add(*route, FIRST, "src", Script{0, -21}), Add(*route, LAST, "out"));
  route->Start();
  const std::string file = folder.path + "RouteA-probe_src_0-O00-48000Hz-S16_LE-2ch.pcm";
  EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(file); }));
}

struct LastWords : Route::Callbacks {
  void OnExit() override { std::fputs("route ended", stderr); }
};

// Red if two first calls at once make two frameworks, or the end of the process does not end a route that runs.
TEST(VornDeathTest, ExitsWhileARouteRuns) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  static LastWords callbacks;
  const auto leave = [] {
    Vorn* found[4];
    std::vector<std::thread> threads;
    for (Vorn*& vorn : found) threads.emplace_back([&vorn] { vorn = Vorn::Instance(); });
    for (std::thread& thread : threads) thread.join();
    Route* route = found[0]->NewRoute("RouteC", &callbacks);
    Probe* block = Add(*route, ALONE, "a");
    route->Start();
    const bool runs = WaitUntil([&] { return block->calls > 10; });
    std::exit(runs && std::set<Vorn*>(found, found + 4).size() == 1 ? 0 : 1);
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "route ended");
}
