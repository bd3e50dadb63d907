/** The picture of what is there. */
#pragma once

#include <string>

#include "Shell.h"

namespace vrdb {

/** The graph in the language of Graphviz: a cluster a route, red with the reason where it stands. */
std::string GraphText(const Json& graph, const Json& stats);

/**
 * Writes a graph into `file`, drawn as its ending asks: .svg, .png, .pdf, or .dot for the text itself. The file is
 * complete, or as it was before.
 */
Result WriteGraph(const std::string& graph, const std::string& file);

}  // namespace vrdb
