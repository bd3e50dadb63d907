// What a host is told before there is a block: the streams that leave it, or in one line why it cannot be.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <sstream>

#include "testkit/BlockInfo.h"

namespace {

using Streams = std::vector<vorn::Stream>;

constexpr vorn::Stream LINK{1};
constexpr vorn::Stream MONO{1, 48000, 1, 1, 480, 1000};
constexpr vorn::Stream LONGER{1, 48000, 1, 1, 480, 3000};
constexpr vorn::Stream ENDLESS{1, 48000, 1, 1, 480, -1};
constexpr vorn::Stream STEREO{1, 48000, 1, 2, 480, 1000};
constexpr vorn::Stream FOREIGN{1, 44100, 1, 1, 441, 1000};
constexpr vorn::Stream SLOW{1, 16000, 1, 1, 480, 1000};

const std::string SWH = "http://plugin.org.uk/swh-plugins/";

struct Case {
  std::string line;  // the block and its arguments; ~ is a blank in one
  Streams in;
  Streams out;
  std::string expected;  // the streams that leave, separated by a semicolon, or the error
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.line; }

const Case CASES[] = {
    {"tone rate=16000 format=S24_3LE channels=3 frame=160 length=0.5",
     {},
     {LINK},
     "rate=16000 format=S24_3LE channels=3 frame=160 length=8000"},
    {"tone channels=3", {}, {STEREO}, "output 0: got 2 channels, takes 3 channels; put 'remap' after it"},
    {"tone sine 9000", {}, {SLOW}, "'frequency': got 9000 Hz, takes at most 8000 Hz, half the rate"},
    {"reframe 160", {STEREO}, {LINK}, "rate=48000 format=S16_LE channels=2 frame=160 length=1000"},
    {"reframe 160", {MONO}, {MONO}, "output 0: got 480 samples a frame, takes 160; put 'reframe' after it"},
    {"convert FLOAT_BE", {MONO}, {LINK}, "rate=48000 format=FLOAT_BE channels=1 frame=480 length=1000"},
    {"convert S8",
     {MONO},
     {LINK},
     "argument 'format': got 'S8', takes one of: " + vorn::FormatNames(vorn::ALL_FORMATS)},
    {"gain", {MONO, MONO}, {LINK}, "input 1: no such endpoint; takes 1 input"},
    {"gain", {}, {LINK}, "0 inputs linked, takes 1"},
    {"gain", {MONO}, {STEREO}, "output 0: got 2 channels, takes 1 channel as input 0; put 'remap' after it"},
    {"mix", {MONO, STEREO}, {LINK}, "input 1: got 2 channels, takes 1 channel as input 0; put 'remap' before it"},
    {"mix", {MONO, LONGER}, {LINK}, "rate=48000 format=S16_LE channels=1 frame=480 length=3000"},
    {"mix", {MONO, ENDLESS}, {LINK}, "rate=48000 format=S16_LE channels=1 frame=480"},
    {"delay 100", {MONO}, {LINK}, "rate=48000 format=S16_LE channels=1 frame=480 length=5800"},
    {"delay", {MONO}, {LINK}, "takes either a time in ms or samples="},
    {"remap 0,0/0",
     {MONO},
     {LINK, LINK},
     "rate=48000 format=S16_LE channels=2 frame=480 length=1000; rate=48000 format=S16_LE channels=1 frame=480 "
     "length=1000"},
    {"remap 1:0", {MONO}, {LINK}, "input 1: is not linked, and the map takes channels of it"},
    {"remap 3", {STEREO}, {LINK}, "input 0: got 2 channels, takes 4 channels or more for this map"},
    {"remap 0", {STEREO}, {STEREO}, "output 0: got 2 channels, takes 1 channel for this map"},
    {"remap 0", {STEREO}, {LINK, LINK}, "output 1: takes no link, as the map ends with output 0"},
    {"remap 0,1", {STEREO, SLOW}, {LINK}, "input 1: got 16000 Hz, takes 48000 Hz as input 0; put 'resample' before it"},
    {"remap 0,x", {MONO}, {LINK}, "map '0,x': expected a channel, 0 to 4095, at 'x'"},
    {"remap 32:0", {MONO}, {LINK}, "map '32:0': expected an input, 0 to 31, at '32:0'"},
    {"remap 0*", {MONO}, {LINK}, "map '0*': expected a factor, such as 0.5 or -6dB, at the end"},
    {"voice", {STEREO, MONO}, {MONO}, "rate=48000 format=S16_LE channels=1 frame=480 length=1000"},
    {"voice",
     {FOREIGN},
     {LINK},
     "input 0: got 44100 Hz, takes 8000, 16000, 32000 or 48000 Hz; put 'resample' before it"},
    {"voice", {MONO}, {STEREO}, "output 0: got 2 channels, takes 1 channel, or 1 as input 0; put 'remap' after it"},
    {"lv2 " + SWH + "amp", {STEREO}, {LINK}, "rate=48000 format=S16_LE channels=2 frame=480 length=1000"},
    {"lv2 " + SWH + "sinCos", {}, {LINK}, "channels=2"},
    {"lv2 " + SWH + "sinCos", {MONO}, {LINK}, "input 0: got 1 channel, but " + SWH + "sinCos has no audio port for it"},
    {"lv2 " + SWH + "sc3",
     {MONO},
     {LINK},
     "input 0: got 1 channel, takes 2 channels as " + SWH + "sc3 does; put 'remap' before it"},
    {"lv2 " + SWH + "sc3",
     {STEREO, STEREO},
     {LINK},
     "input 1: got 2 channels, takes 1 channel as " + SWH + "sc3 does; put 'remap' before it"},
    {"lv2 " + SWH + "sc3",
     {STEREO},
     {MONO},
     "output 0: got 1 channel, takes 2 channels as " + SWH + "sc3 does; put 'remap' after it"},
    {"filesink x.txt",
     {LINK},
     {},
     "x.txt: 'txt' is no kind of sound file; takes wav, flac, ogg and others, or container="},
    {"filesink x container=flac",
     {{1, 48000, 1, 9, 480, -1}},
     {},
     "input 0: got rate=48000 format=S16_LE channels=9 frame=480, x takes up to 8 channels; put a 'remap' before it"},
    {"filesink x.wav", {MONO}, {}, ""},
    {"remap 0~1", {MONO}, {LINK}, "map '0 1': expected one of , / + - * .. or the end at '1'"},
};

class Plans : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(, Plans, testing::ValuesIn(CASES));

// Red if a plan is another stream than the block makes, what does not fit is planned, or the line does not say why.
TEST_P(Plans, AreStreamsOrOneLineThatSaysWhatIsWrong) {
  const Case& c = GetParam();
  std::istringstream words(c.line);
  std::vector<std::string> texts{std::istream_iterator<std::string>(words), {}};
  const vorn::BlockInfo* info = testkit::InfoOf(texts[0]);
  if (info == nullptr) GTEST_SKIP();
  std::vector<const char*> args;
  for (std::string& text : texts) {
    std::ranges::replace(text, '~', ' ');
    args.push_back(text.c_str());
  }
  Streams out = c.out;
  vorn::PlanRefusal refusal{};
  const int ret =
      info->planStreams(args.data() + 1, args.size() - 1, c.in.data(), c.in.size(), out.data(), out.size(), &refusal);
  std::string planned = refusal.text;
  for (const vorn::Stream& stream : out) {
    if (ret == 0) planned += (planned.empty() ? "" : "; ") + StreamText(stream);
  }
  EXPECT_EQ(planned, c.expected);
  EXPECT_EQ(ret == 0, refusal.kind == vorn::About::NOTHING);
  // Where the line begins with an endpoint or an argument, the fields name the same one.
  const std::string label = planned.substr(0, planned.find(": "));
  if (std::regex_match(label, std::regex("(input|output|argument) .*"))) {
    EXPECT_EQ(vorn::LabelOf(refusal.kind, refusal.index, refusal.name), label);
  }
}

}  // namespace
