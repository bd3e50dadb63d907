// What wakes the main thread: routes that start and stop, signals, and time.
#pragma once

#include <vorn/Route.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

namespace vorn::graph {

struct RouteEvent {
  std::size_t route;
  std::optional<Route::StopReason> stopped;  ///< Nothing: it started.
  int asked = 0;                             ///< Of a start: the real-time priority that was asked for.
  int error = 0;                             ///< Of a start: 0, or the errno that kept it from the route.
};

/** What routes tell, on its way from their threads to the main thread. */
class RouteEvents {
 public:
  RouteEvents();
  ~RouteEvents();
  RouteEvents(const RouteEvents&) = delete;
  RouteEvents& operator=(const RouteEvents&) = delete;

  void Post(const RouteEvent& event);
  std::vector<RouteEvent> Take();
  /** Readable while there are any. */
  int Descriptor() const { return descriptor; }

 private:
  const int descriptor;
  std::mutex mutex;
  std::vector<RouteEvent> events;
};

/** Of one route. */
class RouteWatch final : public Route::Callbacks {
 public:
  /** @param newPriority 1 to 99: what the route's thread asks for when it starts. 0: nothing. */
  RouteWatch(std::size_t index, int newPriority, RouteEvents& newEvents)
      : route(index), priority(newPriority), events(newEvents) {}

  void OnStarted() override;
  void OnStopped(Route::StopReason reason) override { events.Post({route, reason, 0, 0}); }

 private:
  const std::size_t route;
  const int priority;
  RouteEvents& events;
};

/**
 * Turns the signals that ask a program to end into something to wait for, from its construction until a stop begins.
 * From then on they end the program at once: it may be the stop that hangs. A signal that was ignored before stays
 * ignored.
 *
 * Thread: the main one, and the only one of the program that does not block these signals.
 */
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  int Descriptor() const { return descriptor; }
  /** The signal that came, or 0. */
  int Take() const;
  void EndProgramFromNowOn();

 private:
  sigset_t signals;
  int descriptor = -1;
};

/** Waits until one of the two has something to take, or until then. */
void WaitFor(const RouteEvents& events, const StopSignals& signals, std::chrono::steady_clock::time_point until);

}  // namespace vorn::graph
