// fifo [paced|loaded]: what 480 samples of 4 bytes cost through a FIFO of 4800, beside the two copies that they cannot
// do without and the queues that others would take.
//
// Prints a row a FIFO: mode, name, nanoseconds a frame (median, least, most), those of the processor. Both threads of
// the mode 2-thread go as fast as they can; each frame is checked on arrival. With "paced", a frame comes every 10 ms,
// and the row has the time from the write to the return of the reader; with "loaded", every core has a busy loop
// besides.
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <vorn/Vorn.h>

#include "Load.h"
#include "Measure.h"

#if __has_include(<boost/lockfree/spsc_queue.hpp>)
#include <boost/lockfree/spsc_queue.hpp>
#define HAVE_BOOST
#endif

namespace {

using namespace bench;

constexpr long FRAME = 480;
constexpr long CAPACITY = 4800;
using Samples = std::int32_t[FRAME];

void Pause() { __builtin_ia32_pause(); }

// The queues: each writes and reads a whole frame, and waits as it does.

struct TwoCopies {
  void Write(const Samples& from, long) { std::memcpy(memory + Advance(writeAt), from, sizeof from); }
  long Read(Samples& to) { return std::memcpy(to, memory + Advance(readAt), sizeof to), 0; }
  static long Advance(long& at) { return std::exchange(at, at + FRAME == CAPACITY ? 0 : at + FRAME); }

  alignas(64) std::int32_t memory[CAPACITY] = {};
  long writeAt = 0;
  long readAt = 0;
};

#ifdef HAVE_BOOST
struct BoostQueue {
  void Write(const Samples& from, long) {
    while (queue.write_available() < FRAME) Pause();
    queue.push(from, FRAME);
  }
  long Read(Samples& to) {
    while (queue.read_available() < FRAME) Pause();
    queue.pop(to, FRAME);
    return 0;
  }
  boost::lockfree::spsc_queue<std::int32_t> queue{CAPACITY};
};
#endif

/** What is written first: a lock, a condition, and the same memory. */
struct LockedQueue {
  void Write(const Samples& from, long stamp) {
    Move([this] { return fill < CAPACITY; }, [&] { copies.Write(from, stamp), fill += FRAME; });
  }
  long Read(Samples& to) {
    Move([this] { return fill > 0; }, [&] { copies.Read(to), fill -= FRAME; });
    return 0;
  }
  template <class Can, class Work>
  void Move(Can can, Work work) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, can);
    work();
    lock.unlock();
    changed.notify_one();
  }

  std::mutex mutex;
  std::condition_variable changed;
  long fill = 0;
  TwoCopies copies;
};

template <unsigned RATE>
struct VornFIFO {
  VornFIFO() : fifo(vorn::Vorn::Instance()->NewFIFO(RATE, sizeof(std::int32_t), CAPACITY, 0)) {}
  ~VornFIFO() { vorn::Vorn::Instance()->DeleteFIFO(fifo); }
  void Write(const Samples& from, long stamp) { fifo->Consume(from, FRAME, true, stamp); }
  long Read(Samples& to) {
    long stamp = 0;
    fifo->Produce(to, FRAME, true, &stamp);
    return stamp;
  }
  vorn::FIFO* fifo;
};
using Plain = VornFIFO<0>;
using Stamped = VornFIFO<48000>;

template <class Queue>
constexpr bool HAS_STAMPS = std::is_same_v<Queue, Stamped>;

constexpr long StampOf(long frame) { return frame * 10000; }

template <class Queue>
void Write(Queue& queue, Samples& samples, long frame) {
  samples[0] = samples[FRAME - 1] = static_cast<std::int32_t>(frame);
  queue.Write(samples, StampOf(frame));
}

/** Whether the frame that came is this one. */
template <class Queue>
bool Read(Queue& queue, Samples& samples, long frame) {
  const long stamp = queue.Read(samples);
  asm volatile("" : : "r"(&samples) : "memory");  // all of them are used
  return samples[0] == frame && samples[FRAME - 1] == frame && (!HAS_STAMPS<Queue> || stamp == StampOf(frame));
}

void Print(const char* mode, const char* name, const Runs& runs) {
  std::printf("%s\t%s\t", mode, name);
  runs.Print();
  std::printf("\n");
  std::fflush(stdout);
}

template <class Queue>
void OneThread(const char* name) {
  const long frames = Length(400'000);
  Queue queue;
  alignas(64) Samples in = {};
  alignas(64) Samples out = {};
  Print("1-thread", name, Repeat(static_cast<double>(frames), [&](Mark& from, Mark& to) {
          long right = 0;
          from = Mark::Now();
          for (long f = 0; f < frames; ++f) {
            Write(queue, in, f);
            right += Read(queue, out, f) ? 1 : 0;
          }
          to = Mark::Now();
          if (right != frames) Die("wrong data or stamps");
        }));
}

/** Calls `before` (frame) and `after` (frame) around the write and the read of each frame. */
template <class Queue, class Before, class After>
void Cross(Queue& queue, long frames, Before before, After after) {
  std::atomic<bool> ready{false};
  std::thread reader([&] {
    alignas(64) Samples out = {};
    ready = true;
    long right = 0;
    for (long f = 0; f < frames; ++f) {
      right += Read(queue, out, f) ? 1 : 0;
      after(f);
    }
    if (right != frames) Die("wrong data or stamps");
  });
  while (!ready) std::this_thread::yield();
  alignas(64) Samples in = {};
  for (long f = 0; f < frames; ++f) {
    before(f);
    Write(queue, in, f);
  }
  reader.join();
}

template <class Queue>
void TwoThreads(const char* name, long most = 400'000, const char* mode = "2-thread") {
  const long frames = Length(most);
  Queue queue;
  Print(mode, name, Repeat(static_cast<double>(frames), [&](Mark& from, Mark& to) {
          from = Mark::Now();
          Cross(
              queue, frames, [](long) {}, [](long) {});
          to = Mark::Now();
        }));
}

template <class Queue>
void Paced(const char* name) {
  const long frames = Length(200) + 10;
  Queue queue;
  Runs runs;
  for (int run = 0; run < RunCount(); ++run) {
    std::vector<double> written(static_cast<std::size_t>(frames));
    std::vector<double> late(written.size());
    const auto begin = std::chrono::steady_clock::now();
    const Mark from = Mark::Now();
    const auto wait = [&](long f) {
      std::this_thread::sleep_until(begin + f * std::chrono::milliseconds(10));
      written[static_cast<std::size_t>(f)] = ReadClock(CLOCK_MONOTONIC);
    };
    Cross(queue, frames, wait, [&](long f) {
      const auto at = static_cast<std::size_t>(f);
      late[at] = ReadClock(CLOCK_MONOTONIC) - written[at];
    });
    runs.Add(Median(late), (Mark::Now().cpu - from.cpu) / static_cast<double>(frames));
  }
  Print("paced", name, runs);
}

void AllPaced() {
  Paced<LockedQueue>("mutex and condition");
  Paced<Plain>("vorn");
  Paced<Stamped>("vorn, stamps");
}

void AllLoaded() {
  const Load load(std::thread::hardware_concurrency());
  TwoThreads<LockedQueue>("mutex and condition", 20'000, "loaded");
  TwoThreads<Plain>("vorn", 20'000, "loaded");
  TwoThreads<Stamped>("vorn, stamps", 20'000, "loaded");
}

/** The same with both threads on the core where this one runs. */
void AllOnOneCore() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
  sched_setaffinity(0, sizeof one, &one);
  TwoThreads<LockedQueue>("mutex and condition", 100'000, "1-core");
  TwoThreads<Plain>("vorn", 100'000, "1-core");
  TwoThreads<Stamped>("vorn, stamps", 100'000, "1-core");
}

void AllAtFullSpeed() {
  OneThread<TwoCopies>("two memcpys");
#ifdef HAVE_BOOST
  OneThread<BoostQueue>("boost spsc_queue");
#endif
  OneThread<LockedQueue>("mutex and condition");
  OneThread<Plain>("vorn");
  OneThread<Stamped>("vorn, stamps");
#ifdef HAVE_BOOST
  TwoThreads<BoostQueue>("boost spsc_queue, spinning");
#endif
  TwoThreads<LockedQueue>("mutex and condition", 100'000);
  TwoThreads<Plain>("vorn", 100'000);
  TwoThreads<Stamped>("vorn, stamps", 100'000);
  AllOnOneCore();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "paced") {
    AllPaced();
  } else if (mode == "loaded") {
    AllLoaded();
  } else {
    AllAtFullSpeed();
  }
}
