#include "RingBuffer/RingBuffer.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "Log.h"

namespace vorn {
namespace {

constexpr int SHUT_DOWN = -20;

long CheckedSlots(unsigned int rate, unsigned long sampleSize, long capacity) {
  long slots = 0;
  long bytes = 0;
  const bool fits = capacity >= 0 && !__builtin_add_overflow(capacity, 1L, &slots) &&
                    !__builtin_mul_overflow(slots, sampleSize, &bytes) &&
                    (rate == 0 || static_cast<std::size_t>(slots) <= std::vector<std::int64_t>().max_size());
  if (!fits) throw std::length_error("cannot create std::vector larger than max_size()");
  return slots;
}

// A sample of 0 bytes has no storage: neither has memcpy any business there, nor a pointer of its caller.
void Copy(unsigned char* dst, const unsigned char* src, std::size_t bytes) {
  if (bytes > 0) std::memcpy(dst, src, bytes);
}

void Sleep(WakeUp& cond, WakeUp::Lock& lock, int& sleepers) {
  ++sleepers;
  cond.Wait(lock);
  --sleepers;
}

}  // namespace

DataProducer::~DataProducer() = default;
DataConsumer::~DataConsumer() = default;
FIFO::~FIFO() = default;

RingBuffer::RingBuffer(unsigned int newRate, unsigned long newSampleSize, long capacity, long newPrefill)
    : rate(newRate),
      sampleSize(newSampleSize),
      slots(CheckedSlots(newRate, newSampleSize, capacity)),
      prefill(std::max(newPrefill, 0L)),
      data(static_cast<std::size_t>(slots) * sampleSize),
      stamps(rate, slots) {
  Reset();
}

void RingBuffer::Reset() {
  const std::lock_guard<AdaptiveMutex> lock(mutex);
  Reset_l();
}

void RingBuffer::Reset_l() {
  ++moves;
  readPos = 0;
  writePos = std::min(prefill, slots - 1);
  data = std::vector<unsigned char>(data.size());
  stamps.Reset(writePos);
}

long RingBuffer::Count_l() const { return readPos <= writePos ? writePos - readPos : slots - readPos + writePos; }

long RingBuffer::Read(unsigned char* dst, long count, bool blocking, long* stamp) {
  Lock lock(mutex);
  if (shutdown) return SHUT_DOWN;
  for (long remaining = count; remaining > 0;) {
    const long avail = Count_l();
    if (avail == 0 && blocking) {
      Sleep(dataCond, lock, inRead);
      if (shutdown) return SHUT_DOWN;
      continue;
    }
    const long n = std::min(avail, remaining);
    if (n > 0) {
      ReportStamp_l(stamp);
      stamp = nullptr;  // the first sample's alone
    }
    CopyOut_l(dst, n);
    dst += static_cast<std::size_t>(n) * sampleSize;
    remaining -= n;
    if (!blocking) {
      count = n;
      break;
    }
  }
  spaceCond.NotifyOne(lock);
  return count;
}

void RingBuffer::ReportStamp_l(long* stamp) const {
  if (rate != 0 && stamp) *stamp = stamps.First();
}

void RingBuffer::CopyOut_l(unsigned char* dst, long count) {
  moves += count > 0;
  const long toEnd = std::min(count, slots - readPos);
  const std::size_t bytes = static_cast<std::size_t>(toEnd) * sampleSize;
  Copy(dst, Slot_l(readPos), bytes);
  Copy(dst + bytes, Slot_l(0), static_cast<std::size_t>(count - toEnd) * sampleSize);
  readPos += count;
  if (readPos >= slots) readPos -= slots;
  stamps.Drop(count);
}

long RingBuffer::Write(const unsigned char* src, long count, bool blocking, long stamp) {
  Lock lock(mutex);
  if (shutdown) return SHUT_DOWN;
  return Write_l(lock, src, count, blocking, stamp);
}

long RingBuffer::Write_l(Lock& lock, const unsigned char* src, long count, bool blocking, long& stamp) {
  for (long remaining = count; remaining > 0;) {
    const long space = Space_l();
    if (space == 0 && blocking) {
      Sleep(spaceCond, lock, inWrite);
      if (shutdown) return SHUT_DOWN;
      continue;
    }
    const long n = std::min(space, remaining);
    src = CopyIn_l(src, n, stamp);
    remaining -= n;
    if (!blocking) {
      count = n;
      break;
    }
  }
  dataCond.NotifyOne(lock);
  return count;
}

long RingBuffer::OverWrite(const unsigned char* src, long count, long stamp, long skip) {
  Lock lock(mutex);
  if (shutdown) return SHUT_DOWN;
  return OverWrite_l(lock, src, count, stamp, skip);
}

long RingBuffer::OverWrite_l(Lock& lock, const unsigned char* src, long count, long stamp, long skip) {
  const long fits = std::min(Space_l(), count);
  src = CopyIn_l(src, fits, stamp);
  if (fits < count) {
    LOG_FROM('V', "OverWrite", "%s: Ring buffer is full, overwrite %ld samples", name.c_str(), count - fits);
    CopyIn_l(src, count - fits, stamp);
    readPos = (writePos + 1 + skip) % slots;
    stamps.Keep(Count_l());
  }
  dataCond.NotifyOne(lock);  // last: a reader may come between
  return count;
}

// Writes in contiguous pieces, over unread samples too, and moves `stamp` on to the sample after the last.
const unsigned char* RingBuffer::CopyIn_l(const unsigned char* src, long count, long& stamp) {
  while (count > 0) {
    ++moves;
    const long piece = std::min(count, slots - writePos);
    const std::size_t bytes = static_cast<std::size_t>(piece) * sampleSize;
    Copy(Slot_l(writePos), src, bytes);
    stamps.Write(piece, stamp);
    writePos += piece;
    if (writePos == slots) writePos = 0;
    src += bytes;
    count -= piece;
    stamp = stamps.Later(stamp, piece);
  }
  return src;
}

int RingBuffer::Produce(void* dst, long count, bool blocking, long* stamp) {
  auto* bytes = static_cast<unsigned char*>(dst);
  const long got = Read(bytes, count, blocking, stamp);
  if (got < 0) return static_cast<int>(got);
  Silence(bytes, got, count);
  return 0;
}

// Fills what is missing of `count` samples behind those that came.
void RingBuffer::Silence(unsigned char* dst, long got, long count) const {
  if (got >= count) return;
  const long missing = count - got;
  LOG_FROM('V', "Produce", "%s: Not enough data in ring buffer, filling %u samples silence", name.c_str(),
           static_cast<unsigned int>(missing));
  std::fill_n(dst + static_cast<std::size_t>(got) * sampleSize, static_cast<std::size_t>(missing) * sampleSize,
              static_cast<unsigned char>(0));
}

int RingBuffer::Consume(const void* src, long count, bool blocking, long stamp) {
  const auto* bytes = static_cast<const unsigned char*>(src);
  const long put = blocking ? Write(bytes, count, true, stamp) : OverWrite(bytes, count, stamp, (slots - 1) / 2);
  return put < 0 ? static_cast<int>(put) : 0;
}

void RingBuffer::Shutdown() {
  Lock lock(mutex);
  ++moves;
  shutdown = true;
  dataCond.NotifyOne(lock);
  spaceCond.NotifyOne(lock);
}

void RingBuffer::ShutdownForAll() {
  Shutdown();
  Lock lock(mutex);
  dataCond.NotifyAll(lock);
  spaceCond.NotifyAll(lock);
}

// Take sleeps only while the FIFO is empty, Put only while it is full, and both wake the other side after each piece.
// Write and Read signal at their end alone; but a request within the capacity that finds the FIFO empty (full) comes
// to its end in one pass. So nobody sleeps on while the other side waits for him.
long RingBuffer::Take(void* dst, long count, bool blocking, long* stamp) {
  auto* bytes = static_cast<unsigned char*>(dst);
  Lock lock(mutex);
  const long taken = TakePieces_l(lock, bytes, count, blocking, stamp);
  if (shutdown) return SHUT_DOWN;
  if (writingEnded) return taken == 0 && Count_l() == 0 ? FRAME_END_OF_FILE : taken;
  if (blocking) return taken;  // all, or what there was at an interrupt
  lock.unlock();
  Silence(bytes, taken, count);
  return count;
}

long RingBuffer::TakePieces_l(Lock& lock, unsigned char* dst, long count, bool blocking, long* stamp) {
  long taken = 0;
  while (taken < count && !shutdown) {
    const long n = std::min(Count_l(), count - taken);
    if (n > 0) {
      if (taken == 0) ReportStamp_l(stamp);
      CopyOut_l(dst + static_cast<std::size_t>(taken) * sampleSize, n);
      taken += n;
      spaceCond.NotifyOne(lock);
    } else if (blocking && !writingEnded && !readingInterrupted) {
      Sleep(dataCond, lock, inTake);
    } else {
      break;
    }
  }
  return taken;
}

long RingBuffer::Put(const void* src, long count, bool blocking, long stamp) {
  const auto* bytes = static_cast<const unsigned char*>(src);
  Lock lock(mutex);
  const long put = blocking ? PutPieces_l(lock, bytes, count, stamp) : 0;
  if (shutdown) return SHUT_DOWN;
  if (readingEnded) return FRAME_END_OF_FILE;
  return blocking ? put : OverWrite_l(lock, bytes, count, stamp, (slots - 1) / 2);
}

long RingBuffer::PutPieces_l(Lock& lock, const unsigned char* src, long count, long stamp) {
  long put = 0;
  while (put < count && !shutdown && !readingEnded) {
    const long n = std::min(Space_l(), count - put);
    if (n > 0) {
      src = CopyIn_l(src, n, stamp);
      put += n;
      dataCond.NotifyOne(lock);
    } else if (!writingInterrupted) {
      Sleep(spaceCond, lock, inPut);
    } else {
      break;
    }
  }
  return put;
}

void RingBuffer::EndWriting() {
  Lock lock(mutex);
  ++moves;
  writingEnded = true;
  dataCond.NotifyAll(lock);
}

void RingBuffer::EndReading() {
  Lock lock(mutex);
  ++moves;
  readingEnded = true;
  spaceCond.NotifyAll(lock);
}

void RingBuffer::BeginWriting() {
  const std::lock_guard<AdaptiveMutex> lock(mutex);
  ++moves;
  writingEnded = false;
}

void RingBuffer::BeginReading() {
  const std::lock_guard<AdaptiveMutex> lock(mutex);
  ++moves;
  readingEnded = false;
}

void RingBuffer::InterruptReading() {
  Lock lock(mutex);
  readingInterrupted = true;
  dataCond.NotifyAll(lock);
}

void RingBuffer::InterruptWriting() {
  Lock lock(mutex);
  writingInterrupted = true;
  spaceCond.NotifyAll(lock);
}

void RingBuffer::ResumeReading() {
  const std::lock_guard<AdaptiveMutex> lock(mutex);
  readingInterrupted = false;
}

void RingBuffer::ResumeWriting() {
  const std::lock_guard<AdaptiveMutex> lock(mutex);
  writingInterrupted = false;
}

// A thread that was woken still counts as a sleeper until it runs: so what it waits for decides as well.
FIFOState RingBuffer::State() const {
  const std::lock_guard<AdaptiveMutex> lock(mutex);
  const bool reading = inRead > 0 || (inTake > 0 && !writingEnded && !readingInterrupted);
  const bool writing = inWrite > 0 || (inPut > 0 && !readingEnded && !writingInterrupted);
  return {.count = Count_l(),
          .capacity = Capacity(),
          .readerSleeps = reading && Count_l() == 0 && !shutdown,
          .writerSleeps = writing && Space_l() == 0 && !shutdown,
          .writingEnded = writingEnded,
          .readingEnded = readingEnded,
          .moves = moves};
}

}  // namespace vorn
