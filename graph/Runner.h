// Runs what a graph in the library does: starts the routes, waits, and brings all of them to an end in an order that
// loses nothing.
//
// Nothing that may sleep in a block is done on this thread before the block can be interrupted: a thread of its own
// starts the routes, since a Prepare() may wait for a named pipe or a device. A stop ends the sources, and then waits
// for as long as anything moves; what stands still after that is interrupted, the sinks that nobody reads from.
#pragma once

#include <atomic>
#include <thread>

#include "LiveGraph.h"
#include "Pace.h"
#include "Standstill.h"
#include "Wakeup.h"

namespace vorn::graph {

class Runner {
 public:
  using Clock = std::chrono::steady_clock;

  /** All of these outlive it. */
  Runner(const GraphPlan& newPlan, LiveGraph& newLive, RouteEvents& newEvents, LogTail& newLog,
         const Graph::RunOptions& newOptions);
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  /** Once. */
  Graph::Result Run();

 private:
  enum class State { STARTING, RUNNING, STOPPING, ENDED };

  void BeginStart();
  std::vector<std::size_t> StartOrder() const;
  bool IsAnyActive() const;
  bool IsActive(std::size_t route) const { return states[route] != State::ENDED; }
  Clock::time_point NextLook() const;
  Clock::time_point Deadline() const;
  bool IsStarting() const;

  void Take(const RouteEvent& event);
  void TakeStartResult(const RouteEvent& event);
  void TakeStopped(const RouteEvent& event);
  void TakeEnd(std::size_t route);
  void TellWhatWasGranted(const RouteEvent& event);
  void LookForLostRoutes();
  void NoteLosses(std::size_t route);

  void BeginStop(Graph::End end);
  bool WasCut() const;
  void EndSources(std::size_t route);
  void InterruptStarts();
  void InterruptWhatStandsStill();
  void StopRoutesThatCannotEnd();
  bool IsStarved(std::size_t route) const;
  void Stop(std::size_t route);
  void GiveUp();
  void StopEverything();
  void Fail(const Error& error);

  std::uint64_t MovesOfSinks() const;
  std::vector<FIFOState> StatesOfFifos() const;
  const std::vector<LogLine>& DrainLog();

  void TellLog();
  void TellProgress();
  double Elapsed() const { return std::chrono::duration<double>(Clock::now() - started).count(); }

  const GraphPlan& plan;
  LiveGraph& live;
  RouteEvents& events;
  LogTail& log;
  const Graph::RunOptions& options;

  Standstill standstill;
  Pace pace;
  std::vector<State> states;    // by route
  std::vector<bool> cannotEnd;  // by route: a source without the kit is in it, which nobody can ask
  std::vector<LogLine> recent;  // not told yet
  bool startsAreKept = false;   // at the last look
  Clock::time_point started;
  Clock::time_point running;  // since when all routes have been
  Clock::time_point told;
  Clock::time_point stopBegan;
  bool isStopping = false;
  std::atomic<bool> startsNoMore{false};  // for the starter
  bool isCut = false;                     // a route was stopped before its end
  Graph::Result result;
  std::thread starter;
};

}  // namespace vorn::graph
