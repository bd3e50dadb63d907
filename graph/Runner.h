// Runs what a graph in the library does: starts the routes, waits, and brings all of them to an end in an order that
// loses nothing.
#pragma once

#include "LiveGraph.h"
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

  /** A FIFO from one route to another. */
  struct Joint {
    std::size_t fifo;
    std::size_t from;  ///< Route.
    std::size_t to;
  };

  void StartAll();
  bool IsAnyActive() const;
  bool IsActive(std::size_t route) const { return states[route] == State::RUNNING || states[route] == State::STOPPING; }

  void Take(const RouteEvent& event);
  void TakeEnd(std::size_t route);
  void TellWhatWasGranted(const RouteEvent& event);
  bool WritesForNobody(std::size_t route) const;

  void BeginStop(Graph::End end);
  void ContinueStop();
  bool WaitsForOthers(std::size_t route) const;
  bool EndsByItself(std::size_t route) const;
  bool IsDrained(std::size_t route) const;
  void Stop(std::size_t route);
  void StopEverything();
  void Fail(const Error& error);

  void TellLog();
  void TellProgress();
  double Elapsed() const { return std::chrono::duration<double>(Clock::now() - started).count(); }

  const GraphPlan& plan;
  LiveGraph& live;
  RouteEvents& events;
  LogTail& log;
  const Graph::RunOptions& options;

  std::vector<Joint> joints;
  std::vector<State> states;  // by route
  std::vector<LogLine> recent;
  Clock::time_point started;
  bool isStopping = false;
  Graph::Result result;
};

}  // namespace vorn::graph
