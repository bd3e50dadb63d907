// The same for programs: JSON texts.
#pragma once

#include "Runner.h"

namespace vorn::graph {

std::string JsonOf(const GraphPlan& plan);
std::string JsonOf(const GraphPlan& plan, const LiveGraph& live, const RunResult& result);

/** "end of stream" and so on. */
const char* NameOf(RunResult::End end);

}  // namespace vorn::graph
