// FIFOs against a model, across threads, and at their limits.
#include <deque>
#include <limits>
#include <random>

#include "RingBuffer/RingBuffer.h"
#include "testkit/RouteTest.h"

constexpr long UNTOUCHED = 4711;

long CountOf(const RingBuffer& fifo) {
  const std::lock_guard<std::mutex> lock(fifo.Mutex());
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
      const bool blocking = random() % 2, writing = random() % 2;
      const long possible = writing ? capacity - model.Count() : model.Count();
      const long count = static_cast<long>(random() % 5000) % (blocking ? possible + 1 : 3 * capacity);
      const std::string beyond = std::to_string(count - possible);
      std::vector<int> samples(static_cast<std::size_t>(count), -1);
      std::string complaint;
      if (writing) {
        std::iota(samples.begin(), samples.end(), model.last + 1);
        ASSERT_EQ(fifo.Consume(samples.data(), count, blocking, 1000L * step), 0);
        model.Write(count, 1000L * step);
        complaint = "V fifo_0: Ring buffer is full, overwrite " + beyond + " samples";
      } else {
        long stamp = UNTOUCHED;
        ASSERT_EQ(fifo.Produce(samples.data(), count, blocking, &stamp), 0);
        ASSERT_EQ(stamp, count && model.Count() ? model.held.front().second : UNTOUCHED) << step;
        for (int sample : samples) ASSERT_EQ(sample, model.Take()) << step;
        complaint = "V fifo_0: Not enough data in ring buffer, filling " + beyond + " samples silence";
      }
      ASSERT_EQ(Log::Take(), Lines(count > possible ? complaint : ""));
      ASSERT_EQ(CountOf(fifo), model.Count());
    }
  }
}

// Red if a reader and a writer that cross lose a sample or a wake-up, or misdate one.
TEST(RingBuffer, CarriesSamplesBetweenThreadsOverManyWraps) {
  constexpr int TOTAL = 100000;
  RingBuffer fifo(50000, sizeof(int), 17, 0);  // 20 us a sample, without a rest
  std::thread writer([&] {
    int samples[17];
    for (int next = 0, size = 1; next < TOTAL; next += size, size = std::min(size % 11 + 2, TOTAL - next)) {
      std::iota(samples, samples + size, next);
      fifo.Consume(samples, size, true, next * 20L);
    }
  });
  int wrong = 0;
  for (int next = 0, size = 5; next < TOTAL; next += size, size = std::min(size % 6 + 1, TOTAL - next)) {
    int samples[17];
    long stamp = -1;
    wrong += fifo.Produce(samples, size, true, &stamp) != 0 || stamp != next * 20L;
    for (int k = 0; k < size; ++k) wrong += samples[k] != next + k;
  }
  EXPECT_EQ(wrong, 0);
  writer.join();
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

// Red if a shut-down leaves a side asleep, or anything but -20 comes after it.
TEST(RingBuffer, ShutsDownForGood) {
  RingBuffer full(8000, 1, 2, 2), empty(8000, 1, 2, 1);
  unsigned char byte = 0, bytes[2];
  int results[2] = {};
  std::thread writer([&] { results[0] = full.Consume(&byte, 1, true, 0); });
  std::thread reader([&] { results[1] = empty.Produce(bytes, 2, true, nullptr); });
  EXPECT_TRUE(WaitUntil([&] { return CountOf(empty) == 0; }));  // the reader has one of two samples, and sleeps
  for (RingBuffer* fifo : {&full, &empty}) fifo->Shutdown();
  writer.join();
  reader.join();
  EXPECT_TRUE(results[0] == -20 && results[1] == -20);
  full.Reset();
  EXPECT_EQ(CountOf(full), 2);
  EXPECT_EQ(full.Read(&byte, 0, false, nullptr) + full.Write(&byte, 0, false, 0) + full.OverWrite(&byte, 0, 0, 0), -60);
  EXPECT_EQ(full.Produce(&byte, 1, false, nullptr) + full.Consume(&byte, 1, false, 0), -40);
}
