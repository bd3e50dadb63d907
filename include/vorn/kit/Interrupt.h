/** Part of <vorn/Plugin.h>: what a block waits for besides a descriptor, so that its host can bring it back. */
#ifndef VORN_KIT_INTERRUPT_H
#define VORN_KIT_INTERRUPT_H

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vorn {

/**
 * An interrupt: a host raises it, and the block that waits comes back at once; later waits do not begin until it is
 * cleared. What needs no waiting goes on: of a descriptor that is ready Await() says so, interrupt or not.
 *
 *     if (interrupt.Await(fd, POLLIN) != vorn::Interrupt::READY) return vorn::FRAME_END_OF_FILE;
 *     const ssize_t got = read(fd, to, count);
 *
 * Costs nothing before the first wait: the descriptor is made then.
 *
 * Threads: Raise(), Clear() and IsRaised() any; the rest is the waiting block's.
 */
class Interrupt {
  using Clock = std::chrono::steady_clock;

 public:
  enum Result { READY, INTERRUPTED, TIMEOUT };

  static constexpr int FOR_EVER = -1;

  Interrupt() = default;
  ~Interrupt() {
    if (const int made = descriptor.load(); made >= 0) close(made);
  }
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /** Also in a signal handler. */
  void Raise() noexcept {
    raised.store(true);
    if (const int made = descriptor.load(); made >= 0) Wake(made);
  }

  void Clear() noexcept { raised.store(false); }
  bool IsRaised() const noexcept { return raised.load(std::memory_order_relaxed); }

  /**
   * Readable while the interrupt is raised, for a poll() of the block's own; -1 where the system has none left. It may
   * be readable for an instant longer: IsRaised() decides.
   */
  int Descriptor() noexcept {
    int made = descriptor.load();
    if (made < 0) {
      made = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
      descriptor.store(made);
      if (made >= 0 && raised.load()) Wake(made);  // who raised it before saw no descriptor
    }
    return made;
  }

  /**
   * Waits until a descriptor is ready for these events of poll(), or has failed.
   *
   * Open the descriptor with O_NONBLOCK: without, a write() of more than PIPE_BUF bytes sleeps until all are taken.
   */
  Result Await(int fd, short events, int millis = FOR_EVER) noexcept {
    pollfd fds[] = {{fd, events, 0}, {}};
    return Await(fds, 1, millis);
  }

  /** The same for several at once, whose `revents` say which. @param fds has room for one more behind the last. */
  Result Await(pollfd* fds, std::size_t count, int millis = FOR_EVER) noexcept {
    const Waiting wait(*this);
    return AwaitNow(fds, count, millis, wait.begin);
  }

  /**
   * Says that the block waits, as long as the object lives: for a wait by other means than Await(), in a library say. A
   * host sees then that the block waits and does not work.
   */
  class Waiting {
   public:
    explicit Waiting(Interrupt& newInterrupt) noexcept : interrupt(newInterrupt), begin(Clock::now()) {
      interrupt.waiting.store(true, std::memory_order_relaxed);
    }
    ~Waiting() {
      interrupt.waiting.store(false, std::memory_order_relaxed);
      const auto passed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begin).count();
      interrupt.slept.store(interrupt.Slept() + passed, std::memory_order_relaxed);
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

   private:
    friend class Interrupt;

    Interrupt& interrupt;
    const std::chrono::steady_clock::time_point begin;
  };

  /** Waits for the interrupt alone. */
  Result Sleep(int millis) noexcept {
    pollfd none{};
    return Await(&none, 0, millis);
  }

  /** Whether somebody waits now. Any thread. */
  bool IsWaiting() const noexcept { return waiting.load(std::memory_order_relaxed); }

  /** Nanoseconds that all waits took. Any thread. */
  std::int64_t Slept() const noexcept { return slept.load(std::memory_order_relaxed); }

  /** How many waits ended as they should: a host sees from it that a block moves. Any thread. */
  std::uint64_t Waits() const noexcept { return waits.load(std::memory_order_relaxed); }

 private:
  static constexpr int SLICE_MILLIS = 20;  // between two looks at the flag, where there is no descriptor

  Result AwaitNow(pollfd* fds, std::size_t count, int millis, Clock::time_point begin) noexcept {
    const auto end = begin + std::chrono::milliseconds(std::max(millis, 0));
    for (;;) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
      const int wait = millis < 0 ? FOR_EVER : static_cast<int>(std::max<long>(left, 0));
      if (Poll(fds, count, IsRaised() ? 0 : wait)) return Ready();
      if (IsRaised()) return INTERRUPTED;
      if (wait == 0) return TIMEOUT;
    }
  }

  /** Whether one of them is ready. Comes back early without a descriptor, and after a signal. */
  bool Poll(pollfd* fds, std::size_t count, int millis) noexcept {
    const int own = Descriptor();
    fds[count] = {own, POLLIN, 0};
    if (own < 0 && (millis < 0 || millis > SLICE_MILLIS)) millis = SLICE_MILLIS;
    const int ready = poll(fds, count + 1, millis);
    if (ready < 0) return errno != EINTR;  // the call that follows says what is wrong
    if (fds[count].revents == 0) return ready > 0;
    if (!IsRaised()) Calm(own);
    return ready > 1;
  }

  Result Ready() noexcept {
    waits.store(waits.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return READY;
  }

  static void Wake(int made) noexcept {
    const int errnoBefore = errno;
    const std::uint64_t one = 1;
    (void)!write(made, &one, sizeof one);
    errno = errnoBefore;
  }

  /** Of what was raised and cleared. A Raise() in between is not lost: it sets the flag first. */
  void Calm(int made) noexcept {
    std::uint64_t count = 0;
    (void)!read(made, &count, sizeof count);
    if (raised.load()) Wake(made);
  }

  std::atomic<bool> raised{false};
  std::atomic<int> descriptor{-1};
  std::atomic<bool> waiting{false};
  std::atomic<std::uint64_t> waits{0};
  std::atomic<std::int64_t> slept{0};
};

}  // namespace vorn

#endif
