#include "Arguments.h"

#include <algorithm>

namespace vorn::graph {

std::optional<std::string> ValueOf(const BlockPlan& block, const ParameterInfo& parameter) {
  const std::string prefix = std::string(parameter.name) + '=';
  std::optional<std::string> value;
  std::int32_t position = 0;
  for (const std::string& arg : block.args) {
    if (arg.starts_with(prefix)) {
      value = arg.substr(prefix.size());
    } else if (arg.find('=') == arg.npos && position++ == parameter.position) {
      value = arg;
    }
  }
  return value;
}

const ParameterInfo* FindParameter(const BlockPlan& block, std::string_view name) {
  const BlockInfo* info = block.plugIn.info;
  if (!info) return nullptr;
  const auto* const end = info->parameters + info->parameterCount;
  const auto* const found = std::find_if(info->parameters, end, [&](const auto& one) { return name == one.name; });
  return found == end ? nullptr : found;
}

bool FlagOf(const BlockPlan& block, std::string_view name, bool otherwise) {
  const ParameterInfo* flag = FindParameter(block, name);
  const auto value = flag ? ValueOf(block, *flag) : std::nullopt;
  return value ? *value != "false" && *value != "no" && *value != "off" && *value != "0" : otherwise;
}

}  // namespace vorn::graph
