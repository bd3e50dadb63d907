// What a running cycle does besides arithmetic, of the library and of each standard block.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vorn/Graph.h>
#include <vorn/Plugin.h>
#include <vorn/Vorn.h>

#include <functional>
#include <mutex>
#include <thread>

#include "Witness.h"
#include "testkit/Files.h"
#include "testkit/Wait.h"

namespace {

using witness::Deeds;

std::string Told(const Deeds& deeds) {
  return std::to_string(deeds.memory) + " of memory, " + std::to_string(deeds.locks) + " locks, system call " +
         std::to_string(deeds.call);
}

// A block, a graph in which "beat" watches it, and what a frame may do: letters as in Deeds::Text. "@" is a folder.
const struct {
  const char *block, *graph, *deeds;
} ROWS[] = {
    {"tone", "tone format=FLOAT_LE channels=2 ! beat ! null", ""},
    {"tone", "tone white ! beat", ""},
    {"null", "tone ! beat ! null", ""},
    {"gain", "tone ! gain -6 ! beat", ""},
    {"convert", "tone ! convert FLOAT_LE ! beat", ""},
    {"delay", "tone ! delay 0.1 ! beat", ""},
    {"reframe", "tone ! reframe 333 ! beat", ""},
    {"remap", "tone channels=2 ! remap 1,0 ! beat", ""},
    {"resample", "tone ! resample 16000 ! beat", ""},
    {"resample", "tone ! resample 44100 high ! beat", ""},
    {"level", "tone ! level oversample=true ! beat", ""},
    {"tee", "digraph { tone [length=30]; tone -> tee -> null; tee:1 -> beat }", ""},
    {"mix", "digraph { a [block=tone]; b [block=tone]; a -> mix; b -> mix; mix -> beat }", ""},
    {"mix",
     "digraph { a [block=tone]; b [block=reframe, args=333]; c [block=reframe, args=480]; d [block=tone]; a -> mix; "
     "d -> b -> c -> mix; mix -> beat }",
     ""},
    {"lv2", "tone format=FLOAT_LE ! lv2 http://plugin.org.uk/swh-plugins/amp ! beat", ""},
    {"voice", "tone rate=16000 ! voice ! beat", "l"},
    {"filesink", "tone white length=60 ! filesink @in.wav", ""},
    {"filesink", "tone white ! beat ! filesink @out.wav", "s"},
    {"filesink", "tone white ! beat ! filesink @out.flac", "s"},
    {"filesource", "filesource @in.wav ! beat", "s"},
    {"filesource", "filesource @out.flac ! beat", "s"},
    {"fifosink",
     "digraph { subgraph cluster_RouteA { tone -> beat -> fifosink }"
     " subgraph cluster_RouteB { fifosource -> null } f [shape=ellipse] fifosink -> f -> fifosource }",
     "s"},
    {"fifosource",
     "digraph { subgraph cluster_RouteA { tone -> fifosink }"
     " subgraph cluster_RouteB { fifosource -> beat } f [shape=ellipse] fifosink -> f -> fifosource }",
     "s"},
    {"alsasink", "tone ! beat ! alsasink null", "ls"},
    {"alsasource", "alsasource null ! beat", "ls"},
};

TEST(RealTime, TheWitnessSees) {
  std::thread([] {
    std::mutex mutex;
    witness::Watch();
    const std::string text(1000, ' ');
    mutex.lock();
    getppid();
    witness::Rest();
  }).join();
  EXPECT_EQ(witness::seen.Text(), "mls");
}

// Red if a block asks for memory, takes a lock or calls the system in a frame without saying so.
TEST(RealTime, ABlockDoesNothingButArithmeticUnlessItSaysSo) {
  const testkit::Folder folder;
  for (const auto& row : ROWS) {
    const std::string file = std::string("lib") + row.block + ".so";
    void* const plugin = dlopen(file.c_str(), RTLD_NOW);
    if (plugin == nullptr) continue;  // left out of this build
    const auto describe = reinterpret_cast<vorn::DescribeBlockFunction>(dlsym(plugin, "DescribeBlock"));
    std::string text = row.graph;
    if (const std::size_t at = text.find('@'); at != text.npos) text.replace(at, 1, folder / "");
    vorn::Graph graph = text.find('{') != text.npos ? vorn::Graph::FromText(text, "") : vorn::Graph::FromPipeline(text);
    graph.TakeLog();
    witness::seen = {};
    const vorn::Graph::Result result = graph.Run();
    EXPECT_FALSE(result.error) << text << ": " << (result.error ? result.error->ToString() : "");
    EXPECT_EQ(witness::seen.Text().find_first_not_of(row.deeds), std::string::npos)
        << text << ": " << Told(witness::seen);
    EXPECT_TRUE(*row.deeds == 0 || *describe()->perFrame != 0) << row.block << " does not say so";
  }
}

// Without the kit. With a start other than 0 it answers that it has not started yet.
struct Plain : vorn::Block {
  Plain(bool isFirst, bool isLast, int newStart) : Block(isFirst, isLast), start(newStart) {}
  int Start() override { return start; }
  long ProcessFrame() override {
    for (const auto& [index, ep] : ActiveInEps()) ep->FB()->samples = 0;
    for (const auto& [index, ep] : ActiveOutEps()) ep->FB()->samples = ep->FB()->samplesPerFrame;
    if (!IsFirst() || !isOpen) return vorn::FRAME_DONE;
    if (++cycles > 10) witness::Watch();
    if (cycles < 1000) return vorn::FRAME_DONE;
    return witness::Rest(), vorn::FRAME_END_OF_FILE;
  }
  const int start;
  long cycles = 0;
  std::atomic<bool> isOpen{true};
};

struct Ended : vorn::Route::Callbacks {
  void OnStopped(vorn::Route::StopReason) override { is = true; }
  std::atomic<bool> is{false};
};

// Red if a cycle allocates, locks or calls the system, or if it does to ask a block to start again.
TEST(RealTime, TheEngineDoesNothingButArithmeticAlsoWhereABlockHasNotStartedYet) {
  for (const int start : {0, 3}) {
    Ended ended;
    vorn::Route* const route = vorn::Vorn::Instance()->NewRoute("RouteA", &ended);
    const auto add = [&](bool isFirst, bool isLast) {
      const std::function<vorn::Block*(bool, bool)> make = [&](bool f, bool l) { return new Plain(f, l, start); };
      return route->NewBlock("libprobe.so", isFirst, isLast, {std::to_string(reinterpret_cast<std::uintptr_t>(&make))});
    };
    vorn::Block *const first = add(true, false), *const last = add(false, true);
    for (std::size_t i : {0, 1, 2}) {
      vorn::Block* const middle = add(false, false);
      route->NewLink(48000, vorn::SampleFormat::S16_LE, 2, 480, first, i, middle, 0);
      route->NewLink(48000, vorn::SampleFormat::S16_LE, 2, 480, middle, 0, last, i);
    }
    EXPECT_EQ(route->Start(), 0);
    EXPECT_TRUE(testkit::WaitUntil([&] { return ended.is.load(); }));
    vorn::Vorn::Instance()->DeleteRoute(route);
    EXPECT_EQ(witness::seen.Text(), "") << start << ": " << Told(witness::seen);
    witness::seen.memory = 1;  // to be seen anew
  }
}

// Red if an edit leaves cycles something to do that they did not have to do before.
TEST(RealTime, CyclesAreTheSameAfterEdits) {
  Ended ended;
  vorn::Route* const route = vorn::Vorn::Instance()->NewRoute("RouteA", &ended);
  const std::function<vorn::Block*(bool, bool)> make = [](bool f, bool l) { return new Plain(f, l, 0); };
  const std::vector<std::string> args{std::to_string(reinterpret_cast<std::uintptr_t>(&make))};
  auto* const first = static_cast<Plain*>(route->NewBlock("libprobe.so", true, false, args));
  first->isOpen = false;
  route->NewLink(48000, vorn::SampleFormat::S16_LE, 2, 480, first, 0, route->NewBlock("libprobe.so", false, true, args),
                 0);
  route->Start();
  const vorn::EditResult inserted = route->Insert("lnk_0", "libprobe.so", args);
  EXPECT_TRUE(inserted.ok) << inserted.reason;
  EXPECT_TRUE(route->Insert("lnk_0", "libgain.so", {}).ok && route->Tap("lnk_1", "libprobe.so", args).ok);
  EXPECT_TRUE(route->Remove(inserted.made.at(0).block).ok && !route->Insert("lnk_0", "libgain.so", {"x"}).ok);
  first->isOpen = true;
  EXPECT_TRUE(testkit::WaitUntil([&] { return ended.is.load(); }));
  vorn::Vorn::Instance()->DeleteRoute(route);
  EXPECT_EQ(witness::seen.Text(), "") << Told(witness::seen);
}

}  // namespace
