#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Shell.h"

namespace vrdb {

/** A parameter as its block tells of it; "-" where there is no unit or range. */
struct Parameter {
  std::string id;
  std::string name;
  std::string unit;
  std::string range;  ///< "-120..60", or words with '|' between
  std::string value;
  std::string access;  ///< live, stopped or read
};

/** Reads a block's table, a line each with these fields in this order. Other lines are passed over. */
std::vector<Parameter> ParseParameters(std::string_view text);

/** Asks a block for its table; one that tells none is a failure. */
Result ReadParameters(Shell& shell, const std::string& route, const std::string& block, std::vector<Parameter>& table);

}  // namespace vrdb
