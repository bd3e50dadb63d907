// An interrupt against its block's waits.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <thread>
#include <vector>

#include <vorn/kit/Interrupt.h>

namespace {

using vorn::Interrupt;

struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends), 0); }
  ~Pipe() { close(ends[0]), close(ends[1]); }
  int ends[2];
};

// Red if a wait misses the interrupt, whenever it is raised; if a ready descriptor is not preferred; or if one that was
// cleared still brings waits back.
TEST(Interrupt, BringsWaitsBackUntilItIsCleared) {
  Pipe quiet;
  for (int round = 0; round < 200; ++round) {
    Interrupt interrupt;
    if (round % 2 == 0) interrupt.Descriptor();
    std::thread host([&] { interrupt.Raise(); });
    EXPECT_EQ(interrupt.Await(quiet.ends[0], POLLIN), Interrupt::INTERRUPTED);
    EXPECT_EQ(interrupt.Sleep(60000), Interrupt::INTERRUPTED);
    host.join();
    interrupt.Clear();
    EXPECT_EQ(interrupt.Sleep(1), Interrupt::TIMEOUT);
    EXPECT_EQ(interrupt.Await(quiet.ends[0], POLLIN, 0), Interrupt::TIMEOUT);
    interrupt.Raise();
    EXPECT_EQ(interrupt.Await(quiet.ends[1], POLLOUT), Interrupt::READY);
    EXPECT_EQ(interrupt.Waits(), 1U);
    Interrupt early, other;
    early.Raise();
    EXPECT_EQ(other.Await(early.Descriptor(), POLLIN, 0), Interrupt::READY);
  }
}

// Red if a wait cannot be interrupted where no descriptor is left for it.
TEST(Interrupt, DoesWithoutADescriptor) {
  Pipe quiet;
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{static_cast<rlim_t>(quiet.ends[1]) + 1, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &few);
  std::vector<int> taken;
  for (int one = 0; (one = dup(quiet.ends[0])) >= 0;) taken.push_back(one);
  Interrupt interrupt;
  EXPECT_LT(interrupt.Descriptor(), 0);
  EXPECT_EQ(interrupt.Sleep(1), Interrupt::TIMEOUT);
  const auto raise = [](void* it) -> void* { return static_cast<Interrupt*>(it)->Raise(), nullptr; };
  pthread_t host{};  // a std::thread makes the undefined behaviour sanitizer look through a pipe of its own
  ASSERT_EQ(pthread_create(&host, nullptr, raise, &interrupt), 0);
  EXPECT_EQ(interrupt.Await(quiet.ends[0], POLLIN), Interrupt::INTERRUPTED);
  pthread_join(host, nullptr);
  setrlimit(RLIMIT_NOFILE, &before);
  for (const int one : taken) close(one);
}

}  // namespace
