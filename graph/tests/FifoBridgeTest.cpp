// Samples carry their index, so a lost or doubled one shows.
#include <gtest/gtest.h>
#include <vorn/Vorn.h>

#include <numeric>
#include <thread>

#include "FifoBridge.h"

namespace vorn::graph {
namespace {

constexpr int REFUSED = -20;

/** A FIFO of ints in the library, and its bridge. */
struct Joined {
  explicit Joined(long capacity, long prefill = 0)
      : fifo(Vorn::Instance()->NewFIFO(1000, sizeof(int), capacity, prefill)),
        bridge(*fifo, 1000, sizeof(int), capacity, prefill) {}
  ~Joined() { Vorn::Instance()->DeleteFIFO(fifo); }

  int Put(int first, long count, bool blocking = true) {
    std::vector<int> samples(count);
    std::iota(samples.begin(), samples.end(), first);
    return bridge.Consume(samples.data(), count, blocking, first * 1000L);
  }
  /** What a read of `count` gives, all of it; one entry where it was refused. */
  std::vector<int> Get(long count, bool blocking = true) {
    std::vector<int> samples(count, -1);
    const int result = bridge.Produce(samples.data(), count, blocking, &stamp);
    if (result < 0) return {result};
    if (result > 0) samples.resize(result);
    return samples;
  }

  FIFO* fifo;
  FifoBridge bridge;
  long stamp = -1;
};

std::vector<int> From(int first, long count) {
  std::vector<int> samples(count);
  std::iota(samples.begin(), samples.end(), first);
  return samples;
}

// Sizes that fit neither each other nor the FIFO, and reads larger than it. Every sample crosses, the last, short ones
// too.
TEST(FifoBridge, PassesOnEverySampleUntilTheWriterHasEnded) {
  for (const auto& [capacity, put, get, total] : {std::tuple{23L, 7L, 11L, 10007L},
                                                  {4L, 2L, 2L, 1000L},
                                                  {5L, 12L, 17L, 9999L},
                                                  {100L, 1L, 50L, 1234L},
                                                  {8L, 3L, 4L, 0L}}) {
    Joined joined(capacity);
    std::thread writer([&, put = put, total = total] {
      for (long done = 0; done < total; done += put) joined.Put(static_cast<int>(done), std::min(put, total - done));
      joined.bridge.EndWriter();
    });
    std::vector<int> all;
    for (bool isShort = false; !isShort;) {
      const auto got = joined.Get(get);
      if (got == std::vector<int>{REFUSED}) break;
      isShort = static_cast<long>(got.size()) < get;
      EXPECT_EQ(joined.stamp, all.size() * 1000L);
      all.insert(all.end(), got.begin(), got.end());
    }
    writer.join();
    EXPECT_EQ(all, From(0, total));
    EXPECT_TRUE(joined.bridge.IsDrained());
    EXPECT_EQ(joined.Get(1), std::vector<int>{REFUSED});
    EXPECT_EQ(joined.Get(1, false), std::vector<int>{REFUSED});
  }
}

// The count of what is in it must agree with the FIFO, or a later read takes silence for samples.
TEST(FifoBridge, KeepsCountWhenNobodyWaits) {
  Joined joined(10, 3);
  EXPECT_EQ(joined.Get(4, false), (std::vector{0, 0, 0, 0}));  // the prefill, and silence for want of more
  joined.Put(100, 8, false);
  joined.Put(108, 8, false);  // overflows: the newer half stays
  EXPECT_EQ(joined.Get(2), From(111, 2));
  joined.Put(116, 2, false);
  joined.bridge.EndWriter();
  EXPECT_EQ(joined.Get(9), From(113, 5));
}

TEST(FifoBridge, EndsWakeWhoeverWaits) {
  Joined empty(10);
  std::thread reader([&] { EXPECT_EQ(empty.Get(5), From(0, 3)); });
  empty.Put(0, 3);
  empty.bridge.EndWriter();
  reader.join();

  Joined full(10);
  full.Put(0, 10);
  std::thread writer([&] { EXPECT_EQ(full.Put(10, 25), 0); });
  full.bridge.EndReader();
  writer.join();
  EXPECT_EQ(full.Put(35, 100), 0) << "a writer goes on without its reader";

  for (const bool reads : {true, false}) {
    Joined joined(10);
    joined.Put(0, 8);
    std::thread waiting([&] { reads ? joined.Get(9) : std::vector{joined.Put(8, 9)}; });
    joined.bridge.Shutdown();
    waiting.join();
    EXPECT_EQ(joined.Put(0, 1), REFUSED);
    EXPECT_EQ(joined.Get(1), std::vector<int>{REFUSED});
    EXPECT_EQ(joined.fifo->Consume(nullptr, 0, true, 0), REFUSED) << "the library's own is shut down too";
  }
}

}  // namespace
}  // namespace vorn::graph
