// Blocks that compute samples: tone, mix, convert.
#include <gtest/gtest.h>

#include <numbers>
#include <thread>

#include "testkit/Samples.h"
#include "testkit/TestGraph.h"

namespace {

using testkit::Decoded, testkit::Encoded, testkit::Graph, testkit::StreamSpec;
using vorn::SampleFormat;
using Levels = std::vector<double>;  // full scale is -1 to 1
constexpr double TURN = 2 * std::numbers::pi;

// What a tone of 48000 Hz plays.
Levels Tone(const std::vector<std::string>& args, unsigned channels = 1, long frame = 480) {
  const StreamSpec spec = testkit::Floats(48000, channels, frame);
  Graph graph;
  vorn::Block* sink = graph.Record(graph.Add("tone", args), 0, spec);
  EXPECT_TRUE(graph.Run());
  return Decoded(spec.format, Graph::Recorded(sink));
}

// What becomes of one frame between two formats, in every run.
Levels Converted(const std::vector<std::string>& args, SampleFormat from, SampleFormat to, const Levels& levels) {
  const StreamSpec before{48000, from, 1, static_cast<long>(levels.size())};
  const StreamSpec after{48000, to, 1, before.frame};
  Graph graph;
  vorn::Block* convert = graph.Add("convert", args);
  graph.Feed(convert, 0, Encoded(from, levels), before);
  vorn::Block* sink = graph.Record(convert, 0, after);
  EXPECT_TRUE(graph.Run());
  const Levels converted = Decoded(to, Graph::Recorded(sink));
  Graph::FramesOf(sink).clear();
  EXPECT_TRUE(graph.Run());
  EXPECT_EQ(Decoded(to, Graph::Recorded(sink)), converted);
  return converted;
}

double Rms(const Levels& x) {
  return std::sqrt(std::inner_product(x.begin(), x.end(), x.begin(), 0.0) / static_cast<double>(x.size()));
}

// In dB, over the means of so many samples each.
double Loudness(const Levels& x, std::size_t together = 1) {
  Levels means;
  for (auto at = x.begin(); x.end() - at >= static_cast<long>(together); at += static_cast<long>(together)) {
    means.push_back(std::accumulate(at, at + static_cast<long>(together), 0.0) / static_cast<double>(together));
  }
  return 20 * std::log10(Rms(means));
}

long Crossings(const Levels& x, std::size_t until) {
  long crossings = 0;
  for (std::size_t k = 1; k < until; ++k) crossings += (x[k] < 0) != (x[k - 1] < 0);
  return crossings;
}

// Red if frequency, level, length or phase are off, or the frame size shows.
TEST(Tone, PlaysSineAndSquareByTheFormula) {
  const Levels sine = Tone({"sine", "997", "-6", "samples=4801"}, 2, 7);
  ASSERT_EQ(sine.size(), 2 * 4801U);
  for (std::size_t k = 0; k < sine.size(); ++k) {
    const double instant = static_cast<double>(k / 2) / 48000;
    ASSERT_NEAR(sine[k], std::pow(10, -0.3) * std::sin(TURN * 997 * instant), 1e-7) << k;
  }
  EXPECT_EQ(Tone({"square", "12000", "0", "length=0.000125"}), (Levels{1, 1, -1, -1, 1, 1}));
}

// Red if the sweep is not logarithmic, misses its ends, or clicks where it starts over.
TEST(Tone, SweepsEvenlyOnAMusicalScale) {
  const Levels sweep = Tone({"sweep", "from=20", "to=2000", "time=1", "level=0", "length=2"});
  const double turns = (2000 - 20) / std::log(100);
  EXPECT_NEAR(Crossings(sweep, 24000), 2 * turns / 11, 1);  // halfway it has come to 200 Hz
  EXPECT_NEAR(Crossings(sweep, 48000), 2 * turns, 1);
  EXPECT_NEAR(Crossings(sweep, 96000), 4 * turns, 2);
  for (std::size_t k = 1; k < sweep.size(); ++k) ASSERT_LE(std::abs(sweep[k] - sweep[k - 1]), TURN * 2000 / 48000);
}

// Red if a level is not the RMS, a colour another one, a seed without effect, or if channels play the same.
TEST(Tone, PlaysNoiseOfItsLevelColourAndSeed) {
  // Means of 64 samples leave 1/64 of the power of white noise, and of pink the octaves below, about half of all.
  for (const auto& [wave, below] : {std::pair{"white", -18.06}, {"pink", -2.9}}) {
    const std::vector<std::string> args{wave, "level=-20", "samples=300001"};
    const Levels noise = Tone(args);
    EXPECT_NEAR(Loudness(noise), -20, 0.3) << wave;
    EXPECT_NEAR(Loudness(noise, 64) - Loudness(noise), below, 0.5) << wave;
    EXPECT_NE(noise, Tone({wave, "level=-20", "samples=300001", "seed=2"})) << wave;
    const Levels stereo = Tone(args, 2, 111);
    Levels sum;
    for (std::size_t k = 0; k < noise.size(); ++k) {
      ASSERT_EQ(stereo[2 * k], noise[k]);
      sum.push_back(stereo[2 * k] + stereo[2 * k + 1]);
    }
    EXPECT_NEAR(Loudness(sum), -17, 0.3) << wave;
  }
}

struct Change {
  std::size_t block;  // of tone, gain and mix
  unsigned id;
  std::vector<std::string> tone;
  const char* from;
  const char* to;
  double largestStep;
};

// Red if a change is heard as a click or takes more than one frame; or if it does not arrive.
TEST(Changes, AreReachedInOneFrameWithoutAStep) {
  const std::vector<std::string> constant{"square", "0", "0"};
  for (const Change& c :
       {Change{0, 2, constant, "0", "-40", 0.99 / 480}, Change{1, 0, constant, "0", "-40", 0.99 / 480},
        Change{2, 0, constant, "0", "-40", 0.99 / 480},
        Change{0, 1, {"sine", "130", "0"}, "130", "310", TURN * 310 / 48000}}) {
    Graph graph;
    const std::vector<vorn::Block*> blocks{graph.Add("tone", c.tone), graph.Add("gain"), graph.Add("mix"),
                                           graph.Add("testsink")};
    vorn::BlockCounters counters;
    blocks[3]->ioctl(vorn::KIT_ATTACH_COUNTERS, &counters);
    ASSERT_TRUE(graph.Chain(blocks, {48000, SampleFormat::FLOAT_LE, 1, 480}) && graph->Start() == 0);
    for (const char* value : {c.from, c.to, c.from, c.to, c.from, c.to}) {
      ASSERT_EQ(graph->SetParameter(blocks[c.block], c.id, {value}), 0);
      const std::uint64_t now = counters.frames;
      while (counters.frames < now + 2) std::this_thread::yield();  // ctest has the deadline
    }
    graph->Stop();
    const Levels x = Decoded(SampleFormat::FLOAT_LE, Graph::Recorded(blocks[3]));
    Levels steps;
    for (std::size_t k = 1; k < x.size(); ++k) steps.push_back(std::abs(x[k] - x[k - 1]));
    EXPECT_NEAR(*std::max_element(steps.begin(), steps.end()), c.largestStep, 1e-3 * c.largestStep) << c.block << c.id;
    EXPECT_NEAR(*std::max_element(steps.end() - 479, steps.end()), c.tone == constant ? 0 : c.largestStep, 1e-4);
  }
}

// Red if saturation and rounding are others, or samples go through numbers that do not carry them.
TEST(Convert, GivesTheNearestSample) {
  for (const SampleFormat from : testkit::FORMATS) {
    Levels levels = testkit::RandomNumbers(from, 1031);
    for (double& level : levels) level /= testkit::FullScale(from);
    for (const SampleFormat to : testkit::FORMATS) {
      EXPECT_EQ(Converted({vorn::FormatName(to)}, from, to, levels), Decoded(to, Encoded(to, levels)))
          << vorn::FormatName(from);
    }
  }
}

// Red if the noise is not triangular (its error then depends on the signal), biased, that of another seed, or added
// where no bit is lost.
TEST(Convert, DithersWhereBitsAreLost) {
  const double bit = 1 / testkit::FullScale(SampleFormat::S16_LE);
  const std::vector<std::string> args{"dither=tpdf"};
  for (const double part : {0.0, 0.25, 0.5}) {
    for (const auto& [from, to] : {std::pair{SampleFormat::FLOAT_LE, SampleFormat::S16_LE},
                                   {SampleFormat::S32_BE, SampleFormat::S16_LE},
                                   {SampleFormat::FLOAT_BE, SampleFormat::S16_BE}}) {
      Levels errors = Converted(args, from, to, Levels(100001, part * bit));
      for (double& error : errors) error = error / bit - part;
      EXPECT_NEAR(std::accumulate(errors.begin(), errors.end(), 0.0) / 100001, 0, 0.01) << part;
      EXPECT_NEAR(Rms(errors), 0.5, 0.01) << part;
    }
  }
  const Levels level(100, bit);
  for (const auto& [from, to] : {std::pair{SampleFormat::S16_LE, SampleFormat::S24_3BE},
                                 {SampleFormat::S16_LE, SampleFormat::S16_BE},
                                 {SampleFormat::FLOAT_LE, SampleFormat::FLOAT_BE}}) {
    EXPECT_EQ(Converted(args, from, to, level), level);
  }
  EXPECT_NE(Converted(args, SampleFormat::FLOAT_LE, SampleFormat::S16_LE, level),
            Converted({"dither=tpdf", "seed=2"}, SampleFormat::FLOAT_LE, SampleFormat::S16_LE, level));
}

}  // namespace
