// What vrdb makes of every way in which a console may answer, or not.
#include <atomic>
#include <future>

#include <sstream>

#include "Connection.h"
#include "FakeConsole.h"
#include "Shell.h"
#include "support/tests/FakeMonitor.h"

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
  EXPECT_EQ(first.outcome, Outcome::BUSY);
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

/** A process with both doors: a route that runs, one that waits, and a block with a label. */
class ShellTest : public testing::Test {
 protected:
  ShellTest() : monitor([this](const std::string& request) { return Json::parse(Answer(request)).dump() + "\n"; }) {}

  std::string Answer(const std::string& request) {
    if (request == "graph") {
      return R"({"process": {"console": )" + std::string(hasConsole ? "true" : "false") +
             R"(}, "routes": [{"name": "RouteA", "status": "running", "blocks": [{"name": "gain_vol_0", "label": "vol"}]},
                {"name": "RouteB", "status": "running", "blocks": [{"name": "gain_0"}]}]})";
    }
    if (request == "why RouteB") return R"({"why": "waits", "since": 9, "text": "RouteB waits for ever"})";
    if (request.rfind("why", 0) == 0) return R"({"why": "runs"})";
    if (request.rfind("params", 0) == 0) {
      return R"({"routes": [{"name": "RouteA", "blocks": [{"name": "gain_vol_0", "parameters": )" + TABLE +
             R"(}]}, {"name": "RouteB", "blocks": [{"name": "gain_0", "parameters": )" + TABLE + R"(}]}]})";
    }
    if (request == "log") return R"({"available": true, "lines": ["I old")" + logged + "]}";
    if (request.rfind("do ", 0) == 0) return R"({"ok": true, "reply": "Started RouteA\n"})";
    if (request.rfind("edit ", 0) == 0) return R"({"ok": true, "made": ["gain_1"], "deleted": []})";
    return R"({"error": "not expected"})";
  }
  FakeConsole::Serve Says(const std::string& reply) {
    return [this, reply](int client, const std::string& command) {
      if (reply.rfind("Failed", 0) == 0) logged = R"(, "I chatter", "E RouteA: \u001b[2Jno room")";
      return Put(client, (command == "getparam RouteA gain_vol_0 7" ? "-6" : reply) + "\0"s);
    };
  }

  const std::string TABLE = R"([{"id": 0, "name": "mode", "range": "low|high", "value": "low", "access": "live"},
      {"id": 7, "name": "gain", "unit": "dB", "range": "-120..60", "value": "-6", "access": "live"},
      {"id": 9, "name": "file", "unit": "%", "value": "a b", "access": "read"},
      {"id": 10, "name": "peak", "unit": "dBFS", "value": "-21.010315099337845", "access": "read"}])";
  std::atomic<bool> hasConsole = true;
  std::string logged;
  FakeMonitor monitor;
  Shell shell{Within(10s)};
};

// Red if a setting by name goes to another parameter than the named one, or a route is asked for its table.
TEST_F(ShellTest, SetsParametersByName) {
  FakeConsole console(Says("Success\n"));
  EXPECT_EQ(shell.Run({"setparam", "RouteA", "vol", "gain", "-6"}).code, DONE);
  EXPECT_EQ(shell.Run({"getparam", "RouteA", "vol", "7"}).code, DONE);
  EXPECT_NE(shell.Run({"getparam", "RouteA", "vol", "x"}).message.find("it has mode, gain, file, peak"),
            std::string::npos);
  EXPECT_NE(shell.Run({"setparam", "RouteA", "x", "gain", "1"}).message.find("there is no x on RouteA"),
            std::string::npos);
  EXPECT_EQ(console.Commands(),
            (std::vector<std::string>{"setparam RouteA gain_vol_0 7 -6", "getparam RouteA gain_vol_0 7"}));
  testing::internal::CaptureStdout();
  EXPECT_EQ(shell.Run({"params", "RouteA", "vol"}).code, DONE);
  const std::string shown = testing::internal::GetCapturedStdout();
  for (const char* row : {"9    file  %     read    a b    -", "peak  dBFS  read    -21.0  -"}) {
    EXPECT_NE(shown.find(row), std::string::npos) << shown;
  }
}

// Red if vrdb hangs where it could have known, or cannot be told to wait.
TEST_F(ShellTest, AsksBeforeItWaitsForARouteThatStands) {
  FakeConsole console(Says("Stopped RouteB\n"));
  const Result refused = shell.Run({"stop", "RouteB"});
  EXPECT_EQ(refused.code, FAILED);
  EXPECT_NE(refused.message.find("RouteB waits for ever"), std::string::npos) << refused.message;
  EXPECT_EQ(shell.Run({"setdump", "/tmp"}).code, FAILED) << "has to pass all routes";
  testing::internal::CaptureStdout();
  EXPECT_EQ(shell.Run({"getparam", "RouteB", "gain_0", "gain"}).code, DONE);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "-6\n") << "as the monitor has it";
  std::string question;
  shell.confirm = [&](const std::string& text) { return question = text, false; };
  EXPECT_EQ(shell.Run({"stop", "RouteB"}).message, "not done");
  EXPECT_NE(question.find("waits for ever"), std::string::npos);
  EXPECT_TRUE(console.Commands().empty());
  EXPECT_EQ(shell.Run({"stop", "--wait", "RouteB"}).code, DONE);
  EXPECT_EQ(shell.Run({"stop", "RouteB", "--wait"}).code, DONE);
  shell.confirm = [](const std::string&) { return true; };
  EXPECT_EQ(shell.Run({"stop", "RouteB"}).code, DONE);
  EXPECT_EQ(console.Commands(), std::vector<std::string>(3, "stop RouteB"));
}

TEST_F(ShellTest, ShowsWhatWasLoggedBesideAFailure) {
  FakeConsole console(Says("Failed to start route\n"));
  const Result result = shell.Run({"start", "RouteA"});
  EXPECT_EQ(result.code, FAILED);
  EXPECT_EQ(result.log, Words{"E RouteA: \\x1b[2Jno room"});
}

// Red if a console that somebody else holds keeps vrdb out, or a command is carried out by both doors.
TEST_F(ShellTest, TakesTheOtherDoorWhereTheConsoleIsBusyOrMissing) {
  hasConsole = false;
  EXPECT_EQ(shell.Run({"start", "RouteA"}).code, DONE);
  hasConsole = true;
  FakeConsole console;
  Shell other{Within(10s)};
  EXPECT_EQ(other.Run({"start", "RouteA"}).code, DONE);
  console.Start(Says("Started RouteA\n"));
  EXPECT_EQ(other.Run({"start", "RouteA"}).code, DONE);
  EXPECT_EQ(console.Commands(), std::vector<std::string>{"start RouteA"});
  EXPECT_EQ(monitor.Requests("do "), (std::vector<std::string>{"do start RouteA", "do start RouteA"}));
}

// Red if a part of a file is carried out, or its lines one by one.
TEST_F(ShellTest, CarriesOutAFileAsOneEdit) {
  std::istringstream good("# louder\nsetparam RouteA vol gain 0\n\nreplace RouteA vol gain gain=1\n");
  EXPECT_EQ(shell.RunAtomically(good, "file"), DONE);
  const std::string edit = "edit { setparam RouteA gain_vol_0 gain 0 ; replace RouteA gain_vol_0 gain gain=1 }";
  EXPECT_EQ(monitor.Requests("edit"), std::vector<std::string>{edit});
  for (const char* bad : {"remove RouteA vol\nstop RouteA\n", "remove RouteA\n", "remove RouteB gain_0\n"}) {
    std::istringstream lines(bad);
    EXPECT_NE(shell.RunAtomically(lines, "file"), DONE) << bad;
  }
  EXPECT_EQ(monitor.Requests("edit").size(), 1u);
}

// Red if a command that does not fit into one read of the console is sent, or one that does is refused.
TEST(Shell, RefusesWhatTheConsoleCannotTake) {
  FakeConsole console(
      [](int client, const std::string& command) { return Put(client, std::to_string(command.size()) + "\0"s); });
  Shell shell(Within(10s));
  std::string reply;
  EXPECT_EQ(shell.Change({"echo", std::string(1018, 'x')}, reply).code, DONE);
  EXPECT_EQ(reply, "1023");
  const std::vector<Words> refused = {{"echo", std::string(1019, 'x')}, {"echo", "a b"}, {"echo", ""}, {"e\tcho"}};
  for (const Words& words : refused) EXPECT_EQ(shell.Change(words, reply).code, WRONG_USAGE) << Join(words);
  EXPECT_EQ(console.Commands().size(), 1u);
}

// Red if vrdb takes one of several processes at random, or cannot be told which.
TEST(Target, IsTheOneWithTheConsoleOrTheOneThatWasNamed) {
  const auto serve = [](const std::string&) { return "{\"routes\": []}\n"s; };
  const pid_t other = getppid();  // stands for a second process: its address, and its name
  FakeMonitor own(serve);
  EXPECT_EQ(Target("").Choose(Within(1s)).code, DONE) << "the only one";
  FakeMonitor second(serve, other);
  const Result result = Target("").Choose(Within(1s));
  EXPECT_EQ(result.code, WRONG_USAGE);
  EXPECT_NE(result.message.find(std::to_string(other) + " ("), std::string::npos) << result.message;
  for (const pid_t pid : {getpid(), other}) {
    for (const std::string& wanted : {std::to_string(pid), support::ProcessName(pid)}) {
      Target target(wanted);
      EXPECT_EQ(target.Choose(Within(1s)).code, DONE) << wanted;
      EXPECT_EQ(target.Process(), pid);
    }
  }
  EXPECT_EQ(Target("nobody").Choose(Within(1s)).code, NO_CONSOLE);
  EXPECT_EQ(Target("1").Choose(Within(1s)).code, NO_CONSOLE);
  FakeConsole console([](int client, const std::string&) { return Put(client, "here\0"s); });
  Target chosen("");
  EXPECT_EQ(chosen.Choose(Within(1s)).code, DONE);
  EXPECT_EQ(chosen.Process(), getpid());
  EXPECT_TRUE(chosen.HasConsole(Within(1s)));
  Target without(std::to_string(other));
  EXPECT_EQ(without.Choose(Within(1s)).code, DONE);
  EXPECT_FALSE(without.HasConsole(Within(1s)));
}

}  // namespace
}  // namespace vrdb
