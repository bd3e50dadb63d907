// A graph is run by vorn-run in a folder of its own, and compared with the model.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "Graph.h"
#include "Model.h"
#include "Process.h"

namespace randomgraphs {

struct Failure {
  std::string kind;  ///< the same for all that fail alike
  std::string text;  ///< what was expected and what came
};

/** Its own folder, and the noise that `tone` alone makes. One a thread. */
class Bench {
 public:
  /** The folder is emptied before every graph, and removed in the end. */
  explicit Bench(std::filesystem::path newFolder);
  ~Bench();
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  std::optional<Failure> Try(const Graph& graph);
  /** What the sinks got in the last trial, by node. */
  std::map<std::size_t, std::string> Got(const Graph& graph) const;

  /** As the last graph was run. */
  const std::string& Command() const { return command; }

 private:
  void Prepare(const Graph& graph);
  Ended Run(const Graph& graph);
  std::optional<Failure> Judge(const Graph& graph, const Ended& ended);
  std::optional<Failure> JudgeNull(std::size_t sink, const Signal& expected, const std::string& json) const;
  std::optional<Failure> JudgeFile(const Graph& graph, std::size_t sink, const Signal& expected) const;
  std::map<std::size_t, long> TappedLengths(const Graph& graph) const;
  Signal Noise(const Node& node, long samples);

  const std::filesystem::path folder;
  std::string command;
  std::map<std::string, Signal> noises;  // by arguments
};

/** Tries a graph from a seed, and where `again` the same with other frames, which must give the same bytes. */
std::optional<Failure> TrySeed(Bench& bench, std::uint64_t seed, bool again);

}  // namespace randomgraphs
