// What vrdb understands: reports, replies, lines and the words to complete.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "CommandTable.h"
#include "Completion.h"
#include "GraphPicture.h"
#include "ReportJson.h"
#include "StatusParser.h"
#include "Top.h"

namespace vrdb {
namespace {

using nlohmann::literals::operator""_json;

const char* const REPORT =
    "RouteB is STOPPED, 0 frame processed OK, 1 error frame\n"
    "RouteA is BROKEN_RUNNING, 18446744073709551615 frames processed OK, 2 error frames\n"
    "\tmix_left_0\n"
    "\t\t(I00) <-- lnk_0    48000Hz FLOAT_LE  2ch    480samples/frame             1.500000\n"
    "\t\t(I31) <-- lnk_123456 192000Hz   S16_LE 16ch 123456789samples/frame\n"
    "\t\t(O00) --> lnk_1001048576Hz     BYTE  1ch     16samples/frame 9223372036854.775807\n"
    "\tidle_0\n"
    "fifo_1 0/0 (0%)\n"
    "fifo_0 25/100 (25%)\n";

// Red if a field is lost, taken for another one, or runs into the next one, or if the JSON says otherwise.
TEST(StatusParser, ReadsBackEveryFieldOfTheReport) {
  const auto json = nlohmann::json::parse(ReportToJson(ParseStatus(std::string(REPORT) + "\xff 1/2 (50%)\n")));
  EXPECT_EQ(json["routes"], R"([
    {"name": "RouteB", "status": "STOPPED", "frames": 0, "errors": 1, "blocks": []},
    {"name": "RouteA", "status": "BROKEN_RUNNING", "frames": 18446744073709551615, "errors": 2, "blocks": [
      {"name": "mix_left_0",
       "inputs": [
         {"index": 0, "link": "lnk_0", "rate": 48000, "format": "FLOAT_LE", "channels": 2, "samplesPerFrame": 480,
          "timestamp": 1500000},
         {"index": 31, "link": "lnk_123456", "rate": 192000, "format": "S16_LE", "channels": 16,
          "samplesPerFrame": 123456789, "timestamp": null}],
       "outputs": [
         {"index": 0, "link": "lnk_100", "rate": 1048576, "format": "BYTE", "channels": 1, "samplesPerFrame": 16,
          "timestamp": null}]},
      {"name": "idle_0", "inputs": [], "outputs": []}]}])"_json);
  EXPECT_EQ(json["fifos"][0], R"({"name": "fifo_1", "samples": 0, "capacity": 0, "percent": 0})"_json);
  EXPECT_EQ(json["fifos"][1], R"({"name": "fifo_0", "samples": 25, "capacity": 100, "percent": 25})"_json);
  EXPECT_EQ(json["fifos"][2]["percent"], 50);
  EXPECT_TRUE(ParseStatus("No route\nNo fifo\n").routes.empty());
}

// Red if the line after one that was cut at 255 characters is lost, or taken for a part of it.
TEST(StatusParser, GoesOnBehindALineThatWasCut) {
  const std::string name(300, 'x');
  const std::string cut = ("\t" + name).substr(0, 255);
  const auto report = ParseStatus("RouteA is EXIT, 0 frame processed OK, 0 error frame\n" + cut + "\tnext_0\n" +
                                  ("\t" + name).substr(0, 254) + "\n\tlast_0\nfifo_0 1/2 (50%)\n");
  std::vector<std::size_t> sizes;
  for (const BlockStatus& block : report.routes.at(0).blocks) sizes.push_back(block.name.size());
  EXPECT_EQ(sizes, (std::vector<std::size_t>{254, 6, 253, 6}));
  EXPECT_EQ(report.fifos.size(), 1u);
}

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
  const Live live{[] { return ParseStatus(REPORT); },
                  [](auto&, auto&) { return ParseParameters("0 mode - low|high low live\n1 gain dB 0..1 0 live\n"); },
                  getpid};
  const std::vector<std::pair<const char*, Words>> lines = {
      {"new", {"newblock", "newlink", "newroute"}},
      {"start ", {"RouteA", "RouteB"}},
      {"newroute RouteA", {}},
      {"newroute RouteC", {"RouteC"}},
      {"newblock RouteA /nowhere/", {}},
      {"newblock RouteA x.so t", {"true"}},
      {"newlink RouteA 48000 F", {"FLOAT_BE", "FLOAT_LE"}},
      {"newlink RouteA 48000 BYTE 1 1 m", {"mix_left_0"}},
      {"delete RouteA ", {"!", "idle_0", "lnk_100", "mix_left_0"}},
      {"getparam RouteA mix_left_0 ", {"gain", "mode"}},
      {"setparam RouteA mix_left_0 mode ", {"high", "low"}},
      {"setparam RouteA mix_left_0 0 l", {"low"}},
      {"setdump -", {"--"}},
      {"status --", {"--dot", "--json"}},
      {"top -n 3 --b", {"--batch"}},
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

Sample SampleOf(const std::string& report, int milliseconds, pid_t pid = 1) {
  Sample sample;
  sample.when += std::chrono::milliseconds(milliseconds);
  sample.process.pid = pid;
  sample.report = ParseStatus(report);
  return sample;
}

std::string Route(long frames, long errors) {
  return "RouteA is RUNNING, " + std::to_string(frames) + " frames processed OK, " + std::to_string(errors) +
         " error frames\n";
}

// Red if a rate is made up where there is nothing to compare: a new process, a route made anew, a gap.
TEST(Rates, ComeFromTwoSamplesOfOneProcess) {
  Rates rates;
  rates.Add(SampleOf(Route(100, 0), 0));
  EXPECT_FALSE(rates.FramesPerSecond("RouteA"));
  rates.Add(SampleOf(Route(150, 1), 500));
  EXPECT_DOUBLE_EQ(rates.FramesPerSecond("RouteA").value(), 100);
  EXPECT_TRUE(rates.HasNewErrors("RouteA"));
  rates.Add(SampleOf(Route(10, 1), 1000));
  EXPECT_FALSE(rates.FramesPerSecond("RouteA")) << "made anew";
  rates.Add(SampleOf(Route(20, 1), 1500, 2));
  EXPECT_FALSE(rates.FramesPerSecond("RouteA")) << "another process";
  rates.Add(SampleOf("", 2000, 2));
  rates.Add(SampleOf(Route(30, 1), 2500, 2));
  EXPECT_FALSE(rates.FramesPerSecond("RouteA")) << "a gap";
}

TEST(Top, DrawsNoMoreThanTheScreenTakes) {
  const Sample sample = SampleOf(REPORT, 0);
  for (int columns : {1, 20, 80, 200}) {
    for (int rows : {1, 5, 24}) {
      const auto lines = DrawSample(sample, Rates(), "every 1 s", columns, rows, Style(false));
      EXPECT_LE(lines.size(), static_cast<std::size_t>(rows));
      for (const std::string& line : lines) EXPECT_LE(line.size(), static_cast<std::size_t>(columns)) << line;
    }
  }
  const auto lines = DrawSample(sample, Rates(), "every 1 s", 80, 24, Style(false));
  EXPECT_EQ(std::count(lines.back().begin(), lines.back().end(), '|'), 11) << "a quarter of the bar: " << lines.back();
}

// A block named after a path would end Graphviz with a syntax error.
TEST(Graph, QuotesTheNamesOfBlocks) {
  EXPECT_EQ(
      QuoteNames("digraph vorn {\n\tlabel=\"x\"\n\tnode [shape=\"box\"]\n\tsubgraph cluster_RouteA {\n"
                 "\t\tRouteA_/a/b-c_0 [label=\"/a/b-c_0\"]\n\t\tA_x->A_y [label=\"l\"]\n\t}\n\tA_w->fifo_0->B_r\n}\n"),
      "digraph vorn {\n\tlabel=\"x\"\n\tnode [shape=\"box\"]\n\tsubgraph cluster_RouteA {\n"
      "\t\t\"RouteA_/a/b-c_0\" [label=\"/a/b-c_0\"]\n\t\t\"A_x\"->\"A_y\" [label=\"l\"]\n\t}\n"
      "\t\"A_w\"->\"fifo_0\"->\"B_r\"\n}\n");
}

}  // namespace
}  // namespace vrdb
