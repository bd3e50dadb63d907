#include "Wakeup.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace vorn::graph {

// Room for what all routes may tell at once: what a thread of a route has to say must not depend on memory.
RouteEvents::RouteEvents() : descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) { events.reserve(128); }

RouteEvents::~RouteEvents() { close(descriptor); }

void RouteEvents::Post(const RouteEvent& event) {
  const std::lock_guard lock(mutex);
  events.push_back(event);
  eventfd_write(descriptor, 1);
}

std::vector<RouteEvent> RouteEvents::Take() {
  const std::lock_guard lock(mutex);
  eventfd_t count = 0;
  eventfd_read(descriptor, &count);
  std::vector<RouteEvent> taken(events);
  events.clear();
  return taken;
}

void RouteEvents::AskToStop(int signal) noexcept {
  static_assert(std::atomic<int>::is_always_lock_free);
  int before = NOBODY_ASKED;
  stop.compare_exchange_strong(before, signal);
  const int errnoBefore = errno;
  const eventfd_t one = 1;
  (void)!write(descriptor, &one, sizeof one);  // unlike eventfd_write() it is promised to signal handlers
  errno = errnoBefore;
}

std::optional<int> RouteEvents::TakeStop() {
  const int signal = stop.exchange(NOBODY_ASKED);
  return signal == NOBODY_ASKED ? std::nullopt : std::optional(signal);
}

void RouteEvents::WaitUntil(std::chrono::steady_clock::time_point until) const {
  if (stop != NOBODY_ASKED) return;  // Take() may have taken its wake-up
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
  pollfd wakeup{descriptor, POLLIN, 0};
  poll(&wakeup, 1, static_cast<int>(std::clamp<long>(left.count(), 0, 60'000)));
}

namespace {

/** What blocks need of it is there afterwards, and no frame waits for a page. */
[[gnu::noinline]] void TouchStack() {
  constexpr std::size_t DEPTH = 256 * 1024, PAGE = 4096;
  std::array<char, DEPTH> stack;
  for (std::size_t at = 0; at < DEPTH; at += PAGE) *const_cast<volatile char*>(&stack[at]) = 0;
}

}  // namespace

void RouteWatch::SealAtStop(Interrupt& interrupt) {
  const std::lock_guard lock(mutex);
  interrupts.push_back(&interrupt);
}

void RouteWatch::WaitForExit() {
  std::unique_lock lock(mutex);
  exited.wait(lock, [this] { return hasExited; });
}

void RouteWatch::OnStarted() {
  int error = 0;
  if (priority > 0) {
    TouchStack();
    const sched_param parameters{priority};
    error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
  }
  events.Post({.what = RouteEvent::What::STARTED, .route = route, .asked = priority, .error = error});
}

void RouteWatch::OnStopped(Route::StopReason reason) {
  {
    const std::lock_guard lock(mutex);
    for (Interrupt* interrupt : interrupts) interrupt->Raise();
  }
  events.Post({.what = RouteEvent::What::STOPPED, .route = route, .reason = reason});
}

// Under the lock to the end: whoever waits for this deletes the watch.
void RouteWatch::OnExit() {
  events.Post({.what = RouteEvent::What::DELETED, .route = route});
  const std::lock_guard lock(mutex);
  hasExited = true;
  exited.notify_all();
}

}  // namespace vorn::graph
