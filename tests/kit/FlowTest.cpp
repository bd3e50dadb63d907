// What a block sends, takes and asks for in each cycle, without a route: frames go in and out by hand.
#include <gtest/gtest.h>

#include <array>
#include <set>
#include <vector>

#include <vorn/kit/Cycle.h>

namespace {

using vorn::Flow, vorn::Mark, vorn::Request;

// A block of one byte a sample that adds its inputs, or passes one on through a buffer of its own.
class Bench final : public vorn::FlowOwner {
 public:
  Bench(std::size_t inputs, std::size_t outputs, std::uint32_t foreignOutputs = 0) {
    std::vector<Flow::Port> ins;
    std::vector<Flow::Port> outs;
    for (std::size_t i = 0; i < inputs; ++i) ins.push_back({i, Describe(in[i], inBytes[i]), false, inputs > 1});
    for (std::size_t i = 0; i < outputs; ++i) {
      outs.push_back({i, Describe(out[i], outBytes[i]), (foreignOutputs >> i & 1U) != 0});
    }
    flow.Share(&board);
    flow.Link(ins, outs);
    flow.Start();
  }

  void Send(std::size_t input, const std::vector<std::uint8_t>& samples) {
    std::copy(samples.begin(), samples.end(), inBytes[input].begin());
    in[input].samples = static_cast<long>(samples.size());
    in[input].timestamp = -1;
  }
  void Send(std::size_t input, Mark mark) { SetMark(in[input], mark); }

  // Runs once, as the block behind sees it: what came is taken away again.
  long Run() {
    asked.clear();
    const long result = flow.Run();
    for (std::size_t i = 0; i < out.size(); ++i) {
      sent[i].assign(outBytes[i].begin(), outBytes[i].begin() + out[i].samples);
      marks[i] = MarkOf(out[i]);
      if (result != vorn::FRAME_PENDING) vorn::SetMark(out[i], Mark::NONE);
    }
    return result;
  }

  bool IsInterrupted() const override { return isInterrupted; }
  long Process() override {
    if (flow.Inputs().empty()) return Play();
    const long samples = flow.In(0).samples;
    for (long k = 0; k < samples; ++k) {
      int sum = 0;
      for (const Flow::Port& port : flow.Inputs()) sum += flow.In(port.index).data[k];
      held.push_back(static_cast<std::uint8_t>(sum));
    }
    return Drain(buffers == 0);
  }
  long Drain(bool atEnd) override {
    const std::size_t count = std::min<std::size_t>(FRAME, held.size());
    if (!atEnd && !HoldsFrame()) return vorn::FRAME_DONE;
    for (const Flow::Port& port : flow.Outputs()) {
      std::copy_n(held.begin(), count, port.fb->data);
      port.fb->samples = static_cast<long>(count);
    }
    held.erase(held.begin(), held.begin() + static_cast<long>(count));
    return vorn::FRAME_DONE;
  }
  bool HoldsSamples() const override { return !held.empty(); }
  bool HoldsFrame() const override { return buffers != 0 && held.size() >= buffers; }
  bool Drives(std::size_t input) const override { return input != reference; }
  int Ask(std::size_t input, Request request) override { return asked.insert({input, request}), 1; }
  bool MayArrive(std::size_t) const override { return mayArrive; }
  void Grow(std::size_t, long) override {}
  void OnOver() override { ++overs; }
  long FailFlow(const char*) override { return vorn::FRAME_FAILED; }
  void Warn(const char*) override { ++warnings; }

  static constexpr std::size_t FRAME = 4;
  vorn::RouteBoard board;
  Flow flow{*this};
  std::size_t buffers = 0;  // gives frames of this size, when it has one
  std::size_t reference = 9;
  long toPlay = 0;
  bool mayArrive = false;
  int overs = 0;
  bool isInterrupted = false;
  int warnings = 0;
  std::vector<std::uint8_t> held;
  std::set<std::pair<std::size_t, Request>> asked;
  std::array<std::vector<std::uint8_t>, 2> sent;
  std::array<Mark, 2> marks{};

 private:
  using Bytes = std::array<std::uint8_t, 64>;

  static vorn::FrameBuffer* Describe(vorn::FrameBuffer& fb, Bytes& bytes) {
    fb.data = bytes.data();
    fb.channels = 1;
    fb.samplesPerFrame = FRAME;
    fb.rate = 100;
    return &fb;
  }
  long Play() {
    if (toPlay == 0) return vorn::FRAME_END_OF_FILE;
    --toPlay;
    held = {7};
    return Drain(true);
  }

  std::array<Bytes, 2> inBytes{};
  std::array<Bytes, 2> outBytes{};
  std::array<vorn::FrameBuffer, 2> in;
  std::array<vorn::FrameBuffer, 2> out;
};

using Bytes = std::vector<std::uint8_t>;
using Asked = std::set<std::pair<std::size_t, Request>>;

// Red if a join goes on before all its inputs have arrived, if what came early is lost, or if an input that is ahead,
// and that one alone, is not told to wait.
TEST(Flow, JoinWaitsForAllInputsAndLinesThemUp) {
  Bench join(2, 1);
  join.Send(0, Bytes{1, 2, 3, 4});
  EXPECT_EQ(join.Run(), vorn::FRAME_PENDING);
  join.Send(1, Bytes{10});
  EXPECT_EQ(join.Run(), vorn::FRAME_DONE);
  EXPECT_EQ(join.sent[0], Bytes{11});
  EXPECT_EQ(join.asked, Asked{});  // less than a frame waits

  join.Send(0, Bytes{5, 6, 7, 8});
  join.Send(1, Mark::NOTHING);
  EXPECT_EQ(join.Run(), vorn::FRAME_DONE);
  EXPECT_EQ(join.marks[0], Mark::NOTHING);
  EXPECT_EQ(join.asked, (Asked{{0, Request::SPARE}, {1, Request::NEED}}));

  join.asked.clear();
  join.flow.Hear(0, Request::NEED);
  EXPECT_EQ(join.asked, (Asked{{1, Request::NEED}}));  // not the one that has enough

  join.Send(0, Mark::NOTHING);
  join.Send(1, Bytes{10, 10, 10, 10});
  join.Run();
  EXPECT_EQ(join.sent[0], (Bytes{12, 13, 14, 15}));
  join.Send(0, Mark::ENDED);
  join.Send(1, Bytes{10, 10, 10, 10});
  join.Run();
  EXPECT_EQ(join.sent[0], (Bytes{16, 17, 18, 10}));  // an input that ended is silent
  join.Send(0, Mark::ENDED);
  join.Send(1, Mark::ENDED);
  join.Run();
  EXPECT_EQ(join.marks[0], Mark::ENDED);
  EXPECT_EQ(join.board.holders, 0);
  EXPECT_EQ(join.overs, 1);
}

// Red if a join that has enough is fed on, or sends though the block behind it has enough.
TEST(Flow, EveryBlockObeysTheOneBehindIt) {
  Bench join(2, 1);
  EXPECT_EQ(join.flow.Hear(0, Request::HOLD), 1);
  EXPECT_EQ(join.asked, (Asked{{0, Request::HOLD}, {1, Request::HOLD}}));
  join.Send(0, Bytes{1, 2, 3, 4});
  join.Send(1, Bytes{1, 2, 3, 4});
  join.Run();
  EXPECT_EQ(join.marks[0], Mark::NOTHING);
  EXPECT_EQ(join.asked, (Asked{{0, Request::HOLD}, {1, Request::HOLD}}));  // a frame of each waits here
  EXPECT_EQ(join.board.holders, 1);
  join.flow.Hear(0, Request::HOLD);  // at the end too
  for (const Mark mark : {Mark::NOTHING, Mark::NONE, Mark::ENDED}) {
    join.Send(0, Mark::ENDED);
    join.Send(1, Mark::ENDED);
    join.Run();
    EXPECT_EQ(join.marks[0], mark);
    EXPECT_EQ(join.sent[0], mark == Mark::NONE ? (Bytes{2, 4, 6, 8}) : Bytes());
  }

  Bench source(0, 1);
  source.toPlay = 9;
  source.flow.Hear(0, Request::SPARE);
  source.Run();
  EXPECT_EQ(source.marks[0], Mark::NOTHING);
  source.flow.Hear(0, Request::SPARE);
  source.flow.Hear(0, Request::NEED);
  source.Run();
  EXPECT_EQ(source.sent[0], Bytes{7});
  source.flow.Hear(0, Request::NEED);
  source.flow.Hear(0, Request::HOLD);
  source.Run();
  EXPECT_EQ(source.marks[0], Mark::NOTHING);
  source.Run();  // for one cycle only
  EXPECT_EQ(source.sent[0], Bytes{7});
}

// Red if a block that buffers gives out less or more than came, or says too early that it has ended.
TEST(Flow, ABlockThatBuffersDrainsBeforeItEnds) {
  Bench block(1, 1);
  block.buffers = 3;
  for (const auto& [came, left] :
       std::vector<std::pair<Bytes, Bytes>>{{{1, 2}, {}}, {{3, 4}, {1, 2, 3, 4}}, {{5}, {}}}) {
    block.Send(0, came);
    block.Run();
    EXPECT_EQ(block.sent[0], left);
  }
  EXPECT_EQ(block.board.holders, 1);
  block.flow.Hear(0, Request::HOLD);
  block.Send(0, Mark::ENDED);
  block.Run();
  EXPECT_EQ(block.marks[0], Mark::NOTHING);
  block.Send(0, Mark::ENDED);
  block.Run();
  EXPECT_EQ(block.sent[0], Bytes{5});
  EXPECT_EQ(block.board.holders, 0);
  block.Send(0, Mark::ENDED);
  block.Run();
  EXPECT_EQ(block.marks[0], Mark::ENDED);
}

// Red if a source ends its route while another runs, while a block holds something, or before all have heard of its
// end.
TEST(Flow, TheRouteIsOverWhenAllSourcesEndedAndNothingIsHeld) {
  Bench source(0, 1);
  ++source.board.drivers;
  ++source.board.runningDrivers;
  ++source.board.holders;
  const auto runsOn = [&] { return source.Run() == vorn::FRAME_DONE && source.marks[0] == Mark::ENDED; };
  for (int cycle = 0; cycle < 9; ++cycle) EXPECT_TRUE(runsOn());
  --source.board.runningDrivers;
  ++source.board.moves;
  EXPECT_TRUE(runsOn());  // the other one has just ended
  --source.board.holders;
  ++source.board.moves;
  EXPECT_TRUE(runsOn());
  EXPECT_EQ(source.Run(), vorn::FRAME_END_OF_FILE);
  EXPECT_EQ(source.warnings, 0);

  Bench stopped(0, 2);
  stopped.toPlay = 9;
  stopped.flow.Hear(0, Request::DONE);
  stopped.Run();
  EXPECT_EQ(stopped.sent[1], Bytes{7});  // the other output is still wanted
  stopped.flow.Hear(1, Request::DONE);
  stopped.Run();
  EXPECT_EQ(stopped.marks[1], Mark::ENDED);
  EXPECT_EQ(stopped.toPlay, 8);

  Bench asked(0, 1);
  asked.toPlay = 9;
  asked.isInterrupted = true;
  asked.Run();
  EXPECT_EQ(asked.Run(), vorn::FRAME_END_OF_FILE);
  EXPECT_EQ(asked.toPlay, 9);
}

// Red if a reference prolongs the stream that it does not drive, or if its source is not told that nobody listens.
TEST(Flow, AReferenceEndsWithTheStreamThatItServes) {
  Bench join(2, 1);
  join.reference = 1;
  join.Send(0, Mark::ENDED);
  join.Send(1, Bytes{1, 2});
  join.Run();
  EXPECT_EQ(join.marks[0], Mark::ENDED);
  EXPECT_EQ(join.asked, (Asked{{1, Request::DONE}}));
  EXPECT_EQ(join.board.holders, 0);
}

// Red if a block without the kit is called for an empty frame, or if what it holds up keeps the route for ever.
TEST(Flow, BesideABlockWithoutTheKitNothingIsSentWithoutSamples) {
  Bench block(1, 2, 0b10);
  block.buffers = 3;
  block.Send(0, Bytes{1});
  EXPECT_EQ(block.Run(), vorn::FRAME_DONE_WITHOUT_OUTPUT);
  EXPECT_EQ(block.marks[0], Mark::NONE);
  EXPECT_EQ(block.flow.Hear(0, Request::HOLD), 0);

  Bench join(2, 1);
  join.board.foreignLinks = 1;
  join.mayArrive = true;
  join.Send(0, Bytes{1, 2, 3, 4});
  EXPECT_EQ(join.Run(), vorn::FRAME_PENDING);
  join.mayArrive = false;
  EXPECT_EQ(join.Run(), vorn::FRAME_DONE);
  EXPECT_EQ(join.board.holders, 1);

  Bench source(0, 1);
  ++source.board.holders;
  long result = vorn::FRAME_DONE;
  for (int cycle = 0; cycle < 9 && result == vorn::FRAME_DONE; ++cycle) result = source.Run();
  EXPECT_EQ(result, vorn::FRAME_END_OF_FILE);
  EXPECT_EQ(source.warnings, 1);
}

}  // namespace
