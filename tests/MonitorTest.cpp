// What the monitor says, and that nothing keeps it from saying so.
#include <sys/socket.h>
#include <sys/un.h>

#include <nlohmann/json.hpp>

#include "Monitor/Json.h"
#include "Monitor/Monitor.h"
#include "Monitor/Server.h"
#include "Vorn/VornImpl.h"
#include "testkit/Files.h"
#include "testkit/RouteTest.h"

namespace vorn::monitor {
namespace {

using namespace std::chrono_literals;

bool Has(const std::string& text, const std::string& part) { return text.find(part) != text.npos; }

TEST(Json, IsReadByAnybodyWhateverTheNames) {
  const std::pair<std::string, const char*> cases[] = {
      {"plain é 語 😀", "\"plain é 語 😀\""},
      {"a\"b\\c", R"("a\"b\\c")"},
      {std::string("\0\x1f\n\x7f", 4), R"("\u0000\u001f\u000a\u007f")"},
      {"\xC3", "\"\xEF\xBF\xBD\""},                                    // cut off
      {"\xC0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},                    // longer than need be
      {"\xED\xA0\x80 ", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \""},  // half of a pair
  };
  for (const auto& [text, quoted] : cases) EXPECT_EQ(Quoted(text), quoted);
  Object object;
  object.Add("a", true).Add("b", 18446744073709551615U).Add("c", 0.1234).Add("d", List());
  EXPECT_EQ(object.Text(), R"({"a":true,"b":18446744073709551615,"c":0.123400,"d":[]})");
}

bool Connects(int fd) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = "vorn." + std::to_string(getpid());
  name.copy(address.sun_path + 1, name.size());
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  return connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0;
}

/** A client of the socket. */
struct Client {
  Client() {
    const timeval limit{20, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~Client() { close(fd); }
  void Send(const std::string& text) const { send(fd, text.data(), text.size(), MSG_NOSIGNAL); }
  /** "(end)" where the connection is gone. */
  std::string Line() const {
    std::string line;
    for (char c; line.empty() || line.back() != '\n'; line += c) {
      if (recv(fd, &c, 1, 0) <= 0) return line + "(end)";
    }
    return line;
  }
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool isConnected = Connects(fd);
};

/** Reads from or writes to a FIFO, or does not come back at all. */
struct User : Probe {
  User(bool isFirst, bool isLast, RingBuffer* newFIFO) : Probe(isFirst, isLast, ""), fifo(newFIFO) {
    (IsFirst() ? fifo->reader : fifo->writer) = this;
  }
  long ProcessFrame() override {
    int sample = 0;
    const long result = IsFirst() ? fifo->Take(&sample, 1, true, nullptr) : fifo->Put(&sample, 1, true, 0);
    Probe::ProcessFrame();
    return result == 1 ? FRAME_DONE : FRAME_END_OF_FILE;
  }
  RingBuffer* const fifo;
};

struct Refuser : Probe {
  Refuser(bool isFirst, bool isLast, const char* sub) : Probe(isFirst, isLast, sub) { startResult = -5; }
};

std::atomic<bool> isHeld{false};
struct Spinner : Probe {
  using Probe::Probe;
  long ProcessFrame() override {
    while (isHeld) continue;
    return FRAME_END_OF_FILE;
  }
};
struct Sleeper : Probe {
  using Probe::Probe;
  long ProcessFrame() override { return isHeld.wait(true), FRAME_END_OF_FILE; }
};

auto& left = *new std::vector<std::shared_ptr<RouteImpl>>;  // nobody answers any more who asks them to end

struct MonitorTest : RouteTest {
  MonitorTest() {
    registry.routes = {std::make_shared<RouteImpl>("RouteA", nullptr, ""),
                       std::make_shared<RouteImpl>("RouteB", nullptr, "")};
    registry.fifos = {std::make_shared<RingBuffer>(1000, sizeof(int), 3, 0)};
    registry.fifos.front()->name = "fifo_0";
    monitor.Start();
    client = std::make_unique<Client>();
  }
  ~MonitorTest() override {
    monitor.Stop();
    registry.fifos.front()->Shutdown();
    isHeld = false;
    isHeld.notify_all();
    registry.routes.clear();  // before the FIFO that they use
  }
  RouteImpl& A() { return *registry.routes.front(); }
  RouteImpl& B() { return *registry.routes.back(); }
  RingBuffer& Between() { return *registry.fifos.front(); }
  std::string Ask(const std::string& line) { return client->Send(line + "\n"), client->Line(); }
  /** Asks until all parts are there. */
  void Expect(const std::string& line, const std::vector<std::string>& parts) {
    std::string got;
    const auto isAll = [&] {
      got = Ask(line);
      return std::all_of(parts.begin(), parts.end(), [&](const std::string& part) { return Has(got, part); });
    };
    EXPECT_TRUE(WaitUntil(isAll, 20s)) << got;
  }

  Registry registry;
  Monitor monitor{{[this] { return registry; }, [] {},
                   [](const std::string&, std::stringstream&, std::string&) { return false; }, [] { return true; }}};
  std::unique_ptr<Client> client;
};

// Red if a question of an operator gets no answer, or the wrong one.
TEST_F(MonitorTest, SaysWhyARouteStands) {
  Expect("why RouteA", {R"("status":"stopped","why":"stopped","text":"RouteA is stopped, for )"});
  EXPECT_TRUE(Has(Ask("why RouteQ"), R"("error":"no route 'RouteQ'")"));

  Probe* const lone = Add(A(), FIRST, "");
  A().Start();
  Expect("why RouteA", {"until its graph is mended: probe_0 has no output linked, and is no last block"});
  A().Delete(lone);
  A().Stop();

  Add<User>(A(), ALONE, &Between());
  A().Start();
  Expect("why RouteA",
         {R"("why":"waits","text":"RouteA waits in probe_0, for )", "no samples in fifo_0 (0 of 3); no block writes it",
          R"("for":"samples")", R"("count":0,"capacity":3,"prefill":0)"});

  const std::string reason = "probe_0 did not start: -5";
  Block* const refuser = Add<Refuser>(B(), ALONE, "");
  B().Start();
  Expect("why RouteB", {R"("why":"stopped")", reason});
  B().Delete(refuser);
  Add<Probe>(B(), ALONE, "", Script{FRAME_DONE});
  B().Start();
  Expect("why RouteB", {R"("why":"runs")"});
  Add<Refuser>(B(), ALONE, "");
  Expect("why RouteB", {R"("why":"dead","text":"RouteB is dead: probe_1 did not start: -5)"});
  Expect("events once", {R"("kind":"died","route":"RouteB","text":"probe_1 did not start: -5")"});
  left.push_back(registry.routes.back());
  left.back()->JoinLost();
}

TEST_F(MonitorTest, NamesTheOtherSideOfAFIFO) {
  Join(A(), Add<Probe>(A(), FIRST, ""), Add<User>(A(), LAST, &Between()));
  Add<User>(B(), ALONE, &Between());
  A().Start();
  Expect("why RouteA", {"no room in fifo_0 (3 of 3); probe_0 of RouteB reads it, which is stopped, for ",
                        R"("other":{"route":"RouteB","block":"probe_0","status":"stopped")"});
  isHeld = true;
  Add<Sleeper>(B(), ALONE, "");
  B().Start();
  Expect("why RouteA", {"probe_0 of RouteB reads it, which stands in probe_1, for "});
}

TEST_F(MonitorTest, TellsABlockThatWorksFromOneThatSleeps) {
  isHeld = true;
  Add<Spinner>(A(), ALONE, "");
  Add<Sleeper>(B(), ALONE, "");
  A().Start();
  B().Start();
  Expect("why RouteA", {"RouteA computes in probe_0, for "});
  Expect("why RouteB", {"RouteB sleeps in probe_0, for "});
}

// Red if what happens is not told to who listens, or what was edited is not.
TEST_F(MonitorTest, TellsWhatHappens) {
  client->Send("events\n");
  client->Line();
  Probe* const probe = Add<Probe>(A(), ALONE, "", Script{FRAME_DONE});
  A().Start();
  std::string told;  // several at once, where they come fast
  const auto expectNext = [&](const char* event) {
    while (!Has(told, event) && !Has(told, "(end)")) told += client->Line();
    EXPECT_TRUE(Has(told, event)) << event << " in\n" << told;
  };
  expectNext(R"("kind":"started","route":"RouteA")");
  A().SetParameter(probe, 7, {});
  expectNext(R"("kind":"edited","route":"RouteA","block":"probe_0","text":"parameter 7 was set")");
  A().Delete(probe);
  expectNext(R"("kind":"edited","route":"RouteA","block":"probe_0","text":"was deleted")");
  expectNext(R"("kind":"stopped","route":"RouteA","text":"its graph is incomplete")");
  expectNext(R"("kind":"broken")");
}

// Red if times are of the wrong block, or count what it slept.
TEST_F(MonitorTest, TimesWhatBlocksTake) {
  EXPECT_TRUE(Has(Ask("timing maybe"), "expected on or off"));
  EXPECT_TRUE(Has(Ask("timing"), R"("on":false,"routes":[])"));
  Add<Probe>(A(), ALONE, "", Script{FRAME_DONE});
  Add<User>(B(), ALONE, &Between());
  Ask("timing on");
  A().Start();
  B().Start();
  const auto begin = std::chrono::steady_clock::now();
  Expect("why RouteB", {R"("for":"samples")"});
  const std::chrono::duration<double, std::micro> slept = std::chrono::steady_clock::now() - begin;
  const int sample = 0;
  Between().Put(&sample, 1, true, 0);
  nlohmann::json routes;
  const auto isCounted = [&] {
    routes = nlohmann::json::parse(Ask("timing"))["routes"];
    const auto calls = [&](int which) {
      return routes[which]["blocks"].empty() ? 0 : routes[which]["blocks"][0]["calls"].get<int>();
    };
    return calls(0) > 1000 && calls(1) == 1;
  };
  ASSERT_TRUE(WaitUntil(isCounted, 20s)) << routes;
  EXPECT_EQ(routes[0]["blocks"][0]["name"], "probe_0");
  EXPECT_LT(routes[1]["blocks"][0]["worst"], slept.count());
  Ask("timing off");
  EXPECT_TRUE(Has(Ask("timing"), R"("on":false,"routes":[])"));
}

// Red if a request gets lost that comes just when the route has served the last one.
TEST_F(MonitorTest, IsServedByARouteThatRunsHoweverFastItAsks) {
  Add<Probe>(A(), ALONE, "", Script{FRAME_DONE});
  A().Start();
  for (int i = 0; i < 10000 && !HasFailure(); ++i) {
    A().AskForReadings();
    EXPECT_TRUE(WaitUntil([&] { return !A().AwaitsReadings(); }, 20s));
  }
}

TEST_F(MonitorTest, ShowsTheWholeGraph) {
  Probe* const source = Add<Probe>(A(), FIRST, "");
  Join(A(), source, Add<Probe>(A(), LAST, "x"), 2, 3);
  const std::string graph = Ask("graph");
  for (
      const char* part :
      {R"("version":1,"request":"graph")",
       R"("name":"probe_x_0","first":false,"last":true,"label":"","plugIn":"libprobe.so","args":[")",
       R"("from":{"block":"probe_0","port":2},"to":{"block":"probe_x_0","port":3},"rate":48000,"format":"S16_LE","channels":2,"samplesPerFrame":4)",
       R"({"name":"fifo_0","count":0,"capacity":3,"prefill":0,"rate":1000,"writer":{},"reader":{})"}) {
    EXPECT_TRUE(Has(graph, part)) << part << "\n" << graph;
  }
  EXPECT_TRUE(Has(Ask("stats"), R"("name":"RouteA","status":"stopped","why":"stopped","text":"RouteA is stopped)"));
  for (const char* line : {"", "graph x", "why", "why RouteA x", "nonsense"})
    EXPECT_TRUE(Has(Ask(line), "expected graph, params"));
  EXPECT_TRUE(Has(Ask("params RouteA probe_7"), "no block 'probe_7' in RouteA"));
}

TEST(Monitor, OpensUnlessTheConfigurationSaysNo) {
  const testkit::Folder folder;
  for (const bool isWanted : {false, true}) {
    const std::string path = testkit::Write(folder / "conf", isWanted ? "" : "[config]\nmonitor=false\n");
    const VornImpl vorn(path.c_str());
    EXPECT_EQ(Client().isConnected, isWanted);
  }
}

// Red if one client keeps another waiting, or one that is gone or mad does harm.
TEST(Server, ServesManyWhateverTheyDo) {
  struct Talker final : Server::Speaker {
    Server::Reply Answer(const std::string& line, Server::Clock::duration held) override {
      if (line == "watch") return {"look", 10ms};
      if (line == "enough") return {"done", 0ms};
      if (line == "soon" && held < 3ms) return {"", {}, {}, false, true};
      if (line == "news") return {"from now on", {}, 0};
      if (line == "long" || line == "longer") return {"", {}, {}, true};
      return {line == "much" ? std::string(1 << 20, 'x') : "<" + line + ">"};
    }
    std::string CarryOut(const std::string& line) override { return isHeld.wait(true), line + " done"; }
    std::string Failure(const std::string& why) override { return why; }
    void Tick() override { ++ticks; }
    std::string News(unsigned long& number) override { return number++ == 0 ? "new" : ""; }
    std::atomic<int> ticks{0};
  } talker;
  Server server(talker);
  server.Start();
  const Client half, deaf, mad, plain;
  half.Send("a\r\nb");
  for (int i = 0; i < 20; ++i) deaf.Send("much\n");
  for (int i = 0; i < 20; ++i) mad.Send(std::string(4096, 'x'));
  plain.Send("1\nsoon\n2\n");
  for (const char* line : {"<1>\n", "<soon>\n", "<2>\n"}) EXPECT_EQ(plain.Line(), line);
  half.Send("c\n");
  for (const char* line : {"<a>\n", "<bc>\n"}) EXPECT_EQ(half.Line(), line);
  EXPECT_EQ(mad.Line(), "(end)");
  half.Send("watch\n");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(half.Line(), "look\n");
  half.Send("enough\n");
  while (half.Line() != "done\n") continue;
  EXPECT_GT(talker.ticks, 0);
  half.Send("news\n");
  for (const char* line : {"from now on\n", "new\n"}) EXPECT_EQ(half.Line(), line);
  isHeld = true;
  {
    const Client leaver;
    leaver.Send("long\n");
    half.Send("long\nlonger\na\n");
    EXPECT_EQ(half.Line(), "<a>\n");
    plain.Send("3\n");
    EXPECT_EQ(plain.Line(), "<3>\n");
  }
  isHeld = false;
  isHeld.notify_all();
  for (const char* line : {"long done\n", "longer done\n"}) EXPECT_EQ(half.Line(), line);
  while (deaf.Line() != "(end)") continue;
  server.Stop();
  EXPECT_EQ(plain.Line(), "(end)");
}

}  // namespace
}  // namespace vorn::monitor
