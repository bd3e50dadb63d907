// What a block refuses, and how long it remembers.
#include <gtest/gtest.h>

#include <vorn/Plugin.h>

#include "testkit/LogFile.h"

namespace {

using vorn::Parameter;
using Texts = std::vector<std::string>;

// A source that refuses in every way there is.
class Fussy : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { LEVEL, NAME };

  static vorn::Description Describe() {
    return vorn::Description("fussy", "")
        .OptionalInput(vorn::Port("in"))
        .Output(vorn::Port("out").Channels(1, 2))
        .Takes(Parameter::Number(LEVEL, "level", "dB", -1, 1).Default(0).Live())
        .Takes(Parameter::Text(NAME, "name").Live());
  }

 protected:
  vorn::Refusal CheckStream(bool, std::size_t, const vorn::FrameBuffer& stream) const override {
    if (stream.rate >= 8000) return {};
    return vorn::Refusal("8000 Hz or more").Field("rate").Advice("put 'resample' after it");
  }
  int Prepare() override { return Text(NAME) == "closed" ? Refuse("the shop is closed") : 0; }
  void OnSet(unsigned) override {
    if (Text(NAME) == "nobody") throw std::invalid_argument("nobody is no name");
  }
  long Process() override { return Fail("the device is gone"); }
};

class Refusals : public testing::Test {
 protected:
  Refusals() { block->SetName("RouteA", "fussy_0", &dumpPath); }

  static long long Nanos() {
    using namespace std::chrono;
    return duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count();
  }

  // All but the time, which is after that of the refusal before.
  Texts Last() {
    Texts texts;
    EXPECT_EQ(block->GetParameter(vorn::PARAMETER_REFUSAL, texts), 0);
    if (texts.empty()) return texts;
    EXPECT_EQ(texts.size(), vorn::REFUSAL_TEXTS);
    EXPECT_TRUE(log.Has("RouteA: fussy_0: " + texts[vorn::REFUSAL_TEXT])) << texts[vorn::REFUSAL_TEXT];
    const long long nanos = std::stoll(texts[vorn::REFUSAL_NANOS]);
    EXPECT_GE(nanos, asked);
    EXPECT_LE(nanos, asked = Nanos());
    texts.resize(vorn::REFUSAL_NANOS);
    return texts;
  }

  int Link(std::uint32_t rate, std::uint32_t channels, bool input = false) {
    vorn::FrameBuffer& fb = *(input ? block->InEp(0).FB() : block->OutEp(0).FB());
    fb.rate = rate;
    fb.format = vorn::SampleFormat::S16_LE;
    fb.channels = channels;
    fb.samplesPerFrame = 480;
    return input ? block->BaseOnInEpLinked(0) : block->BaseOnOutEpLinked(0);
  }

  testkit::LogFile log;
  long long asked = Nanos();
  const std::string dumpPath;
  const std::unique_ptr<vorn::Block> block{vorn::CreatePluginBlock<Fussy>(true, true, {})};
};

// Red if a refusal is lost, not what the log tells, has not its own time or stays after a success, or a relink none.
TEST_F(Refusals, AreKeptUntilTheNextLinkOrStart) {
  EXPECT_EQ(Last(), Texts());
  EXPECT_EQ(Link(48000, 3), -20);
  EXPECT_EQ(Last(), (Texts{"4", "0", "", "channels", "3 channels", "1 to 2 channels", "put 'remap' after it",
                           "output 0: got 3 channels, takes 1 to 2 channels; put 'remap' after it"}));
  EXPECT_EQ(Link(4000, 1), -20);
  const std::string came = "rate=4000 format=S16_LE channels=1 frame=480";
  EXPECT_EQ(Last(), (Texts{"4", "0", "", "rate", came, "8000 Hz or more", "put 'resample' after it",
                           "output 0: got " + came + ", takes 8000 Hz or more; put 'resample' after it"}));
  EXPECT_EQ(Link(48000, 1), 0);
  EXPECT_EQ(Last(), Texts());

  EXPECT_EQ(block->SetParameter(Fussy::LEVEL, {"2"}), -20);
  EXPECT_EQ(Last(), (Texts{"5", "0", "level", "", "'2'", "a number from -1 to 1 dB", "",
                           "parameter 'level': got '2', takes a number from -1 to 1 dB"}));
  EXPECT_EQ(block->SetParameter(Fussy::NAME, {"nobody"}), -20);
  EXPECT_EQ(Last(), (Texts{"5", "0", "name", "", "", "", "", "nobody is no name"}));
  EXPECT_EQ(block->SetParameter(99, {"2"}), -20);
  EXPECT_EQ(Last(), (Texts{"5", "99", "", "", "", "", "", "parameter 99: unknown, or can only be read"}));

  EXPECT_EQ(block->SetParameter(Fussy::NAME, {"closed"}), 0);
  EXPECT_EQ(block->BaseStart(), -20);
  EXPECT_EQ(Last(), (Texts{"1", "0", "", "", "", "", "", "the shop is closed"}));
  EXPECT_EQ(block->SetParameter(Fussy::NAME, {"open"}), 0);
  EXPECT_EQ(Link(48000, 2, true), 0);
  EXPECT_EQ(block->BaseStart(), 0);
  EXPECT_EQ(Last(), Texts());
  block->BaseOnInEpUnlinked(0);
  EXPECT_EQ(Link(48000, 3, true), -20);  // it is prepared for two

  EXPECT_EQ(block->ProcessFrame(), vorn::FRAME_FAILED);
  EXPECT_EQ(Last(), (Texts{"1", "0", "", "", "", "", "", "the device is gone"}));
  EXPECT_EQ(block->SetParameter(vorn::PARAMETER_REFUSAL, {""}), -20);
}

// Red if two blocks can seem to have refused at once: the later one is the reason that a route ended.
TEST_F(Refusals, ComeOneAfterTheOther) {
  const int level = _tlogging_set_level(0);
  long long last = 0;
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(block->SetParameter(Fussy::LEVEL, {"2"}), -20);
    Texts texts;
    block->GetParameter(vorn::PARAMETER_REFUSAL, texts);
    const long long nanos = std::stoll(texts.at(vorn::REFUSAL_NANOS));
    EXPECT_GT(nanos, std::exchange(last, nanos));
  }
  _tlogging_set_level(level);
}

// Red if a plan writes beyond the texts that its host brings, or leaves one without an end.
TEST(PlanRefusal, IsCutToFit) {
  struct {
    vorn::PlanRefusal refusal;
    char behind = 'x';
  } memory;
  const std::string longText(2000, 'a');
  const char* arguments[] = {longText.c_str()};
  EXPECT_EQ(vorn::PlanPluginStreamsC<Fussy>(arguments, 1, nullptr, 0, nullptr, 0, &memory.refusal), -20);
  EXPECT_EQ(memory.refusal.kind, vorn::About::ARGUMENT);
  EXPECT_EQ(memory.refusal.name, longText.substr(0, sizeof memory.refusal.name - 1));
  EXPECT_EQ(memory.refusal.text, ("argument '" + longText).substr(0, sizeof memory.refusal.text - 1));
  EXPECT_EQ(memory.behind, 'x');
  EXPECT_EQ(vorn::PlanPluginStreamsC<Fussy>(arguments, 1, nullptr, 0, nullptr, 0, nullptr), -20);
}

}  // namespace
