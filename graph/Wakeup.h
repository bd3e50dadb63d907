// What wakes the thread of a run: routes that start, stop and go away, whoever wants it to end, and time.
#pragma once

#include <vorn/Route.h>
#include <vorn/kit/Interrupt.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

namespace vorn::graph {

struct RouteEvent {
  enum class What {
    STARTED,       ///< It runs: whoever started it.
    START_RESULT,  ///< Of the start that the run asked for, with `result`.
    STOPPED,       ///< With `reason`.
    DELETED,
  };

  What what;
  std::size_t route;
  Route::StopReason reason = Route::StopReason::STOP_REQUESTED;
  int result = 0;
  int asked = 0;  ///< Of STARTED: the real-time priority that was asked for.
  int error = 0;  ///< Of STARTED: 0, or the errno that kept it from the route.
};

/** What routes tell, on its way from their threads to the one that runs them. */
class RouteEvents {
 public:
  RouteEvents();
  ~RouteEvents();
  RouteEvents(const RouteEvents&) = delete;
  RouteEvents& operator=(const RouteEvents&) = delete;

  void Post(const RouteEvent& event);
  std::vector<RouteEvent> Take();

  /** From any thread and any signal handler. The first counts until it is taken. */
  void AskToStop(int signal) noexcept;
  /** What AskToStop() was told. */
  std::optional<int> TakeStop();

  /** Waits until there is something to take, or until then. */
  void WaitUntil(std::chrono::steady_clock::time_point until) const;

 private:
  static constexpr int NOBODY_ASKED = -1;

  const int descriptor;  // readable while there is something to take
  std::atomic<int> stop{NOBODY_ASKED};
  std::mutex mutex;  // guards what follows
  std::vector<RouteEvent> events;
};

/** Of one route. */
class RouteWatch final : public Route::Callbacks {
 public:
  RouteWatch(std::size_t index, RouteEvents& newEvents) : route(index), events(newEvents) {}

  /** 1 to 99: what the route's thread asks for when it starts. 0: nothing. While the route is stopped. */
  void SetPriority(int newPriority) { priority = newPriority; }

  /**
   * Raises this interrupt, which outlives the route, in the instant in which the route has stopped: so that nobody
   * starts it again behind the back of the run, and its files anew.
   */
  void SealAtStop(Interrupt& interrupt);
  /** Waits until the route is deleted, by whomever. */
  void WaitForExit();

  void OnStarted() override;
  void OnStopped(Route::StopReason reason) override;
  void OnExit() override;

 private:
  const std::size_t route;
  int priority = 0;
  RouteEvents& events;

  std::mutex mutex;  // guards what follows
  std::vector<Interrupt*> interrupts;
  bool hasExited = false;
  std::condition_variable exited;
};

}  // namespace vorn::graph
