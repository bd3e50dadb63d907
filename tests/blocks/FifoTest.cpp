// What crosses a FIFO between fifosink and fifosource: every sample with its time, and not one more at the end.
#include <gtest/gtest.h>

#include <thread>

#include <vorn/kit/Conventions.h>

#include "testkit/TestGraph.h"

namespace {

using testkit::Graph, testkit::Samples, testkit::Count, testkit::END_OF_FILE;

class FifoTest : public testing::Test {
 protected:
  void Open(long capacity) { fifo = vorn::Vorn::Instance()->NewFIFO(48000, 2, capacity, 0); }
  void TearDown() override {
    graph->DeleteAll();
    vorn::Vorn::Instance()->DeleteFIFO(fifo);
  }
  static testkit::StreamSpec Frame(long samples) { return {48000, vorn::SampleFormat::S16_LE, 1, samples}; }

  void Write(const Samples& samples, const std::vector<std::string>& args = {}) {
    source = graph.Add("testsource");
    vorn::Block* writer = graph.Add("fifosink", args);
    ASSERT_TRUE(graph.Chain({source, writer}, Frame(480)));
    EXPECT_LT(graph->Start(), 0);  // it has no FIFO yet
    EXPECT_EQ(vorn::AttachProducer(writer, fifo), -20);
    EXPECT_EQ(vorn::AttachConsumer(writer, fifo), 0);
    EXPECT_EQ(fifo->writer, writer);
    Graph::Play(source, samples, Frame(480));
  }
  void Read(long frame, const std::vector<std::string>& args = {}, const std::string& frames = "0") {
    vorn::Block* reader = graph.Add("fifosource", args);
    sink = graph.Add("testsink", {frames});
    ASSERT_TRUE(graph.Chain({reader, sink}, Frame(frame)));
    EXPECT_LT(graph->Start(), 0);
    EXPECT_EQ(vorn::AttachProducer(reader, fifo), 0);
  }

  vorn::BlockCounters counters;  // of blocks of the graph
  Graph graph;
  vorn::FIFO* fifo = nullptr;
  vorn::Block* source = nullptr;
  vorn::Block* sink = nullptr;
};

// Red if a short frame is lost or filled up, if the reader is not told of the end, or if a time is shifted or made up.
TEST_F(FifoTest, EndsToTheSampleAndCarriesTimes) {
  Open(2000);
  Write(Count(1441));
  constexpr long STAMPS[] = {7000, -1, 500000, 90};
  for (std::size_t i = 0; i < 4; ++i) Graph::FramesOf(source)[i].stamp = STAMPS[i];
  ASSERT_EQ(graph.Run(), END_OF_FILE);
  graph->DeleteAll();
  EXPECT_EQ(fifo->writer, nullptr);

  Read(240);
  ASSERT_EQ(graph.Run(), END_OF_FILE);
  EXPECT_EQ(Graph::Recorded16(sink), Count(1441));
  std::vector<long> stamps;
  for (const auto& frame : Graph::FramesOf(sink)) stamps.push_back(frame.stamp);
  EXPECT_EQ(stamps, (std::vector<long>{7000, 12000, -1, -1, 500000, 505000, 90}));
}

// Red if a block does not wait for the other side, or is not woken by it; and if a shutdown is an error.
TEST_F(FifoTest, BlocksWaitForTheOtherSideUntilShutdown) {
  Open(700);
  Read(480);
  std::thread writer([this] { fifo->Put(Count(20000).data(), 20000, true, 0), fifo->Shutdown(); });
  EXPECT_EQ(graph.Run(), END_OF_FILE);
  writer.join();
  const Samples arrived = Graph::Recorded16(sink);
  EXPECT_GE(arrived.size(), 20000U - 700 - 480);
  EXPECT_EQ(arrived, Count(static_cast<long>(arrived.size())));

  graph->DeleteAll();
  Write(Count(480));
  EXPECT_EQ(graph.Run(), END_OF_FILE);  // a sink that nobody reads any more
}

// Red if a reader that takes no more leaves the writer asleep for ever, or a writer that starts again is over.
TEST_F(FifoTest, AWriterEndsWithItsReader) {
  Open(700);
  Write(Count(20000));
  fifo->EndWriting();  // as a run before this one did
  ASSERT_EQ(graph->Start(), 0);
  Samples taken(1000);
  EXPECT_EQ(fifo->Take(taken.data(), 1000, true, nullptr), 1000);
  fifo->EndReading();
  EXPECT_EQ(graph.Wait(), END_OF_FILE);
  EXPECT_EQ(taken, Count(1000));
}

// Red if an interrupt does not reach a side that sleeps, loses what was read, hides what is lost, lets a block start,
// or holds on after the stop that it made.
TEST_F(FifoTest, AnInterruptBringsEitherSideBack) {
  Open(700);
  Read(480);
  Samples samples = Count(600);
  for (const long count : {600, 100}) {
    fifo->Consume(samples.data(), count, true, 0);
    ASSERT_EQ(graph->Start(), 0);
    while (!fifo->State().readerSleeps) std::this_thread::yield();
    EXPECT_EQ(vorn::InterruptBlock(fifo->reader), 0);
    EXPECT_EQ(graph.Wait(), END_OF_FILE);
    EXPECT_EQ(Graph::Recorded16(sink), Count(count));
    Graph::FramesOf(sink).clear();
  }
  graph->DeleteAll();

  fifo->BeginReading();
  Write(Count(20000));
  vorn::Block* const writer = fifo->writer;
  EXPECT_EQ(vorn::AttachCounters(writer, &counters), 0);
  vorn::InterruptBlock(writer);
  EXPECT_LT(graph->Start(), 0);
  vorn::ResumeBlock(writer);
  ASSERT_EQ(graph->Start(), 0);
  while (!fifo->State().writerSleeps) std::this_thread::yield();
  vorn::InterruptBlock(writer);
  EXPECT_EQ(graph.Wait(), END_OF_FILE);
  EXPECT_EQ(counters.losses, 1U);
  std::vector<std::string> refusal;
  graph->GetParameter(writer, vorn::PARAMETER_REFUSAL, refusal);
  ASSERT_EQ(refusal.size(), vorn::REFUSAL_TEXTS);
  EXPECT_NE(refusal[vorn::REFUSAL_TEXT].find("260 samples are lost"), std::string::npos) << refusal[vorn::REFUSAL_TEXT];
  EXPECT_EQ(fifo->Take(samples.data(), 600, true, nullptr), 600);
  EXPECT_EQ(samples, Count(600));
}

// Red if a block that must not wait does, or does not say that samples are missing, or that it takes no more.
TEST_F(FifoTest, BlocksThatDoNotWaitDropAndFillUp) {
  Open(1000);
  Write(Count(5000), {"false"});
  ASSERT_EQ(graph.Run(), END_OF_FILE);
  graph->DeleteAll();

  fifo->BeginWriting();
  Read(480, {"blocking=no"}, "3");
  ASSERT_EQ(graph.Run(), END_OF_FILE);
  const Samples arrived = Graph::Recorded16(sink);
  ASSERT_EQ(arrived.size(), 3U * 480);
  const auto newest = std::find(arrived.begin(), arrived.end(), 5000);
  ASSERT_NE(newest, arrived.end());
  EXPECT_EQ(std::count(newest + 1, arrived.end(), 0), arrived.end() - newest - 1);
  EXPECT_TRUE(fifo->State().readingEnded);
}

}  // namespace
