// Describes itself by hand, and leaves out the help of its parameter.
#include <vorn/kit/Description.h>

#include "Plugin.h"
PLUGIN()

extern "C" VORN_API const vorn::BlockInfo* DescribeBlock() {
  static const vorn::ParameterInfo parameter{0, vorn::ParameterType::TEXT, 0, -1, 0, 0, "path", "", "", "", nullptr};
  static vorn::BlockInfo info{};
  info.kitVersion = vorn::KIT_VERSION;
  info.name = info.summary = info.example = info.perFrame = "";
  info.parameterCount = 1;
  info.parameters = &parameter;
  return &info;
}
