// Edits of a graph whose samples count up: none is lost or comes twice, no other block stops or starts, and one that
// fails leaves no trace.
#include <vorn/Edit.h>
#include <vorn/Plugin.h>

#include <deque>
#include <random>

#include "Block/Glimpse.h"
#include "Monitor/Edits.h"
#include "RingBuffer/RingBuffer.h"
#include "testkit/FailingNew.h"
#include "testkit/RouteTest.h"

namespace {

using Texts = Edit::Texts;

/** What is wrong with a Middle; where there is nothing, it passes on what comes in. */
enum Fault { SOUND, REFUSES_LINK, FAILS_START, THROWS_AT_START, STARTS_LATER, GROWS_AND_FAILS };

struct Counts {
  std::atomic<int> starts{0}, stops{0};
  std::atomic<long> next{0}, wrong{0};
  int from = -1;  // the first that came
  void Send(FrameBuffer& fb, long samples) {
    fb.samples = samples;
    for (long k = 0; k < samples; ++k) reinterpret_cast<int*>(fb.data)[k] = static_cast<int>(next++);
  }
  void Get(const FrameBuffer& fb) {
    const int* const samples = reinterpret_cast<const int*>(fb.data);
    if (from < 0) next = from = samples[0];
    for (long k = 0; k < fb.samples; ++k) wrong += samples[k] != next++;
  }
};

struct KitBlock : vorn::PluginBlock, Counts {
  using PluginBlock::PluginBlock;
  int Prepare() override { return ++starts, 0; }
  int Release() override { return ++stops, 0; }
};

struct Source : KitBlock {
  using KitBlock::KitBlock;
  static Description Describe() { return Description("source", "").Output(vorn::Port("out")); }
  long Process() override { return Send(Out(), Out().samplesPerFrame), FRAME_DONE; }
};

struct Middle : KitBlock {
  Middle(Setup setup, Fault itsFault) : KitBlock(setup), fault(itsFault) {}
  static Description Describe() {
    return Description("middle", "")
        .Input(vorn::Port("in"))
        .Output(vorn::Port("out"))
        .Takes(vorn::Parameter::Number(3, "size", "", 0, 9).Default(1).Live());
  }
  Refusal CheckStream(bool, std::size_t, const FrameBuffer&) const override {
    return fault == REFUSES_LINK ? "another stream" : "";
  }
  int Prepare() override {
    if (fault == THROWS_AT_START) throw std::runtime_error("tired");
    if (fault == GROWS_AND_FAILS) OutEp(0).Resize(8 * Out().samplesPerFrame);
    ++starts;
    return fault == STARTS_LATER ? 1 : fault == SOUND ? 0 : Refuse("no device");
  }
  long Process() override {
    Out().samples = In().samples;
    std::memcpy(Out().data, In().data, FrameBytes(In()));
    return FRAME_DONE;
  }
  const Fault fault;
};

/** Both inputs count the same, in frames of different sizes: one of them always has samples that wait. */
struct Joiner : KitBlock {
  using KitBlock::KitBlock;
  static Description Describe() {
    return Description("join", "").Inputs(1, 2, vorn::Port("in")).Output(vorn::Port("out"));
  }
  long Process() override {
    Out().samples = In(0).samples;
    std::memcpy(Out().data, In(0).data, FrameBytes(In(0)));
    wrong += In(0).samples != In(1).samples || std::memcmp(In(0).data, In(1).data, FrameBytes(In(0))) != 0;
    return FRAME_DONE;
  }
};

struct Sink : KitBlock {
  using KitBlock::KitBlock;
  static Description Describe() { return Description("sink", "").Input(vorn::Port("in")); }
  long Process() override { return Get(In()), FRAME_DONE; }
};

/** Without the kit, in the place of any of these. It moves a frame in every `pace`-th cycle, and waits until it can. */
struct Plain : Block, Counts {
  Plain(bool isFirst, bool isLast, int newPace = 1) : Block(isFirst, isLast), pace(newPace) {}
  int OnOutEpLinked(unsigned long index) override { return index == 0 ? 0 : -1; }
  int Start() override { return ++starts, 0; }
  int Stop() override { return ++stops, 0; }
  long ProcessFrame() override {
    FrameBuffer* const in = IsFirst() ? nullptr : InEp(0).FB();
    FrameBuffer* const out = IsLast() ? nullptr : OutEp(0).FB();
    if (++cycles % pace != 0 || (in && in->samples == 0) || (out && out->samples != 0)) return FRAME_DONE;
    if (in && out) std::memcpy(out->data, in->data, 4 * static_cast<std::size_t>(out->samples = in->samples));
    if (!in) Send(*out, 3);
    if (!out) Get(*in);
    if (in) in->samples = 0;
    return FRAME_DONE;
  }
  const int pace;
  int cycles = 0;
};

struct EditTest : RouteTest {
  EditTest() { Log::Keep(""); }
  ~EditTest() override { allocationsLeft = -1; }

  /** Arguments with which "probe" makes a T. */
  template <class T, class... Args>
  Texts Of(Args... args) {
    makers.push_back([=](bool isFirst, bool isLast) -> Block* {
      if constexpr (std::is_base_of_v<PluginBlock, T>) {
        const Description plan = T::Describe();
        return new T({IsOpenEnd(plan.inputs, isFirst), IsOpenEnd(plan.outputs, isLast), NO_TEXTS, plan}, args...);
      } else {
        return new T(isFirst, isLast, args...);
      }
    });
    return {std::to_string(reinterpret_cast<std::uintptr_t>(&makers.back()))};
  }
  template <class T, class... Args>
  T* Add(Ends ends, Args... args) {
    return static_cast<T*>(route->NewBlock(PROBE, ends & FIRST, ends & LAST, Of<T>(args...)));
  }
  Link* Join(Block* source, Block* sink, long samples = 4, std::size_t in = 0, std::size_t out = 0) {
    return route->NewLink(48000, SampleFormat::S32_LE, 1, samples, source, out, sink, in);
  }
  /** Waits until the sink has got some more. */
  static bool Flows(const Counts& sink) {
    const long before = sink.next;
    return WaitUntil([&] { return sink.next > before + 20; });
  }
  std::string Graph() const {
    std::set<std::string> lines;
    for (const Block* block : route->Blocks_l()) lines.insert(block->Name());
    for (const Link* link : route->Links_l()) {
      lines.insert(link->Name() + " " + link->SourceEp()->Owner()->Name() + ":" +
                   std::to_string(link->SourceEp()->Index()) + " " + link->SinkEp()->Owner()->Name() + ":" +
                   std::to_string(link->SinkEp()->Index()) + " " +
                   std::to_string(Glimpse(link->SinkEp()->FB()->samplesPerFrame)));
    }
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
  }
  static std::string Names(const std::vector<EditResult::Item>& items) {
    std::string names;
    for (const auto& item : items) names += item.name + " ";
    return names;
  }
  /** An edit that goes through, as "made / deleted". */
  static std::string Done(const EditResult& result) {
    EXPECT_TRUE(result.ok && result.reason.empty()) << result.reason;
    return Names(result.made) + "/ " + Names(result.deleted);
  }

  static constexpr const char* PROBE = "libprobe.so";
  inline static const Texts NO_TEXTS;
  std::deque<std::function<Block*(bool, bool)>> makers;
};

// Red if an edit makes a gap, stops or starts another block, or mixes up ends and names.
TEST_F(EditTest, ChangesARunningGraphWithoutAGap) {
  Source* const source = Add<Source>(FIRST);
  Sink* const sink = Add<Sink>(LAST);
  Join(source, sink);
  route->Start();
  EXPECT_EQ(Done(route->Insert("lnk_0", PROBE, Of<Middle>(SOUND))), "probe_2 lnk_1 / ");
  EXPECT_EQ(Graph(), "lnk_0 probe_2:0 probe_1:0 4\nlnk_1 probe_0:0 probe_2:0 4\nprobe_0\nprobe_1\nprobe_2\n");
  EXPECT_TRUE(Flows(*sink));
  EXPECT_EQ(Done(route->Replace("probe_2", PROBE, Of<Plain>())), "probe_3 / probe_2 ");  // without the kit
  EXPECT_TRUE(Flows(*sink));
  const EditResult tapped = route->Tap("lnk_0", PROBE, Of<Sink>());
  EXPECT_EQ(Done(tapped), "probe_2 tee_0 lnk_2 lnk_3 / ");
  Sink* const tap = static_cast<Sink*>(tapped.made.at(0).block);
  EXPECT_TRUE(Flows(*tap));
  EXPECT_EQ(Done(route->Tap("lnk_0", PROBE, Of<Sink>())), "probe_4 lnk_4 / ");  // the same tee
  EXPECT_EQ(Done(route->Remove("probe_3")), "/ probe_3 lnk_1 ");
  EXPECT_EQ(Done(route->Remove("probe_4")), "/ probe_4 lnk_4 ");
  EXPECT_TRUE(Flows(*tap) && tap->wrong == 0 && tap->starts == 1 && tap->stops == 0);
  EXPECT_EQ(Done(route->Remove(tap)), "/ probe_2 lnk_3 ");
  EXPECT_EQ(Done(route->Remove("tee_0")), "/ tee_0 lnk_2 ");
  EXPECT_EQ(Graph(), "lnk_0 probe_0:0 probe_1:0 4\nprobe_0\nprobe_1\n");
  EXPECT_TRUE(Flows(*sink));
  route->Stop();
  EXPECT_TRUE(sink->wrong == 0 && sink->next == source->next);
  EXPECT_TRUE(source->starts == 1 && source->stops == 1 && sink->starts == 1 && sink->stops == 1);
}

// Red if a failed edit leaves anything behind, or does not say why.
TEST_F(EditTest, LeavesNoTraceWhereItFails) {
  Source* const source = Add<Source>(FIRST);
  Middle* const middle = Add<Middle>(MIDDLE, SOUND);
  Sink* const sink = Add<Sink>(LAST);
  Join(source, middle);
  Join(middle, sink);
  route->Start();
  const std::string before = Graph();
  const auto insert = [&](Fault fault) { return route->Insert("lnk_1", PROBE, Of<Middle>(fault)); };
  const auto set = [&](const char* first, const char* name, const char* value) {
    Edit edit;
    edit.SetParameter(middle, "size", {first});
    edit.SetParameter("probe_1", name, {value});
    return route->Execute(edit);
  };
  const auto late = [&] {
    Edit edit;
    edit.SetParameter(edit.Insert("lnk_0", PROBE, Of<Middle>(SOUND)), "size", {"7"});
    edit.Replace("probe_2", PROBE, Of<Sink>());
    edit.NewLink(48000, SampleFormat::S32_LE, 1, 4, middle, 0, middle, 1);
    return route->Execute(edit);
  };
  const auto half = [&] {
    Edit edit;
    edit.Remove(middle);
    edit.Insert("lnk_1", PROBE, Of<Middle>(FAILS_START));
    return route->Execute(edit);
  };
  const auto other = [&] {
    Edit edit;
    edit.Delete("lnk_1");
    edit.NewLink(16000, SampleFormat::S32_LE, 1, 4, middle, 0, sink, 0);
    return route->Execute(edit);
  };
  const std::function<std::pair<EditResult, const char*>()> cases[] = {
      [&] { return std::pair(route->Insert("lnk_1", "libmissing.so", {}), "does not load: libmissing.so"); },
      [&] { return std::pair(route->Insert("lnk_1", "gain", {}), "expected one such as libgain.so"); },
      [&] { return std::pair(route->Insert("lnk_1", "libnosymbol.so", {}), "no function CreateBlock"); },
      [&] { return std::pair(route->Insert("lnk_1", "libthrows.so", {}), "made no block"); },
      [&] { return std::pair(route->Insert("lnk_1", "libgain.so", {"loud"}), "argument 'gain'"); },
      [&] { return std::pair(route->Insert("lnk_7", PROBE, Of<Middle>(SOUND)), "RouteA has no link 'lnk_7'"); },
      [&] { return std::pair(insert(REFUSES_LINK), "probe_3 refuses output 0 (lnk_1): output 0: got"); },
      [&] { return std::pair(insert(FAILS_START), "probe_3 does not start: no device"); },
      [&] { return std::pair(insert(THROWS_AT_START), "probe_3 does not start: tired"); },
      [&] { return std::pair(insert(STARTS_LATER), "probe_3 has not started yet (1)"); },
      [&] { return std::pair(insert(GROWS_AND_FAILS), "probe_3 does not start: no device"); },
      [&] { return std::pair(route->Insert("lnk_1", PROBE, Of<Sink>()), "probe_3 refuses output 0"); },
      [&] {
        return std::pair(route->Replace(middle, "libstartfails.so", {}), "startfails_0 does not start: it answered -7");
      },
      [&] { return std::pair(route->Remove(sink), "incomplete: probe_1 has no output linked"); },
      [&] { return std::pair(route->Remove("lnk_0"), "RouteA has no block 'lnk_0'"); },
      [&] { return std::pair(set("5", "color", "1"), "probe_1 has no parameter 'color', expected size"); },
      [&] { return std::pair(set("5", "3", "10"), "parameter 'size'"); },
      [&] { return std::pair(late(), "probe_1: output 0 is linked already"); },
      [&] { return std::pair(half(), "probe_3 does not start: no device"); },
      [&] { return std::pair(other(), "which one edit cannot change to 16000 Hz"); },
  };
  for (const auto& tried : cases) {
    const auto [result, reason] = tried();
    EXPECT_TRUE(!result.ok && result.made.empty() && result.deleted.empty());
    EXPECT_NE(result.reason.find(reason), std::string::npos) << result.reason << "\nexpected: " << reason;
    EXPECT_TRUE(Flows(*sink));
    EXPECT_EQ(Graph(), before) << reason;
  }
  Texts size;
  EXPECT_TRUE(route->GetParameter(middle, 3, size) == 0 && size == Texts{"1"});
  EXPECT_EQ(route->NewBlock(PROBE, false, false, Of<Middle>(SOUND))->Name(), "probe_3");  // nothing kept its number
  route->Delete(route->FindInstance("probe_3"));
  route->Stop();
  EXPECT_TRUE(sink->wrong == 0 && sink->next == source->next && middle->starts == 1 + 1 && source->stops == 2);
}

// Red if what waits in a join is dropped where one of its links gets another block.
TEST_F(EditTest, KeepsWhatWaitsInAJoin) {
  Source *const a = Add<Source>(FIRST), *const b = Add<Source>(FIRST);
  Joiner* const both = Add<Joiner>(MIDDLE);
  Sink* const sink = Add<Sink>(LAST);
  Join(a, both, 4, 0);
  Join(b, both, 3, 1);
  Join(both, sink, 4);
  route->Start();
  for (int round = 0; round < 50; ++round) {
    for (const char* link : {"lnk_0", "lnk_1"}) {
      const EditResult inserted = route->Insert(link, PROBE, round % 2 ? Of<Middle>(SOUND) : Of<Plain>());
      EXPECT_TRUE(inserted.ok && Flows(*sink)) << inserted.reason;
      EXPECT_FALSE(route->Insert(link, PROBE, Of<Middle>(FAILS_START)).ok);
      EXPECT_EQ(Done(route->Remove(inserted.made.at(0).block)), "/ probe_4 lnk_3 ");
    }
  }
  route->Stop();
  EXPECT_TRUE(both->wrong == 0 && sink->wrong == 0 && both->starts == 1 && sink->from == 0);
}

// Red if a frame that nobody has taken yet is lost or comes twice where its link gets other ends.
TEST_F(EditTest, KeepsAFrameThatWaitsInALink) {
  Plain *const source = Add<Plain>(FIRST), *const sink = Add<Plain>(LAST, 3);
  Join(source, sink);
  route->Start();
  for (int round = 0; round < 300; ++round) {
    const auto insert = [&](int k) { return route->Insert("lnk_0", PROBE, k ? Of<Plain>(k) : Of<Middle>(SOUND)); };
    const EditResult first = insert(round % 3), second = insert(round % 2);
    EXPECT_TRUE(first.ok && second.ok) << first.reason << second.reason;
    EXPECT_FALSE(route->Replace(first.made.at(0).block, PROBE, Of<Middle>(FAILS_START)).ok);
    EXPECT_TRUE(round % 5 != 0 || Flows(*sink));
    const EditResult third = route->Replace(first.made.at(0).block, PROBE, Of<Plain>(2));
    const EditResult gone = route->Remove(second.made.at(0).block);
    EXPECT_TRUE(third.ok && gone.ok) << third.reason << gone.reason;
    EXPECT_TRUE(route->Remove(third.made.at(0).block).ok);
  }
  EXPECT_TRUE(Flows(*sink));
  route->Stop();
  EXPECT_TRUE(sink->wrong == 0 && source->next - sink->next <= 3 && source->starts == 1 && sink->starts == 1);
}

// Red if an edit on one side of a FIFO is heard on the other.
TEST_F(EditTest, KeepsWhatWaitsInAFIFO) {
  RouteImpl other("RouteB", nullptr, "");
  RingBuffer fifo(48000, 4, 64, 0);
  Source* const source = Add<Source>(FIRST);
  Sink* const sink = static_cast<Sink*>(other.NewBlock(PROBE, false, true, Of<Sink>()));
  Block* const writer = route->NewBlock("libfifosink.so", false, true, {});
  Block* const reader = other.NewBlock("libfifosource.so", true, false, {});
  vorn::AttachConsumer(writer, &fifo);
  vorn::AttachProducer(reader, &fifo);
  Join(source, writer);
  other.NewLink(48000, SampleFormat::S32_LE, 1, 7, reader, 0, sink, 0);
  other.Start();
  route->Start();
  for (int round = 0; round < 100; ++round) {
    for (RouteImpl* side : {route.get(), &other}) {
      const EditResult done = side->Insert("lnk_0", PROBE, Of<Middle>(SOUND));
      EXPECT_TRUE(done.ok && Flows(*sink)) << done.reason;
      EXPECT_TRUE(side->Remove(done.made.at(0).block).ok);
    }
  }
  vorn::EndStream(source);
  EXPECT_TRUE(WaitUntil([&] { return sink->next == source->next && other.CurrentStatus() == RouteImpl::STOPPED; }));
  EXPECT_TRUE(sink->wrong == 0 && sink->from == 0 && sink->starts == 1);
  route->DeleteAll();  // before the FIFO
  other.DeleteAll();
}

// Red if a block of a stopped route is started, an incomplete graph is mended with a block that does not start, or
// either leaves a trace.
TEST_F(EditTest, AlsoChangesARouteThatStandsOrIsBroken) {
  Source* const source = Add<Source>(FIRST);
  Sink* const sink = Add<Sink>(LAST);
  Join(source, sink);
  EXPECT_EQ(Done(route->Insert("lnk_0", PROBE, Of<Middle>(FAILS_START))), "probe_2 lnk_1 / ");
  EXPECT_EQ(route->Start(), -20);
  EXPECT_EQ(Done(route->Replace("probe_2", PROBE, Of<Middle>(SOUND))), "probe_3 / probe_2 ");
  EXPECT_EQ(route->Remove("probe_1").reason,
            "what is left would be incomplete: probe_3 has no output linked, and is no last block");
  route->Start();
  EXPECT_TRUE(Flows(*sink));
  route->Delete(route->FindInstance("lnk_1"));
  EXPECT_TRUE(WaitUntil([&] { return route->CurrentStatus() == RouteImpl::BROKEN_RUNNING; }));
  const auto mend = [&](Fault fault) {
    Edit edit;
    const Edit::Instance block = edit.NewBlock(PROBE, false, false, Of<Middle>(fault));
    edit.NewLink(48000, SampleFormat::S32_LE, 1, 4, source, 0, block, 0);
    edit.NewLink(48000, SampleFormat::S32_LE, 1, 4, block, 0, "probe_3", 0);
    return route->Execute(edit);
  };
  const std::string before = Graph();
  const int starts = source->starts;
  EXPECT_EQ(mend(FAILS_START).reason, "probe_2 does not start: no device");
  EXPECT_TRUE(Graph() == before && source->starts == source->stops &&
              route->CurrentStatus() == RouteImpl::BROKEN_RUNNING);
  EXPECT_EQ(Done(mend(SOUND)), "probe_2 lnk_1 lnk_2 / ");
  EXPECT_TRUE(Flows(*sink));
  EXPECT_EQ(route->CurrentStatus(), RouteImpl::RUNNING);
  EXPECT_LE(source->starts, starts + 2);
}

// Red if memory that runs out at any place leaves half an edit, or a route that does not go on.
TEST_F(EditTest, LeavesNoTraceWhereMemoryRunsOut) {
  Source* const source = Add<Source>(FIRST);
  Middle* const middle = Add<Middle>(MIDDLE, SOUND);
  Sink* const sink = Add<Sink>(LAST);
  Join(source, middle);
  Join(middle, sink);
  route->Start();
  const Texts good = Of<Middle>(SOUND), tap = Of<Sink>();
  int failed = 0;
  for (long n = 0, untried = 0; untried == 0; ++n) {
    EXPECT_TRUE(Flows(*sink));
    const std::string before = Graph();
    Edit edit;
    const Edit::Instance first = edit.Insert("lnk_0", PROBE, good);
    edit.Replace(middle, PROBE, good);
    edit.Tap("lnk_1", PROBE, tap);
    edit.SetParameter(first, "size", {"3"});
    allocationsLeft = n;
    const EditResult result = route->Execute(edit);
    untried = allocationsLeft.exchange(-1) + 1;
    failed += !result.ok;
    EXPECT_TRUE(result.ok ? result.deleted.size() == 1 : Graph() == before && !result.reason.empty()) << n;
    if (result.ok) break;
  }
  EXPECT_GT(failed, 100);
  EXPECT_TRUE(Flows(*sink) && sink->wrong == 0 && sink->starts == 1 && source->starts == 1);
}

std::atomic<long> badLives{0};
/** Counts those that were started more than once, or not stopped. */
template <class Kind>
struct Watched : Kind {
  using Kind::Kind;
  ~Watched() override { badLives += this->wrong != 0 || this->starts > 1 || this->stops != this->starts; }
};

// 10000 edits of any kind, in any order, at three sinks that compare. Red if one of them makes a gap anywhere.
TEST_F(EditTest, SurvivesAnyEditsInAnyOrder) {
  std::mt19937 dice(1);
  const auto roll = [&](std::size_t sides) { return static_cast<std::size_t>(dice() % sides); };
  Source *const a = Add<Source>(FIRST), *const b = Add<Source>(FIRST);
  Joiner* const both = Add<Joiner>(MIDDLE);
  Sink* const sink = Add<Sink>(LAST);
  Join(a, both, 4, 0);
  Join(b, both, 3, 1);
  Join(both, sink, 4);
  route->Start();
  const Texts kinds[] = {Of<Watched<Middle>>(SOUND), Of<Watched<Middle>>(SOUND), Of<Watched<Plain>>(),
                         Of<Middle>(FAILS_START),    Of<Middle>(REFUSES_LINK),   Of<Middle>(GROWS_AND_FAILS)};
  const Texts tap = Of<Watched<Sink>>();
  long done[4] = {}, failed = 0;
  for (int round = 0; round < 10000; ++round) {
    std::vector<std::string> links, inner;
    for (const Link* link : route->Links_l()) links.push_back(link->Name());
    for (const Block* block : route->Blocks_l()) {
      if (block != a && block != b && block != both && block != sink) inner.push_back(block->Name());
    }
    std::sort(links.begin(), links.end());
    std::sort(inner.begin(), inner.end());
    const std::string& link = links[roll(links.size())];
    const std::string block = inner.empty() ? "none" : inner[roll(inner.size())];
    const std::size_t what = inner.size() > 12 ? 2 : roll(4);
    const Texts& kind = kinds[roll(6)];
    const EditResult result = what == 0   ? route->Insert(link, PROBE, kind)
                              : what == 1 ? route->Replace(block, PROBE, kind)
                              : what == 2 ? route->Remove(block)
                                          : route->Tap(link, PROBE, tap);
    (result.ok ? done[what] : failed) += 1;
    ASSERT_TRUE(round % 100 != 0 || Flows(*sink)) << round << result.reason << "\n" << Graph();
  }
  route->Stop();
  for (const long count : done) EXPECT_GT(count, 300);
  EXPECT_GT(failed, 1000);
  EXPECT_TRUE(both->wrong == 0 && sink->wrong == 0 && sink->from == 0);
  for (const KitBlock* block : {static_cast<KitBlock*>(a), static_cast<KitBlock*>(b), static_cast<KitBlock*>(both)}) {
    EXPECT_TRUE(block->starts == 1 && block->stops == 1);
  }
  route->DeleteAll();
  EXPECT_EQ(badLives, 0);
}

std::string Split(const std::string& line) {
  std::vector<monitor::Word> words;
  if (!monitor::SplitWords(line, words)) return "open";
  std::string text;
  for (const auto& word : words) text += (word.isQuoted ? 'q' : '=') + word.text + '|';
  return text;
}

// Red if a word is cut, glued or unquoted in the wrong place.
TEST(EditRequest, ConsistsOfWords) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {" \t ", ""},
      {"a  b\r", "=a|=b|"},
      {R"("a b" c)", "qa b|=c|"},
      {R"x("")x", "q|"},
      {R"("\"\\")", R"(q"\|)"},
      {R"(a"b c"d ";")", "qab cd|q;|"},
      {R"(\n)", R"(=\n|)"},
      {R"("a)", "open"},
      {R"("a\")", "open"},
      {R"("\)", "open"},
  };
  for (const auto& [line, words] : cases) EXPECT_EQ(Split(line), words) << line;
  std::mt19937 dice(1);
  for (int round = 0; round < 20000; ++round) {  // no route, so nothing comes of it
    const bool isEdit = dice() % 2 == 0;
    std::string line = isEdit ? "edit { " : "do ";
    for (std::size_t k = dice() % 30; k-- > 0;) line += "\"\\{}; aR\t0"[dice() % 10];
    const monitor::Edits edits({[](const std::string&) { return nullptr; }, [](auto&&...) { return false; }});
    const std::string refusal =
        isEdit ? R"({"version":1,"request":"edit","error":)" : R"({"version":1,"request":"do","error":)";
    EXPECT_EQ(edits.Answer(line).find(refusal), 0u) << line;
  }
}

// Red if a request does not do what it says, or an error does not say what was expected.
TEST_F(EditTest, IsAskedForInALineOfWords) {
  route->NewBlock("libtone.so", true, false, {});
  route->NewBlock("libnull.so", false, true, {});
  route->NewLink(48000, SampleFormat::S16_LE, 1, 48, static_cast<Block*>(route->FindInstance("tone_0")), 0,
                 static_cast<Block*>(route->FindInstance("null_0")), 0);
  route->Start();
  const std::shared_ptr<RouteImpl> share(route.get(), [](RouteImpl*) {});
  std::string command;
  const monitor::Edits edits({[&](const std::string& name) { return name == "RouteA" ? share : nullptr; },
                              [&](const std::string& word, std::stringstream& args, std::string& reply) {
                                command = word + '|' + args.str();
                                return word == "status" && (reply = "fine\n", true);
                              }});
  const std::pair<const char*, const char*> cases[] = {
      {"insert RouteA lnk_0 gain -6",
       R"("request":"insert","route":"RouteA","ok":true,"made":["gain_0","lnk_1"],"deleted":[]})"},
      {"replace RouteA gain_0 libgain.so", R"("made":["gain_1"],"deleted":["gain_0"]})"},
      {"tap RouteA lnk_0 null", R"("made":["null_1","tee_0","lnk_2","lnk_3"])"},
      {"remove RouteA null_1", R"("made":[],"deleted":["null_1","lnk_3"]})"},
      {"edit { newblock RouteA delay false false 1 ; delete RouteA lnk_0 ; newlink RouteA 48000 S16_LE 1 48 tee_0 0 "
       "delay_0 0"
       " ; newlink RouteA 48000 S16_LE 1 48 delay_0 0 null_0 0 ; setparam RouteA gain_1 gain -9 ; }",
       R"("request":"edit","route":"RouteA","ok":true,"made":["delay_0","lnk_3","lnk_4"],"deleted":["lnk_0"]})"},
      {"do status --dot", R"("request":"do","reply":"fine\u000a"})"},
      {"do nonsense", R"("error":"the console has no command 'nonsense'"})"},
      {"insert RouteB lnk_0 gain", R"("error":"no route 'RouteB'"})"},
      {"insert RouteA lnk_9 gain", R"("error":"RouteA has no link 'lnk_9'"})"},
      {"insert RouteA lnk_1", R"("error":"expected insert ROUTE LINK PLUG-IN [ARG...]"})"},
      {"remove RouteA a b", R"("error":"expected remove ROUTE BLOCK"})"},
      {"setparam RouteA gain_1 gain 0",
       R"("error":"expected insert, remove, replace, tap, edit or do, got 'setparam'"})"},
      {"edit newblock RouteA", R"("error":"expected edit { COMMAND ; COMMAND ... }, with blanks around { ; and }"})"},
      {"edit { }", R"("error":"there is no command between the braces"})"},
      {"edit { remove RouteA gain_1 ; remove RouteB x }",
       R"("error":"command 2: an edit is of one route, expected RouteA, got 'RouteB'"})"},
      {"edit { newlink RouteA 48k S16_LE 1 48 a 0 b 0 }",
       R"("error":"command 1: RATE: expected a number, got '48k'"})"},
      {"edit { newlink RouteA 48000 S16 1 48 a 0 b 0 }",
       R"("error":"command 1: FORMAT: expected one of BYTE, S16_LE,)"},
      {"edit { newblock RouteA gain no false }", R"("error":"command 1: ISFIRST: expected true or false, got 'no'"})"},
      {"edit { setparam RouteA gain_1 gain 100 }", R"("error":"gain_1: parameter 'gain')"},
      {"edit { jump }", R"("error":"command 1: expected one of insert, remove,)"},
      {"insert RouteA lnk_1 gain \"", R"("error":"a quote is not closed"})"},
  };
  for (const auto& [line, part] : cases) {
    EXPECT_NE(edits.Answer(line).find(part), std::string::npos) << line << "\n" << edits.Answer(line);
  }
  EXPECT_TRUE(monitor::Edits::Takes(" tap") && monitor::Edits::Takes("do x") && !monitor::Edits::Takes("setparam"));
  EXPECT_EQ(command, "nonsense| nonsense");
}

}  // namespace
