/**
 * FIFOs: ring buffers of samples with time stamps, between a client and a route, or between two routes.
 *
 * Vorn::NewFIFO makes one. A side that takes samples out holds it as a DataProducer (it produces data for that
 * side); a side that puts samples in holds it as a DataConsumer. How a block gets hold of its side is between the
 * client and the plug-in; <vorn/Plugin.h> names two Block::ioctl commands for it.
 *
 *     vorn::FIFO* fifo = vorn::Vorn::Instance()->NewFIFO(48000, 4, 4800, 0);  // stereo S16, 100 ms
 *     fifo->Consume(frame, 480, true, stamp);       // one thread puts 480 samples in
 *     fifo->Produce(frame, 480, true, &stamp);      // another takes 480 samples out
 *     fifo->Shutdown();                             // wakes both, for good
 *
 * A stream with an end goes through Put and Take:
 *
 *     fifo->Put(samples, count, true, stamp);       // the writer
 *     fifo->EndWriting();                           // "that was the last sample"
 *
 *     long got;                                     // the reader; the last frame may be short
 *     while ((got = fifo->Take(frame, 480, true, &stamp)) > 0) Use(frame, got);
 *     if (got == vorn::FRAME_END_OF_FILE) Finish(); // else -20: shut down
 *
 * Each side chooses for itself: Take also gives what Consume put in, and Produce what Put did. A route that stops says
 * neither: the client ends that side itself, in Route::Callbacks::OnStopped for one, or the other side waits on.
 *
 * Counts are in samples: one sample is one instant across all channels, `sampleSize` bytes.
 *
 * Threads: one reader and one writer at a time; the operations that move no samples from any thread.
 * Real time: a lock is taken, samples are copied, nothing is allocated. Only blocking calls wait. One that waits looks
 * for the other side for up to a tenth of a millisecond before it sleeps, as long as that side tends to come by then.
 */
#ifndef VORN_FIFO_H
#define VORN_FIFO_H

#include <string>

#include <vorn/Block.h>

namespace vorn {

/** The side that samples are taken from. */
class VORN_API DataProducer {
 public:
  virtual ~DataProducer();

  /**
   * Takes `count` samples out, into `dst`.
   *
   * Blocking: waits until all `count` samples were there. Keep `count` within the capacity: a writer that waits for
   * space is woken only when this returns. Not blocking: takes what there is and fills the rest of `dst` with zero
   * bytes, so `dst` always ends up full.
   *
   * @param stamp gets the time stamp in microseconds of the first sample taken: -1 for prefilled silence. Left alone
   *        when nothing was taken or the FIFO keeps no stamps (rate 0). May be null.
   * @return 0, or -20 once the FIFO is shut down; samples that a blocked call had taken by then are lost.
   */
  virtual int Produce(void* dst, long count, bool blocking, long* stamp) = 0;

  bool enabled = true;      ///< For the blocks; the library does not read it.
  Block* reader = nullptr;  ///< The block that takes samples out enters itself here: the status graph shows it.
};

/** The side that samples are put into. */
class VORN_API DataConsumer {
 public:
  virtual ~DataConsumer();

  /**
   * Puts `count` samples from `src` in.
   *
   * Blocking: waits for space until all are in. Keep `count` within the capacity, as above. Not blocking: never
   * waits; when the FIFO overflows, the oldest samples go and only the newest half of the capacity (rounded up)
   * stays, so that the reader gets a fresh start instead of an overflow at every call.
   *
   * @param stamp time in microseconds of the first sample; the others follow at the FIFO's rate.
   * @return 0, or -20 once the FIFO is shut down.
   */
  virtual int Consume(const void* src, long count, bool blocking, long stamp) = 0;

  bool enabled = true;      ///< For the blocks; the library does not read it.
  Block* writer = nullptr;  ///< The block that puts samples in enters itself here: the status graph shows it.
};

/**
 * What a FIFO was doing at one instant: for a host that watches.
 *
 * When two snapshots of a FIFO have the same `moves`, nothing happened in it between the two; and a side that sleeps
 * in both slept all the time between. A side that was woken does not count as asleep, even before its thread runs.
 */
struct FIFOState {
  long count = 0;                ///< Samples that can be taken at once.
  long capacity = 0;             ///< In samples.
  bool readerSleeps = false;     ///< A thread sleeps in Take or Produce, because the FIFO is empty.
  bool writerSleeps = false;     ///< A thread sleeps in Put or Consume, because the FIFO is full.
  bool writingEnded = false;     ///< EndWriting was called, and BeginWriting not since.
  bool readingEnded = false;     ///< EndReading was called, and BeginReading not since.
  unsigned long long moves = 0;  ///< Grows with every transfer of samples, every end and beginning, and Shutdown().
};

/** Both sides of one FIFO. Owned by the framework: see Vorn::NewFIFO and Vorn::DeleteFIFO. */
class VORN_API FIFO : public DataProducer, public DataConsumer {
 public:
  ~FIFO() override;

  int Produce(void* dst, long count, bool blocking, long* stamp) override = 0;
  /**
   * Ends the FIFO for good: every call returns -20 from now on. Of those that wait, one reader and one writer wake up.
   */
  virtual void Shutdown() = 0;
  int Consume(const void* src, long count, bool blocking, long stamp) override = 0;

  /**
   * Takes up to `count` samples out, into `dst`; tells where the stream ends.
   *
   * Blocking: waits until `count` samples were taken, or the writer has ended. Takes whatever is there at once, and
   * gives its space back to the writer at once, so `count` may be larger than the capacity; a writer that uses
   * Consume keeps to the capacity nevertheless. Not blocking: takes what there is and fills the rest of `dst` with
   * zero bytes; once the writer has ended, nothing is filled any more.
   *
   * @param stamp gets the time stamp in microseconds of the first sample that this call takes: see Produce.
   * @return `count`;
   *         1 to count-1: these were the last samples of the stream, and the rest of `dst` is untouched;
   *         FRAME_END_OF_FILE: the writer has ended and nothing is left;
   *         -20: the FIFO is shut down; samples that a blocked call had taken by then are lost.
   *
   * Thread: the reader's. Waiting: when blocking, for the writer. Real time: as Produce.
   */
  virtual long Take(void* dst, long count, bool blocking, long* stamp) = 0;

  /**
   * Puts `count` samples from `src` in; tells when nobody will read them.
   *
   * Blocking: waits until all are in, or the reader has ended. Puts in whatever there is space for at once, and
   * wakes the reader at once, so `count` may be larger than the capacity; a reader that uses Produce keeps to the
   * capacity nevertheless. Not blocking: as Consume, the oldest samples go when the FIFO overflows.
   *
   * @param stamp time in microseconds of the first sample; the others follow at the FIFO's rate.
   * @return `count`;
   *         FRAME_END_OF_FILE: the reader has ended; what is not in by then is dropped;
   *         -20: the FIFO is shut down.
   *
   * Thread: the writer's. Waiting: when blocking, for the reader. Real time: as Consume.
   */
  virtual long Put(const void* src, long count, bool blocking, long stamp) = 0;

  /**
   * "That was the last sample": Take gives the rest, then FRAME_END_OF_FILE. Wakes a reader that sleeps in Take.
   *
   * Produce knows no end and waits on. Samples that are put in after the end, without BeginWriting, add to the rest.
   *
   * Thread: any; a second call changes nothing. Waiting: never, save for the lock.
   */
  virtual void EndWriting() = 0;

  /**
   * "I read no more": Put answers FRAME_END_OF_FILE. Wakes a writer that sleeps in Put.
   *
   * The samples inside stay, for a reader that begins again. Consume knows no end: it waits for space as ever.
   *
   * Thread: any; a second call changes nothing. Waiting: never, save for the lock.
   */
  virtual void EndReading() = 0;

  /** Undoes EndWriting, for a writer that starts again: a reader that has not met the end yet will not meet it. */
  virtual void BeginWriting() = 0;
  /** Undoes EndReading, for a reader that starts again: it finds the samples that were left inside. */
  virtual void BeginReading() = 0;

  /** A snapshot. Thread: any. Waiting: never, save for the lock. */
  virtual FIFOState State() const = 0;

  /**
   * Brings the reader back: Take waits no more, until ResumeReading(). It returns what it has by then, which is less
   * than `count` and may be 0; all that stays in the FIFO is there for a later one. Produce knows no interrupt.
   *
   * Thread: any; a second call changes nothing. Waiting: never, save for the lock.
   */
  virtual void InterruptReading() = 0;
  /** The same for Put, which returns how many samples are in: the others are the caller's still. */
  virtual void InterruptWriting() = 0;
  virtual void ResumeReading() = 0;
  virtual void ResumeWriting() = 0;

  std::string name;  ///< fifo_0, fifo_1 and so on: given by the framework, read by the console. Do not change it.
};

}  // namespace vorn

#endif
