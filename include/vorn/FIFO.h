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
 * Counts are in samples: one sample is one instant across all channels, `sampleSize` bytes.
 *
 * Threads: one reader and one writer at a time; Shutdown() from any thread.
 * Real time: a lock is taken, samples are copied, nothing is allocated. Only blocking calls wait.
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

/** Both sides of one FIFO. Owned by the framework: see Vorn::NewFIFO and Vorn::DeleteFIFO. */
class VORN_API FIFO : public DataProducer, public DataConsumer {
 public:
  ~FIFO() override;

  int Produce(void* dst, long count, bool blocking, long* stamp) override = 0;
  /** Ends the FIFO for good: every call, waiting ones included, returns -20 from now on. */
  virtual void Shutdown() = 0;
  int Consume(const void* src, long count, bool blocking, long stamp) override = 0;

  std::string name;  ///< fifo_0, fifo_1 and so on: given by the framework, read by the console. Do not change it.
};

}  // namespace vorn

#endif
