#include "FifoBridge.h"

#include <algorithm>

namespace vorn::graph {
namespace {

constexpr int REFUSED = -20;

}  // namespace

FifoBridge::FifoBridge(FIFO& newFifo, std::uint32_t newRate, std::size_t newSampleSize, long newCapacity, long prefill)
    : fifo(newFifo),
      rate(newRate),
      sampleSize(newSampleSize),
      capacity(newCapacity),
      piece(std::max(1L, capacity / 2)),
      fill(prefill) {}

int FifoBridge::Produce(void* dst, long count, bool blocking, long* stamp) {
  std::unique_lock lock(mutex);
  auto* const to = static_cast<std::uint8_t*>(dst);
  long taken = 0;
  if (blocking) {
    taken = TakeWaiting_l(lock, to, count, stamp);
  } else {
    taken = writerEnded ? std::min(fill, count) : count;  // the FIFO fills up with silence while more may come
    Take_l(to, taken, stamp);
  }
  if (isShutdown || (taken == 0 && count > 0)) return REFUSED;
  return taken == count ? 0 : static_cast<int>(taken);
}

long FifoBridge::TakeWaiting_l(std::unique_lock<std::mutex>& lock, std::uint8_t* dst, long count, long* stamp) {
  long taken = 0;
  while (taken < count) {
    const long wanted = std::min(count - taken, piece);
    dataCond.wait(lock, [&] { return fill >= wanted || writerEnded || isShutdown; });
    const long got = isShutdown ? 0 : std::min(fill, wanted);
    Take_l(dst + taken * sampleSize, got, taken == 0 ? stamp : nullptr);
    taken += got;
    if (got < wanted) break;
  }
  return taken;
}

void FifoBridge::Take_l(std::uint8_t* dst, long count, long* stamp) {
  if (count == 0) return;
  fifo.Produce(dst, count, false, stamp);
  fill -= std::min(fill, count);
  spaceCond.notify_one();
}

int FifoBridge::Consume(const void* src, long count, bool blocking, long stamp) {
  std::unique_lock lock(mutex);
  const auto* const from = static_cast<const std::uint8_t*>(src);
  for (long done = 0; done < count;) {
    const long put = blocking ? std::min(count - done, piece) : count;
    if (blocking) spaceCond.wait(lock, [&] { return capacity - fill >= put || readerEnded || isShutdown; });
    if (isShutdown || readerEnded) break;
    fifo.Consume(from + done * sampleSize, put, false, rate > 0 ? stamp + done * 1'000'000 / rate : stamp);
    // An overflow leaves the newer half.
    fill = fill + put <= capacity ? fill + put : capacity - capacity / 2;
    dataCond.notify_one();
    done += put;
  }
  return isShutdown ? REFUSED : 0;
}

void FifoBridge::EndWriter() {
  const std::lock_guard lock(mutex);
  writerEnded = true;
  dataCond.notify_all();
}

void FifoBridge::EndReader() {
  const std::lock_guard lock(mutex);
  readerEnded = true;
  spaceCond.notify_all();
}

void FifoBridge::Shutdown() {
  const std::lock_guard lock(mutex);
  isShutdown = true;
  fifo.Shutdown();
  Show(nullptr, nullptr);
  dataCond.notify_all();
  spaceCond.notify_all();
}

bool FifoBridge::IsDrained() {
  const std::lock_guard lock(mutex);
  return writerEnded && fill == 0;
}

void FifoBridge::ShowUsers() { Show(reader, writer); }

/** The console reads these on a thread of its own. */
void FifoBridge::Show(Block* itsReader, Block* itsWriter) {
  __atomic_store_n(&fifo.reader, itsReader, __ATOMIC_RELAXED);
  __atomic_store_n(&fifo.writer, itsWriter, __ATOMIC_RELAXED);
}

}  // namespace vorn::graph
