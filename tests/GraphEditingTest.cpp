// Blocks and links of a route: loading, naming, deleting, parameters, dumps; also while it runs.
#include <dlfcn.h>

#include "testkit/RouteTest.h"

using Pairs = std::initializer_list<std::pair<std::string, std::string>>;

bool IsLoaded(const char* file) {
  void* handle = dlopen(file, RTLD_LAZY | RTLD_NOLOAD);
  return handle && dlclose(handle) == 0;
}

// Red if another part of the file's name is taken, or "lib" is dropped elsewhere than at the very start.
TEST_F(RouteTest, NamesBlocksAfterTheirFile) {
  const std::string path = std::string(std::getenv("LD_LIBRARY_PATH")) + "/libprobe";
  for (const auto& [file, name] : Pairs{{"libprobe.so", "probe_0"},
                                        {"probe.so", "probe_1"},
                                        {"x.so.1", "x_0"},
                                        {"a.so.so", "a.so_0"},
                                        {path + ".so", path + "_0"}}) {
    const Block* block = Load(*route, file, FIRST, "");
    EXPECT_TRUE(block && block->Name() == name && block->IsFirst() && !block->IsLast()) << file;
  }
  Log::Keep("E");
  for (const char* file : {"", "lib", "libprobe", "lib.so", ".so", "lib.so.1"}) {
    EXPECT_FALSE(route->NewBlock(file, true, true, {}));
    EXPECT_EQ(Log::Take(), Lines("E ~Invalid so file name")) << file;
  }
}

// Red if a name is not free again, another than the lowest is taken, or a deletion takes too few or too many.
TEST_F(RouteTest, ReusesNamesLowestFirst) {
  Probe* a[3] = {Add(*route, ALONE, ""), Add(*route, ALONE, nullptr), Add(*route, ALONE, "")};
  EXPECT_EQ(Add(*route, ALONE, "left")->Name(), "probe_left_0");
  Link* links[3] = {Join(*route, a[0], a[1]), Join(*route, a[0], a[1], 1, 1), Join(*route, a[2], a[0], 2, 2)};
  EXPECT_TRUE(a[2]->Name() == "probe_2" && links[2]->Name() == "lnk_2" && route->FindInstance("lnk_1") == links[1]);
  EXPECT_EQ(route->Delete(links[1]), 0);
  EXPECT_EQ(Join(*route, a[1], a[1], 7, 7)->Name(), "lnk_1");
  EXPECT_EQ(route->Delete(a[0]), 0);
  EXPECT_TRUE(route->Links_l().size() == 1 && a[1]->InEp(7).IsActive() && !a[2]->OutEp(2).IsActive());
  EXPECT_FALSE(route->FindInstance("probe_0") || route->FindInstance("lnk_0"));
  EXPECT_EQ(Add(*route, ALONE, "")->Name(), "probe_0");
  EXPECT_EQ(route->DeleteAll(), 0);
  EXPECT_TRUE(route->Blocks_l().empty() && route->Links_l().empty() && IsLoaded("libprobe.so"));
  route.reset();
  EXPECT_FALSE(IsLoaded("libprobe.so"));
}

struct Throws : Probe {
  Throws(bool isFirst, bool isLast) : Probe(isFirst, isLast, "b") {}
  int OnInEpLinked(unsigned long) override { throw std::runtime_error("busy"); }
  int GetParameter(unsigned, std::vector<std::string>&) override { throw std::runtime_error("no idea"); }
  int Start() override { throw std::runtime_error("tired"); }
};

// Red if a plug-in that makes no block stays loaded or throws into the route, or a refusal leaves anything behind.
TEST_F(RouteTest, SurvivesBrokenPlugins) {
  for (const auto& [file, error] : Pairs{{"libmissing.so", "E ~Can't open libmissing.so"},
                                         {"libnosymbol.so", "E ~Can't find 'CreateBlock' function in libnosymbol.so"},
                                         {"libnullblock.so", "E ~CreateBlock() returns nullptr"},
                                         {"libthrows.so", "I : : Deleted|E ~CreateBlock() returns nullptr"}}) {
    EXPECT_FALSE(route->NewBlock(file.c_str(), true, true, {}));
    EXPECT_EQ(Log::Take(), Lines(error));
    EXPECT_FALSE(IsLoaded(file.c_str())) << file;
  }
  EXPECT_TRUE(route->Blocks_l().empty());
  Probe *plain = Add(*route, ALONE, "a"), *refuser = Add(*route, ALONE, "r");
  refuser->linkResult = -5;
  Log::Take();
  EXPECT_FALSE(Join(*route, plain, refuser) || Join(*route, refuser, plain));
  EXPECT_EQ(Log::Take(), Lines("E ~lnk_0: Failed to link to @r's I00|I ~lnk_0: Deleted|"
                               "E ~lnk_0: Failed to link to @r's O00|I ~lnk_0: Deleted"));
  Log::Keep("E");
  EXPECT_FALSE(route->NewLink(1, SampleFormat::BYTE, 1, -1, plain, 0, plain, 0));  // a frame that no memory holds
  EXPECT_EQ(Log::Take(), Lines("E ~lnk_0: No memory for frames of -1 samples: frame size out of range"));
  Throws* wild = Add<Throws>(*route, ALONE);
  std::vector<std::string> texts;
  EXPECT_TRUE(!Join(*route, plain, wild) && route->GetParameter(wild, 1, texts) == -20 && route->Start() == -20);
  EXPECT_EQ(Log::Take(), Lines("E ~@b: The hook for endpoint 0 threw: busy|E ~lnk_0: Failed to link to @b's I00|"
                               "E ~@b: Action 'GET_PARAMETER' failed: no idea|E ~@b: Start() threw: tired|"
                               "E ~Failed to start @b (ret=-20)"));
  EXPECT_TRUE(Join(*route, plain, plain));
}

// Red if a block of another route is taken for one's own, or memory of a deleted one is read.
TEST_F(RouteTest, RefusesStrangers) {
  RouteImpl other("RouteB", nullptr, "");
  Probe *mine = Add(*route, ALONE, "mine"), *its = Add(other, ALONE, "its"), *gone = Add(*route, ALONE, "gone");
  route->Delete(gone);
  Log::Keep("E");
  std::vector<std::string> texts;
  for (Block* stranger : {its, gone}) {
    EXPECT_FALSE(Join(*route, stranger, mine) || Join(*route, mine, stranger));
    EXPECT_EQ(route->SetParameter(stranger, 1, texts) + route->GetParameter(stranger, 1, texts), -40);
    EXPECT_EQ(route->Reset(stranger) + route->Delete(stranger), -40);
    const std::string name = stranger == its ? Pointer(its->Name().c_str()) : "(null)", end = " doesn't exist|";
    const std::string block = "E ~Block " + std::string(stranger == its ? "@its" : "(null)") + end;
    EXPECT_EQ(Log::Take(), Lines("E ~source " + name + end + "E ~sink " + name + end + "E ~Block " + Pointer(stranger) +
                                 end + block + block + "E ~No instance " + Pointer(stranger)));
  }
}

// Red if a path loses or doubles its slash, or dumping that is switched off leaves its files open.
TEST_F(RouteTest, DumpsWhereItIsTold) {
  const Folder folder;
  const std::string path = folder / "";
  Join(*route, Add(*route, FIRST, "src", Script{0, 0, -21}), Add(*route, LAST, "out"));
  Log::Take();
  route->SetDump("");
  route->SetDump(path.substr(0, path.size() - 1).c_str());
  EXPECT_EQ(Log::Take(), Lines("I ~Enabled dumping data to |I ~Enabled dumping data to " + path));
  RunToEnd();
  route->SetDump(nullptr);
  EXPECT_TRUE(Log::Take().ends_with(Lines("I ~Disabled dumping data")));
  const std::string dumped = Contents(folder / "RouteA-probe_src_0-O00-48000Hz-S16_LE-2ch.pcm");
  EXPECT_EQ(dumped.size(), 12u);  // a sample of call 1, and two of call 2

  Log::Keep("W");
  const std::string plugIns = std::getenv("LD_LIBRARY_PATH"), needed = path + "RouteA-" + plugIns + "/";
  Block* byPath = Load(*route, plugIns + "/libprobe.so", ALONE, "");
  for (int round = 0; round < 2; ++round) {
    route->SetDump(path.c_str());
    const std::string warning = "W ~" + byPath->Name() + ": Will not be dumped: there is no folder " + needed;
    EXPECT_EQ(Log::Take(), round ? "" : Lines(warning + " to write to"));
    std::filesystem::create_directories(needed);
  }
}

// Sends, or expects, samples that carry their own number.
struct Counter : Probe {
  using Probe::Probe;
  long ProcessFrame() override {
    FrameBuffer& frame = IsFirst() ? *ActiveOutEps().at(0)->FB() : *ActiveInEps().at(0)->FB();
    int* samples = reinterpret_cast<int*>(frame.data);
    if (IsFirst()) std::iota(samples, samples + 7, next);
    for (long k = 0; k < 7; ++k) wrong += samples[k] != next++;
    frame.samples = IsFirst() ? 7 : 0;
    return FRAME_DONE;
  }
  int next = 0, wrong = 0;
};

// Four threads add, link, unlink and delete at a source while it sends.
// Red if an edit meets a running cycle, fails, or disturbs a link that it does not touch.
TEST_F(RouteTest, LosesNoSampleWhileItsGraphIsEdited) {
  Counter *source = Add<Counter>(*route, FIRST, "src"), *sink = Add<Counter>(*route, LAST, "out");
  route->NewLink(48000, SampleFormat::S32_LE, 1, 7, source, 0, sink, 0);
  Log::Keep("E");
  route->Start();
  std::atomic<int> edits{0};
  std::vector<std::thread> editors;
  for (std::size_t out = 1; out <= 4; ++out) {
    editors.emplace_back([&, out] {
      for (int round = 0; round < 250; ++round) {
        Probe* block = Add(*route, ALONE, "b");
        edits += route->Delete(Join(*route, source, block, out, 3)) == 0 && Join(*route, source, block, out, 4) &&
                 route->Reset(block) == 0 && route->Delete(block) == 0;
      }
    });
  }
  for (std::thread& editor : editors) editor.join();
  EXPECT_GT(route->OkFrames(), 1000u);  // they did meet
  EXPECT_EQ(route->Stop(), 0);
  EXPECT_TRUE(edits == 1000 && sink->wrong == 0 && sink->next == source->next);
  EXPECT_EQ(static_cast<unsigned long long>(sink->next), route->OkFrames() * 7);
  EXPECT_EQ(Log::Take(), Lines("OnStarted|OnStopped 0"));
}
