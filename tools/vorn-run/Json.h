// The same for programs: JSON texts.
#ifndef VORN_RUN_JSON_H
#define VORN_RUN_JSON_H

#include "Runner.h"

namespace vorn::run {

std::string JsonOf(const GraphPlan& plan);
std::string JsonOf(const GraphPlan& plan, const Session& session, const RunResult& result);

/** "end of stream" and so on. */
const char* NameOf(RunResult::End end);

}  // namespace vorn::run

#endif
