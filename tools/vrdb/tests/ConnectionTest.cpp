// What vrdb makes of every way in which a console may answer, or not.
#include <future>

#include "Connection.h"
#include "FakeConsole.h"
#include "Shell.h"

namespace vrdb {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

Patience Within(std::chrono::milliseconds limit) { return {limit, nullptr, nullptr}; }

// Red if a reply is taken for whole after its first read, or what follows its NUL is added to it or kept for later.
TEST(Connection, ReadsAReplyUpToItsNulHoweverItArrives) {
  const std::string big(300000, 'x');
  FakeConsole console([&](int client, const std::string& command) {
    if (command == "pieces") return Put(client, "one") && Put(client, " reply\n") && Put(client, "\0rubbish\0"s);
    if (command == "big") return Put(client, big) && Put(client, "\0"s);
    return Put(client, "\0"s);
  });
  for (const auto& [command, reply] :
       std::vector<std::pair<std::string, std::string>>{{"pieces", "one reply\n"}, {"empty", ""}, {"big", big}}) {
    const Answer answer = Ask(command, Within(10s));
    EXPECT_EQ(answer.outcome, Outcome::ANSWERED) << answer.text;
    EXPECT_EQ(answer.text, reply);
    EXPECT_EQ(answer.peer.pid, getpid());
  }
}

// Red if the reply to a command that timed out is still there to be taken for the reply to the next one.
TEST(Connection, NeverTakesALateReplyForTheNextOne) {
  std::promise<void> gaveUp;
  FakeConsole console([&](int client, const std::string& command) {
    if (command == "slow") gaveUp.get_future().wait();
    return Put(client, "reply to " + command + "\0"s);
  });
  const Answer late = Ask("slow", Within(50ms));
  EXPECT_EQ(late.outcome, Outcome::TIMED_OUT);
  EXPECT_NE(late.text.find("has not answered in 0.05 s"), std::string::npos) << late.text;
  gaveUp.set_value();
  EXPECT_EQ(Ask("quick", Within(10s)).text, "reply to quick");
}

TEST(Connection, SaysWhyThereIsNoAnswer) {
  EXPECT_NE(Ask("status", Within(10s)).text.find("no process"), std::string::npos);
  FakeConsole console(
      [](int client, const std::string& command) { return Put(client, command) && command == "go on"; });
  const Answer cut = Ask("half a reply", Within(10s));
  EXPECT_EQ(cut.outcome, Outcome::NO_CONSOLE);
  EXPECT_NE(cut.text.find("in the middle of its answer"), std::string::npos) << cut.text;
}

// Red if a command is sent into the queue, where it is carried out although its client gave up on it, or if the wait
// for one's turn has no end, with room in the queue and without.
TEST(Connection, SendsNothingBeforeItsTurn) {
  FakeConsole console;
  std::vector<std::string> notices;
  Patience patience{1100ms, nullptr, [&](const std::string& notice) { notices.push_back(notice); }};
  const Answer first = Ask("newroute RouteA", patience);
  EXPECT_EQ(first.outcome, Outcome::NO_CONSOLE);
  EXPECT_NE(first.text.find("busy with another client"), std::string::npos) << first.text;
  EXPECT_EQ(notices.size(), 1u);
  Ask("newroute RouteB", Within(10ms));
  EXPECT_NE(Ask("newroute RouteC", Within(10ms)).text.find("busy"), std::string::npos) << "the queue is full";
  const auto cancelled = [calls = 0]() mutable { return ++calls > 2; };
  EXPECT_EQ(Ask("newroute RouteD", {0ms, cancelled, nullptr}).outcome, Outcome::CANCELLED);
  console.Start([](int client, const std::string&) { return Put(client, "here\0"s); });
  EXPECT_EQ(Ask("status", Within(10s)).text, "here");
  EXPECT_EQ(console.Commands(), std::vector<std::string>{"status"});
}

// Red if a setting by name goes to another parameter than the named one, or the console is sent a name.
TEST(Shell, SetsParametersByName) {
  const std::string table =
      "0 mode - low|high low live\n7 gain dB -120..60 -6 live\nrubbish\n9 file %25 - a%20b read\n"
      "10 peak dBFS - -21.010315099337845 read\n11 seen - - 123456789 read\n";
  FakeConsole console([&](int client, const std::string& command) {
    if (command == "getparam RouteA gain_0 4294967040") return Put(client, table + "\0"s);
    return Put(client, (command == "setparam RouteA gain_0 7 -6" ? "Success\n" : "Failed to set parameter\n") + "\0"s);
  });
  Shell shell(Within(10s));
  EXPECT_EQ(shell.Run({"setparam", "RouteA", "gain_0", "gain", "-6"}).code, DONE);
  const Result refused = shell.Run({"setparam", "RouteA", "gain_0", "gain", "99"});
  EXPECT_EQ(refused.code, FAILED);
  EXPECT_NE(refused.message.find("gain takes -120..60 dB"), std::string::npos) << refused.message;
  EXPECT_NE(shell.Run({"getparam", "RouteA", "gain_0", "x"}).message.find("it has mode, gain, file, peak"),
            std::string::npos);
  testing::internal::CaptureStdout();
  EXPECT_EQ(shell.Run({"params", "RouteA", "gain_0"}).code, DONE);
  const std::string shown = testing::internal::GetCapturedStdout();
  for (const char* row : {"9    file  %     read    a b        -", "peak  dBFS  read    -21.0      -", "123456789"}) {
    EXPECT_NE(shown.find(row), std::string::npos) << shown;
  }
}

// Red if a command that does not fit into one read of the console is sent, or one that does is refused.
TEST(Shell, RefusesWhatTheConsoleCannotTake) {
  FakeConsole console(
      [](int client, const std::string& command) { return Put(client, std::to_string(command.size()) + "\0"s); });
  Shell shell(Within(10s));
  std::string reply;
  EXPECT_EQ(shell.Ask({"echo", std::string(1018, 'x')}, reply).code, DONE);
  EXPECT_EQ(reply, "1023");
  const std::vector<Words> refused = {{"echo", std::string(1019, 'x')}, {"echo", "a b"}, {"echo", ""}, {"e\tcho"}};
  for (const Words& words : refused) EXPECT_EQ(shell.Ask(words, reply).code, WRONG_USAGE) << Join(words);
  EXPECT_EQ(console.Commands().size(), 1u);
}

}  // namespace
}  // namespace vrdb
