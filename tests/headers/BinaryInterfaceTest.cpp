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

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

// Red if a field is added, moved or resized.
TEST(BinaryInterface, KeepsTheLayoutOfWhatIsShared) {
#define AT(field) offsetof(FrameBuffer, field)
  EXPECT_EQ((Slots{AT(data), AT(format), AT(channels), AT(samplesPerFrame), AT(samples), AT(rate), AT(timestamp),
                   sizeof(FrameBuffer)}),
            (Slots{0, 8, 12, 16, 24, 32, 40, 48}));
#undef AT
#define AT(field) offsetof(Action, field)
  EXPECT_EQ((Slots{AT(type), AT(newBlock.soFileName), AT(newBlock.first), AT(newBlock.last), AT(newBlock.args),
                   AT(newBlock.block)}),
            (Slots{0, 8, 16, 17, 24, 32}));
  EXPECT_EQ((Slots{AT(newLink.rate), AT(newLink.format), AT(newLink.channels), AT(newLink.samplesPerFrame),
                   AT(newLink.source), AT(newLink.sourceBlkOutEpIdx), AT(newLink.sink), AT(newLink.sinkBlkInEpIdx),
                   AT(newLink.link)}),
            (Slots{8, 12, 16, 24, 32, 40, 48, 56, 64}));
  EXPECT_EQ((Slots{AT(setParameter.block), AT(setParameter.paramId), AT(setParameter.params), AT(setParameter.ret),
                   AT(getParameter.ret)}),
            (Slots{8, 16, 24, 32, 32}));
  EXPECT_EQ((Slots{AT(start.ret), AT(stop.ret), AT(deleteAll.ret), AT(reset.ret), AT(del.ret), AT(setDump.path),
                   sizeof(Action)}),
            (Slots{8, 8, 8, 16, 16, 8, 72}));
#undef AT
#define AT(field) offsetof(FIFOState, field)
  EXPECT_EQ((Slots{AT(count), AT(capacity), AT(readerSleeps), AT(writerSleeps), AT(writingEnded), AT(readingEnded),
                   AT(moves), sizeof(FIFOState)}),
            (Slots{0, 8, 16, 17, 18, 19, 24, 32}));
#undef AT
  EXPECT_EQ((Slots{offsetof(vorn::DataProducer, enabled), offsetof(vorn::DataProducer, reader),
                   offsetof(vorn::DataConsumer, enabled), offsetof(vorn::DataConsumer, writer), offsetof(FIFO, reader),
                   offsetof(FIFO, writer), offsetof(FIFO, name)}),
            (Slots{8, 16, 8, 16, 16, 40, 48}));
}

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
