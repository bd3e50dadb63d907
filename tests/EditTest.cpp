// Edits of a graph whose samples count up: none is lost or comes twice, no other block stops or starts, and one that
// fails leaves no trace.
#include <vorn/Edit.h>
#include <vorn/Plugin.h>

#include <deque>
#include <random>

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
  /** The samples that a source sends, or a sink gets. */
  void Meet(const FrameBuffer& fb) {
    for (long k = 0; k < fb.samples; ++k) {
      int sample = 0;
      std::memcpy(&sample, fb.data + 4 * k, 4);
      wrong += sample != next++;
    }
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
  long Process() override {
    FrameBuffer& out = Out();
    out.samples = out.samplesPerFrame;
    for (long k = 0; k < out.samples; ++k) reinterpret_cast<int*>(out.data)[k] = static_cast<int>(next + k);
    return Meet(out), FRAME_DONE;
  }
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
  static Description Describe() { return Description("join", "").Inputs(1, 2, vorn::Port("in")).Output(vorn::Port("out")); }
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
  long Process() override {
    if (next == 0) std::memcpy(&from, In().data, sizeof from), next = from;
    return Meet(In()), FRAME_DONE;
  }
  int from = 0;
};

/** Without the kit, in the place of any of these. It moves a frame in every `pace`-th cycle, and waits until it can. */
struct Plain : Block, Counts {
  Plain(bool isFirst, bool isLast, int newPace = 1) : Block(isFirst, isLast), pace(newPace) {}
  int Start() override { return ++starts, 0; }
  int Stop() override { return ++stops, 0; }
  long ProcessFrame() override {
    FrameBuffer* const in = IsFirst() ? nullptr : InEp(0).FB();
    FrameBuffer* const out = IsLast() ? nullptr : OutEp(0).FB();
    if (++cycles % pace != 0 || (in && in->samples == 0) || (out && out->samples != 0)) return FRAME_DONE;
    if (out) out->samples = in ? in->samples : 3;
    if (in && out) std::memcpy(out->data, in->data, 4 * static_cast<std::size_t>(in->samples));
    if (!in) for (int k = 0; k < 3; ++k) reinterpret_cast<int*>(out->data)[k] = static_cast<int>(next + k);
    if (!in || !out) Meet(in ? *in : *out);
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
        return new T({isFirst, isLast, NO_TEXTS, T::Describe()}, args...);
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
                   std::to_string(link->SinkEp()->FB()->samplesPerFrame));
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
    edit.NewLink(48000, SampleFormat::S32_LE, 1, 4, middle, 0, sink, 0);
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
      [&] { return std::pair(insert(REFUSES_LINK), "probe_3 refuses input 0 (lnk_2): input 0: got"); },
      [&] { return std::pair(insert(FAILS_START), "probe_3 does not start: no device"); },
      [&] { return std::pair(insert(THROWS_AT_START), "probe_3 does not start: tired"); },
      [&] { return std::pair(insert(STARTS_LATER), "probe_3 has not started yet (1)"); },
      [&] { return std::pair(insert(GROWS_AND_FAILS), "probe_3 does not start: no device"); },
      [&] { return std::pair(route->Insert("lnk_1", PROBE, Of<Sink>()), "probe_3 refuses output 0"); },
      [&] { return std::pair(route->Replace(middle, "libstartfails.so", {}), "startfails_0 does not start: it answered -7"); },
      [&] { return std::pair(route->Remove(sink), "incomplete: probe_1 has no output linked"); },
      [&] { return std::pair(route->Remove("lnk_0"), "RouteA has no block 'lnk_0'"); },
      [&] { return std::pair(set("5", "color", "1"), "probe_1 has no parameter 'color', expected size"); },
      [&] { return std::pair(set("5", "3", "10"), "parameter 'size'"); },
      [&] { return std::pair(late(), "probe_1: output 0 is linked already"); },
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

}  // namespace
