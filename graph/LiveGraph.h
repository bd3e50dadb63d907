// The graph in the library: routes, blocks, links and FIFOs, made from a plan through the public interface.
#pragma once

#include <vorn/Vorn.h>
#include <vorn/kit/Conventions.h>

#include <memory>

#include "GraphPlan.h"
#include "LogTail.h"
#include "Wakeup.h"

namespace vorn::graph {

/**
 * Owns what it makes, and takes it down again. What an operator deleted of it in the meantime is not touched any more.
 *
 * Thread: the controlling one, but for Start().
 */
class LiveGraph {
 public:
  /** @param watches one a route. They, the graph and the log outlive the live. */
  LiveGraph(const GraphDescription& newGraph, std::vector<RouteWatch*> newWatches, LogTail& newLog);
  ~LiveGraph();
  LiveGraph(const LiveGraph&) = delete;
  LiveGraph& operator=(const LiveGraph&) = delete;

  /** Makes a block before its time, to ask it what streams it makes. */
  Result<std::vector<Stream>> AskForStreams(std::size_t node, const BlockPlan& block);

  /** All but the start. */
  std::optional<Error> Build(const GraphPlan& plan);

  /** What Route::Start() answers. Any one thread. */
  int Start(std::size_t route);
  /** Why Start() answered less than 0. */
  Error WhyNotStarted(std::size_t route, int result);
  /** Whether a block of the route keeps a refusal. */
  bool HasRefused(std::size_t route) const;
  /** Nothing to stop in a route that is gone. */
  std::optional<Error> Stop(std::size_t route);

  /** False where somebody deleted the route, or its thread has ended before its time. */
  bool IsThere(std::size_t route) const { return Held(route) != nullptr; }
  /** Its thread has ended before its time: whatever is asked of it waits for ever. */
  bool IsLost(std::size_t route) const { return routes[route] && Vorn::Instance()->IsLost(routes[route]); }
  /** Why it is not there. */
  Error WhyGone(std::size_t route, const std::vector<LogLine>& lines) const;
  /** Has the blocks of a route without a thread finish what they have open. */
  void FinishWithoutThread(std::size_t route);

  /** An error: a dump could not be written where its name says. Nothing is dumped then. */
  std::optional<Error> SetDump(const std::string& folder);
  /** All files of the dump are whole then. */
  void EndDump();
  /** The name of an output's dump, in the folder of the dumps. */
  std::string DumpName(std::size_t node, std::size_t output, const Stream& stream) const;
  /** Brings a block back from its waits; a source then ends its stream. @return false from one without the kit. */
  bool Interrupt(std::size_t node);
  /** Whether a block waits now for what may never come. */
  bool IsWaiting(std::size_t node) const { return blocks[node].host && blocks[node].host->interrupt.IsWaiting(); }

  /** Says to the blocks of a route that what they make is not to pass for a whole. */
  void Abandon(std::size_t route);
  /** In the order of the plan's FIFOs. */
  FIFO& Fifo(std::size_t fifo) const { return *fifos[fifo]; }

  /** What a block counted; null for one that does not count. */
  const BlockCounters* Counters(std::size_t node) const;
  /** Whether a block of the route lost something, or faded out. */
  bool HasLost(std::size_t route) const;
  bool HasFadedOut(std::size_t route) const;
  /** Whether a source of the route ended because it was interrupted. */
  bool WasCut(std::size_t route) const;
  /** Grows as long as a block moves: frames, and waits that came to their end. 0 for one that does not tell. */
  std::uint64_t Moves(std::size_t node) const;
  /** The parameters of a block that is made with the kit, one a line: see ParameterLine. */
  std::vector<std::string> ParameterTable(std::size_t node) const;

  /**
   * Why a route stopped with an error, said of a node: what a block refused, or, where none keeps a refusal, the first
   * error of a block in the log.
   */
  Error WhyFailed(std::size_t route, const std::vector<LogLine>& lines) const;
  /** A line of the log with the node's name for the block's. */
  std::string Translate(const std::string& line) const;

 private:
  struct Said {
    std::optional<std::size_t> node;
    std::string text;
  };
  struct Host {
    BlockCounters counters;
    vorn::Interrupt interrupt;
  };
  struct Made {
    Block* block = nullptr;
    std::string prefix;          // of its lines in the log: "RouteA: gain_0: "
    std::string dumpName;        // what the names of its dumps begin with
    std::unique_ptr<Host> host;  // none for a block without the kit
  };

  using Answers = std::vector<std::vector<std::string>>;  ///< By node; none from one that does not answer.

  Said Parse(const std::string& line) const;
  /** Whether this is so of a block of the route. */
  template <class Predicate>
  bool IsAny(std::size_t route, Predicate predicate) const;
  /** A share that keeps others from deleting the route; null where it is gone. Keep it for one request. */
  std::shared_ptr<Route> Held(std::size_t route) const;
  Error Gone(std::size_t route) const;
  Result<std::shared_ptr<Route>> RouteAt(std::size_t index);
  std::optional<Error> MakeBlock(std::size_t index, const BlockPlan& plan);
  std::optional<Error> MakeLink(const LinkPlan& link);
  std::optional<Error> MakeFifo(const FifoPlan& fifo);
  /** What PARAMETER_REFUSAL answers in a route. @param before carried out first, in the same batch. */
  Answers Refusals(std::size_t route, Route::Action* before = nullptr) const;
  Error Reason(const Error& otherwise) { return Explain(log.Drain(), otherwise); }
  Error Reason(const Answers& refusals, const std::vector<LogLine>& lines, const Error& otherwise) const;
  Error Explain(const std::vector<LogLine>& lines, const Error& otherwise) const;

  const GraphDescription& graph;
  const std::vector<RouteWatch*> watches;
  LogTail& log;
  std::vector<Route*> routes;
  std::vector<RouteBoard*> boards;  // by route; null in one without blocks
  std::vector<Made> blocks;         // by node
  std::vector<FIFO*> fifos;
};

}  // namespace vorn::graph
