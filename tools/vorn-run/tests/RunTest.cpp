// vorn-run as its users run it: a child process, its exit status, what it prints, and the files that it leaves.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "testkit/ConsoleClient.h"
#include "testkit/Process.h"
#include "testkit/Wait.h"

namespace {

using testkit::Contents, testkit::Ended, testkit::Signals, testkit::Write;
namespace fs = std::filesystem;

/** RouteA's `src` through a FIFO into RouteB's `out`, with frames that do not fit each other. */
constexpr const char* TWO_ROUTES = R"(digraph two {
  subgraph cluster_RouteA { put [block=fifosink] src [block=moody, samples="$n", file=given] src -> put [frame=7] }
  subgraph cluster_RouteB { get [block=fifosource] out [block=moody, file=taken] get -> out [frame=11] }
  fifo [shape=ellipse, capacity=23]
  put -> fifo -> get
})";

class VornRun : public testing::Test {
 protected:
  VornRun() {
    fs::current_path(folder / "");
    Write("two.dot", TWO_ROUTES);
  }
  ~VornRun() override { fs::current_path("/"); }

  static Ended Run(std::vector<std::string> args, const std::optional<testkit::Interruption>& interruption = {}) {
    args.insert(args.begin(), VORN_RUN);
    return RunIn(".", args, interruption);
  }

  /** @param says a part of standard error. */
  static Ended Expect(int status, const std::string& says, const std::vector<std::string>& args,
                      const std::optional<testkit::Interruption>& interruption = {}) {
    Ended ended = Run(args, interruption);
    EXPECT_EQ(ended.status, status) << ended.err;
    EXPECT_NE(ended.err.find(says), ended.err.npos) << ended.err << "instead of\n" << says;
    return ended;
  }

  /** The file holds 0, 1, 2 ... and its end. @return how many; -1 for anything else. */
  static long SamplesIn(const fs::path& path) {
    const std::string bytes = Contents(path);
    if (bytes.size() % 4 != 0 || !bytes.ends_with("END.")) return -1;
    const long count = static_cast<long>(bytes.size()) / 4 - 1;
    for (std::int32_t i = 0; i < count; ++i) {
      if (std::memcmp(&bytes[i * 4], &i, 4) != 0) return -1;
    }
    return count;
  }

  const testkit::Folder folder;
};

TEST_F(VornRun, RunsAPipelineToItsEnd) {
  const Ended ended = Run({"-e", "moody 12345 ! moody file='a b'"});
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(SamplesIn("a b"), 12345);
  EXPECT_TRUE(ended.err.starts_with("vorn-run: end of stream: 1235 frames, 12.345 s of audio in ")) << ended.err;
  EXPECT_TRUE(ended.err.ends_with(" times real time), 0 error frames\n")) << ended.err;
  EXPECT_EQ(ended.err.find('\r'), std::string::npos);
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(Run({"-q", "-e", "moody 5 ! moody"}).err, "");
  EXPECT_EQ(Run({"--duration", "1h", "-e", "moody 5 ! moody"}).status, 0);
}

TEST_F(VornRun, SaysInOneLineWhatIsWrong) {
  Write("f.dot", "digraph {\n  a [block=moody]\n  a -> b\n}\n");
  const struct {
    std::vector<std::string> args;
    int status;
    const char* line;
  } cases[] = {
      {{"-e", "nosuch ! moody"}, 2, "-e:1:1: no block 'nosuch': libnosuch.so: "},
      {{"-e", "moody ! " NULL_TEXT},
       2,
       "-e:1:9: " NULL_TEXT " describes itself wrongly: parameter 0 has a text that is null"},
      {{"-e", "moody ! " OTHER_KIT}, 2, "-e:1:9: " OTHER_KIT " was built with version 1 of the plug-in kit, this is "},
      {{"-e", "moody !"}, 2, "-e:1:7: expected a block behind"},
      {{"-e", "moody 1 2 ! moody"}, 2, "-e:1:1: block 'moody_0': argument '2': too many"},
      {{"-e", "moody 1 ! moody", "--set", "moody_1.sleep=-1"},
       2,
       "--set moody_1.sleep=-1: block 'moody_1': argument 'sleep'"},
      {{"-e", "moody", "1"}, 2, "-e takes one text"},
      {{"-e", "moody 5 ! moody refuse=yes"}, 1, "-e:1:11: block 'moody_1': out of sorts"},
      {{"f.dot"}, 2, "f.dot:3:8: no block 'b': "},
      {{"f.dot", "x=1"}, 2, "f.dot: 'x=1' fills nothing; the file has no $name"},
      {{"f.dot", "x"}, 2, "expected name=value behind the graph file, got 'x'"},
      {{"f.dot", "=1"}, 2, "expected name=value behind the graph file, got '=1'"},
      {{"f.dot", "x=1", "x=1"}, 2, "'x=' is given twice"},
      {{"none.dot"}, 2, "none.dot: cannot be read"},
      {{"."}, 2, ".: cannot be read"},
      {{}, 2, "expected a graph file"},
      {{"--realtime", "100", "f.dot"}, 2, "--realtime: Value 100 not in range"},
      {{"--duration", "5x", "f.dot"}, 2, "--duration: expected a time such as"},
      {{"-e", "moody 1 ! moody", "--dump", "f.dot/x"}, 2, "--dump: 'f.dot/x' cannot be made: Not a directory"},
  };
  for (const auto& [args, status, line] : cases) {
    const Ended ended = Expect(status, std::string("vorn-run: ") + line, args);
    EXPECT_EQ(std::ranges::count(ended.err, '\n'), 1) << ended.err;
  }
}

// Red if the reason is another line of the log, or of a block that refused to stop while the route went on.
TEST_F(VornRun, TheBlockThatEndsTheRouteIsTheReason) {
  for (const auto& [pipeline, block] : {std::pair{"moody fail=30 ! moody spoil=yes", "-e:1:17: block 'moody_1'"},
                                        std::pair{"moody spoil=yes ! moody fail=30", "-e:1:1: block 'moody_0'"}}) {
    for (const char* level : {"0", "3"}) {
      Expect(1, "vorn-run: " + std::string(block) + ": spoilt\n", {"--log-level", level, "-e", pipeline});
    }
  }
  Expect(1, "vorn-run: -e:1:9: block 'moody_1': spoilt\n", {"--duration", "20ms", "-e", "moody ! moody spoil=yes"});
}

// Red if a route that cannot be stopped starts its other blocks again, and their files with them.
TEST_F(VornRun, ABlockThatCannotStopLeavesTheFilesOfOthersAlone) {
  Write("g.dot", "digraph { node [block=moody] a -> b c -> d b [file=b] d [file=d] }");
  for (const auto& [spoilt, whole] : {std::pair{"b", "d"}, std::pair{"d", "b"}}) {
    Expect(1, "block '" + std::string(spoilt) + "': spoilt\n",
           {"g.dot", "--duration", "30ms", "--set", std::string(spoilt) + ".spoil=yes"});
    EXPECT_GT(SamplesIn(whole), 0);
  }
}

TEST_F(VornRun, ARouteThatFailsStopsTheOthersWithTheirFilesFinished) {
  for (const char* who : {"src", "out"}) {
    const Ended ended = Expect(1, ": block '" + std::string(who) + "': a bad day\n",
                               {"two.dot", "n=1000000000", "--set", std::string(who) + ".fail=5000"});
    EXPECT_EQ(std::ranges::count(ended.err, '\n'), 2) << ended.err;
    EXPECT_GE(SamplesIn("taken"), 0) << "not finished, or wrong";
    EXPECT_NE(Contents("given"), "");
  }
}

TEST_F(VornRun, CountsErrorFramesAndSaysWhatItsBlocksMeasured) {
  const Ended ended = Run({"--json", "-e", "moody 20000 timeout=500 ! moody file=out measure=yes"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(SamplesIn("out"), 20000);
  EXPECT_TRUE(ended.err.ends_with(" 1 error frame\nvorn-run: block 'moody_1': last 19999 steps\n")) << ended.err;
  const auto json = nlohmann::json::parse(ended.out);
  EXPECT_EQ(json["end"], "end of stream");
  EXPECT_EQ(json["frames"], 2000);
  EXPECT_EQ(json["errorFrames"], 1);
  EXPECT_EQ(json["audioSeconds"], 20.0);
  EXPECT_EQ(json["readings"]["moody_1"]["last"], 19999.25);
  EXPECT_TRUE(json["readings"]["moody_0"]["last"].is_null());
}

TEST_F(VornRun, AStopLosesNothingBetweenSourceAndFile) {
  for (const auto& [signal, name] : {std::pair{SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}, {SIGHUP, "SIGHUP"}}) {
    fs::remove("taken");
    const Ended ended = Expect(-signal, ", before the end of the stream: ", {"--json", "two.dot", "n=1000000000"},
                               {{"taken", Signals({signal})}});
    EXPECT_EQ(nlohmann::json::parse(ended.out)["stopped"], name);
    EXPECT_EQ(std::to_string(SamplesIn("taken")), Contents("given"));
  }
  const Ended ended = Expect(3, "", {"two.dot", "n=1000000000", "--duration", "50ms", "--json"});
  EXPECT_EQ(nlohmann::json::parse(ended.out)["stopped"], "duration");
  EXPECT_EQ(std::to_string(SamplesIn("taken")), Contents("given"));

  fs::remove("taken");  // a signal that somebody has it ignore stays ignored
  const Ended deaf =
      testkit::RunIn(".", {"/bin/sh", "-c", "trap '' HUP; exec " VORN_RUN " --json two.dot n=1000000000"},
                     testkit::Interruption{"taken", Signals({SIGHUP, SIGTERM})});
  EXPECT_EQ(nlohmann::json::parse(deaf.out)["stopped"], "SIGTERM");
}

// Red if what a terminal is shown is another time than that of the sound.
TEST_F(VornRun, ShowsATerminalHowFarItIs) {
  const Ended ended =
      testkit::RunIn(".", {"/bin/sh", "-c", "script -qec \"" VORN_RUN " -e 'moody 7000 ! moody sleep=1'\" /dev/null"});
  EXPECT_NE(ended.out.find(" / 0:00:07.0, "), std::string::npos) << ended.out;
}

// Red if a route that an operator took is touched again or waited for, if its file is not finished or is made anew, or
// if this passes for the end of a stream.
TEST_F(VornRun, SaysWhatAnOperatorDidToItsRoutes) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"delete RouteA !"}, "RouteA was deleted by somebody else\n"},
      {{"delete RouteB !"}, "RouteB was deleted by somebody else\n"},
      {{"stop RouteB"}, "RouteB was stopped by somebody else\n"},
      {{"stop RouteB", "start RouteB"}, "RouteB was stopped by somebody else\n"},
      {{"newblock RouteB libmoody.so true true refuse=yes"}, "RouteB has ended: a block that somebody added did not "}};
  for (const auto& [done, line] : cases) {
    fs::remove("taken");
    const auto operate = [&commands = done](pid_t) {
      testkit::ConsoleClient console;
      for (const std::string& command : commands) console.Ask(command);
    };
    const Ended ended = Expect(1, line, {"two.dot", "n=1000000000", "--set", "src.sleep=1"}, {{"taken", operate}});
    EXPECT_NE(ended.err.find("vorn-run: failure: "), std::string::npos) << ended.err;
    EXPECT_GT(SamplesIn("taken"), 0) << line;
  }
}

// Red if the console of another process is a warning, or the reason of a failure.
TEST_F(VornRun, DoesWithoutAConsole) {
  const auto runOthers = [](pid_t first) {
    for (const auto& [option, text] : {std::pair{"-q", ""}, {"--check", ""}, {"--json", "vorn-run: no console, "}}) {
      fs::create_directories("beside");
      const Ended other = testkit::RunIn("beside", {VORN_RUN, option, "-e", "moody 5 ! moody"});
      EXPECT_EQ(other.err.substr(0, std::strlen(text)), text);
      EXPECT_TRUE(*text != '\0' || other.err.empty()) << other.err;
    }
    kill(first, SIGTERM);
  };
  Run({"two.dot", "n=1000000000", "--set", "src.sleep=1"}, {{"taken", runOthers}});
}

// Red if a stop does not reach a block that waits, loses what came through before, or hides what does not.
TEST_F(VornRun, AStopReachesBlocksThatWait) {
  const struct {
    const char* pipeline;
    int statusOfDuration;
    const char* says;
  } cases[] = {
      {"moody wait=start ! moody", 1, "vorn-run: -e:1:1: block 'moody_0': nobody came\n"},
      {"moody ! moody wait=start", 1, "vorn-run: -e:1:9: block 'moody_1': nobody came\n"},
      {"moody wait=frame file=given ! moody file=taken", 3, ""},
      {"moody file=given ! moody wait=frame", 1, "vorn-run: -e:1:20: block 'moody_1': nobody takes it\n"},
  };
  for (const auto& [pipeline, statusOfDuration, says] : cases) {
    Ended ended;
    for (int ms = 40; ms < 60'000 && !fs::exists("waits"); ms *= 2) {  // until it is long enough to get there
      ended = Run({"-e", pipeline, "--duration", std::to_string(ms) + "ms"});
    }
    EXPECT_EQ(ended.status, statusOfDuration) << ended.err;
    EXPECT_NE(ended.err.find(says), ended.err.npos) << ended.err << "instead of\n" << says;
    fs::remove("waits");
    const Ended stopped = Run({"-e", pipeline}, {{"waits", Signals({SIGTERM}), {}, true}});
    EXPECT_TRUE(stopped.status == -SIGTERM || stopped.status == 1) << pipeline << stopped.err;
    fs::remove("waits");
  }
  EXPECT_EQ(SamplesIn("taken"), 500);
}

// The second one comes when the first is no longer waited for: one that comes before may be one with it.
TEST_F(VornRun, ASecondSignalEndsAStopThatHangs) {
  const auto signalTwice = [](pid_t program) {
    const auto catches = [program](int signal) {
      const std::string status = Contents("/proc/" + std::to_string(program) + "/status");
      const std::size_t mask = status.find("SigCgt:");
      return mask != status.npos && ((std::stoull(status.substr(mask + 7), nullptr, 16) >> (signal - 1)) & 1) != 0;
    };
    kill(program, SIGTERM);
    testkit::WaitUntil([&] { return !catches(SIGINT); });
    kill(program, SIGINT);
  };
  const Ended ended = Run({"-e", "moody sleep=1000000 file=given ! moody"}, {{"given", signalTwice, {}, true}});
  EXPECT_TRUE(ended.status < 0 && !ended.hung);
}

// Their sources would go on for ever.
TEST_F(VornRun, RoutesEndWhenNobodyReadsThemAndCyclesWhenTold) {
  for (const char* end : {"out.samples=110", "out.fade=110"}) {
    fs::remove("taken");
    Expect(0, "", {"two.dot", "n=1000000000", "--set", end});
    EXPECT_EQ(SamplesIn("taken"), 110) << end;
  }

  const std::string ends = "get [block=fifosource] put [block=fifosink] f [shape=ellipse prefill=480]";
  Write("one.dot", "digraph { " + ends + " get -> put -> f -> get }");
  Write("loop.dot",
        "digraph { " + ends +
            "get2 [block=fifosource] put2 [block=fifosink] g [shape=ellipse] put -> f -> get2 put2 -> g -> get "
            "subgraph cluster_RouteA { get -> put } subgraph cluster_RouteB { get2 -> put2 } }");
  for (const char* file : {"one.dot", "loop.dot"}) {
    Expect(3, "vorn-run: end of duration, before the end of the stream: ", {file, "--duration", "20ms"});
  }
}

TEST_F(VornRun, ChecksShowsAndDumpsAGraph) {
  EXPECT_EQ(Expect(0, "", {"two.dot", "n=5", "--check"}).out,
            "ROUTE   FROM    TO      RATE     FORMAT  CHANNELS  FRAME\n"
            "RouteA  src:0   put:0   1000 Hz  S32_LE  1 ch      7 samples (7 ms)\n"
            "RouteB  get:0   out:0   1000 Hz  S32_LE  1 ch      11 samples (11 ms)\n"
            "FIFO    WRITER  READER  RATE     FORMAT  CHANNELS  CAPACITY\n"
            "fifo    put     get     1000 Hz  S32_LE  1 ch      23 samples (23 ms)\n");
  EXPECT_FALSE(fs::exists("taken")) << "it was started";
  const auto json = nlohmann::json::parse(Run({"two.dot", "n=5", "--check", "--json"}).out);
  EXPECT_EQ(json["links"][1]["frame"], 11);
  EXPECT_EQ(json["fifos"][0]["capacity"], 23);

  const Ended dot = Run({"two.dot", "n=5", "--dot", "--set", "src.samples=8"});
  Write("again.dot", dot.out);
  EXPECT_EQ(Run({"again.dot", "--dot"}).out, dot.out);
  EXPECT_EQ(Run({"again.dot", "--dump", "x/y"}).status, 0);
  EXPECT_EQ(SamplesIn("taken"), 8);
  EXPECT_EQ(Contents("x/y/RouteA-moody_src_0-O00-1000Hz-S32_LE-1ch.pcm").size(), 32U);
}

// Red if a dump is not where the name of its block says, or outside of its folder.
TEST_F(VornRun, DumpsBlocksThatAreGivenByPath) {
  fs::create_symlink(MOODY, "libmoody.so");
  const std::string above = "../" + fs::current_path().filename().string() + "/libmoody.so";
  for (const std::string& path : {std::string("./libmoody.so"), above, std::string(MOODY)}) {
    fs::remove_all("d");
    EXPECT_EQ(Run({"-e", path + " 8 ! moody", "--dump", "d"}).status, 0) << path;
    std::vector<fs::path> dumps;
    for (const auto& entry : fs::recursive_directory_iterator("d")) {
      if (entry.path().extension() == ".pcm") dumps.push_back(entry.path());
    }
    ASSERT_EQ(dumps.size(), 1U) << path;
    EXPECT_TRUE(dumps[0].filename() == "libmoody_0-O00-1000Hz-S32_LE-1ch.pcm" && fs::file_size(dumps[0]) == 32);
  }
}

// Red if the route, the block or what it did is not named, a crash has no signal for its end, or an end by a plug-in
// looks like a good one.
TEST_F(VornRun, NamesTheBlockThatBringsItDown) {
  const struct {
    const char *crash, *line;
    int status;
  } cases[] = {{"trap", " crashed: Trace/breakpoint trap", -SIGTRAP},
               {"abort", " crashed: Aborted", -SIGABRT},
               {"oh dear", " threw: oh dear", -SIGABRT},
               {"memory", ": out of memory", 1},
               {"exit", " ended the process", 1}};
  for (const auto& [crash, line, status] : cases) {
    const std::string said = "vorn-run: RouteA: block 'moody_1'" + std::string(line) + "\n";
    EXPECT_EQ(Expect(status, said, {"-e", "moody ! moody crash='" + std::string(crash) + "'"}).err, said);
  }
}

// Red if what nobody could print passes for printed, or a program without standard output takes some file for it.
TEST_F(VornRun, SaysThatItsOutputWasLost) {
  const auto run = [](const std::string& words) {
    return testkit::RunIn(".", {"/bin/sh", "-c", "exec " VORN_RUN " " + words});
  };
  for (const char* words : {"--check -e 'moody 5 ! moody'", "-q --json -e 'moody 5 ! moody'", "--help"}) {
    const Ended ended = run(words + std::string(" >/dev/full"));
    EXPECT_EQ(ended.status, 1) << words;
    EXPECT_EQ(ended.err, "vorn-run: standard output did not take everything: No space left on device\n") << words;
  }
  const Ended ended = run("-q --json -e 'moody 5 ! moody file=taken' <&- >&-");
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(SamplesIn("taken"), 5);
}

TEST_F(VornRun, ItsManualKnowsEveryOptionOfItsHelp) {
  std::istringstream help(Run({"--help"}).out);
  std::string manual = Contents(VORN_RUN_MANUAL);
  std::erase(manual, '\\');
  int options = 0;
  for (std::string word; help >> word;) {
    if (!word.starts_with("--") || word.size() < 4) continue;
    ++options;
    word.resize(word.find_last_not_of(".,:;") + 1);
    EXPECT_NE(manual.find(word), std::string::npos) << word;
  }
  EXPECT_GE(options, 10);
}

TEST_F(VornRun, SaysWhetherRealTimeWasGrantedAndShowsTheLogWhenAsked) {
  const Ended ended = Expect(0, "vorn-run: RouteA: real-time priority 1 ",
                             {"--realtime", "1", "--log-level", "4", "-e", "moody 5 ! moody"});
  EXPECT_NE(ended.err.find(" I RouteA: Started\n"), std::string::npos) << ended.err;
  EXPECT_NE(ended.err.find("vorn-run: memory "), std::string::npos) << ended.err;
  const std::string log = Expect(0, "", {"--log-level", "4", "two.dot", "n=5"}).err;
  EXPECT_LT(log.find("RouteB: Started"), log.find("RouteA: Started")) << "its reader is not there yet";
}

}  // namespace
