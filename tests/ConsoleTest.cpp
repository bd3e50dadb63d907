// The console as its clients see it, byte for byte, and its end.
#include <fnmatch.h>
#include <pthread.h>
#include <sys/syscall.h>

#include <future>
#include <sstream>

#include "Block/SampleFormat.h"
#include "Vorn/VornImpl.h"
#include "testkit/ConsoleClient.h"
#include "testkit/Probe.h"

namespace vorn {
namespace {

constexpr std::size_t MORE_THAN_A_SOCKET_HOLDS = 4u << 20;

/** Where a thread waits as long as a test wants it to. */
struct Gate {
  void Shut() { open = false; }
  void Open() { open = true, open.notify_all(); }
  void Pass() {
    if (!open) Log::Add("at the gate");
    open.wait(false);
  }
  std::atomic<bool> open{true};
} gate, otherGate;

/** Remembers one list of values. Its results are the parameter's id. */
struct Knob : Probe {
  using Probe::Probe;
  int SetParameter(unsigned int id, const std::vector<std::string>& params) override {
    gate.Pass();
    std::string line = "set " + std::to_string(id);
    for (const std::string& param : values = params) line += " [" + param + "]";
    return Log::Add(line), static_cast<int>(id);
  }
  int GetParameter(unsigned int id, std::vector<std::string>& params) override {
    return params = values, static_cast<int>(id);
  }
  std::vector<std::string> values{std::string(MORE_THAN_A_SOCKET_HOLDS, 'z')};
};

template <Gate& where>
struct Held : Probe {
  using Probe::Probe;
  long ProcessFrame() override { return where.Pass(), Probe::ProcessFrame(); }
};

const std::function<Block*(bool, bool)> MAKE_KNOB = [](bool first, bool last) {
  Knob* knob = new Knob(first, last, first ? "src" : "snk");
  return knob->values.clear(), knob;
};

struct ConsoleTest : testing::Test {
  ConsoleTest() { Log::Keep(""); }
  ~ConsoleTest() override { gate.Open(), otherGate.Open(); }

  /** Lines of "command => reply => log", each as for Lines(); "$" is what the plug-in "probe" needs to make a Knob. */
  void Play(const std::string& levels, const std::string& steps) {
    Log::Keep(levels + "NT");
    std::istringstream in(steps.substr(1));
    for (std::string line; std::getline(in, line);) {
      SCOPED_TRACE(line);
      std::string part[3];
      for (std::string& text : part) {
        const std::size_t end = std::min(line.find(" =>"), line.size());
        text = Lines(line.substr(0, end));
        line.erase(0, end + 4);
      }
      auto& [command, reply, log] = part;
      if (const std::size_t at = command.find('$'); at != command.npos) {
        command.replace(at, 1, std::to_string(reinterpret_cast<std::uintptr_t>(&MAKE_KNOB)));
      }
      EXPECT_EQ(client.Ask(command), reply);
      EXPECT_EQ(Log::Take(), log);
    }
  }

  VornImpl vorn{"/nowhere"};
  ConsoleClient client;
};

TEST_F(ConsoleTest, Commands) {
  Play("EW", R"(
newroute => Failed to create route
newroute Routea => Failed to create route => E NewRoute: Wrong route name 'Routea', rename it to 'Route#' where '#' stands for [A-Z]
 newroute	RouteA  and more => Created RouteA
newroute RouteA => Failed to create route => E NewRoute: Name 'RouteA' existed, need to rename
newblock RouteA libprobe.so => Failed to create block
newblock RouteA libprobe.so yes => Failed to create block => E OnCommand_newblock: Invalid ISFIRST=yes, should be 'true' or 'false'
newblock RouteA libprobe.so true => Failed to create block
newblock RouteA libprobe.so true 1 => Failed to create block => E OnCommand_newblock: Invalid ISLAST=1, should be 'true' or 'false'
newblock RouteB libprobe.so true false $ => Failed to create block
newblock RouteA libprobe.so true false => Failed to create block => E NewBlock_l: ~CreateBlock() returns nullptr
newblock RouteA libprobe.so true false $ => Created @src from libprobe.so on RouteA
newblock RouteA libprobe.so false true $ => Created @snk from libprobe.so on RouteA
newlink RouteA 48000 S16_LE 2 480 @src 0 @snk => Failed to create link
newlink RouteA 4294967296 S16_LE 2 480 @src 0 @snk 0 => Failed to create link
newlink RouteA 48000abc 2 480 @src 0 @snk 0 => Failed to create link => E OnCommand_newlink: Invalid FORMAT=abc
newlink RouteA 48000 S24_3LE 2 => Failed to create link => E OnCommand_newlink: Invalid FORMAT=S24_3LE
newlink RouteA 48000 S24_3BE 2 => Failed to create link => E OnCommand_newlink: Invalid FORMAT=S24_3BE
newlink RouteA 1 BYTE 2 4 x 1 @snk 12 => Failed to create link => E OnCommand_newlink: Unable create a link from x's O01 to @snk's I12 on RouteA
newlink RouteA 1 BYTE 2 4 @src 1 x 2 => Failed to create link => E OnCommand_newlink: Unable create a link from @src's O01 to x's I02 on RouteA
newlink RouteB 1 BYTE 2 4 @src 0 @snk 0 => Failed to create link => E OnCommand_newlink: Unable create a link from @src's O00 to @snk's I00 on RouteB
newlink RouteA 1 BYTE 2 4 @src 32 @snk 0 => Failed to create link => E NewLink: ~Invalid source block output endpoint index 32
newlink RouteA 1 BYTE 4 4611686018427387904 @src 0 @snk 0 => Failed to create link => E NewLink_l: ~lnk_0: No memory for frames of 4611686018427387904 samples: frame size out of range
newlink RouteA 1 FLOAT_BE 2 4 @src 0 @snk 0 => Created lnk_0 on RouteA
getparam RouteA @src 0 =>
setparam RouteA @src 0 a	b  c => Success => set 0 [a] [b] [c]
getparam RouteA @src 0 => a|b|c
getparam RouteA @src 7 => Failed to get parameter
getparam RouteA @src => Failed to get parameter
getparam RouteA lnk_0 0 => Failed to get parameter
getparam RouteB @src 0 => Failed to get parameter
setparam RouteA @src 7 x => Failed to set parameter => set 7 [x]
setparam RouteA @src 4294967295 => Failed to set parameter => set 4294967295
setparam RouteA @src x => Failed to set parameter
setparam RouteA x 0 => Failed to set parameter
setparam RouteB @src 0 => Failed to set parameter
start => Failed to start route
start RouteB => Failed to start route
start RouteA => Started RouteA
start RouteA => Started RouteA
stop RouteA => Stopped RouteA
stop => Failed to stop route
stop RouteB => Failed to stop route
delete => error: Need a route name
delete RouteB => error: Need an instance name or '!'
delete RouteB ! => Can't find RouteB
delete RouteA !! => Can't find !!
delete RouteA lnk_0 => Deleted lnk_0
delete RouteA lnk_0 => Can't find lnk_0
delete RouteA @src ! => Deleted @src
delete RouteA ! => Deleted RouteA
delete RouteA ! => Can't find RouteA
status => No route|No fifo
status foo => Invalid argument
loglevel => Failed to set log level
loglevel 4 => Success => level 4|enable 16384
loglevel 5 => Success => level 5|disable 16384
loglevel -3 => Success => level -3|enable 16384
Status => Unknown command 'Status'
)");
}

TEST_F(ConsoleTest, FormatsOfLinks) {
  Block* block = Add(*vorn.NewRoute("RouteA", nullptr), ALONE, "x");
  std::size_t i = 0;
  for (const std::string format : {"BYTE", "S16_LE", "S16_BE", "S32_LE", "S32_BE", "FLOAT_LE", "FLOAT_BE"}) {
    const std::string end = " probe_x_0 " + std::to_string(i);
    client.Ask("newlink RouteA 1 " + format + " 2 4" + end + end);
    EXPECT_EQ(FormatToString(block->OutEp(i++).FB()->format), format);
  }
}

// What blocks answer, and what they are given.
TEST_F(ConsoleTest, BlocksAndFolders) {
  Knob* knob = Add<Knob>(*vorn.NewRoute("RouteA", nullptr), ALONE, "x");
  knob->values = {"left", std::string("up\0down", 7), ""};
  knob->startResult = -5;
  knob->stopResult = -6;
  Play("E", R"(
getparam RouteA @x 0 => left|up|
start RouteA => Failed to start route => E Start_l: ~Failed to start @x (ret=-5))");
  knob->startResult = 0;
  Play("E", R"(
start RouteA => Started RouteA
stop RouteA => Failed to stop route => E Stop_l: ~Failed to stop @x (ret=-6))");
  knob->stopResult = 0;
  vorn.NewRoute("RouteB", nullptr);
  Play("I", R"(
stop RouteA => Stopped RouteA => I Stop_l: ~Stopping|I Stop_l: ~Stopped
setdump => Failed to set dump
setdump /tmp => Done => file /tmp/vorn.log|I SetDump_l: RouteB: Enabled dumping data to /tmp/|I SetDump_l: ~Enabled dumping data to /tmp/
setdump /no/such/ => Failed to set dump log file|Done => file /no/such/vorn.log|I SetDump_l: RouteB: Enabled dumping data to /no/such/|I SetDump_l: ~Enabled dumping data to /no/such/
setdump -- => Done => file none|I SetDump_l: RouteB: Disabled dumping data|I SetDump_l: ~Disabled dumping data
)");
  Log::Keep("D");
  client.Ask("newblock RouteA x.so true false one  two");
  Log::WaitFor("D ~soFileName=x.so, first=1, last=0|D ~args[0]=one|D ~args[1]=two");
}

TEST_F(ConsoleTest, Report) {
  Route* route = vorn.NewRoute("RouteA", nullptr);
  Block* block = Add(*route, ALONE, "x");
  route->NewLink(1000000000, SampleFormat::FLOAT_LE, 100, 480, block, 0, block, 1);
  route->NewLink(8000, SampleFormat::BYTE, 1, 1234567, block, 31, block, 0);
  block->OutEp(0).FB()->timestamp = 1500000;
  block->InEp(0).FB()->timestamp = 1234567890123456789;
  block->OutEp(31).FB()->timestamp = 0;
  const std::string longName(300, 'y');
  Block* other = Add(*vorn.NewRoute("RouteB", nullptr), MIDDLE, longName.c_str());
  FIFO* half = vorn.NewFIFO(0, 1, 100, 25);
  half->writer = block;
  FIFO* both = vorn.NewFIFO(0, 1, 7, 3);
  both->writer = both->reader = block;
  vorn.NewFIFO(0, 1, 0, 0);

  const std::string routeB =
      "RouteB is STOPPED, 0 frame processed OK, 0 error frame\n\tprobe_" + longName.substr(0, 248);
  EXPECT_EQ(client.Ask("status\n"), routeB + &R"(
RouteA is STOPPED, 0 frame processed OK, 0 error frame
	probe_x_0
		(I00) <-- lnk_1     8000Hz     BYTE  1ch 1234567samples/frame 1234567890123.456789
		(I01) <-- lnk_0  1000000000Hz FLOAT_LE 100ch    480samples/frame
		(O00) --> lnk_0  1000000000Hz FLOAT_LE 100ch    480samples/frame             1.500000
		(O31) --> lnk_1     8000Hz     BYTE  1ch 1234567samples/frame             0.000000
fifo_2 0/0 (0%)
fifo_1 3/7 (42%)
fifo_0 25/100 (25%)
)"[1]);

  const std::string head = &R"(
digraph vorn {
	label="Created by vorn\nhttps://example.org/vorn"
	node [shape="box", style="filled", color="black", fillcolor="yellow"]
	edge [color="blue"]
	subgraph cluster_RouteB {
		label="RouteB"
		node [shape="box", style="filled", color="black", fillcolor="yellow"]
		edge [color="blue"]
	}
	subgraph cluster_RouteA {
		label="RouteA"
		node [shape="box", style="filled", color="black", fillcolor="yellow"]
		edge [color="blue"]
)"[1];
  const std::string ends = &R"~(
		RouteA_probe_x_0 [label="probe_x_0\n(first)"]
		RouteA_probe_x_0 [label="probe_x_0\n(last)"]
		RouteA_probe_x_0->RouteA_probe_x_0 [label="lnk_)~"[1];
  const std::string ellipse = " [shape=\"ellipse\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n";
  const std::string fifo2And1 = "\t}\n\tfifo_2" + ellipse + "\tfifo_1" + ellipse;
  const std::string fifo0 = "\tfifo_0" + ellipse + "}\n";
  EXPECT_EQ(client.Ask("status --dot and more"),
            head + ends + R"(0\n1000000000Hz\nFLOAT_LE\n100ch", taillabel="0", headlabel="1"])" + "\n" + ends +
                R"(1\n8000Hz\nBYTE\n1ch", taillabel="31", headlabel="0"])" + "\n" + fifo2And1 +
                "\tRouteA_probe_x_0->fifo_1->RouteA_probe_x_0\n" + fifo0);
  route->Delete(block);
  half->reader = other;
  EXPECT_EQ(client.Ask("status --dot"), head + fifo2And1 + fifo0) << "shows a block that is gone";
}

TEST_F(ConsoleTest, ReportOfRoutesThatRanOrAreStuckInABlock) {
  const std::pair<Script, std::string> CASES[] = {
      {{0, FRAME_END_OF_FILE}, "1 frame processed OK, 0 error frame"},
      {{FRAME_TIMEOUT, 0, 0, FRAME_END_OF_FILE}, "2 frames processed OK, 1 error frame"},
      {{FRAME_TIMEOUT, FRAME_TIMEOUT, FRAME_END_OF_FILE}, "0 frame processed OK, 2 error frames"},
  };
  for (const auto& [script, counts] : CASES) {
    Route* route = vorn.NewRoute("RouteA", nullptr);
    Add(*route, ALONE, "x", script);
    Log::Keep("I");
    route->Start();
    Log::WaitFor("I ~Stopped");
    EXPECT_EQ(client.Ask("status"), "RouteA is STOPPED, " + counts + "\n\tprobe_x_0\nNo fifo\n");
    vorn.DeleteRoute(route);
  }
  Route* broken = vorn.NewRoute("RouteB", nullptr);
  broken->Start();
  Log::WaitFor("I RouteB: Status is BROKEN_RUNNING, wait for new actions...");
  gate.Shut();
  Route* stuck = vorn.NewRoute("RouteA", nullptr);
  Add<Held<gate>>(*stuck, ALONE, "x");
  stuck->Start();
  Log::WaitFor("at the gate");
  EXPECT_EQ(client.Ask("status"), Lines("RouteA is RUNNING, 0 frame processed OK, 0 error frame|\t@x|"
                                        "RouteB is BROKEN_RUNNING, 0 frame processed OK, 0 error frame|No fifo"));
  EXPECT_EQ(client.Ask("delete RouteB !"), "Deleted RouteB\n");
}

// Red under the thread sanitizer if a block can be seen before it has its name: a FIFO still names one that lay in its
// place.
TEST_F(ConsoleTest, ReportsBesideClientsThatMakeBlocks) {
  Route* route = vorn.NewRoute("RouteA", nullptr);
  FIFO* fifo = vorn.NewFIFO(0, 1, 10, 0);
  fifo->reader = Add(*route, ALONE, "x");
  const auto edits = std::async(std::launch::async, [&] {
    for (int round = 0; round < 3000; ++round) {
      Block* block = Add(*route, ALONE, "y");
      fifo->writer = block;
      route->Delete(block);
    }
  });
  while (edits.wait_for(std::chrono::seconds(0)) != std::future_status::ready) client.Ask("status --dot");
}

// The route ends before DeleteRoute() returns, its callbacks with it; what the console goes on to does not matter.
TEST_F(ConsoleTest, RouteIsDeletedWhileTheConsoleIsBusyWithIt) {
  Recorder callbacks;
  otherGate.Shut();
  Route* stuck = vorn.NewRoute("RouteB", nullptr);
  Add<Held<otherGate>>(*stuck, ALONE, "x");
  stuck->Start();
  Log::WaitFor("at the gate");
  Route* route = vorn.NewRoute("RouteA", &callbacks);  // the newest: its turn comes first
  Log::watch = [](const std::string& line) { line == "I RouteA: Disabled dumping data" ? gate.Pass() : void(); };
  Log::Keep("I");
  gate.Shut();
  client.Send("setdump --");
  Log::WaitFor("at the gate");
  const auto deletion = std::async(std::launch::async, [&] { vorn.DeleteRoute(route), Log::Add("deleted"); });
  EXPECT_TRUE(WaitUntil([&] { return vorn.NewRoute("RouteA", nullptr) != nullptr; }));
  gate.Open();
  Log::WaitFor("deleted");
  const std::string log = Log::Take();
  EXPECT_LT(log.find("OnExit"), log.find("deleted"));
  otherGate.Open();
  EXPECT_EQ(client.Reply(), "Done\n");
  Log::watch = nullptr;
}

TEST_F(ConsoleTest, OnlyTheCommandFailsWhereNoThreadIsLeft) {
  pthread_attr_t usual, huge;
  ASSERT_TRUE(pthread_getattr_default_np(&usual) == 0 && pthread_getattr_default_np(&huge) == 0);
  pthread_attr_setstacksize(&huge, std::size_t{1} << 47);
  ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
  EXPECT_EQ(client.Ask("newroute RouteA"), "Failed to create route\n");
  pthread_setattr_default_np(&usual);
  EXPECT_EQ(client.Ask("newroute RouteA"), "Created RouteA\n");
}

TEST_F(ConsoleTest, OneReadIsOneCommand) {
  for (const auto& [sent, reads] : std::initializer_list<std::pair<std::size_t, std::vector<std::size_t>>>{
           {1023, {1023}}, {1024, {1023, 1}}, {3000, {1023, 1023, 954}}}) {
    client.Send(std::string(sent, 'x'));
    for (std::size_t bytes : reads) {
      EXPECT_EQ(client.ReplyBeforeMore(), "Unknown command '" + std::string(bytes, 'x') + "'\n");
    }
  }
  for (const std::string& nothing : {std::string(" \t\r\n"), std::string("\0status", 7)}) {
    Log::Keep("D");
    client.Send(nothing);
    Log::WaitFor("D Unable to read string");
  }
  EXPECT_EQ(client.Ask(std::string("foo bar\0status", 14)), "Unknown command 'foo'\n");
}

TEST_F(ConsoleTest, ServesItsOwnUserAlone) {
  EXPECT_EQ(ConsoleClient::Connect(ConsoleClient::ADDRESS_LENGTH - 1), -ECONNREFUSED) << "without the NUL at its end";
  client.Leave();
  Log::Keep("WN");
  constexpr uid_t STRANGER = 65534;
  std::string reply;
  std::thread([&] {  // the system call itself changes this thread alone
    if (syscall(SYS_setresuid, STRANGER, STRANGER, STRANGER) == 0) reply = ConsoleClient().Reply();
  })
      .join();
  if (reply.empty()) GTEST_SKIP() << "needs root outside of a user namespace, for a second user";
  EXPECT_EQ(reply, "(end)");
  Log::WaitFor("W DebugThreadLoop: Turned away vrdb of user 65534, this console serves user 0 and root");
  EXPECT_EQ(ConsoleClient().Ask("foo"), "Unknown command 'foo'\n");
}

// What clients do before one side leaves, and what the console logs where they do.
const std::pair<std::function<void(ConsoleClient&)>, const char*> MANNERS[] = {
    {[](auto&) {}, "D Read from vrdb finished"},
    {[](auto& leaving) { leaving.Send("stat"); }, "D Received command 'stat'"},
    {[](auto& leaving) { leaving.Send("foo"), leaving.AwaitReply(); }, "E Read from vrdb failed -1"},
    {[](auto& leaving) { leaving.Send("getparam RouteA probe_x_0 0"), leaving.AwaitReply(); },
     "D Waiting for vrdb ..."},
    {[](auto& leaving) {
       gate.Shut();
       leaving.Send("setparam RouteA probe_x_0 0");
       Log::WaitFor("at the gate");
     },
     "D Write to vrdb failed -1"},
};

TEST_F(ConsoleTest, SurvivesClientsThatLeave) {
  Add<Knob>(*vorn.NewRoute("RouteA", nullptr), ALONE, "x");
  EXPECT_EQ(client.Ask("getparam RouteA probe_x_0 0").size(), MORE_THAN_A_SOCKET_HOLDS + 1) << "came whole";
  client.Leave();
  for (const auto& [use, log] : MANNERS) {
    Log::Keep("ED");
    {
      ConsoleClient leaving;
      use(leaving);
    }
    gate.Open();
    Log::WaitFor(log);
    EXPECT_EQ(ConsoleClient().Ask("foo"), "Unknown command 'foo'\n");
  }
}

TEST(ConsoleEnd, LogTellsWhatHappened) {
  Log::Keep("EWDN");
  {
    const VornImpl vorn("/nowhere");
    {
      ConsoleClient client;
      client.Ask("foo bar");
      client.Send(" ");
      Log::WaitFor("D DebugThreadLoop: Unable to read string");
    }
    Log::WaitFor("D DebugThreadLoop: Read from vrdb finished");
  }
  std::string expected;
  for (const std::string line :
       {"Waiting for vrdb ...", "Accepted vrdb *", "Reading from vrdb ...", "Received command 'foo bar'",
        "Unknown command 'foo bar'", "Reading from vrdb ...", "Received command ' '", "Unable to read string",
        "Reading from vrdb ...", "Read from vrdb finished", "Waiting for vrdb ...", "Exit"}) {
    expected += "D DebugThreadLoop: " + line + "\n";
  }
  const std::string log = Log::Take();
  EXPECT_EQ(fnmatch(expected.c_str(), log.c_str(), 0), 0) << log;
}

TEST(ConsoleEnd, EndsWhateverItsClientsDo) {
  for (const auto& [use, log] : MANNERS) {
    Log::Keep("D");
    auto vorn = std::make_unique<VornImpl>("/nowhere");
    Add<Knob>(*vorn->NewRoute("RouteA", nullptr), ALONE, "x");
    ConsoleClient client;
    use(client);
    ConsoleClient waiting;
    waiting.Send("foo");
    const auto end = std::async(std::launch::async, [&] { vorn.reset(); });
    EXPECT_TRUE(WaitUntil([&] { return client.Reply().ends_with("(end)"); }));
    gate.Open();
    EXPECT_EQ(waiting.Reply(), "(end)");
    end.wait();
    Log::WaitFor("D Exit");
  }
}

TEST(ConsoleEnd, ServesNobodyWhoComesWhileItEnds) {
  Log::Keep("D");
  Log::watch = [](const std::string& line) { line == "D Waiting for vrdb ..." ? gate.Pass() : void(); };
  gate.Shut();
  auto vorn = std::make_unique<VornImpl>("/nowhere");
  ConsoleClient client;
  const auto end = std::async(std::launch::async, [&] { vorn.reset(); });
  EXPECT_TRUE(WaitUntil([] {
    const int fd = ConsoleClient::Connect();
    return fd >= 0 ? close(fd), false : fd == -ECONNREFUSED;
  }));
  gate.Open();
  EXPECT_EQ(client.Reply(), "(end)");
  client.Leave();
  end.wait();
  Log::watch = nullptr;
}

// The second process begins the test anew.
TEST(ConsoleDeathTest, SecondProcessDoesWithout) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto first = std::make_unique<VornImpl>("/nowhere");
  EXPECT_EQ(ConsoleClient().Ask("foo"), "Unknown command 'foo'\n");
  EXPECT_EXIT(
      {
        first.reset();  // had no console either, in that process
        Log::Keep("EN");
        const bool works = Vorn::Instance()->NewRoute("RouteA", nullptr);
        Log::WaitFor("E DebugThreadLoop: Failed to bind, can't listen to vrdb -1");
        std::exit(HasFailure() || !works);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_EQ(ConsoleClient().Ask("foo"), "Unknown command 'foo'\n");
}

}  // namespace
}  // namespace vorn
