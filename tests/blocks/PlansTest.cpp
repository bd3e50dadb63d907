// What a host is told before there is a block: the streams that leave it, or in one line why it cannot be.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "testkit/BlockInfo.h"

namespace {

using Streams = std::vector<vorn::Stream>;

const std::map<std::string, vorn::Stream> STREAMS = {{"link", {1}},
                                                     {"mono", {1, 48000, 1, 1, 480, 1000}},
                                                     {"longer", {1, 48000, 1, 1, 480, 3000}},
                                                     {"endless", {1, 48000, 1, 1, 480, -1}},
                                                     {"stereo", {1, 48000, 1, 2, 480, 1000}},
                                                     {"nine", {1, 48000, 1, 9, 480, -1}},
                                                     {"foreign", {1, 44100, 1, 1, 441, 1000}},
                                                     {"slow", {1, 16000, 1, 1, 480, 1000}}};

const std::string SWH = "http://plugin.org.uk/swh-plugins/";

struct Case {
  std::string line;      // the block and its arguments | the streams that come > those of the outputs; ~ is a blank
  std::string expected;  // the streams that leave, separated by a semicolon, or the error
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.line; }

const Case CASES[] = {
    {"tone rate=16000 format=S24_3LE channels=3 frame=160 length=0.5 | > link",
     "rate=16000 format=S24_3LE channels=3 frame=160 length=8000"},
    {"tone channels=3 | > stereo", "output 0: got 2 channels, takes 3 channels; put 'remap' after it"},
    {"tone sine 9000 | > slow", "'frequency': got 9000 Hz, takes at most 8000 Hz, half the rate"},
    {"reframe 160 | stereo > link", "rate=48000 format=S16_LE channels=2 frame=160 length=1000"},
    {"reframe 160 | mono > mono", "output 0: got 480 samples a frame, takes 160; put 'reframe' after it"},
    {"convert FLOAT_BE | mono > link", "rate=48000 format=FLOAT_BE channels=1 frame=480 length=1000"},
    {"convert S8 | mono > link", "argument 'format': got 'S8', takes one of: " + vorn::FormatNames(vorn::ALL_FORMATS)},
    {"gain | mono mono > link", "input 1: no such endpoint; takes 1 input"},
    {"gain | > link", "0 inputs linked, takes 1"},
    {"gain | mono > stereo", "output 0: got 2 channels, takes 1 channel as input 0; put 'remap' after it"},
    {"mix | mono stereo > link", "input 1: got 2 channels, takes 1 channel as input 0; put 'remap' before it"},
    {"mix | mono longer > link", "rate=48000 format=S16_LE channels=1 frame=480 length=3000"},
    {"mix | mono endless > link", "rate=48000 format=S16_LE channels=1 frame=480"},
    {"delay 100 | mono > link", "rate=48000 format=S16_LE channels=1 frame=480 length=5800"},
    {"delay | mono > link", "takes either a time in ms or samples="},
    {"remap 0,0/0 | mono > link link",
     "rate=48000 format=S16_LE channels=2 frame=480 length=1000; rate=48000 format=S16_LE channels=1 frame=480 "
     "length=1000"},
    {"remap 1:0 | mono > link", "input 1: is not linked, and the map takes channels of it"},
    {"remap 3 | stereo > link", "input 0: got 2 channels, takes 4 channels or more for this map"},
    {"remap 0 | stereo > stereo", "output 0: got 2 channels, takes 1 channel for this map"},
    {"remap 0 | stereo > link link", "output 1: takes no link, as the map ends with output 0"},
    {"remap 0,1 | stereo slow > link", "input 1: got 16000 Hz, takes 48000 Hz as input 0; put 'resample' before it"},
    {"remap 0,x | mono > link", "map '0,x': expected a channel, 0 to 4095, at 'x'"},
    {"remap 32:0 | mono > link", "map '32:0': expected an input, 0 to 31, at '32:0'"},
    {"remap 0* | mono > link", "map '0*': expected a factor, such as 0.5 or -6dB, at the end"},
    {"voice | stereo mono > mono", "rate=48000 format=S16_LE channels=1 frame=480 length=1000"},
    {"voice | foreign > link", "input 0: got 44100 Hz, takes 8000, 16000, 32000 or 48000 Hz; put 'resample' before it"},
    {"voice | mono > stereo", "output 0: got 2 channels, takes 1 channel, or 1 as input 0; put 'remap' after it"},
    {"lv2 " + SWH + "amp | stereo > link", "rate=48000 format=S16_LE channels=2 frame=480 length=1000"},
    {"lv2 " + SWH + "sinCos | > link", "channels=2"},
    {"lv2 " + SWH + "sinCos | mono > link", "input 0: got 1 channel, but " + SWH + "sinCos has no audio port for it"},
    {"lv2 " + SWH + "sc3 | mono > link",
     "input 0: got 1 channel, takes 2 channels as " + SWH + "sc3 does; put 'remap' before it"},
    {"lv2 " + SWH + "sc3 | stereo stereo > link",
     "input 1: got 2 channels, takes 1 channel as " + SWH + "sc3 does; put 'remap' before it"},
    {"lv2 " + SWH + "sc3 | stereo > mono",
     "output 0: got 1 channel, takes 2 channels as " + SWH + "sc3 does; put 'remap' after it"},
    {"filesink x.txt | link >",
     "x.txt: 'txt' is no kind of sound file; takes wav, flac, ogg and others, or container="},
    {"filesink x container=flac | nine >",
     "input 0: got rate=48000 format=S16_LE channels=9 frame=480, x takes up to 8 channels; put a 'remap' before it"},
    {"filesink x.wav | mono >", ""},
    {"remap 0~1 | mono > link", "map '0 1': expected one of , / + - * .. or the end at '1'"},
};

class Plans : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(, Plans, testing::ValuesIn(CASES));

// Red if a plan is another stream than the block makes, what does not fit is planned, or the line does not say why.
TEST_P(Plans, AreStreamsOrOneLineThatSaysWhatIsWrong) {
  std::istringstream line(GetParam().line);
  std::vector<std::string> texts;
  for (std::string text; line >> text && text != "|"; texts.push_back(text)) std::ranges::replace(text, '~', ' ');
  Streams in, out;
  for (std::string text; line >> text && text != ">";) in.push_back(STREAMS.at(text));
  for (std::string text; line >> text;) out.push_back(STREAMS.at(text));
  const vorn::BlockInfo* info = testkit::InfoOf(texts[0]);
  if (info == nullptr) GTEST_SKIP();
  std::vector<const char*> args;
  for (const std::string& text : texts) args.push_back(text.c_str());
  vorn::PlanRefusal refusal{};
  const int ret =
      info->planStreams(args.data() + 1, args.size() - 1, in.data(), in.size(), out.data(), out.size(), &refusal);
  std::string planned = refusal.text;
  for (const vorn::Stream& stream : out) {
    if (ret == 0) planned += (planned.empty() ? "" : "; ") + StreamText(stream);
  }
  EXPECT_EQ(planned, GetParam().expected);
  EXPECT_EQ(ret == 0, refusal.kind == vorn::About::NOTHING);
  // Where the line begins with an endpoint or an argument, the fields name the same one.
  const std::string label = planned.substr(0, planned.find(": "));
  if (std::regex_match(label, std::regex("(input|output|argument) .*"))) {
    EXPECT_EQ(vorn::LabelOf(refusal.kind, refusal.index, refusal.name), label);
  }
}

}  // namespace
