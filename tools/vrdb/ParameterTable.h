#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <vorn/kit/ParameterLine.h>

#include "Shell.h"

namespace vrdb {

/** Reads a block's table, a parameter a line. Other lines are passed over. */
std::vector<vorn::ParameterLine> ParseParameters(std::string_view text);

/** Asks a block for its table; one that tells none is a failure. */
Result ReadParameters(Shell& shell, const std::string& route, const std::string& block,
                      std::vector<vorn::ParameterLine>& table);

}  // namespace vrdb
