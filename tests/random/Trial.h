// A graph is run by vorn-run in a folder of its own, and compared with the model.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "Graph.h"
#include "Model.h"
#include "testkit/Process.h"

namespace randomgraphs {

struct Failure {
  std::string kind;  ///< the same for all that fail alike
  std::string text;  ///< what was expected and what came
};

/** Its own folder, and the noise that `tone` alone makes. One a thread. */
class Bench {
 public:
  /** Runs the graph of a seed; of every fifth once more with other frames, which must give the same bytes. */
  std::optional<Failure> Try(std::uint64_t seed);

  /** As the last graph was run. */
  const std::string& Command() const { return command; }

 private:
  std::optional<Failure> Try(const Graph& graph);
  testkit::Ended Run(const Graph& graph);
  std::optional<Failure> JudgeEnd(const Graph& graph, const testkit::Ended& ended) const;
  std::optional<Failure> JudgeSink(const Graph& graph, std::size_t sink, const Signal& expected,
                                   const std::string& json) const;
  /** What the file sinks got in the last trial. */
  std::map<std::size_t, std::string> Got(const Graph& graph) const;
  std::vector<double> Levels(std::size_t node, vorn::SampleFormat format) const;
  Signal Noise(const Node& node, long samples);

  const testkit::Folder folder;
  std::string command;
  std::map<std::string, Signal> noises;  // by arguments
};

}  // namespace randomgraphs
