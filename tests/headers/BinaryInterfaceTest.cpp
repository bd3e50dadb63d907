// Plug-ins and clients that were built earlier rely on this layout: where fields lie, and which slot holds which
// operation.
#include <gtest/gtest.h>
#include <vorn/Vorn.h>

#include <cstring>
#include <vector>

namespace {

using vorn::Block, vorn::FIFO, vorn::FIFOState, vorn::FrameBuffer, vorn::Route, vorn::Vorn;
using Action = Route::Action;
using Slots = std::vector<std::size_t>;

// Red if a field is added, moved or resized.
#define FIELD(type, field, offset) static_assert(offsetof(type, field) == (offset), #type "::" #field " moved")

FIELD(FrameBuffer, data, 0);
FIELD(FrameBuffer, format, 8);
FIELD(FrameBuffer, channels, 12);
FIELD(FrameBuffer, samplesPerFrame, 16);
FIELD(FrameBuffer, samples, 24);
FIELD(FrameBuffer, rate, 32);
FIELD(FrameBuffer, timestamp, 40);
static_assert(sizeof(FrameBuffer) == 48);

FIELD(Action, type, 0);
FIELD(Action, newBlock.soFileName, 8);
FIELD(Action, newBlock.first, 16);
FIELD(Action, newBlock.last, 17);
FIELD(Action, newBlock.args, 24);
FIELD(Action, newBlock.block, 32);
FIELD(Action, newLink.rate, 8);
FIELD(Action, newLink.format, 12);
FIELD(Action, newLink.channels, 16);
FIELD(Action, newLink.samplesPerFrame, 24);
FIELD(Action, newLink.source, 32);
FIELD(Action, newLink.sourceBlkOutEpIdx, 40);
FIELD(Action, newLink.sink, 48);
FIELD(Action, newLink.sinkBlkInEpIdx, 56);
FIELD(Action, newLink.link, 64);
FIELD(Action, start.ret, 8);
FIELD(Action, setParameter.block, 8);
FIELD(Action, setParameter.paramId, 16);
FIELD(Action, setParameter.params, 24);
FIELD(Action, setParameter.ret, 32);
FIELD(Action, getParameter.ret, 32);
FIELD(Action, reset.ret, 16);
FIELD(Action, stop.ret, 8);
FIELD(Action, del.ret, 16);
FIELD(Action, deleteAll.ret, 8);
FIELD(Action, setDump.path, 8);
static_assert(sizeof(Action) == 72);

FIELD(FIFOState, count, 0);
FIELD(FIFOState, capacity, 8);
FIELD(FIFOState, readerSleeps, 16);
FIELD(FIFOState, writerSleeps, 17);
FIELD(FIFOState, writingEnded, 18);
FIELD(FIFOState, readingEnded, 19);
FIELD(FIFOState, moves, 24);
static_assert(sizeof(FIFOState) == 32);

#pragma GCC diagnostic ignored "-Winvalid-offsetof"
FIELD(vorn::DataProducer, enabled, 8);
FIELD(vorn::DataProducer, reader, 16);
FIELD(vorn::DataConsumer, enabled, 8);
FIELD(vorn::DataConsumer, writer, 16);
FIELD(FIFO, reader, 16);
FIELD(FIFO, writer, 24 + 16);
FIELD(FIFO, name, 24 + 24);

// A pointer to a virtual operation holds its offset in the table; a destructor takes two slots of its class.
template <typename Operation>
std::size_t SlotOf(Operation operation) {
  std::size_t offset;
  std::memcpy(&offset, &operation, sizeof offset);
  return offset / sizeof(void*);
}

template <typename... Operation>
Slots SlotsOf(Operation... operation) {
  return {SlotOf(operation)...};
}

// Red if a virtual operation is added, removed or moved.
TEST(BinaryInterface, KeepsTheOrderOfVirtualOperations) {
  EXPECT_EQ(SlotsOf(&Block::ioctl, &Block::Subname, &Block::OnInEpLinked, &Block::OnInEpUnlinked, &Block::OnOutEpLinked,
                    &Block::OnOutEpUnlinked, &Block::Start, &Block::ProcessFrame, &Block::Stop, &Block::SetParameter,
                    &Block::GetParameter, &Block::Reset, &Block::Delay),
            (Slots{0, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
  EXPECT_EQ(
      SlotsOf(&Route::NewBlock, &Route::NewLink, &Route::Start, &Route::SetParameter, &Route::GetParameter,
              &Route::Reset, &Route::Stop, &Route::Delete, &Route::DeleteAll, &Route::SetDump, &Route::ExecuteActions),
      (Slots{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(SlotsOf(&Route::Callbacks::OnStarted, &Route::Callbacks::OnStopped, &Route::Callbacks::OnExit),
            (Slots{0, 1, 2}));
  EXPECT_EQ(SlotsOf(&FIFO::Produce, &FIFO::Shutdown, &FIFO::Consume, &FIFO::Take, &FIFO::Put, &FIFO::EndWriting,
                    &FIFO::EndReading, &FIFO::BeginWriting, &FIFO::BeginReading, &FIFO::State),
            (Slots{2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(SlotsOf(&vorn::DataProducer::Produce, &vorn::DataConsumer::Consume), (Slots{2, 2}));
  EXPECT_EQ(SlotsOf(&Vorn::NewRoute, &Vorn::DeleteRoute, &Vorn::NewFIFO, &Vorn::DeleteFIFO), (Slots{0, 1, 2, 3}));
}

}  // namespace
