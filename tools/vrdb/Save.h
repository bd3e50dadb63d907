// The commands that keep a running graph: `save` writes it to a file, `record` with what flows through it.
#pragma once

#include "SavedGraph.h"
#include "Shell.h"

namespace vrdb {

Result RunSave(Shell& shell, const Words& words);
Result RunRecord(Shell& shell, const Words& words);  // Record.cpp

/** Where relative paths of the process start; empty: not known. */
std::string FolderOf(pid_t process);

/** Asks the monitor for the graph as it is now. @param graph the reply to `graph`. */
Result LookAtGraph(Shell& shell, Json& graph, SavedGraph& saved);

}  // namespace vrdb
