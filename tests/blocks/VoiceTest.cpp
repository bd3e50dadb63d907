// What voice does to a voice, an echo and a tone that is switched about.
#include <gtest/gtest.h>
#include <sndfile.h>

#include "../../blocks/voice/VoiceProcessor.h"
#include "testkit/TestGraph.h"

namespace {

using testkit::Floats, testkit::Graph, testkit::StreamSpec;
using Samples = std::vector<float>;
constexpr unsigned RATE = 16000;

// How alike two sounds are in between; their energy, where they are the same.
double Product(const Samples& x, const Samples& y, std::size_t from, std::size_t to, int lag = 0) {
  double product = 0;
  for (std::size_t i = from; i < to; ++i) product += static_cast<double>(x[i] * y[i + static_cast<std::size_t>(lag)]);
  return product;
}

// The spoken names of eight loudspeakers, one after the other, at RATE.
Samples Recording() {
  Samples x;
  for (const char* name : {"Front_Center", "Front_Left", "Front_Right", "Rear_Center", "Rear_Left", "Rear_Right",
                           "Side_Left", "Side_Right"}) {
    SF_INFO info{};
    SNDFILE* file = sf_open((std::string("/usr/share/sounds/alsa/") + name + ".wav").c_str(), SFM_READ, &info);
    if (file == nullptr || info.samplerate != 48000 || info.channels != 1) throw std::runtime_error("needs alsa-utils");
    Samples all(static_cast<std::size_t>(info.frames));
    sf_readf_float(file, all.data(), info.frames);
    sf_close(file);
    for (std::size_t i = 0; i + 2 < all.size(); i += 3) x.push_back((all[i] + all[i + 1] + all[i + 2]) / 6);
  }
  return x;
}

// What a microphone hears of it in a room: some milliseconds later, then from the walls for a tenth of a second.
Samples EchoOf(const Samples& x, double late) {
  Samples echo(x.size());
  for (const double ms : {0.0, 3.1, 7.7, 14.9, 22.3, 31.7, 44.3, 58.9, 73.7, 91.1}) {
    const auto delay = static_cast<std::size_t>((late + ms) * RATE / 1000);
    const auto level = static_cast<float>(0.5 * std::exp(-ms / 25) * (delay % 2 ? 1 : -1));
    for (std::size_t i = delay; i < x.size(); ++i) echo[i] += level * x[i - delay];
  }
  return echo;
}

class VoiceTest : public testing::Test {
 protected:
  Samples Run(const StreamSpec& in, const StreamSpec& out, const std::vector<std::string>& args, const Samples& near,
              const Samples& far = {}) {
    graph->DeleteAll();
    voice = graph.Add("voice", args);
    graph.Feed(voice, 0, near, in);
    if (!far.empty()) graph.Feed(voice, 1, far, in);
    vorn::Block* sink = graph.Record(voice, 0, out);
    EXPECT_EQ(graph.Run(), testkit::END_OF_FILE);
    return Graph::RecordedFloats(sink);
  }
  Graph graph;
  vorn::Block* voice = nullptr;  // of the last run
};

// Red if a sample is lost, doubled or moved, at either end, or if channels change places.
TEST_F(VoiceTest, KeepsEverySampleInItsPlace) {
  const std::vector<std::string> off{"echo=no", "noise=no", "activity=no"};
  const Samples speech = Recording();
  for (const unsigned rate : {8000U, 16000U, 32000U, 48000U}) {
    for (const long frame : {rate / 100L, 333L, 7L}) {
      const Samples odd(speech.begin(), speech.begin() + 2 * frame * 50 + 2);
      EXPECT_EQ(Run(Floats(rate, 2, frame), Floats(rate, 2, frame + 1), off, odd), odd) << rate << " " << frame;
    }
    const Samples heard(speech.begin(), speech.begin() + 80001);
    for (const auto& [echo, noise, gain] : {std::tuple{"echo=yes", "noise=yes", "gain=yes"},
                                            {"echo=yes", "noise=no", "gain=no"},
                                            {"echo=no", "noise=yes", "gain=no"},
                                            {"echo=no", "noise=no", "gain=yes"}}) {
      const Samples clean =
          Run(Floats(rate, 1, 480), Floats(rate, 1, 480), {echo, noise, gain}, heard, Samples(heard.size()));
      ASSERT_EQ(clean.size(), heard.size());
      std::pair<double, double> best{-1, 0};  // how alike, and how late
      for (int lag = -100; lag <= 100; ++lag) best = std::max(best, {Product(heard, clean, 40000, 79900, lag), lag});
      EXPECT_NEAR(best.second, 0, rate / 16000.0) << rate << echo << noise << gain;
    }
  }
}

// Red if the reference, a delay that is told, or a switch does not reach the processor in time, or if the voice goes
// with the echo.
TEST_F(VoiceTest, CancelsTheEchoOfARecordingAndLeavesTheVoice) {
  const Samples speech = Recording();
  Samples far = speech;  // twice, to learn the room the first time; then the near end speaks
  far.insert(far.end(), speech.begin(), speech.end());
  const std::size_t learnt = speech.size();
  const std::size_t answer = far.size() + RATE;
  far.resize(answer + speech.size());
  const StreamSpec stream = Floats(RATE, 1, 441);
  for (const auto& [late, delay] : {std::pair{30, "echo=yes"}, {230, "delay=200"}}) {
    const Samples echo = EchoOf(far, late);
    Samples heard = echo;
    for (std::size_t i = 0; i < speech.size(); ++i) heard[answer + i] += speech[speech.size() - 1 - i];
    const Samples clean = Run(stream, stream, {"noise=no", delay}, heard, far);
    ASSERT_EQ(clean.size(), heard.size());
    const double removed = 10 * std::log10(Product(echo, echo, learnt, answer) / Product(clean, clean, learnt, answer));
    EXPECT_GT(removed, 40) << delay;
    const std::size_t end = heard.size();
    EXPECT_NEAR(Product(heard, clean, answer, end) / Product(heard, heard, answer, end), 1, 0.1) << delay;
    auto numbers = graph.Numbers(voice);
    EXPECT_GT(numbers["echo-reduction"], 20);
    EXPECT_EQ(numbers["voice"], 1);
    EXPECT_NEAR(numbers["input-level"], numbers["output-level"], 1);
  }
  EXPECT_EQ(graph.RunAfterSetting(voice, 3, "no"), testkit::END_OF_FILE);
  EXPECT_EQ(graph.Numbers(voice)["voice"], 0);
}

// Red if anything that is switched or set starts or stops at once, or leaves a gap.
TEST(VoiceProcessorTest, ChangesWithoutAClick) {
  VoiceSettings settings;
  VoiceProcessor processor(48000, 1, 1, 1, settings);
  VoiceChunk near(1, 480);
  VoiceChunk far(1, 480);
  VoiceChunk clean(1, 480);
  const double step = 2 * M_PI * 300 / 48000;
  double phase = 0;
  float last[2] = {};
  float sharpest = 0;
  for (int i = 0; i < 900; ++i) {
    if (i % 30 == 10) {
      bool* const flags[] = {&settings.echo, &settings.noise, &settings.gain, &settings.activity, &settings.highPass};
      if (i < 600) *flags[i / 30 % 5] = !*flags[i / 30 % 5];
      settings.noiseStrength = i / 30 % 4;
      settings.echoStrength = i / 30 % 3;
      settings.mostGain = i / 30 % 3 * 6;
      processor.Change(settings);
    }
    for (std::size_t k = 0; k < 480; ++k) near.Channels()[0][k] = static_cast<float>(0.1 * std::sin(phase += step));
    processor.Run(near, far, clean);
    for (std::size_t k = 0; k < 480; ++k) {
      const float now = clean.Channels()[0][k];
      if (i > 5) sharpest = std::max(sharpest, std::fabs(now - 2 * last[1] + last[0]));
      last[0] = std::exchange(last[1], now);
    }
  }
  // A tone that is four times as loud, and what the library's filters leave; a gap of a thirtieth would be as sharp.
  EXPECT_LT(sharpest, 20 * 0.1 * step * step);
}

}  // namespace
