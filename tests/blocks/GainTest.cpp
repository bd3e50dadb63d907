#include <gtest/gtest.h>

#include "testkit/Samples.h"
#include "testkit/TestGraph.h"

namespace {

using testkit::Graph;
using testkit::StreamSpec;
using vorn::SampleFormat;

class Gain : public testing::TestWithParam<SampleFormat> {
 protected:
  const SampleFormat format = GetParam();
  const StreamSpec spec{48000, format, 3, 480};
  Graph graph;

  // What comes out for these bytes. `now` is set between the start and the first frame.
  std::vector<std::uint8_t> Play(const std::vector<std::uint8_t>& bytes, const std::string& gain,
                                 const std::string& now = "") {
    graph->DeleteAll();
    vorn::Block* block = graph.Add("gain", {gain});
    graph.Feed(block, 0, bytes, spec);
    vorn::Block* sink = graph.Record(block, 0, spec);
    EXPECT_TRUE(now.empty() ? graph.Run() : graph.RunAfterSetting(block, 0, now));
    return Graph::Recorded(sink);
  }
};
INSTANTIATE_TEST_SUITE_P(, Gain, testing::ValuesIn(testkit::FORMATS),
                         [](const auto& format) { return std::string(vorn::FormatName(format.param)); });

// Red if an add wraps, a byte order is mistaken, or a product is rounded anything but to the nearest.
TEST_P(Gain, IsTheNearestSampleToTheProduct) {
  const std::vector<double> numbers = testkit::RandomNumbers(format, 3 * 5001);
  const auto bytes = testkit::Bytes(format, numbers);
  for (const double dB : {-6.0, -0.1, 3.5, 20.0, 60.0, -200.0}) {
    const auto scaled = testkit::Numbers(format, Play(bytes, vorn::NumberText(dB)));
    ASSERT_EQ(scaled.size(), numbers.size());
    const double factor = std::pow(10, dB / 20);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      ASSERT_EQ(scaled[i], testkit::Nearest(format, numbers[i] * factor)) << numbers[i] << " at " << dB << " dB";
    }
  }
  EXPECT_EQ(Play(bytes, "-inf"), std::vector<std::uint8_t>(bytes.size()));
}

// Red if 0 dB is an arithmetic that changes a bit; these are all the bytes there are, and NaNs among the floats.
TEST_P(Gain, ZeroIsBitExact) {
  std::vector<std::uint8_t> bytes(36 * 1001);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 37 + i / 256);
  EXPECT_EQ(Play(bytes, "0"), bytes);
}

// Red if a new gain jumps, takes longer than the frame, or differs between channels.
TEST_P(Gain, AChangeIsOneStraightFrame) {
  const double level = testkit::Nearest(format, 0.75 * testkit::FullScale(format));
  const auto out =
      testkit::Numbers(format, Play(testkit::Bytes(format, std::vector<double>(3 * 960, level)), "0", "-20"));
  for (std::size_t i = 0; i < out.size(); ++i) {
    const double progress = std::min(1.0, static_cast<double>(i / 3 + 1) / 480);
    ASSERT_NEAR(out[i], level * (1 - 0.9 * progress), testkit::IsFloat(format) ? 1e-6 : 0.501) << i;
  }
}

}  // namespace
