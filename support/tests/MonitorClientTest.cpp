// What the client makes of every way in which a monitor may answer, or not; and of what stands in its answers.
#include "support/MonitorClient.h"

#include <sys/wait.h>

#include <future>

#include "support/Printable.h"
#include "support/tests/FakeMonitor.h"

namespace support {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

// Red if words lose their blanks on the way, a reply is taken for that to another request, or an error for a success.
TEST(MonitorClient, AsksOneAfterTheOtherOnOneConnection) {
  FakeMonitor monitor([](const std::string& request) {
    if (request == "bad") return "{\"error\":\"no \\u001b[31mred\"}\n"s;
    return Json{{"request", request}}.dump() + "\n";
  });
  MonitorClient client(getpid());
  EXPECT_EQ(TextOf(client.Ask({"edit", "a b", "q\"\\", ""}).json, "request"), R"(edit "a b" "q\"\\" "")");
  const int descriptor = client.Descriptor();
  for (int i = 0; i < 50; ++i) {
    const std::string request = "why Route" + std::to_string(i);
    EXPECT_EQ(TextOf(client.AskLine(request).json, "request"), request);
  }
  const MonitorReply bad = client.Ask({"bad"});
  EXPECT_EQ(bad.outcome, MonitorOutcome::FAILED);
  EXPECT_EQ(bad.problem, "no \\x1b[31mred");
  EXPECT_EQ(client.Ask({"two\nlines"}).outcome, MonitorOutcome::NONSENSE);
  EXPECT_EQ(client.Descriptor(), descriptor);
  EXPECT_EQ(client.Answering().pid, getpid());
  EXPECT_EQ(monitor.Requests().size(), 52u);
}

// Red if half a line counts as a reply, a wait for its rest has no end, or the rest is taken for the next reply.
TEST(MonitorClient, SaysWhyThereIsNoReply) {
  EXPECT_NE(MonitorClient(getpid()).Ask({"graph"}).problem.find("has no monitor"), std::string::npos);
  std::promise<void> gaveUp;
  FakeMonitor monitor([&](const std::string& request) {
    if (request == "half") return "{\"request\":"s;
    if (request == "end") return "hang up"s;
    if (request == "slow") return gaveUp.get_future().wait(), "{\"request\":\"slow\"}\n"s;
    return request == "quick" ? "{\"request\":\"quick\"}\n"s : request + "\n";
  });
  MonitorClient client(getpid());
  EXPECT_EQ(client.Ask({"half"}, {30ms, nullptr}).outcome, MonitorOutcome::LATE);
  EXPECT_EQ(client.Ask({"slow"}, {30ms, nullptr}).outcome, MonitorOutcome::LATE);
  EXPECT_EQ(TextOf(client.Ask({"quick"}).json, "request"), "quick");
  gaveUp.set_value();
  EXPECT_EQ(client.Ask({"half"}, {0ms, [calls = 0]() mutable { return ++calls > 2; }}).outcome,
            MonitorOutcome::CANCELLED);
  for (const char* nonsense : {"no_json", "[1]", "{\"a\":", "\xff"}) {
    EXPECT_EQ(client.AskLine(nonsense).outcome, MonitorOutcome::NONSENSE) << nonsense;
  }
  EXPECT_EQ(client.Ask({"end"}).outcome, MonitorOutcome::NOBODY);
  EXPECT_EQ(client.Post({"half"}).outcome, MonitorOutcome::DONE);
  EXPECT_EQ(client.Next({30ms, nullptr}).outcome, MonitorOutcome::LATE);
  EXPECT_EQ(client.Post({"end"}).outcome, MonitorOutcome::DONE);
  EXPECT_NE(client.Next().problem.find("in the middle of its answer"), std::string::npos);
}

TEST(MonitorClient, GathersALineThatComesInPieces) {
  FakeMonitor monitor(
      [](const std::string& request) { return request == "watch 10" ? "{\"number\":1}\n{\"num"s : "ber\":2}\n"s; });
  MonitorClient client(getpid());
  EXPECT_EQ(NumberOf(client.Ask({"watch", "10"}).json, "number"), 1);
  EXPECT_EQ(client.Next({20ms, nullptr}).outcome, MonitorOutcome::LATE);
  client.Post({"go on"});
  EXPECT_EQ(NumberOf(client.Next().json, "number"), 2);
}

TEST(MonitorClient, FindsEachProcessOnce) {
  EXPECT_EQ(FindMonitors(), std::vector<pid_t>{});
  FakeMonitor monitor([](const std::string&) { return "{}\n"s; });
  MonitorClient client(getpid());
  client.Ask({"graph"});
  EXPECT_EQ(FindMonitors(), std::vector<pid_t>{getpid()});
}

// Anybody can take the address of a process that is gone; root is the one who would be fooled.
TEST(MonitorClient, BelievesNoStranger) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root, who can become another user";
  int ready[2], done[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(done), 0);
  const pid_t stranger = fork();
  if (stranger == 0) {
    char byte = 0;
    close(done[1]);
    if (setuid(65534) < 0) _exit(77);
    const FakeMonitor monitor([](const std::string&) { return "{\"routes\":[]}\n"s; });
    if (write(ready[1], "r", 1) == 1 && read(done[0], &byte, 1) >= 0) _exit(0);
    _exit(1);
  }
  close(ready[1]);
  close(done[0]);
  char byte = 0;
  const bool isReady = read(ready[0], &byte, 1) == 1;
  if (isReady) {
    MonitorClient client(stranger);
    const MonitorReply reply = client.Ask({"graph"});
    EXPECT_EQ(reply.outcome, MonitorOutcome::NOT_ALLOWED) << ToText(reply.json);
    EXPECT_NE(reply.problem.find("not to be trusted"), std::string::npos) << reply.problem;
  }
  close(done[1]);
  int status = 0;
  waitpid(stranger, &status, 0);
  if (!isReady) GTEST_SKIP() << "this namespace has no other user";
}

TEST(JsonMembers, AreNothingWhereTheyAreMissingOrOfAnotherType) {
  const Json json = Json::parse(R"({"text": 1, "number": "x", "list": {}, "flag": "true", "null": null})");
  for (const Json& object : {json, Json(), Json::array({1, 2}), Json("text")}) {
    EXPECT_EQ(TextOf(object, "text"), "");
    EXPECT_FALSE(NumberOf(object, "number"));
    EXPECT_TRUE(ListOf(object, "list").empty());
    EXPECT_FALSE(IsTrue(object, "flag"));
    EXPECT_TRUE(Named(object, "x").is_null());
    EXPECT_TRUE(Member(Member(object, "null"), "deeper").is_null());
  }
  EXPECT_EQ(ToText(Json("\xc2\x9b\x7f\xff")), "\"\\u009b\\u007f\\ufffd\"");
}

// Red if anything is left that a terminal obeys, or a name is changed that has nothing of the kind.
TEST(Printable, LeavesNothingThatATerminalObeys) {
  const std::vector<std::pair<std::string, std::string>> texts = {
      {"gain_0", "gain_0"},
      {"Gr\xc3\xb6\xc3\x9f"
       "e \xe2\x82\xac \xf0\x9f\x8e\xb5",
       "Gr\xc3\xb6\xc3\x9f"
       "e \xe2\x82\xac \xf0\x9f\x8e\xb5"},
      {"\x1b[2J\x07\x7f\n", "\\x1b[2J\\x07\\x7f\\x0a"},
      {"\xc2\x9b"
       "31m",
       "\\xc2\\x9b"
       "31m"},
      {"\x9b\xff\xc3", "\\x9b\\xff\\xc3"},
      {"\xe2\x80\xae"
       "evil",
       "\\xe2\\x80\\xae"
       "evil"},
      {"", ""},
  };
  for (const auto& [text, shown] : texts) EXPECT_EQ(Printable(text), shown);
  EXPECT_EQ(PrintableLines("a\tb\n\x1b"), "a\tb\n\\x1b");
}

}  // namespace
}  // namespace support
