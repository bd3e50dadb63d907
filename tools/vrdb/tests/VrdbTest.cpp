// What vrdb understands: graphs, replies, lines and the words to complete.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "CommandTable.h"
#include "Completion.h"
#include "Edits.h"
#include "GraphPicture.h"
#include "Guard.h"
#include "Names.h"
#include "StatusText.h"
#include "TextWidth.h"
#include "Top.h"

namespace vrdb {
namespace {

const Json GRAPH = Json::parse(R"json({
  "version": 1, "request": "graph", "process": {"pid": 7, "name": "player", "console": true},
  "routes": [
    {"name": "RouteB", "status": "stopped", "blocks": [], "links": []},
    {"name": "RouteA", "status": "running",
     "blocks": [{"name": "mic_0", "label": "", "first": true, "last": false},
                {"name": "gain_vol_0", "label": "vol", "first": false, "last": false},
                {"name": "gain_twin_0", "label": "twin", "first": false, "last": false},
                {"name": "gain_twin_1", "label": "twin", "first": false, "last": false},
                {"name": "/a/\"b-c_0", "first": false, "last": true}],
     "links": [{"name": "lnk_0", "from": {"block": "mic_0", "port": 0}, "to": {"block": "gain_vol_0", "port": 0},
                "rate": 48000, "format": "S16_LE", "channels": 2, "samplesPerFrame": 480},
               {"name": "lnk_1", "from": {"block": "gain_vol_0", "port": 0}, "to": {"block": "gain_twin_0", "port": 0}},
               {"name": "lnk_2", "from": {"block": "gain_twin_0", "port": 1}, "to": {"block": "gain_twin_1", "port": 0}},
               {"name": "lnk_3", "from": {"block": "gain_twin_0", "port": 0}, "to": {"block": "gain_twin_1", "port": 1}},
               {"name": "lnk_4", "from": {"block": "gain_twin_1", "port": 0}, "to": {"block": "/a/\"b-c_0", "port": 0}}]}],
  "fifos": [{"name": "fifo_0", "count": 25, "capacity": 100, "writer": {"route": "RouteA", "block": "/a/\"b-c_0"}}]})json");

const Json STATS = Json::parse(R"json({
  "version": 1, "request": "stats", "time": 1700000000.5,
  "routes": [
    {"name": "RouteB", "status": "stopped", "why": "stopped", "text": "RouteB is stopped, for 3.0 s"},
    {"name": "RouteA", "status": "running", "why": "waits", "inBlock": "mic_0", "since": 12.3, "frames": 2, "errorFrames": 1,
     "text": "RouteA waits in mic_0, for 12.3 s: no samples in fifo_1 (0 of 4800), which out_0 of RouteB writes",
     "readings": [{"block": "gain_vol_0", "name": "peak", "unit": "dBFS", "value": -20.98}]}],
  "fifos": [{"name": "fifo_0", "count": 25, "capacity": 100}]})json");

// Red if a script takes a failure for a success, or a parameter's value for a failure.
TEST(CommandTable, TellsFailureFromSuccessByTheReply) {
  const std::vector<std::tuple<const char*, const char*, bool>> replies = {
      {"newroute RouteA", "Created RouteA\n", false},
      {"newroute RouteA", "Failed to create route\n", true},
      {"setdump /tmp", "Done\n", false},
      {"setdump /nowhere", "Failed to set dump log file\nDone\n", true},
      {"delete RouteA x", "Can't find x\n", true},
      {"delete RouteA x", "Failed to delete x\n", true},
      {"delete RouteA", "error: Need an instance name or '!'\n", true},
      {"delete RouteA Failed", "Deleted Failed\n", false},
      {"getparam RouteA x 1", "Failed to get parameter\n", true},
      {"getparam RouteA x 1", "Failed to get parameter\nof the file\n", false},
      {"getparam RouteA x 1", "error: 0\n", false},
      {"getparam RouteA x 1", "", false},
      {"getparam RouteA x 1", "Unknown command 'getparam'\n", true},
      {"setparam RouteA x 1", "", true},
      {"status", "No route\nNo fifo\n", false},
      {"status", "Invalid argument\n", true},
      {"Status", "Unknown command 'Status'\n", true},
      {"new in a later console", "Something else\n", false},
  };
  for (const auto& [line, reply, failure] : replies) EXPECT_EQ(SaysFailure(Split(line).words, reply), failure) << reply;
}

TEST(CommandTable, RefusesWrongArgumentsBeforeTheyAreSent) {
  const std::vector<std::pair<const char*, const char*>> lines = {
      {"newblock RouteA x.so true false any args", ""},
      {"newblock RouteA x.so true yes", "ISLAST: expected true or false, got 'yes'"},
      {"newblock RouteA x.so true", "ISLAST is missing"},
      {"newlink RouteA 48000 S24_3LE 2 480 a 0 b 0", "FORMAT: expected one of BYTE"},
      {"newlink RouteA 48000Hz S16_LE 2 480 a 0 b 0", "RATE: expected a whole number"},
      {"newlink RouteA 4294967296 S16_LE 2 480 a 0 b 0", "RATE: expected"},
      {"newlink RouteA 48000 S16_LE 2 -480 a 0 b 0", ""},
      {"setparam RouteA x -1 5", "KEY: expected a parameter's name"},
      {"setparam RouteA x gain -5", ""},
      {"start RouteA RouteB", "'RouteB' is one argument too many"},
      {"loglevel -3", ""},
      {"help", ""},
      {"params", ""},
      {"params RouteA x y", "'y' is one argument too many"},
      {"insert RouteA lnk_0", "PLUG-IN is missing"},
      {"insert RouteA lnk_0 gain gain=-6 x", ""},
      {"edit { stop }", ""},
  };
  for (const auto& [line, message] : lines) {
    const Words words = Split(line).words;
    const std::string wrong = WrongUsage(*FindCommand(words[0]), words);
    EXPECT_EQ(wrong.substr(0, std::strlen(message)), message) << line;
    EXPECT_EQ(wrong.empty(), *message == 0) << wrong;
  }
}

TEST(Words, AreSplitAsTheConsoleSplitsThem) {
  EXPECT_EQ(Split(" delete\tRouteA  !\r # all").words, (Words{"delete", "RouteA", "!"}));
  EXPECT_EQ(Split("setparam a#b # c").words, (Words{"setparam", "a#b"}));
  EXPECT_TRUE(Split("# nothing").words.empty());
  for (const char* line : {"x \"a b\"", "x 'a'", "x path=\"a b\"", "x a\\ b"}) EXPECT_NE(Split(line).error, "") << line;
  for (const char* line : {"x it's", "x a=it's", "x C:\\", "x \\d+"}) EXPECT_EQ(Split(line).error, "") << line;
}

// The manual page has every command of the table, as the table spells it.
TEST(CommandTable, IsWhatTheManualPageSays) {
  std::ifstream file(VRDB_MANUAL);
  std::string page(std::istreambuf_iterator<char>(file), {});
  page.erase(std::remove(page.begin(), page.end(), '\\'), page.end());
  for (const Command& command : Commands()) {
    EXPECT_NE(page.find("\n.B " + std::string(command.usage) + "\n"), std::string::npos) << command.usage;
  }
}

TEST(Completion, KnowsWhatTheProcessHas) {
  const Json parameters =
      Json::parse(R"({"routes": [{"name": "RouteA", "blocks": [{"name": "gain_vol_0", "parameters": [
      {"id": 0, "name": "mode", "range": "low|high"}, {"id": 1, "name": "gain"}, {"id": 2, "type": "flag", "name": "mute"}]}]}]})");
  const Live live{[] { return GRAPH; }, [&](auto&, auto&) { return parameters; }, getpid};
  const std::vector<std::pair<const char*, Words>> lines = {
      {"new", {"newblock", "newlink", "newroute"}},
      {"start ", {"RouteA", "RouteB"}},
      {"newroute RouteA", {}},
      {"newroute RouteC", {"RouteC"}},
      {"newblock RouteA /nowhere/", {}},
      {"newblock RouteA x.so t", {"true"}},
      {"newlink RouteA 48000 F", {"FLOAT_BE", "FLOAT_LE"}},
      {"newlink RouteA 48000 BYTE 1 1 m", {"mic_0"}},
      {"delete RouteA v", {"vol"}},
      {"delete RouteA l", {"lnk_0", "lnk_1", "lnk_2", "lnk_3", "lnk_4"}},
      {"insert RouteA ", {"lnk_0", "lnk_1", "lnk_2", "lnk_3", "lnk_4"}},
      {"remove RouteA gain_v", {"gain_vol_0"}},
      {"edit { remove RouteA vol ; ins", {"insert"}},
      {"edit { remove RouteA vol ; delete RouteA v", {"vol"}},
      {"getparam RouteA gain_vol_0 ", {"gain", "mode", "mute"}},
      {"setparam RouteA vol mode ", {"high", "low"}},
      {"setparam RouteA vol mute ", {"false", "true"}},
      {"setdump -", {"--"}},
      {"status --", {"--dot", "--json"}},
      {"top -n 3 --b", {"--batch"}},
      {"timing o", {"off", "on"}},
      {"start RouteA ", {}},
      {"nonsense ", {}},
  };
  for (const auto& [line, words] : lines) EXPECT_EQ(Complete(line, live), words) << line;
  EXPECT_EQ(Complete("newblock RouteA /proc/self/ex", live), Words{}) << "neither a plug-in nor a folder";
  EXPECT_EQ(Complete("newblock RouteA x.so true false /proc/self/ex", live), Words{"/proc/self/exe"});
  const std::ofstream here("libhere.so");
  EXPECT_EQ(Complete("newblock RouteA libhere", live), Words{}) << "would not be found";
  EXPECT_EQ(Complete("newblock RouteA ./libhere", live), Words{"./libhere.so"});
  unlink("libhere.so");
  EXPECT_EQ(CommonBeginning({"RouteA", "RouteB"}), "Route");
}

// Red if a name gives way to a label, or one of two blocks is taken for the other.
TEST(Names, PutBlocksInPlaceOfTheirLabels) {
  const std::vector<std::tuple<const char*, const char*, bool>> lines = {
      {"delete RouteA vol", "delete RouteA gain_vol_0", true},
      {"newlink RouteA 1 BYTE 1 1 vol 0 mic_0 0", "newlink RouteA 1 BYTE 1 1 gain_vol_0 0 mic_0 0", true},
      {"setparam RouteA vol gain vol", "setparam RouteA gain_vol_0 gain vol", true},
      {"delete RouteA lnk_0", "delete RouteA lnk_0", true},
      {"delete RouteA twin", "delete RouteA twin", false},
      {"delete RouteB vol", "delete RouteB vol", true},
      {"delete RouteQ vol", "delete RouteQ vol", true},
      {"unknown RouteA vol", "unknown RouteA vol", true},
  };
  for (const auto& [line, resolved, good] : lines) {
    Words words = Split(line).words;
    EXPECT_EQ(ResolveLabels(GRAPH, words).empty(), good) << line;
    EXPECT_EQ(Join(words), resolved);
  }
  Words edit = Split("edit { remove RouteA vol ; setparam RouteA vol gain -6 }").words, routes;
  EXPECT_EQ(ResolveInEdit(GRAPH, edit, routes), "");
  EXPECT_EQ(Join(edit), "edit { remove RouteA gain_vol_0 ; setparam RouteA gain_vol_0 gain -6 }");
  EXPECT_EQ(routes, (Words{"RouteA", "RouteA"}));
  EXPECT_EQ(UnknownName(GRAPH, {"start", "RouteQ"}), "there is no RouteQ");
  EXPECT_EQ(UnknownName(GRAPH, {"remove", "RouteA", "x"}), "RouteA has no x");
  EXPECT_EQ(UnknownName(GRAPH, {"insert", "RouteA", "lnk_0", "gain"}), "");
}

// Red if vrdb would stop a route without a word, or asks where nothing stops.
TEST(Guard, KnowsWhatStopsARunningRoute) {
  const std::vector<std::pair<const char*, const char*>> lines = {
      {"delete RouteA gain_vol_0", "mic_0 would have no output"},
      {"delete RouteA lnk_4", "gain_twin_1 would have no output"},
      {"delete RouteA lnk_2", ""},
      {"delete RouteA mic_0", "gain_vol_0 would have no input"},
      {"delete RouteA !", ""},
      {"delete RouteA nothing", ""},
      {"delete RouteB x", ""},
      {"newblock RouteA libtone.so true false", "the new block would have no output"},
      {"newblock RouteA libclock.so true true", ""},
      {"newblock RouteB libtone.so true false", ""},
      {"stop RouteA", ""},
  };
  for (const auto& [line, broken] : lines) EXPECT_EQ(WhatBreaks(GRAPH, Split(line).words), broken) << line;
  EXPECT_TRUE(Stands(Json{{"why", "busy"}}));
  EXPECT_FALSE(Stands(Json{{"why", "broken"}})) << "it waits for actions";
  EXPECT_EQ(WhySentence(Json::parse(R"({"route": "RouteA", "why": "sleeps", "block": "a\u001b_0", "since": 2})")),
            "RouteA sleeps in a\\x1b_0, for 2.0 s");
}

TEST(Edits, AreReadAsTheyAreTyped) {
  const std::vector<std::pair<Words, std::string>> edits = {
      {{"edit", "{", "a", "b", ";", "c", "}"}, "edit { a b ; c }"},
      {{"edit", "a b; c"}, "edit { a b ; c }"},
      {{"edit", "{ a b; c }"}, "edit { a b ; c }"},
      {{"edit"}, "edit"},
  };
  for (const auto& [typed, normal] : edits) EXPECT_EQ(Join(NormalizeEdit(typed)), normal);
  EXPECT_EQ(WrongInEdit({"remove", "RouteA", "x"}), "");
  EXPECT_NE(WrongInEdit({"stop", "RouteA"}).find("cannot be part of an edit"), std::string::npos);
  EXPECT_NE(WrongInEdit({"remove", "RouteA"}).find("BLOCK is missing"), std::string::npos);
  EXPECT_EQ(WhatWasDone(Json::parse(R"({"ok": true, "made": ["a_0", "b"], "deleted": ["c"]})")),
            "Made a_0, b; deleted c\n");
  EXPECT_EQ(WhatWasDone(Json::parse(R"({"ok": true, "made": []})")), "Done\n");
}

TEST(Shell, FindsTheLinesThatWereLoggedMeanwhile) {
  EXPECT_EQ(NewLines({"a", "b"}, {"a", "b", "c"}), Words{"c"});
  EXPECT_EQ(NewLines({"a", "b", "b"}, {"b", "b", "c"}), Words{"c"});
  EXPECT_EQ(NewLines({"a", "b"}, {"a", "b"}), Words{});
  EXPECT_EQ(NewLines({"a", "b"}, {"x", "y"}), (Words{"x", "y"})) << "all are new";
  EXPECT_EQ(NewLines({}, {"x"}), Words{"x"});
}

// The console's own form, so that what reads one reads the other.
TEST(StatusText, IsLikeTheConsoles) {
  const std::string text = StatusText(GRAPH, STATS);
  EXPECT_EQ(text.substr(0, text.find("\tgain_vol_0")),
            "RouteB is STOPPED, 0 frame processed OK, 0 error frame\n"
            "RouteA is RUNNING, 2 frames processed OK, 1 error frame\n\tmic_0\n"
            "\t\t(O00) --> lnk_0    48000Hz   S16_LE  2ch    480samples/frame\n");
  EXPECT_NE(text.find("fifo_0 25/100 (25%)\n"), std::string::npos);
  EXPECT_EQ(StatusText(Json(), Json()), "No route\nNo fifo\n");
  EXPECT_EQ(StatusJson(GRAPH, STATS)["routes"][1]["frames"], 2);
}

// Red if the line after one that was cut at 255 characters is lost, or taken for a part of it.
TEST(StatusText, GoesOnBehindALineThatTheConsoleCut) {
  const std::string cut(255, 'x');
  const std::string whole(254, 'y');
  const std::string all = cut + "next\n" + whole + "\nlast\n";
  std::string_view text = all;
  for (const std::string& line : {cut, std::string("next"), whole, std::string("last")}) {
    EXPECT_EQ(TakeReportLine(text), line);
  }
  EXPECT_TRUE(text.empty());
}

// A block named after a path would end Graphviz with a syntax error.
TEST(Graph, HasEverythingWithItsNamesQuoted) {
  const std::string text = GraphText(GRAPH, STATS);
  for (const char* part :
       {"\"RouteA_mic_0\" [label=\"mic_0\\n(first)\", color=\"red\"", "label=\"gain_vol_0\\n'vol'\"",
        "\"RouteA_/a/\\\"b-c_0\" [label=", "\"RouteA_gain_twin_0\"->\"RouteA_gain_twin_1\" [label=\"lnk_2",
        "taillabel=\"1\", headlabel=\"0\"", "\"RouteA_/a/\\\"b-c_0\"->\"fifo_0\"", "RouteB is stopped, for 3.0 s",
        "label=\"RouteA\\nRouteA waits in mic_0, for 12.3 s: no samples in fifo_1 (0 of\\n4800)"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
  }
}

class TopTest : public testing::Test {
 protected:
  TopTest() {
    view.TakeGraph(GRAPH);
    view.TakeStats(STATS);
  }
  Words Draw(int columns, int rows) { return view.Draw("player 7", "every 1 s", columns, rows, Style(false)); }
  bool Shows(const std::string& text, int columns = 80, int rows = 24) {
    return Join(Draw(columns, rows), "\n").find(text) != std::string::npos;
  }

  TopView view;
};

TEST_F(TopTest, FitsAnyScreenAndAnyReply) {
  for (const Json& reply : {STATS, Json(), Json::parse(R"({"routes": [1, {"name": 2}], "fifos": [null, {}]})")}) {
    view.TakeStats(reply);
    for (int columns : {1, 20, 40, 80, 300}) {
      for (int rows : {1, 2, 5, 24, 80}) {
        const Words lines = Draw(columns, rows);
        EXPECT_LE(lines.size(), static_cast<std::size_t>(rows));
        for (const std::string& line : lines) EXPECT_LE(Width(line), static_cast<std::size_t>(columns)) << line;
      }
    }
  }
}

// Red if an operator has to look for the route that stands, or its reason is cut.
TEST_F(TopTest, PutsTroubleFirstWithItsReason) {
  const std::string small = Join(Draw(40, 10), "\n");
  EXPECT_LT(small.find("RouteA"), small.find("RouteB"));
  EXPECT_NE(small.find("fifo_1 (0 of"), std::string::npos) << small;
  EXPECT_NE(small.find("RouteB writes"), std::string::npos) << small;
  EXPECT_FALSE(Shows("mic_0 ", 80, 40)) << "folded, since the screen is small";
  view.Obey(Key::FOLD_ALL);
  EXPECT_TRUE(Shows("> mic_0", 80, 40));
  EXPECT_TRUE(Shows("peak -21.0 dBFS", 80, 40));
  EXPECT_TRUE(Shows("waits in mic_0, for 12.3 s: no samples in fifo_1 (0 of 4800), which out_0", 300, 40));
  const Words lines = Draw(80, 40);
  EXPECT_EQ(std::count(lines.back().begin(), lines.back().end(), '|'), 5) << "a quarter of the bar: " << lines.back();
}

TEST_F(TopTest, FoldsSortsAndScrolls) {
  EXPECT_TRUE(Shows("gain_vol_0 (vol)"));
  view.Obey(Key::DOWN);
  view.Obey(Key::FOLD);
  EXPECT_FALSE(Shows("gain_vol_0"));
  EXPECT_TRUE(Shows("+RouteA"));
  view.Obey(Key::UNFOLD);
  EXPECT_TRUE(Shows("gain_vol_0"));
  view.Obey(Key::REVERSE);
  const std::string reversed = Join(Draw(80, 24), "\n");
  EXPECT_GT(reversed.find("RouteA "), reversed.find("RouteB "));
  view.Obey(Key::REVERSE);
  EXPECT_FALSE(Shows("fifo_0", 80, 6));
  view.Obey(Key::END);
  EXPECT_TRUE(Shows("fifo_0", 80, 6));
  view.Obey(Key::HOME);
  EXPECT_TRUE(Shows("RouteA", 80, 6));
  view.SetProblem("process 7 has said nothing for 5 s");
  EXPECT_TRUE(Shows("has said nothing"));
}

}  // namespace
}  // namespace vrdb
