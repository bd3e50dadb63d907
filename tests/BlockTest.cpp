// Blocks and links without a route: endpoints, hooks, frames and dumps.
#include "testkit/RouteTest.h"

struct Named : Probe {
  explicit Named(const char* newName) : Probe(false, false, "") { SetName("RouteA", newName, &dumpFolder); }
  int OnInEpLinked(unsigned long) override { return Tell("linked to ", ActiveInEps().size()), linkResult; }
  void OnOutEpUnlinked(unsigned long) override { Tell("left with ", ActiveOutEps().size()); }
  void Tell(const char* what, std::size_t active) const { Log::Add(what + std::to_string(active)); }
  std::string dumpFolder;
};

struct BlockTest : testing::Test {
  BlockTest() { Log::Keep("EWID"); }
  Named source{"a"}, sink{"b"};
  OutputEndpoint& out = source.OutEp(9);
  InputEndpoint& in = sink.InEp(31);
  FrameBuffer &sent = *out.FB(), &seen = *in.FB();
  Link other{"RouteA", "lnk_1", 8000, SampleFormat{9}, 1, 1};
};

// Red if an endpoint starts otherwise, one input makes ready, all outputs must be empty, or a reset leaves a side.
TEST_F(BlockTest, IsReadyWithAllInputsAndEmptyWithOneOutput) {
  EXPECT_TRUE(Endpoint().Index() == 32 && in.Index() == 31 && !in.IsActive() && !seen.data && seen.timestamp == -1);
  EXPECT_TRUE(sink.ActiveInEpsDataIsReady() && !sink.ActiveOutEpsDataIsEmpty() && sink.ioctl(1, nullptr) == -20);
  for (unsigned long i : {5, 2}) sink.BaseOnInEpLinked(i), sink.BaseOnOutEpLinked(i);
  long &in5 = sink.InEp(5).FB()->samples, &in2 = sink.InEp(2).FB()->samples;
  long &out5 = sink.OutEp(5).FB()->samples, &out2 = sink.OutEp(2).FB()->samples;
  for (auto [five, two] : {std::pair{0, 0}, {0, 1}, {1, 0}, {1, -1}}) {
    in5 = out5 = five, in2 = out2 = two;
    EXPECT_TRUE(sink.ActiveInEpsDataIsReady() == (five && two) && sink.ActiveOutEpsDataIsEmpty() != (five && two));
  }
  sink.ClearActiveInEpsData();
  EXPECT_TRUE(in5 == 0 && in2 == 0 && out5 == 1 && out2 == -1);
  in2 = 1;
  sink.BaseReset();
  EXPECT_TRUE(in2 == 0 && out5 == 0 && out2 == 0);
}

// Red if an end is described otherwise, a line or its order changes, a hook comes early, or a refusal leaves anything.
TEST_F(BlockTest, IsLinkedAndUnlinked) {
  {
    Link link("RouteA", "lnk_0", 44100, SampleFormat::S24_3LE, 2, 480);
    sink.linkResult = -5;
    EXPECT_EQ(link.Connect(&out, &in), -5);
    source.linkResult = -6;
    EXPECT_EQ(link.Connect(&out, &in), -6);
    EXPECT_FALSE(out.IsActive() || in.IsActive() || source.ActiveOutEps().size() || sink.ActiveInEps().size());
    source.linkResult = sink.linkResult = 7;
    EXPECT_EQ(link.Connect(&out, &in), 0);
    EXPECT_TRUE(sent.data == seen.data && seen.format == SampleFormat::S24_3LE && seen.samplesPerFrame == 480);
    EXPECT_TRUE(seen.rate == 44100 && seen.channels == 2 && out.Peer() == &in && in.Peer() == &out);
    std::fill_n(seen.data, 2880, 1);  // all of it is there: the sanitizer looks
    EXPECT_EQ(other.Connect(&out, &sink.InEp(0)) + other.Connect(&source.OutEp(0), &in), -40);
    EXPECT_EQ(other.Connect(nullptr, &in) + other.Connect(&out, nullptr), -40);
    EXPECT_EQ(sink.BaseOnInEpLinked(31) + source.BaseOnOutEpLinked(9), -40);
  }
  EXPECT_EQ(Log::Take(),
            Lines("D ~a: Output endpoint 9 linked|linked to 1|E ~lnk_0: Failed to link to b's I31|"
                  "D ~a: Output endpoint 9 unlinked|left with 0|E ~lnk_0: Failed to link to a's O09|"
                  "D ~a: Output endpoint 9 linked|linked to 1|D ~b: Input endpoint 31 linked|"
                  "I ~lnk_0: Created a(O09) --> (I31)b|"
                  "E ~lnk_1: a's O09 has been already active|E ~lnk_1: b's I31 has been already active|"
                  "E ~b: Input endpoint 31 existed|E ~a: Output endpoint 9 existed|"
                  "D ~a: Output endpoint 9 unlinked|left with 0|D ~b: Input endpoint 31 unlinked|I ~lnk_0: Deleted"));
}

// Red if an end keeps old storage, new bytes are not zero, a format of no width copies, or a commit says more than is.
TEST_F(BlockTest, ResizesAndCommitsItsFrames) {
  Link link("RouteA", "lnk_0", 44100, SampleFormat::S24_3LE, 2, 4);
  EXPECT_EQ(link.Connect(&out, &in) + other.Connect(&source.OutEp(0), &sink.InEp(0)), 0);
  const std::string frame = "abcdefghijklmnopqrstuvwxyz0123";  // 5 samples
  const std::uint8_t* before = sent.data;
  out.Resize(4, frame.data(), 77);
  EXPECT_TRUE(sent.data == before && sent.samples == 4 && sent.timestamp == 77 && seen.samples == 0);
  out.Resize(50000);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(seen.data) % 64, 0U);
  EXPECT_TRUE(sent.data == seen.data && seen.samplesPerFrame == 50000 && sent.samples == 4 && sent.timestamp == 77);
  EXPECT_EQ(std::string(seen.data, seen.data + 300000), frame.substr(0, 24) + std::string(299976, '\0'));
  out.Resize(5, frame.data(), -1);
  EXPECT_EQ(std::string(seen.data, seen.data + 30), frame);
  source.OutEp(0).Resize(3, nullptr, 6);
  source.CommitFrame();
  sink.CommitFrame();  // with its inputs as they are
  EXPECT_TRUE(seen.samples == 5 && sink.InEp(0).FB()->samples == 3 && !source.ActiveOutEpsDataIsEmpty());
  out.Resize(0, frame.data(), 5);
  EXPECT_TRUE(sent.samples == 0 && sent.timestamp == 5 && seen.samplesPerFrame == 0);
}

// Red if an output's file holds another's frames, is named otherwise, is not whole once its block is gone, or an open
// one moves.
TEST_F(BlockTest, DumpsWhatItSends) {
  const Folder folder;
  Link wide("RouteA", "", 48000, SampleFormat::S24_3BE, 2, 1), thin("RouteA", "", 8000, SampleFormat::BYTE, 1, 3);
  EXPECT_EQ(wide.Connect(&source.OutEp(7), &in) + thin.Connect(&source.OutEp(31), &sink.InEp(0)), 0);
  const std::string names[] = {"RouteA-a-O07-48000Hz-S24_3BE-2ch.pcm", "RouteA-a-O31-8000Hz-BYTE-1ch.pcm"};
  const auto send = [&](const std::string& path, const std::string& sixes, const std::string& ones) {
    source.dumpFolder = path;
    source.OutEp(7).Resize(static_cast<long>(sixes.size()) / 6, sixes.data(), -1);
    source.OutEp(31).Resize(static_cast<long>(ones.size()), ones.data(), -1);
    source.CommitFrame();
  };
  const auto expectDumped = [&](const std::string& sixes, const std::string& ones) {
    source.CloseDump();
    EXPECT_EQ(Contents(folder / names[0]), sixes);
    EXPECT_EQ(Contents(folder / names[1]), ones);
  };
  send("", "abcdef", "a");
  EXPECT_TRUE(std::filesystem::is_empty(folder / ""));
  send(folder / "", "", "");
  for (const std::string& name : names) EXPECT_TRUE(std::filesystem::exists(folder / name));
  send("/nonexistent/", std::string(6000, 'b'), std::string(480, 'c'));
  send("/nonexistent/", "defghi", "");
  expectDumped(std::string(6000, 'b') + "defghi", std::string(480, 'c'));
  Log::Take();
  send("/nonexistent/", "abcdef", "a");
  const std::string error = "D ~a: Unable to open /nonexistent/", end = " to dump data";
  EXPECT_EQ(Log::Take(), Lines(error + names[0] + end + "|" + error + names[1] + end));
  send(folder / "", "jklmno", "p");
  thin.Disconnect();
  Link anew("RouteA", "", 16000, SampleFormat::BYTE, 1, 3);
  EXPECT_EQ(anew.Connect(&source.OutEp(31), &sink.InEp(0)), 0);
  send(folder / "", "", "qr");
  expectDumped("jklmno", "pqr");  // in the file of the link before
  {
    Named leaver("a");
    Link last("RouteA", "", 8000, SampleFormat::BYTE, 1, 3);
    EXPECT_EQ(last.Connect(&leaver.OutEp(31), &sink.InEp(1)), 0);
    leaver.dumpFolder = folder / "";
    leaver.OutEp(31).Resize(2, "cd", -1);
    leaver.CommitFrame();
  }
  EXPECT_EQ(Contents(folder / names[1]), "cd");
}
