// What a block sends, takes and asks for in each cycle, without a route: frames go in and out by hand.
#include <gtest/gtest.h>

#include <set>

#include <vorn/kit/Cycle.h>

namespace {

using vorn::Flow, vorn::Mark, vorn::Request;

// A block of one byte a sample that adds its inputs, or passes one on through a buffer of its own.
class Bench final : public vorn::FlowOwner {
 public:
  Bench(std::size_t inputs, std::size_t outputs, std::uint32_t foreignOutputs = 0) {
    std::vector<Flow::Port> ins, outs;
    for (std::size_t i = 0; i < inputs; ++i) ins.push_back({i, &in[i], false, inputs > 1});
    for (std::size_t i = 0; i < outputs; ++i) outs.push_back({i, &out[i], (foreignOutputs >> i & 1U) != 0});
    flow.Share(&board);
    flow.Link(ins, outs);
    flow.Start();
  }

  // Runs once, as the block behind sees it: what came is taken away again.
  // Gives what each output sends: samples, '-' for nothing, '.' for the end; or '?' for pending, 'x' for no output at
  // all, '!' for the end of the route. Inputs in the same words; empty where nothing arrives. A sample is a digit.
  std::string Cycle(const std::string& first = "", const std::string& second = "") {
    if (!first.empty()) Send(in[0], first);
    if (!second.empty()) Send(in[1], second);
    asked.clear();
    const long result = flow.Run();
    if (result == vorn::FRAME_PENDING) return "?";
    std::string sent = result == vorn::FRAME_END_OF_FILE ? "!" : result != vorn::FRAME_DONE ? "x" : "";
    for (const Flow::Port& port : flow.Outputs()) {
      const Mark mark = MarkOf(*port.fb);
      sent += mark == Mark::NOTHING ? "-" : mark == Mark::ENDED ? "." : "";
      for (long k = 0; k < port.fb->samples; ++k) sent += DIGITS[port.fb->data[k]];
      SetMark(*port.fb, Mark::NONE);
    }
    return sent;
  }
  int Hear(const std::string& requests, std::size_t output = 0) {
    int answer = 0;
    for (const char c : requests) answer = flow.Hear(output, static_cast<Request>(REQUESTS.find(c)));
    return answer;
  }
  // What was asked of which input since the last cycle: "0N 1H ".
  std::string Asked() const {
    std::string text;
    for (const auto& [input, request] : asked) {
      text += std::to_string(input) + REQUESTS[static_cast<std::size_t>(request)] + ' ';
    }
    return text;
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
  bool mayArrive = false, isInterrupted = false;
  int toPlay = 0, overs = 0, warnings = 0;
  std::vector<std::uint8_t> held;
  std::set<std::pair<std::size_t, Request>> asked;

 private:
  // A frame with room of its own.
  struct Frame : vorn::FrameBuffer {
    Frame() { data = bytes.data(), channels = 1, samplesPerFrame = FRAME, rate = 100; }
    std::array<std::uint8_t, 64> bytes{};
  };
  inline static const std::string DIGITS = "0123456789ABCDEFGHIJ";
  inline static const std::string REQUESTS = "@HS@N@@@D";

  static void Send(Frame& frame, const std::string& what) {
    if (what == "-" || what == ".") return SetMark(frame, what == "-" ? Mark::NOTHING : Mark::ENDED);
    for (std::size_t k = 0; k < what.size(); ++k) frame.bytes[k] = static_cast<std::uint8_t>(DIGITS.find(what[k]));
    frame.samples = static_cast<long>(what.size());
    frame.timestamp = -1;
  }
  long Play() {
    if (toPlay == 0) return vorn::FRAME_END_OF_FILE;
    --toPlay;
    held = {7};
    return Drain(true);
  }

  std::array<Frame, 2> in, out;
};

// Red if what waits for another input is lost, or waits for ever, when the link of that one is deleted.
TEST(Flow, WhatWaitsInAJoinLeavesWhenTheOtherLinkGoes) {
  Bench join(2, 1);
  for (const char* samples : {"12", "34"}) EXPECT_EQ(join.Cycle(samples, "-"), "-");
  join.flow.Link({join.flow.Inputs()[0]}, {join.flow.Outputs()[0]});
  EXPECT_EQ(join.Cycle("5"), "1234");
  for (const char* sent : {"5", "."}) EXPECT_EQ(join.Cycle("."), sent);
  EXPECT_EQ(join.board.holders, 0);
}

// Red if what waits is lost because another block sends it now, or that block does not hear that nothing is wanted.
TEST(Flow, GoesOnWhereAnotherBlockIsItsNeighbour) {
  Bench join(2, 1);
  EXPECT_EQ(join.Cycle("12", "-"), "-");
  join.flow.Meet(true, 0, true);
  EXPECT_EQ(join.board.foreignLinks, 1);
  join.flow.Meet(true, 0, false);
  EXPECT_EQ(join.board.foreignLinks, 0);
  EXPECT_EQ(join.Cycle("-", "34"), "46");
  join.asked.clear();
  join.Hear("D");
  EXPECT_EQ(join.Asked(), "0D 1D ");
  join.asked.clear();
  join.flow.Meet(true, 1, false);
  EXPECT_EQ(join.Asked(), "1D ");
  join.flow.Meet(false, 0, false);
  join.asked.clear();
  join.flow.Meet(true, 1, false);
  EXPECT_EQ(join.Asked(), "");
}

// Red if a join goes on before all inputs arrived, loses what came early, or does not make the one ahead wait, alone.
TEST(Flow, JoinWaitsForAllInputsAndLinesThemUp) {
  Bench join(2, 1);
  EXPECT_EQ(join.Cycle("1234"), "?");
  EXPECT_EQ(join.Cycle("", "A"), "B");
  EXPECT_EQ(join.Asked(), "");  // less than a frame waits
  EXPECT_EQ(join.Cycle("5678", "-"), "-");
  EXPECT_EQ(join.Asked(), "0S 1N ");
  join.asked.clear();
  join.Hear("N");
  EXPECT_EQ(join.Asked(), "1N ");  // not the one that has enough
  EXPECT_EQ(join.Cycle("-", "AAAA"), "CDEF");
  EXPECT_EQ(join.Cycle(".", "AAAA"), "GHIA");  // an input that ended is silent
  EXPECT_EQ(join.Cycle(".", "."), ".");
  EXPECT_EQ(join.board.holders, 0);
  EXPECT_EQ(join.overs, 1);

  Bench late(2, 1);
  for (const char* sent : {"0123", "4567"}) {  // more waits than there is room for at first
    late.Cycle("0123456789ABCDEFGHIJ0123456789ABCDEFGHIJ0123456789ABCDEFGHIJ", "-");
    EXPECT_EQ(late.Cycle("-", "0000"), sent);
  }
}

// Red if a join that has enough is fed on, or sends though the block behind it has enough.
TEST(Flow, EveryBlockObeysTheOneBehindIt) {
  Bench join(2, 1);
  EXPECT_EQ(join.Hear("H"), 1);
  EXPECT_EQ(join.Asked(), "0H 1H ");
  EXPECT_EQ(join.Cycle("1234", "1234"), "-");
  EXPECT_EQ(join.Asked(), "0H 1H ");  // a frame of each waits here
  EXPECT_EQ(join.board.holders, 1);
  join.Hear("H");  // at the end too
  for (const char* sent : {"-", "2468", "."}) EXPECT_EQ(join.Cycle(".", "."), sent);

  Bench source(0, 1);
  source.toPlay = 9;
  for (const auto& [asked, sent] : {std::pair{"S", "-"}, {"SN", "7"}, {"NH", "-"}, {"", "7"}}) {
    source.Hear(asked);
    EXPECT_EQ(source.Cycle(), sent) << asked;
  }
}

// Red if a block that buffers gives out less or more than came, or says too early that it has ended.
TEST(Flow, ABlockThatBuffersDrainsBeforeItEnds) {
  Bench block(1, 1);
  block.buffers = 3;
  for (const auto& [came, sent] : {std::pair{"12", "-"}, {"34", "1234"}, {"5", "-"}}) {
    EXPECT_EQ(block.Cycle(came), sent);
  }
  EXPECT_EQ(block.board.holders, 1);
  block.Hear("H");
  EXPECT_EQ(block.Cycle("."), "-");
  EXPECT_EQ(block.Cycle("."), "5");
  EXPECT_EQ(block.board.holders, 0);
  EXPECT_EQ(block.Cycle("."), ".");
}

// Red if a source ends its route while another runs, a block holds something, or some have not heard of its end.
TEST(Flow, TheRouteIsOverWhenAllSourcesEndedAndNothingIsHeld) {
  Bench source(0, 1);
  ++source.board.drivers;
  ++source.board.runningDrivers;
  ++source.board.holders;
  for (int cycle = 0; cycle < 9; ++cycle) EXPECT_EQ(source.Cycle(), ".");
  --source.board.runningDrivers;
  ++source.board.moves;
  EXPECT_EQ(source.Cycle(), ".");  // the other one has just ended
  --source.board.holders;
  ++source.board.moves;
  EXPECT_EQ(source.Cycle(), ".");
  EXPECT_EQ(source.Cycle(), "!");
  EXPECT_EQ(source.warnings, 0);

  Bench stopped(0, 2);
  stopped.toPlay = 9;
  stopped.Hear("D", 0);
  EXPECT_EQ(stopped.Cycle(), "77");  // the other output is still wanted
  stopped.Hear("D", 1);
  EXPECT_EQ(stopped.Cycle(), "..");
  EXPECT_EQ(stopped.toPlay, 8);

  Bench asked(0, 1);
  asked.toPlay = 9;
  asked.isInterrupted = true;
  asked.Cycle();
  EXPECT_EQ(asked.Cycle(), "!");
  EXPECT_EQ(asked.toPlay, 9);
}

// Red if a new run begins with what the one before left, an error frame leaves anything of its frames, or a link that
// is made anew is over from the start.
TEST(Flow, BeginsAnew) {
  Bench source(0, 1);
  source.toPlay = 9;
  source.Hear("D");
  EXPECT_EQ(source.Cycle(), ".");
  source.flow.Start();
  EXPECT_EQ(source.Cycle(), "7");
  source.Hear("H");
  source.flow.Forget();
  EXPECT_EQ(source.Cycle(), "7");

  Bench join(2, 1);
  EXPECT_EQ(join.Cycle("1234", "-"), "-");
  join.flow.Forget();
  EXPECT_EQ(join.Cycle("5", "."), "5");
  EXPECT_EQ(join.Cycle("-", "56"), "-");  // not over after all, as behind a block without the kit
  EXPECT_EQ(join.Cycle("123", "-"), "68");

  Bench block(1, 1);
  EXPECT_EQ(block.Cycle("."), ".");
  const std::vector<Flow::Port> inputs = block.flow.Inputs(), outputs = block.flow.Outputs();
  block.flow.Link({}, outputs);
  block.flow.Link(inputs, outputs);
  for (const char* both : {"-", "12", "."}) EXPECT_EQ(block.Cycle(both), both);
}

// Red if a reference prolongs the stream that it does not drive, or if its source is not told that nobody listens.
TEST(Flow, AReferenceEndsWithTheStreamThatItServes) {
  Bench join(2, 1);
  join.reference = 1;
  EXPECT_EQ(join.Cycle(".", "12"), ".");
  EXPECT_EQ(join.Asked(), "1D ");
  EXPECT_EQ(join.board.holders, 0);
}

// Red if a block without the kit is called for an empty frame, or if what it holds up keeps the route for ever.
TEST(Flow, BesideABlockWithoutTheKitNothingIsSentWithoutSamples) {
  Bench block(1, 2, 0b10);
  block.buffers = 3;
  EXPECT_EQ(block.Cycle("1"), "x");
  EXPECT_EQ(block.Hear("H"), 0);

  Bench join(2, 1);
  join.board.foreignLinks = 1;
  join.mayArrive = true;
  EXPECT_EQ(join.Cycle("1234"), "?");
  join.mayArrive = false;
  EXPECT_EQ(join.Cycle(), "-");
  EXPECT_EQ(join.board.holders, 1);

  Bench source(0, 1);
  ++source.board.holders;
  int cycles = 0;
  while (source.Cycle() != "!" && cycles < 9) ++cycles;
  EXPECT_LT(cycles, 9);
  EXPECT_EQ(source.warnings, 1);
}

}  // namespace
