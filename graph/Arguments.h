// What the arguments of a block say, before there is a block.
#pragma once

#include "GraphPlan.h"

namespace vorn::graph {

/** The value that an argument gives to a parameter, by name or by position; the last one counts. */
std::optional<std::string> ValueOf(const BlockPlan& block, const ParameterInfo& parameter);

/** Null where the block's plug-in does not say that it has it. */
const ParameterInfo* FindParameter(const BlockPlan& block, std::string_view name);

/** @param otherwise where the arguments, or the plug-in, say nothing of this flag. */
bool FlagOf(const BlockPlan& block, std::string_view name, bool otherwise);

}  // namespace vorn::graph
