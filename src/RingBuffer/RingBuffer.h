// The ring buffer behind every FIFO. One slot always stays free, so that full and empty differ.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include <vorn/FIFO.h>

#include "RingBuffer/AdaptiveMutex.h"
#include "RingBuffer/StampRuns.h"
#include "RingBuffer/WakeUp.h"

namespace vorn {

class RingBuffer final : public FIFO {
 public:
  /** Throws std::length_error for a capacity below 0 or sizes beyond what a vector holds. */
  RingBuffer(unsigned int rate, unsigned long sampleSize, long capacity, long prefill);

  /** Back to `prefill` samples of silence. Neither undoes Shutdown() nor wakes anybody. Allocates. */
  void Reset();

  /** The number of samples read, or -20 once shut down. Writers are woken once, at the end. */
  long Read(unsigned char* dst, long count, bool blocking, long* stamp);
  /** The number of samples written, or -20 once shut down. Readers are woken once, at the end. */
  long Write(const unsigned char* src, long count, bool blocking, long stamp);
  /** Writes without waiting; on overflow the oldest samples go, and `skip` more. `count`, or -20 once shut down. */
  long OverWrite(const unsigned char* src, long count, long stamp, long skip);

  int Produce(void* dst, long count, bool blocking, long* stamp) override;
  void Shutdown() override;
  int Consume(const void* src, long count, bool blocking, long stamp) override;
  long Take(void* dst, long count, bool blocking, long* stamp) override;
  long Put(const void* src, long count, bool blocking, long stamp) override;
  void EndWriting() override;
  void EndReading() override;
  void BeginWriting() override;
  void BeginReading() override;
  FIFOState State() const override;
  void InterruptReading() override;
  void InterruptWriting() override;
  void ResumeReading() override;
  void ResumeWriting() override;

  /** Shutdown(), for however many threads sleep here. */
  void ShutdownForAll();

  AdaptiveMutex& Mutex() const { return mutex; }
  long Capacity() const { return slots - 1; }
  long Prefill() const { return prefill; }
  unsigned int Rate() const { return rate; }

  // These expect the mutex.
  long Count_l() const;

 private:
  using Lock = WakeUp::Lock;

  void Silence(unsigned char* dst, long got, long count) const;

  // These expect the mutex; those with a lock may sleep, and give it up meanwhile.
  void Reset_l();
  long Space_l() const { return slots - 1 - Count_l(); }
  long Write_l(Lock& lock, const unsigned char* src, long count, bool blocking, long& stamp);
  long OverWrite_l(Lock& lock, const unsigned char* src, long count, long stamp, long skip);
  long TakePieces_l(Lock& lock, unsigned char* dst, long count, bool blocking, long* stamp);
  long PutPieces_l(Lock& lock, const unsigned char* src, long count, long stamp);
  void ReportStamp_l(long* stamp) const;
  const unsigned char* CopyIn_l(const unsigned char* src, long count, long& stamp);
  void CopyOut_l(unsigned char* dst, long count);
  unsigned char* Slot_l(long pos) { return data.data() + static_cast<std::size_t>(pos) * sampleSize; }

  const unsigned int rate;  // of the time stamps; 0: there are none
  const unsigned long sampleSize;
  const long slots;
  const long prefill;

  // Guarded by mutex, and in lines of the cache apart from those that waiting threads look at.
  std::vector<unsigned char> data;
  StampRuns stamps;
  alignas(64) long readPos = 0;
  long writePos = 0;
  unsigned long long moves = 0;
  // Threads that sleep, by operation: an end wakes those in Take and Put alone.
  int inRead = 0, inTake = 0;
  int inWrite = 0, inPut = 0;
  bool shutdown = false;
  bool writingEnded = false;
  bool readingEnded = false;
  bool readingInterrupted = false;
  bool writingInterrupted = false;

  alignas(64) mutable AdaptiveMutex mutex;
  WakeUp spaceCond;  // writers wait here
  WakeUp dataCond;   // readers wait here
};

}  // namespace vorn
