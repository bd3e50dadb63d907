// The graph in the library: routes, blocks, links and FIFOs, made from a plan through the public interface.
#pragma once

#include <vorn/Vorn.h>
#include <vorn/kit/Conventions.h>

#include <memory>

#include "GraphPlan.h"
#include "LogTail.h"

namespace vorn::graph {

/** Owns what it makes, and takes it down again. Thread: the controlling one. */
class LiveGraph {
 public:
  /** @param callbacks one a route. They, the graph and the log outlive the live. */
  LiveGraph(const GraphDescription& newGraph, std::vector<Route::Callbacks*> newCallbacks, LogTail& newLog);
  ~LiveGraph();
  LiveGraph(const LiveGraph&) = delete;
  LiveGraph& operator=(const LiveGraph&) = delete;

  /** Makes a block before its time, to ask it what streams it makes. */
  Result<std::vector<Stream>> AskForStreams(std::size_t node, const BlockPlan& block);

  /** All but the start. */
  std::optional<Error> Build(const GraphPlan& plan);

  std::optional<Error> Start(std::size_t route);
  std::optional<Error> Stop(std::size_t route);
  /** An error: a dump could not be written where its name says. Nothing is dumped then. */
  std::optional<Error> SetDump(const std::string& folder);
  /** Makes a source end at its next frame. @return false from one without the kit. */
  bool EndStream(std::size_t node) { return vorn::EndStream(blocks[node].block) >= 0; }

  /** In the order of the plan's FIFOs. */
  FIFO& Fifo(std::size_t fifo) const { return *fifos[fifo]; }

  /** What a block counted; null for one that does not count. */
  const BlockCounters* Counters(std::size_t node) const;
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
  struct Made {
    Block* block = nullptr;
    std::unique_ptr<BlockCounters> counters;
  };

  using Answers = std::vector<std::vector<std::string>>;  ///< By node; none from one that does not answer.

  Said Parse(const std::string& line) const;
  Result<Route*> RouteAt(std::size_t index);
  std::optional<Error> MakeBlock(std::size_t index, const BlockPlan& plan);
  std::optional<Error> MakeLink(const LinkPlan& link);
  std::optional<Error> MakeFifo(const FifoPlan& fifo);
  /** What PARAMETER_REFUSAL answers in a route. @param before carried out first, in the same batch. */
  Answers Refusals(std::size_t route, Route::Action* before = nullptr) const;
  Error Reason(const Error& otherwise) { return Explain(log.Drain(), otherwise); }
  Error Reason(const Answers& refusals, const std::vector<LogLine>& lines, const Error& otherwise) const;
  Error Explain(const std::vector<LogLine>& lines, const Error& otherwise) const;

  const GraphDescription& graph;
  const std::vector<Route::Callbacks*> callbacks;
  LogTail& log;
  std::vector<Route*> routes;
  std::vector<Made> blocks;  // by node
  std::vector<FIFO*> fifos;
};

}  // namespace vorn::graph
