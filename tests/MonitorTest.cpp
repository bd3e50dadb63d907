// What the monitor says, and that nothing keeps it from saying so.
#include <sys/socket.h>
#include <sys/un.h>

#include "Monitor/Server.h"
#include "Monitor/Survey.h"
#include "testkit/RouteTest.h"

namespace vorn::monitor {
namespace {

using namespace std::chrono_literals;
using Clock = Survey::Clock;

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
  EXPECT_EQ(object.Text(), R"({"a":true,"b":18446744073709551615,"c":0.123,"d":[]})");
}

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

struct SurveyTest : RouteTest {
  SurveyTest() {
    registry.routes = {std::make_shared<RouteImpl>("RouteA", nullptr, ""),
                       std::make_shared<RouteImpl>("RouteB", nullptr, "")};
    registry.fifos = {std::make_shared<RingBuffer>(1000, sizeof(int), 3, 0)};
    registry.fifos.front()->name = "fifo_0";
  }
  ~SurveyTest() override {
    registry.fifos.front()->Shutdown();
    isHeld = false;
    isHeld.notify_all();
  }
  RouteImpl& A() { return *registry.routes.front(); }
  RouteImpl& B() { return *registry.routes.back(); }
  RingBuffer& Between() { return *registry.fifos.front(); }
  std::string Ask(const std::string& line, Clock::time_point now = Clock::now()) {
    return survey.Answer(line, registry, now);
  }
  /** Asks until all parts are there. */
  void Expect(const std::string& line, const std::vector<std::string>& parts, std::chrono::seconds later = 0s) {
    std::string got;
    const auto isAll = [&] {
      got = Ask(line, Clock::now() + later);
      return std::all_of(parts.begin(), parts.end(), [&](const std::string& part) { return Has(got, part); });
    };
    EXPECT_TRUE(WaitUntil(isAll, 10s)) << got;
  }

  Registry registry;
  Survey survey;
};

// Red if a question of an operator gets no answer, or the wrong one.
TEST_F(SurveyTest, SaysWhyARouteStands) {
  EXPECT_TRUE(Has(Ask("why RouteA"), R"("status":"stopped","why":"stopped","since":)"));
  EXPECT_TRUE(Has(Ask("why RouteQ"), R"("error":"no route 'RouteQ'")"));

  Probe* const lone = Add(A(), FIRST, "");
  A().Start();
  Expect("why RouteA", {R"("why":"broken","reason":"probe_0 has no output linked, and is no last block")"});
  A().Delete(lone);
  A().Stop();

  Add<User>(A(), ALONE, &Between());
  A().Start();
  Expect("why RouteA", {R"("block":"probe_0")", R"("why":"waits","for":"samples")", R"("count":0,"capacity":3)"}, 60s);

  const std::string reason = R"("reason":"probe_0 did not start: -5")";
  Block* const refuser = Add<Refuser>(B(), ALONE, "");
  B().Start();
  Expect("why RouteB", {R"("why":"stopped")", reason});
  B().Delete(refuser);
  Add<Probe>(B(), ALONE, "", Script{FRAME_DONE});
  B().Start();
  Expect("why RouteB", {R"("why":"runs")"});
  Add<Refuser>(B(), ALONE, "");
  Expect("why RouteB", {R"("why":"dead","reason":"probe_1 did not start: -5")"});
  static auto& left = *new auto(registry.routes.back());  // nobody answers any more who asks it to end
  static_cast<void>(left);
}

TEST_F(SurveyTest, NamesTheOtherSideOfAFIFO) {
  Join(A(), Add<Probe>(A(), FIRST, ""), Add<User>(A(), LAST, &Between()));
  Add<User>(B(), ALONE, &Between());
  A().Start();
  Expect("why RouteA",
         {R"("why":"waits","for":"room")", R"("count":3,"capacity":3)",
          R"("reader":{"route":"RouteB","block":"probe_0"})", R"("other":{"route":"RouteB","status":"stopped")"},
         60s);
}

TEST_F(SurveyTest, TellsABlockThatWorksFromOneThatSleeps) {
  isHeld = true;
  Add<Spinner>(A(), ALONE, "");
  Add<Sleeper>(B(), ALONE, "");
  A().Start();
  B().Start();
  Expect("why RouteA", {R"("block":"probe_0","since":)", R"("why":"busy")"});
  Expect("why RouteB", {R"("block":"probe_0","since":)", R"("why":"sleeps")"});
}

TEST_F(SurveyTest, ShowsTheWholeGraph) {
  Probe* const source = Add<Probe>(A(), FIRST, "");
  Join(A(), source, Add<Probe>(A(), LAST, "x"), 2, 3);
  const std::string graph = Ask("graph");
  for (
      const char* part :
      {R"("version":1,"request":"graph")",
       R"("name":"probe_x_0","first":false,"last":true,"plugIn":"libprobe.so","args":[")",
       R"("from":{"block":"probe_0","port":2},"to":{"block":"probe_x_0","port":3},"rate":48000,"format":"S16_LE","channels":2,"samplesPerFrame":4)",
       R"({"name":"fifo_0","count":0,"capacity":3,"rate":1000,"writer":{},"reader":{})"}) {
    EXPECT_TRUE(Has(graph, part)) << part << "\n" << graph;
  }
  EXPECT_TRUE(Has(Ask("stats"), R"("name":"RouteA","status":"stopped","frames":0,"errorFrames":0,"inBlock":"")"));
  for (const char* line : {"", "graph x", "why", "why RouteA x", "nonsense"})
    EXPECT_TRUE(Has(Ask(line), "expected graph, stats"));
}

/** A client of the socket. */
struct Client {
  Client() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "vorn." + std::to_string(getpid());
    name.copy(address.sun_path + 1, name.size());
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address),
                      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())),
              0);
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
};

// Red if one client keeps another waiting, or one that is gone or mad does harm.
TEST(Server, ServesManyWhateverTheyDo) {
  std::atomic<int> answered{0};
  const auto answer = [&](const std::string& line) {
    ++answered;
    if (line == "watch") return Server::Reply{"look", 10ms};
    if (line == "enough") return Server::Reply{"done", 0ms};
    return Server::Reply{line == "much" ? std::string(1 << 20, 'x') : "<" + line + ">"};
  };
  std::atomic<int> ticks{0};
  Server server(answer, [&] { ++ticks; });
  server.Start();
  const Client half, deaf, mad, plain;
  half.Send("a\r\nb");
  for (int i = 0; i < 20; ++i) deaf.Send("much\n");
  for (int i = 0; i < 20; ++i) mad.Send(std::string(4096, 'x'));
  plain.Send("1\n2\n");
  for (const char* line : {"<1>\n", "<2>\n"}) EXPECT_EQ(plain.Line(), line);
  half.Send("c\n");
  for (const char* line : {"<a>\n", "<bc>\n"}) EXPECT_EQ(half.Line(), line);
  EXPECT_EQ(mad.Line(), "(end)");
  half.Send("watch\n");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(half.Line(), "look\n");
  half.Send("enough\n");
  while (half.Line() != "done\n") continue;
  EXPECT_GT(ticks, 0);
  while (deaf.Line() != "(end)") continue;
  server.Stop();
  EXPECT_EQ(plain.Line(), "(end)");
}

}  // namespace
}  // namespace vorn::monitor
