// The framework object: configuration, registries, threads, and its end.
#include <sys/wait.h>

#include <csignal>
#include <future>
#include <latch>
#include <optional>

#include "Config/Profile.h"
#include "TurnedAway.h"
#include "Vorn/VornImpl.h"
#include "testkit/ConsoleClient.h"
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
           {"loglevel=6\n", "|level 6|disable 16384"},
           {"loglevel=42\n", "|level 4"},
           {"loglevel=0x\n", "|level 0"},
           {"dumppath=/x\n", "|file /x/vorn.log"},
           {"dumppath=/x/\n", "|file /x/vorn.log"},
           {"dumppath=\nloglevel=3\n", "|level 3|file 3/vorn.log"},
           {"logtostdout=true\nlogtostderr=\n", "|enable 1|enable 2"}}) {
    const std::string path = Write(folder / "file", "[config]\n" + text);
    Log::Keep("T");
    const VornImpl vorn(path.c_str());
    EXPECT_EQ(Log::Take(), Lines("enable 16386|level 4" + calls)) << text;
  }
}

// Red if a key, a section, a comment or the rest of a long line is taken for another, or a value is cut otherwise.
TEST(Vorn, ReadsWhatItsFileSays) {
  const std::string longText(300, 'x');
  const Folder folder;
  for (const auto& [text, values] : std::initializer_list<std::pair<std::string, std::string>>{
           {"# x\n[other]\ny=1\n [config] z\r\n  x = a b \ny=c\t\nz\t=3\n#x=4\n[config]\nz=4\n", "a b|c|3"},
           {"  [config]\n\t x = a value \t \ny= \t\nz=\n", "a value| \t|before"},
           {"[config]\r\nx=5\r\ny=\r\nz=/x", "5|\r|/x"},
           {"[config]\nx=" + longText + "\n" + longText.substr(0, 255) + "z=4\n", longText.substr(0, 253) + "|none|4"},
           {"x=5\n[ config]\nx=0\n[configs]\nx=1\n[config]\ny=2\n[other]\nz=3\n", "none|2|none"},
           {"[config]\n[other]\n[config]\nx=1\n", "none|none|none"},
           {"[config]\nX=1\nxx=1\nx\nx 7\n=3\ny word=3\nz^w=4\nx=", "before|3|4"},
           {"[config]\nx=1\nx=2\ny=a=b\n  #z=1\nz|w==2", "1|a=b|=2"}}) {
    Write(folder / "file", text);
    std::string read;
    for (const char* key : {"x", "y", "z"}) {
      char value[256] = "before";
      const bool isThere = GetProfileString((folder / "file").c_str(), "config", key, value) == 0;
      read += (read.empty() ? "" : "|") + std::string(isThere ? value : "none");
    }
    EXPECT_EQ(read, values) << text;
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
  Log::Keep("WN");
  for (Route* old : {route, route, static_cast<Route*>(nullptr)}) vorn.DeleteRoute(old);
  EXPECT_EQ(Log::Take(), Lines("W DeleteRoute: Can't find route " + Pointer(route)));
  EXPECT_TRUE(vorn.NewRoute("RouteA", nullptr));

  FIFO* fifos[3];
  for (FIFO*& fifo : fifos) fifo = vorn.NewFIFO(48000, 4, 10, 0);
  EXPECT_THROW(vorn.NewFIFO(48000, 4, -1, 0), std::length_error);
  Log::Take();
  for (FIFO* old : {fifos[1], fifos[1], static_cast<FIFO*>(nullptr)}) vorn.DeleteFIFO(old);
  EXPECT_EQ(Log::Take(), Lines("W DeleteFIFO: Can't find FIFO " + Pointer(fifos[1])));
  for (const char* name : {"fifo_1", "fifo_3"}) EXPECT_EQ(vorn.NewFIFO(48000, 4, 10, 0)->name, name);
}

// Red if two that ask for one name at once both get it.
TEST(Vorn, MakesNoTwoRoutesOfOneName) {
  VornImpl vorn(NO_FILE);
  Log::Keep("");
  for (int round = 0; round < 200; ++round) {
    std::latch together(4);
    std::vector<std::future<Route*>> clients(4);
    for (auto& client : clients) {
      client =
          std::async(std::launch::async, [&] { return together.arrive_and_wait(), vorn.NewRoute("RouteA", nullptr); });
    }
    std::set<Route*> made;
    for (auto& client : clients) made.insert(client.get());
    ASSERT_TRUE(made.size() == 2 && made.count(nullptr) == 1);
    for (Route* route : made) vorn.DeleteRoute(route);
  }
}

// Red if a thread of the library takes a signal, keeps one of its own making from a crash handler, has another name, or
// outlives the framework.
TEST(Vorn, OwnsQuietThreads) {
  {
    VornImpl vorn(NO_FILE);
    vorn.NewRoute("RouteQ", nullptr);
    unsigned long own = 0, blocked;
    for (int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) own |= 1ul << (signal - 1);
    for (const char* name : {"RouteQ", "vrdb"}) {
      blocked = 0;
      EXPECT_TRUE(WaitUntil([&] {  // the system blocks all while it makes a thread
        const auto tasks = TasksNamed(name);
        if (tasks.size() == 1) blocked = std::stoul(tasks[0].substr(tasks[0].find("SigBlk:") + 7), nullptr, 16);
        return blocked != 0 && (blocked & own) == 0;
      })) << name;
      for (int signal : {SIGHUP, SIGINT, SIGUSR1, SIGPIPE, SIGALRM, SIGTERM, SIGCHLD, SIGRTMIN, SIGRTMAX}) {
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
  VornImpl vorn(Write(folder / "file", "[config]\ndumppath=" + folder / "").c_str());
  Route* route = vorn.NewRoute("RouteA", nullptr);
  Join(*route, Add(*route, FIRST, "src", Script{0, -21}), Add(*route, LAST, "out"));
  route->Start();
  const std::string file = folder / "RouteA-probe_src_0-O00-48000Hz-S16_LE-2ch.pcm";
  EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(file); }));
}

// Red if strangers can fill the log, or their number is lost.
TEST(Vorn, CountsStrangersOnceAMinute) {
  TurnedAway turnedAway;
  const TurnedAway::Time start;
  std::string told;
  for (int second = 0; second <= 120; ++second) {
    if (const auto count = turnedAway.Count(start + std::chrono::seconds(second))) told += std::to_string(*count) + " ";
  }
  EXPECT_EQ(told, "1 60 60 ");
}

struct LastWords : Route::Callbacks {
  void OnExit() override { std::fputs("route ended", stderr); }
};

struct VornDeathTest : testing::Test {
  VornDeathTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

// Red if two first calls at once make two frameworks, or the end of the process does not end a route that runs.
TEST_F(VornDeathTest, ExitsWhileARouteRuns) {
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

/** Ends the process in the operation that it is told to. */
struct Quitter : Probe, Route::Callbacks {
  Quitter(bool isFirst, bool isLast, std::string newPlace) : Probe(isFirst, isLast, "q"), place(newPlace) {}
  void At(const std::string& here) const { here == place ? std::exit(0) : void(); }
  long ProcessFrame() override { return At("frame"), Probe::ProcessFrame(); }
  int SetParameter(unsigned, const std::vector<std::string>&) override { return At("parameter"), 0; }
  void OnStarted() override { At("callback"); }
  const std::string place;
};

/** Comes back to a route after the framework's end. */
struct LateCaller {
  ~LateCaller() { route ? void(route->Stop()) : void(); }
  Route* route = nullptr;
};

/** Fills the process with what does not end by itself, and leaves it in the way that is asked for. */
void LeaveWhenStuck(const std::string& how) {
  alarm(60);  // the longest that a process may take to end
  static LateCaller lateCaller;
  Vorn& vorn = *Vorn::Instance();
  Route* route = vorn.NewRoute("RouteA", nullptr);
  FIFO* fifo = vorn.NewFIFO(0, 1, 10, 0);
  Probe* block = nullptr;
  if (how == "fifo") block = Add<Sleeper>(*route, ALONE, fifo);
  if (how == "pending" || how == "deletion") block = Add(*route, ALONE, "a", Script{FRAME_PENDING});
  if (how == "loop") block = Add(*route, FIRST, "a"), Join(*route, block, block);
  if (how == "lost" || how == "asked") block = Add(*route, ALONE, "a");
  if (block) route->Start(), WaitUntil([&] { return block->calls > 0; });
  std::optional<ConsoleClient> asker;
  if (how == "lost" || how == "asked") {
    if (how == "asked") asker.emplace(), Log::Keep("D");
    route->NewBlock("libstartfails.so", true, true, {});
    WaitUntil([] { return TasksNamed("RouteA").empty(); });
    if (asker) asker->Send("getparam RouteA " + block->Name() + " 1");
    WaitUntil([&] { return !asker || Log::Take().find("Received command") != std::string::npos; });
  }
  if (how == "deletion") vorn.DeleteRoute(route);
  if (how == "clients") {
    std::atomic<int> inside{0};
    for (int i = 0; i < 3; ++i) {
      std::thread([&] {
        for (char sample;;) ++inside, fifo->Produce(&sample, 1, true, nullptr);  // takes no "no" for an answer
      }).detach();
    }
    WaitUntil([&] { return inside == 3 && fifo->State().readerSleeps; });
  }
  if (how == "child") {
    Add<Sleeper>(*route, ALONE, fifo);
    route->Start();
    const pid_t child = fork();
    if (child == 0) alarm(60), std::exit(7);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 7) std::abort();
  }
  for (const std::string place : {"frame", "callback", "parameter"}) {
    if (how != place) continue;
    static Quitter quitter(false, false, place);
    Route* ended = lateCaller.route = vorn.NewRoute("RouteB", &quitter);
    Block* quits = Add<Quitter>(*ended, ALONE, place);
    ConsoleClient client;
    client.Send("setparam RouteB " + quits->Name() + " 1");
    ended->Start();
    pause();
  }
  std::exit(0);
}

// Red if the end of a process waits for a thread that will never be done, or that there is not, or for itself.
TEST_F(VornDeathTest, EndsWhateverIsStuck) {
  for (const std::string how :
       {"fifo", "pending", "loop", "lost", "asked", "deletion", "clients", "child", "frame", "callback", "parameter"}) {
    EXPECT_EXIT(LeaveWhenStuck(how), testing::ExitedWithCode(0), "") << how;
  }
}
