// A running graph as a graph file: what the monitor tells of it, in the language of vorn-run.
#pragma once

#include <string>
#include <vector>

#include "support/JsonMembers.h"

namespace vrdb {

struct SavedGraph {
  std::string text;                  ///< empty where there is nothing to save
  std::vector<std::string> leftOut;  ///< what the text cannot say, printable; it stands in it as comments too
  struct Node {
    std::string route;
    std::string block;
    std::string name;  ///< in the text
  };
  std::vector<Node> nodes;  ///< downstream, as in the text
};

/**
 * The same replies give the same text, in whatever order they tell things.
 *
 * @param graph what the monitor answered to `graph`.
 * @param parameters what it answered to `params`; blocks without parameters there have the arguments they were made
 * with.
 * @param folder that of the process, for relative paths; empty: not known.
 */
SavedGraph SaveGraph(const support::Json& graph, const support::Json& parameters, const std::string& folder);

}  // namespace vrdb
