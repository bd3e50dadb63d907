#include "Wakeup.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace vorn::graph {

RouteEvents::RouteEvents() : descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

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
  return std::exchange(events, {});
}

void RouteWatch::OnStarted() {
  int error = 0;
  if (priority > 0) {
    const sched_param parameters{priority};
    error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
  }
  events.Post({route, std::nullopt, priority, error});
}

StopSignals::StopSignals() {
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_IGN) sigaddset(&signals, signal);
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

StopSignals::~StopSignals() {
  EndProgramFromNowOn();
  close(descriptor);
}

int StopSignals::Take() const {
  signalfd_siginfo info{};
  return read(descriptor, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

void StopSignals::EndProgramFromNowOn() { pthread_sigmask(SIG_UNBLOCK, &signals, nullptr); }

void WaitFor(const RouteEvents& events, const StopSignals& signals, std::chrono::steady_clock::time_point until) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
  pollfd descriptors[] = {{events.Descriptor(), POLLIN, 0}, {signals.Descriptor(), POLLIN, 0}};
  poll(descriptors, 2, static_cast<int>(std::clamp<long>(left.count(), 0, 60'000)));
}

}  // namespace vorn::graph
