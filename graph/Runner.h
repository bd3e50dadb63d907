// Runs what a graph in the library does: starts the routes, waits, and brings all of them to an end in an order that
// loses nothing.
#pragma once

#include "LiveGraph.h"
#include "Standstill.h"
#include "Wakeup.h"

namespace vorn::graph {

class Runner {
 public:
  using Clock = std::chrono::steady_clock;

  /** All of these outlive it. */
  Runner(const GraphPlan& newPlan, LiveGraph& newLive, RouteEvents& newEvents, LogTail& newLog,
         const Graph::RunOptions& newOptions);

  /** Once. */
  Graph::Result Run();

 private:
  enum class State { IDLE, RUNNING, STOPPING, ENDED };

  void StartAll();
  bool IsAnyActive() const;
  bool IsActive(std::size_t route) const { return states[route] == State::RUNNING || states[route] == State::STOPPING; }

  void Take(const RouteEvent& event);
  void TakeEnd(std::size_t route);
  void TellWhatWasGranted(const RouteEvent& event);

  void BeginStop(Graph::End end);
  void EndSources();
  void StopRoutesThatCannotEnd();
  bool IsStarved(std::size_t route) const;
  void Stop(std::size_t route);
  void StopEverything();
  void Fail(const Error& error);

  std::vector<FIFOState> StatesOfFifos() const;

  void TellLog();
  void TellProgress();
  double Elapsed() const { return std::chrono::duration<double>(Clock::now() - started).count(); }

  const GraphPlan& plan;
  LiveGraph& live;
  RouteEvents& events;
  LogTail& log;
  const Graph::RunOptions& options;

  Standstill standstill;
  std::vector<State> states;    // by route
  std::vector<bool> cannotEnd;  // by route: a source without the kit is in it, which nobody can ask
  std::vector<LogLine> recent;
  Clock::time_point started;
  bool isStopping = false;
  Graph::Result result;
};

}  // namespace vorn::graph
