// What `vrdb record` leaves in a folder, and the graph that runs it again.
//
// A recording is what left every block while a graph ran. A source, whatever it was, is what it gave: so in the replay
// a raw file stands in its place, FIFOs included, and nothing is written where a sink was. Each route then depends on
// nothing but its files, and gives the same samples every time.
#pragma once

#include "GraphDescription.h"

namespace vorn::graph {

struct RecordedOutput {
  std::string node;
  std::size_t port = 0;
  std::string path;  ///< Of the samples.
  Stream stream;     ///< Its length is what can be replayed of it, in samples.
  bool isOfSource = false;
  bool isFromStart = false;  ///< The route's blocks held nothing from before.
};

struct Recording {
  std::string graphPath;
  std::string workingFolder;            ///< Of the process: where its relative paths start.
  std::vector<RecordedOutput> outputs;  ///< Downstream, so that the first difference is the cause of those after it.
  std::string limit;                    ///< Why not all that was recorded can be replayed; empty: all can.
  bool isComplete = false;              ///< It came to its end in order, so that all its files do.
};

/** Reads the manifest of a recording. */
Result<Recording> ReadRecording(const std::string& folder);

/** The recorded graph with files for its sources, nothing for its sinks, and no FIFOs. */
Result<GraphDescription> ReplayOf(const GraphDescription& recorded, const Recording& recording);

/**
 * Compares the samples of two files.
 *
 * @param settling how many samples from the start may differ.
 */
Graph::Comparison Compare(const Recording& recording, const RecordedOutput& output, const std::string& replayed,
                          std::chrono::nanoseconds settling);

}  // namespace vorn::graph
