// The parts of vorn-web that need neither a browser nor a process to look at.
#include <gtest/gtest.h>

#include <thread>

#include "Access.h"
#include "Board.h"
#include "Drawing.h"
#include "History.h"
#include "PageFiles.h"
#include "Program.h"

namespace vorn_web {
namespace {

using namespace std::chrono_literals;
using support::Json;

TEST(Access, TurnsAwayWhoeverComesByAnotherName) {
  const auto statusOf = [](const char* host, const char* origin) {
    const auto refusal = Access::RefuseAddress({host, origin, ""});
    return refusal ? refusal->status : 0;
  };
  for (const char* host : {"127.0.0.1:8080", "localhost:1", "localhost", "[::1]:80"}) EXPECT_EQ(statusOf(host, ""), 0);
  for (const char* host : {"", "evil.example", "127.0.0.1.evil.example:80", "localhost.evil.example", "127.0.0.1:x",
                           "evil.example:127.0.0.1", "127.0.0.2", "0.0.0.0:80"}) {
    EXPECT_EQ(statusOf(host, ""), 403) << host;
  }
  EXPECT_EQ(statusOf("localhost:80", "http://localhost:80"), 0);
  for (const char* origin : {"http://localhost:81", "https://localhost:80", "http://evil.example", "null"}) {
    EXPECT_EQ(statusOf("localhost:80", origin), 403) << origin;
  }
}

TEST(Access, AsksForTheTokenOfItsOwnPort) {
  const Access access("0123456789abcdef");
  const auto isRefused = [&](const std::string& cookie) {
    return access.RefuseStranger({"localhost", "", cookie}, 80).has_value();
  };
  EXPECT_FALSE(isRefused("vorn-web-80=0123456789abcdef"));
  EXPECT_FALSE(isRefused("a=b; vorn-web-80=0123456789abcdef; c"));
  for (const char* cookie :
       {"", "vorn-web-80=", "vorn-web-80", "vorn-web-81=0123456789abcdef", "vorn-web-80=0123456789abcdeF",
        "vorn-web-80=0123456789abcdef0", "xvorn-web-80=0123456789abcdef", ";;; ;"}) {
    EXPECT_TRUE(isRefused(cookie)) << cookie;
  }
  EXPECT_NE(Access().Token(), Access().Token());
  EXPECT_GE(Access().Token().size(), 32U);
}

Json Stats(double share, double count) {
  return {{"routes",
           {{{"name", "RouteA"},
             {"processorShare", share},
             {"framesPerSecond", nullptr},
             {"readings",
              {{{"block", "a\"b"}, {"name", "rms"}, {"value", "-20.5"}},
               {{"block", "c"}, {"name", "text"}, {"value", "x"}},
               {{"block", "c"}, {"name", "silence"}, {"value", "-inf"}}}}}}},
          {"fifos", {{{"name", "fifo_0"}, {"count", count}, {"capacity", 4}}}}};
}

const Json& SeriesOf(const Json& history, const Json& of) {
  static const Json none;
  for (const Json& series : history["series"]) {
    if (series["of"] == of) return series["values"];
  }
  return none;
}

// Red if a curve is shifted against the times: for what came later, or stayed away.
TEST(History, KeepsCurvesInStepWithTheirTimes) {
  History history;
  history.AddGap(500);  // of nothing
  history.Add(Stats(0.5, 1), 1000);
  history.Add(Stats(0.9, 9), 1000 + History::STEP - 1);
  history.AddGap(2000);
  Json later = Stats(0.25, 3);
  later["routes"].push_back({{"name", "RouteB"}, {"processorShare", 1}});
  history.Add(later, 3000);
  const Json text = Json::parse(history.ToJson());
  EXPECT_EQ(text["times"], Json({1000, 2000, 3000}));
  EXPECT_EQ(SeriesOf(text, {"share", "RouteA"}), Json({0.5, nullptr, 0.25}));
  EXPECT_EQ(SeriesOf(text, {"share", "RouteB"}), Json({nullptr, nullptr, 1}));
  EXPECT_EQ(SeriesOf(text, {"fill", "fifo_0"}), Json({0.25, nullptr, 0.75}));
  EXPECT_EQ(SeriesOf(text, {"reading", "RouteA", "a\"b", "rms"}), Json({-20.5, nullptr, -20.5}));
  EXPECT_EQ(text["series"].size(), 4U);  // no numbers, no curves
}

TEST(History, ForgetsWhatIsTooOld) {
  History history;
  history.Add(Stats(0.5, 1), 0);
  Json other = {{"fifos", {{{"name", "new"}, {"count", 1}, {"capacity", 2}}}}};
  const auto longest = static_cast<std::int64_t>(History::LONGEST);
  for (std::int64_t i = 1; i <= longest; ++i) history.Add(other, i * History::STEP);
  const Json text = Json::parse(history.ToJson());
  EXPECT_EQ(text["times"].size(), History::LONGEST);
  EXPECT_EQ(text["times"].front(), History::STEP);
  ASSERT_EQ(text["series"].size(), 1U);
  EXPECT_EQ(text["series"][0]["values"].size(), History::LONGEST);

  Json many;
  for (std::size_t i = 0; i < 2 * History::MOST_SERIES; ++i) {
    many["fifos"].push_back({{"name", std::to_string(i)}, {"count", 1}, {"capacity", 2}});
  }
  history.Add(many, (longest + 1) * History::STEP);
  EXPECT_EQ(Json::parse(history.ToJson())["series"].size(), History::MOST_SERIES);
}

Json Block(const std::string& name) { return {{"name", name}, {"label", ""}}; }

Json Graph(const std::string& name) {
  return {{"routes",
           {{{"name", "RouteA"},
             {"blocks", {Block("a"), Block(name), Block("c")}},
             {"links",
              {{{"name", "first"},
                {"from", {{"block", "a"}}},
                {"to", {{"block", name}}},
                {"rate", 48000},
                {"format", "S16_LE"},
                {"channels", 2}},
               {{"name", "second"},
                {"from", {{"block", name}}},
                {"to", {{"block", "c"}}},
                {"rate", 48000},
                {"format", "S16_LE"},
                {"channels", 2}},
               {{"name", "lost"}, {"from", {{"block", "nobody"}}}, {"to", 7}}}}},
            {{"name", "Empty"}}}},
          {"fifos",
           {{{"name", "fifo_0"},
             {"count", 1},
             {"writer", {{"route", "RouteA"}, {"block", "c"}}},
             {"reader", Json::object()}}}}};
}

// Red if something of the process gets into Graphviz's text, or something of the graph does not get into the picture.
TEST(Drawing, PlacesEverythingAndSaysNothing) {
  const std::string name = R"(]; "<img src=x>\" -> {)";
  const Json graph = Graph(name);
  for (const Layout layout : {Layout::WIDE, Layout::STACKED, Layout::TALL}) {
    EXPECT_EQ(ToDot(graph, layout).find("img"), std::string::npos);
    const Json picture = Draw(graph, layout);
    ASSERT_EQ(picture["blocks"].size(), 3U) << picture;
    EXPECT_EQ(picture["blocks"][1]["name"], name);
    EXPECT_EQ(picture["routes"].size(), 2U);
    EXPECT_EQ(picture["fifos"][0]["name"], "fifo_0");
    ASSERT_EQ(picture["edges"].size(), 3U);
    for (const Json& edge : picture["edges"]) {
      EXPECT_EQ(edge["text"],
                edge["link"] == "first" ? "48 kHz S16_LE ×2" : "");  // a stream is written where it begins
    }
    const double x = picture["blocks"][0]["x"], y = picture["blocks"][0]["y"];
    EXPECT_TRUE(x >= 0 && y >= 0 && x < picture["width"] && y < picture["height"]);
    EXPECT_EQ(picture["blocks"][2]["y"] > picture["blocks"][0]["y"], layout == Layout::TALL);
  }
}

TEST(Drawing, IsMadeAnewForWhatItShowsOnly) {
  Json graph = Graph("b");
  const std::string shape = ShapeOf(graph);
  graph["fifos"][0]["count"] = 2;
  EXPECT_EQ(ShapeOf(graph), shape);
  graph["routes"][0]["blocks"][1]["label"] = "vol";
  EXPECT_NE(ShapeOf(graph), shape);
  for (const Json& odd :
       {Json(), Json(7), Json({{"routes", 7}}), Json({{"routes", {1, "x", nullptr}}, {"fifos", {Json::array()}}})}) {
    EXPECT_FALSE(Draw(odd, Layout::WIDE).empty()) << odd;
  }
}

TEST(Board, GivesEachReaderTheLatestOfWhatItHasNotSeen) {
  Board board;
  board.Put("a", "1");
  board.Put("b", "1");
  Board::Reader reader(board);
  EXPECT_EQ(board.Readers(), 1);
  EXPECT_EQ(reader.Next(0ms).size(), 2U);
  board.Put("a", "1");
  EXPECT_TRUE(reader.Next(0ms).empty());
  std::thread writer([&] {
    board.Put("a", "2");
    board.Put("a", "3");
    board.Put("end", "");
  });
  std::string last;
  for (bool isOver = false; !isOver;) {
    for (const auto& [topic, text] : reader.Next(1h)) {
      if (topic == "a") last = text;
      isOver = isOver || topic == "end";
    }
  }
  writer.join();
  EXPECT_EQ(last, "3");
  std::thread closer([&] { board.Close(); });
  EXPECT_TRUE(reader.Next(1h).empty());
  closer.join();
}

TEST(Program, SaysWhyThereIsNoOutput) {
  const std::string much(1 << 20, 'x');
  EXPECT_EQ(RunProgram({"cat"}, much, 1min).output, much);
  EXPECT_NE(RunProgram({"/nowhere/dot"}, "", 1min).problem.find("'/nowhere/dot' does not run"), std::string::npos);
  EXPECT_EQ(RunProgram({"sh", "-c", "exit 3"}, "", 1min).problem, "'sh' ended with exit status 3");
  EXPECT_EQ(RunProgram({"sh", "-c", "kill -9 $$"}, "", 1min).problem, "'sh' was killed: Killed");
  EXPECT_EQ(RunProgram({"sleep", "1000"}, "", 10ms).problem, "'sleep' took longer than 0 s");
}

TEST(PageFiles, AreCompressed) {
  EXPECT_GT(PageFiles().size(), 10U);
  for (const PageFile& file : PageFiles()) {
    EXPECT_EQ(file.gzip.substr(0, 2), "\x1F\x8B") << file.path;
    EXPECT_FALSE(file.type.empty()) << file.path;
  }
}

}  // namespace
}  // namespace vorn_web
