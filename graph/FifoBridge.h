// A FIFO between two routes that knows when it ends. It hands the two blocks their sides of the library's FIFO, which
// still holds the samples and is what the console shows, and does the waiting itself: a read that waits inside the
// library's FIFO loses what it had taken when Shutdown() ends it, and nobody could tell how long the last, short frame
// is.
#pragma once

#include <vorn/FIFO.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace vorn::graph {

/**
 * Threads: one reader and one writer; the rest from any thread.
 * Real time: as the library's FIFO, with one more lock that is held for the copy.
 */
class FifoBridge final : public DataProducer, public DataConsumer {
 public:
  /** The FIFO, which is not owned, was just made with these values, and nobody else uses it. */
  FifoBridge(FIFO& newFifo, std::uint32_t newRate, std::size_t newSampleSize, long newCapacity, long prefill);

  /**
   * As for any FIFO until the writer has ended. Then takes what is left: a result of 1 to count-1 is how many samples
   * that was; the rest of `dst` is not touched. -20 once nothing is left.
   */
  int Produce(void* dst, long count, bool blocking, long* stamp) override;
  /** As for any FIFO until the reader has ended. Then takes everything and drops it. */
  int Consume(const void* src, long count, bool blocking, long stamp) override;

  void EndWriter();
  void EndReader();
  /** Both ends, at once. The blocks may go from here on. */
  void Shutdown();

  /** Whether the writer has ended and everything was read. */
  bool IsDrained();

  /** Tells the library's FIFO, for the console, which blocks have entered themselves here. */
  void ShowUsers();

 private:
  long TakeWaiting_l(std::unique_lock<std::mutex>& lock, std::uint8_t* dst, long count, long* stamp);
  void Show(Block* itsReader, Block* itsWriter);
  void Take_l(std::uint8_t* dst, long count, long* stamp);

  FIFO& fifo;
  const std::uint32_t rate;
  const std::size_t sampleSize;
  const long capacity;
  const long piece;  // what is waited for at a time: both sides cannot wait for half of the FIFO at once

  std::mutex mutex;  // guards what follows
  std::condition_variable dataCond;
  std::condition_variable spaceCond;
  long fill;
  bool writerEnded = false;
  bool readerEnded = false;
  bool isShutdown = false;
};

}  // namespace vorn::graph
