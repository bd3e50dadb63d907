// jacksource and jacksink against a server without hardware, which the test starts.
#include <gtest/gtest.h>
#include <jack/jack.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "testkit/TestGraph.h"
#include "testkit/Wait.h"

// Out of the thread sanitizer's sight: the server hands the ports' buffers from client to client in shared memory, and
// the library's ring orders its accesses in code that is not instrumented.
extern "C" VORN_API const char* __tsan_default_suppressions() {
  return "race:jack::Client::Record\nrace:jack_ringbuffer\n";
}

namespace {

using testkit::END_OF_FILE, testkit::Graph, testkit::StreamSpec;

bool ServerAnswers() {
  jack_set_error_function([](const char*) {});
  jack_set_info_function([](const char*) {});
  jack_client_t* client = jack_client_open("probe", JackNoStartServer, nullptr);
  if (client) jack_client_close(client);
  return client != nullptr;
}

std::ptrdiff_t Threads() { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); }

class Jack : public testing::Test {
 protected:
  void SetUp() override {
    const std::string name = "vorn-test-" + std::to_string(getpid());
    setenv("JACK_DEFAULT_SERVER", name.c_str(), 1);
    setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
    if (std::system("command -v jackd >/dev/null") != 0) GTEST_SKIP() << "no jackd here";
    // Synchronous: on a busy machine the server waits for its clients instead of playing an old buffer once more.
    const std::string start = "exec jackd -r -S -t 10000 -n " + name + " -d dummy -r 48000 -p 256 >/dev/null 2>&1";
    server = fork();
    if (server == 0) _exit(execlp("sh", "sh", "-c", start.c_str(), nullptr));
    ASSERT_TRUE(testkit::WaitUntil(ServerAnswers)) << "jackd does not come up";
  }
  void TearDown() override {
    if (server == 0) return;
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
  }

  pid_t server = 0;
};

// Red if a sample is lost, doubled or scaled between two clients, or if the channels change places.
TEST_F(Jack, CarriesEverySampleFromSinkToSource) {
  constexpr long COUNT = 12000;
  const StreamSpec stereo{.channels = 2, .frame = 480};
  std::vector<std::int16_t> played;
  for (long i = 1; i <= COUNT; ++i) {
    for (const long value : {i, -i}) played.push_back(static_cast<std::int16_t>(value));
  }
  Graph graph;
  graph.Feed(graph.Add("jacksink", {"there", "latency=48000"}), 0, played, stereo);
  vorn::Block* recorder = graph.Add("testsink", {"200"});  // 2 s
  ASSERT_TRUE(graph.Chain({graph.Add("jacksource", {"back", "latency=48000"}), recorder}, stereo));
  jack_client_t* operatorClient = jack_client_open("operator", JackNoStartServer, nullptr);
  ASSERT_NE(operatorClient, nullptr);
  jack_activate(operatorClient);
  ASSERT_EQ(graph->Start(), 0);
  for (const char* channel : {"1", "2"}) {
    const std::string from = std::string("there:out_") + channel, to = std::string("back:in_") + channel;
    EXPECT_EQ(jack_connect(operatorClient, from.c_str(), to.c_str()), 0);
  }
  EXPECT_EQ(graph.Wait(), END_OF_FILE);
  jack_client_close(operatorClient);

  // The channels are joined one after the other, and the server may run dry at the end: the run between counts.
  const auto heard = Graph::Recorded16(recorder);
  std::size_t i = 0;
  while (i < heard.size() && (heard[i] == 0 || heard[i + 1] == 0)) i += 2;
  ASSERT_LT(i, heard.size()) << "joined too late to hear anything";
  for (std::int16_t value = heard[i]; i < heard.size() && heard[i] != 0; i += 2, ++value) {
    ASSERT_EQ(heard[i], value);
    ASSERT_EQ(heard[i + 1], -value);
  }
}

// Red if a block waits for a server that is stopped, in a frame, in its rest, or for its answer to the farewell.
TEST_F(Jack, AnInterruptBringsBlocksBackFromAStoppedServer) {
  vorn::BlockCounters counters;
  Graph graph;
  const auto before = Threads();
  vorn::Block* source = graph.Add("jacksource", {"back"});
  ASSERT_TRUE(graph.Chain({source, graph.Add("testsink", {}, false, true)}, {.channels = 2}));
  vorn::Block* filler = graph.Add("tone");
  vorn::Block* sink = graph.Add("jacksink", {"there"});
  ASSERT_EQ(vorn::AttachCounters(sink, &counters), 0);
  ASSERT_TRUE(graph.Chain({filler, sink}, {.channels = 2}));
  ASSERT_EQ(graph->Start(), 0);
  ASSERT_TRUE(testkit::WaitUntil([&] { return counters.frames != 0; }));  // the sink has something to lose
  kill(server, SIGSTOP);
  while (counters.resets == 0) std::this_thread::yield();  // a second without a cycle
  for (vorn::Block* block : {source, filler, sink}) EXPECT_EQ(vorn::InterruptBlock(block), 0);
  EXPECT_EQ(graph.Wait(), END_OF_FILE);
  EXPECT_GT(counters.losses, 0U);
  kill(server, SIGKILL);                                 // it would wait for the clients that were left behind
  while (Threads() > before) std::this_thread::yield();  // libjack cannot open a client while others still close
}

TEST_F(Jack, RefusesAnotherRateAndAPortThatIsNotThere) {
  for (const auto& [argument, rate] : {std::pair{"connect=", 44100U}, std::pair{"connect=nowhere:", 48000U}}) {
    Graph graph;
    ASSERT_TRUE(graph.Chain({graph.Add("testsource", {}, true), graph.Add("jacksink", {argument})}, {.rate = rate}));
    EXPECT_LT(graph->Start(), 0);
  }
}

}  // namespace
