// FIFOs against a model, across threads, and at their limits.
#include <sched.h>

#include <deque>
#include <limits>
#include <random>

#include "RingBuffer/RingBuffer.h"
#include "testkit/RouteTest.h"

constexpr long UNTOUCHED = 4711;

// By the operations with an end, which return a count, or by those without.
long Write(RingBuffer& fifo, bool streaming, void* from, long count, bool blocking = true, long stamp = 0) {
  return streaming ? fifo.Put(from, count, blocking, stamp) : fifo.Consume(from, count, blocking, stamp);
}
long Read(RingBuffer& fifo, bool streaming, void* to, long count, bool blocking = true, long* stamp = nullptr) {
  return streaming ? fifo.Take(to, count, blocking, stamp) : fifo.Produce(to, count, blocking, stamp);
}

long CountOf(const RingBuffer& fifo) {
  const std::lock_guard lock(fifo.Mutex());
  return fifo.Count_l();
}

// What a FIFO holds. The k-th sample written carries the value k; silence is 0.
struct Model {
  long Count() const { return static_cast<long>(held.size()); }
  void Put(long count, long& stamp) {
    for (long piece; count > 0; count -= piece) {
      piece = std::min(count, capacity + 1 - position);
      for (long k = 0; k < piece; ++k) held.push_back({++last, stamp + k * 1000000 / rate});
      stamp += piece * 1000000 / rate;
      position = (position + piece) % (capacity + 1);
    }
  }
  void Write(long count, long stamp) {
    const long fits = std::min(count, capacity - Count());
    Put(fits, stamp);
    if (fits == count) return;
    Put(count - fits, stamp);
    while (Count() > capacity - capacity / 2) held.pop_front();
  }
  int Take() {
    const int value = held.empty() ? 0 : held.front().first;
    if (!held.empty()) held.pop_front();
    return value;
  }
  const long rate, capacity;
  std::deque<std::pair<int, long>> held;  // values and stamps
  long position = Count();
  int last = 0;
};

// Red if a wrap, an overflow, a shortage or the silence at the start loses, doubles or misdates a sample.
TEST(RingBuffer, DoesWhatItsModelDoes) {
  for (auto [rate, capacity, prefill] :
       {std::tuple{48000u, 7L, 3}, {44100, 64, 64}, {7, 1, 0}, {48000, 1500, 0}, {44101, 700, 9}}) {
    std::mt19937 random(rate);
    RingBuffer fifo(rate, sizeof(int), capacity, prefill);
    fifo.name = "fifo_0";
    Log::Keep("V");
    Model model{rate, capacity, {static_cast<std::size_t>(prefill), {0, -1}}};
    for (int step = 0; step < 5000; ++step) {
      const bool blocking = random() % 2, writing = random() % 2, streaming = random() % 2;
      const long possible = writing ? capacity - model.Count() : model.Count();
      const long count = static_cast<long>(random() % 5000) % (blocking ? possible + 1 : 3 * capacity);
      const std::string beyond = std::to_string(count - possible);
      std::vector<int> samples(static_cast<std::size_t>(count), -1);
      std::string complaint;
      if (writing) {
        std::iota(samples.begin(), samples.end(), model.last + 1);
        ASSERT_EQ(Write(fifo, streaming, samples.data(), count, blocking, 1000L * step), streaming ? count : 0);
        model.Write(count, 1000L * step);
        complaint = "V fifo_0: Ring buffer is full, overwrite " + beyond + " samples";
      } else {
        long stamp = UNTOUCHED;
        ASSERT_EQ(Read(fifo, streaming, samples.data(), count, blocking, &stamp), streaming ? count : 0);
        ASSERT_EQ(stamp, count && model.Count() ? model.held.front().second : UNTOUCHED) << step;
        for (int sample : samples) ASSERT_EQ(sample, model.Take()) << step;
        complaint = "V fifo_0: Not enough data in ring buffer, filling " + beyond + " samples silence";
      }
      ASSERT_EQ(Log::Take(), Lines(count > possible ? complaint : ""));
      ASSERT_EQ(CountOf(fifo), model.Count());
    }
  }
}

// Now within the capacity, and the rest of the samples; now for any number, which needs an operation with an end.
struct Request {
  Request(std::mt19937& random, const RingBuffer& fifo, int rest) : streams(random() % 2) {
    const int size = static_cast<int>(random() & 0xffff), capacity = static_cast<int>(fifo.Capacity());
    count = streams ? size % (4 * capacity) : std::min(size % (capacity + 1), rest);
  }
  const bool streams;
  int count;
};

void WriteAll(RingBuffer& fifo, int total) {
  std::mt19937 random(1);
  std::vector<int> samples(static_cast<std::size_t>(4 * fifo.Capacity()));
  for (int next = 0, size; next < total; next += size) {
    const Request request(random, fifo, total - next);
    size = std::min(request.count, total - next);
    std::iota(samples.begin(), samples.begin() + size, next);
    Write(fifo, request.streams, samples.data(), size, true, next * 20L);
  }
  fifo.EndWriting();
}

// Samples, counts or stamps that are not the ones expected.
int FaultsInReadingAll(RingBuffer& fifo, int total) {
  std::mt19937 random(2);
  std::vector<int> samples(static_cast<std::size_t>(4 * fifo.Capacity()));
  int faults = 0;
  for (int next = 0, size; next < total; next += size) {
    const Request request(random, fifo, total - next);
    size = std::min(request.count, total - next);
    long stamp = next * 20L;
    faults += Read(fifo, request.streams, samples.data(), request.count, true, &stamp) != (request.streams ? size : 0);
    faults += stamp != next * 20L;
    for (int k = 0; k < size; ++k) faults += samples[static_cast<std::size_t>(k)] != next + k;
  }
  for (const long count : {6L, 0L, 1L}) {
    for (const bool blocking : {true, false}) {
      faults += fifo.Take(samples.data(), count, blocking, nullptr) != FRAME_END_OF_FILE;
    }
  }
  return faults;
}

// Red if a reader and a writer that cross lose a sample, a wake-up or the end, or misdate a sample, with both kinds of
// operation at once and requests beyond the capacity.
TEST(RingBuffer, CarriesSamplesBetweenThreadsOverManyWraps) {
  for (auto [capacity, total] : {std::pair{1L, 10000}, {17, 100000}, {480, 1000000}}) {
    RingBuffer fifo(50000, sizeof(int), capacity, 0);  // 20 us a sample, without a rest
    std::thread writer([&, total = total] { WriteAll(fifo, total); });
    EXPECT_EQ(FaultsInReadingAll(fifo, total), 0) << capacity;
    writer.join();
  }
}

// Red if an end leaves the other side asleep, drops what it had already, or wakes it with a wrong result.
TEST(RingBuffer, WakesTheOtherSideAtAnEnd) {
  RingBuffer fifo(50000, sizeof(int), 4, 2);
  int in[6] = {1, 2, 3, 4, 5, 6}, out[6] = {-1, -1, -1, -1, -1, -1};
  long result = 0;
  std::thread reader([&] { result = fifo.Take(out, 5, true, nullptr); });
  EXPECT_TRUE(WaitUntil([&] { return fifo.State().readerSleeps; }));
  fifo.EndWriting();
  reader.join();
  EXPECT_EQ(result, 2);
  EXPECT_EQ(std::vector<int>(out, out + 6), (std::vector<int>{0, 0, -1, -1, -1, -1}));
  fifo.BeginWriting();
  EXPECT_EQ(fifo.Put(in, 3, true, 60), 3);
  for (int twice = 0; twice < 2; ++twice) fifo.EndWriting();
  long stamp = UNTOUCHED;
  for (const long count : {2L, 1L, long{FRAME_END_OF_FILE}}) EXPECT_EQ(fifo.Take(out, 2, false, &stamp), count);
  EXPECT_EQ(stamp, 100);
  EXPECT_TRUE(out[0] == 3 && out[1] == 2);
  fifo.BeginWriting();
  EXPECT_EQ(fifo.Take(out, 2, false, nullptr), 2);  // silence, no end any more
  fifo.EndWriting();

  std::thread writer([&] { result = fifo.Put(in, 6, true, 0); });
  EXPECT_TRUE(WaitUntil([&] { return fifo.State().writerSleeps; }));
  fifo.EndReading();
  writer.join();
  EXPECT_EQ(result, FRAME_END_OF_FILE);
  for (const bool blocking : {false, true}) EXPECT_EQ(fifo.Put(in, 1, blocking, 0), FRAME_END_OF_FILE);
  fifo.BeginReading();
  EXPECT_EQ(fifo.Take(out, 6, true, nullptr), 4);  // what was left inside
  EXPECT_EQ(fifo.Put(in + 4, 2, true, 0), 2);
  EXPECT_EQ(fifo.Take(out + 4, 2, true, nullptr), 2);
  EXPECT_TRUE(std::equal(in, in + 6, out));
}

// Red if a reader who wakes gets between the two steps of a write over the oldest samples. On one processor he runs at
// once.
TEST(RingBuffer, OverwritesInOneStep) {
  cpu_set_t all, one;
  sched_getaffinity(0, sizeof all, &all);
  CPU_ZERO(&one);
  for (int cpu = 0; CPU_COUNT(&one) == 0; ++cpu) {
    if (CPU_ISSET(cpu, &all)) CPU_SET(cpu, &one);
  }
  sched_setaffinity(0, sizeof one, &one);
  RingBuffer fifo(0, sizeof(int), 8, 0);
  std::atomic<int> wrong{0};
  std::thread reader([&] {
    for (int got[4]; fifo.Produce(got, 4, true, nullptr) == 0;) wrong += got[0] == 9 ? 0 : 1;
  });
  const int samples[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  for (int round = 0; round < 200 && wrong == 0; ++round) {
    EXPECT_TRUE(WaitUntil([&] { return fifo.State().readerSleeps || wrong != 0; }));
    fifo.Consume(samples, 12, false, 0);
  }
  fifo.Shutdown();
  reader.join();
  EXPECT_EQ(wrong, 0);
  sched_setaffinity(0, sizeof all, &all);
}

// Red if more stamps are kept than there is room for, where a long write overwrites itself again and again.
TEST(RingBuffer, OverwritesWhatItWrites) {
  RingBuffer fifo(1'000'000, 1, 3, 0);
  std::vector<unsigned char> bytes(100'000);
  for (const long stamp : {10, 20, 30}) fifo.Write(bytes.data(), 1, false, stamp);
  fifo.OverWrite(bytes.data(), 100'000, 1000, 0);
  long stamp = 0;
  EXPECT_EQ(fifo.Read(bytes.data(), 9, false, &stamp), 3);
  EXPECT_EQ(stamp, 1000 + 99'997);
}

// Red if a host would take somebody for asleep who is not, or the other way round, or overlook what happened between.
TEST(RingBuffer, TellsTheStateOfBothSides) {
  RingBuffer fifo(50000, 1, 3, 1);
  unsigned char bytes[4] = {};
  unsigned long long moves = fifo.State().moves;
  const auto moved = [&] {
    const auto before = std::exchange(moves, fifo.State().moves);
    return before < moves;
  };
  EXPECT_EQ(fifo.Put(bytes, 1, true, 0) + moved(), 2);
  EXPECT_EQ(fifo.Take(bytes, 1, true, nullptr) + moved(), 2);
  EXPECT_TRUE(fifo.State().count == 1 && fifo.State().capacity == 3);
  for (const auto change : {&FIFO::EndWriting, &FIFO::EndReading, &FIFO::BeginWriting, &FIFO::BeginReading}) {
    (fifo.*change)();
    const FIFOState state = fifo.State();
    EXPECT_EQ(state.writingEnded, change == &FIFO::EndWriting || change == &FIFO::EndReading);
    EXPECT_EQ(state.readingEnded, change == &FIFO::EndReading || change == &FIFO::BeginWriting);
    EXPECT_TRUE(moved());
  }
  for (const bool streaming : {false, true}) {
    fifo.Reset();
    EXPECT_TRUE(moved());
    if (!streaming) fifo.EndWriting();  // which Produce does not know
    std::thread reader([&] { Read(fifo, streaming, bytes, 3); });
    EXPECT_TRUE(WaitUntil([&] { return fifo.State().readerSleeps; }) && moved());
    fifo.Reset();  // wakes nobody, but there is a sample now
    EXPECT_FALSE(fifo.State().readerSleeps);
    unsigned char byte = 0;
    fifo.Consume(&byte, 1, true, 0);
    reader.join();
    EXPECT_TRUE(!fifo.State().readerSleeps && moved());
    fifo.BeginWriting();
    EXPECT_TRUE(moved());
    EXPECT_EQ(Read(fifo, streaming, bytes, 1, false), streaming);
    EXPECT_FALSE(moved());  // by a call that found nothing

    fifo.Put(bytes, 3, true, 0);
    std::thread writer([&] { Write(fifo, streaming, bytes, 1); });
    EXPECT_TRUE(WaitUntil([&] { return fifo.State().writerSleeps; }) && moved());
    fifo.Produce(bytes, 1, true, nullptr);
    writer.join();
    EXPECT_TRUE(!fifo.State().writerSleeps && moved());
  }
  fifo.Shutdown();
  EXPECT_TRUE(moved());
}

// Red if a size that no memory holds is taken, or one that is odd but possible is refused or crashes.
TEST(RingBuffer, ChecksItsSizes) {
  constexpr long MOST = std::numeric_limits<long>::max();
  for (auto [rate, sampleSize, capacity] :
       {std::tuple{0u, 1ul, -1L}, {0, 1, MOST}, {0, 2, MOST / 2}, {0, ~0ul, 1}, {8, 0, MOST / 8}}) {
    EXPECT_THROW(RingBuffer(rate, sampleSize, capacity, 0), std::length_error) << sampleSize << " * " << capacity;
  }
  for (auto [prefill, held] : {std::pair{-3L, 0L}, {0, 0}, {4, 4}, {5, 4}, {MOST, 4}}) {
    EXPECT_EQ(CountOf(RingBuffer(8000, 1, 4, prefill)), held);
  }
  unsigned char byte = 1;
  RingBuffer none(8000, 1, 0, 0), empty(8000, 0, 4, 2);
  EXPECT_EQ(none.Consume(&byte, 1, false, 0) + none.Produce(&byte, 1, false, nullptr) + byte, 0);
  for (int i : {1, 2, 3}) EXPECT_EQ(empty.Consume(nullptr, i, false, 0) + empty.Produce(nullptr, 4, false, nullptr), 0);
}

// Red if a shut-down leaves a side asleep, in either kind of operation, or anything but -20 comes after it.
TEST(RingBuffer, ShutsDownForGood) {
  for (const bool streaming : {false, true}) {
    RingBuffer full(8000, 1, 2, 2), empty(8000, 1, 2, 1);
    unsigned char byte = 0, bytes[2];
    long results[2] = {};
    std::thread writer([&] { results[0] = Write(full, streaming, &byte, 1); });
    std::thread reader([&] { results[1] = Read(empty, streaming, bytes, 2); });
    EXPECT_TRUE(WaitUntil([&] { return full.State().writerSleeps && empty.State().readerSleeps; }));
    EXPECT_EQ(CountOf(empty), 0);  // the reader has one of two samples
    full.Shutdown();
    EXPECT_FALSE(full.State().writerSleeps);
    empty.Shutdown();
    EXPECT_FALSE(empty.State().readerSleeps);
    writer.join();
    reader.join();
    EXPECT_TRUE(results[0] == -20 && results[1] == -20);
    full.Reset();
    EXPECT_EQ(CountOf(full), 2);
    EXPECT_EQ(full.Read(&byte, 0, false, nullptr) + full.Write(&byte, 0, false, 0), -40);
    EXPECT_EQ(full.OverWrite(&byte, 0, 0, 0) + full.Produce(&byte, 1, false, nullptr), -40);
    full.EndWriting();
    full.EndReading();
    EXPECT_EQ(full.Take(&byte, 0, streaming, nullptr) + full.Put(&byte, 1, streaming, 0), -40);
    EXPECT_EQ(full.Consume(&byte, 1, false, 0), -20);
  }
}
