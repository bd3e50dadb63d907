// Describes itself in the words of the first plug-in kit. Behind the version there is nothing to read.
#include <cstdint>

#include "Plugin.h"
PLUGIN()

extern "C" VORN_API const std::uint32_t* DescribeBlock() {
  static const std::uint32_t version = 1;
  return &version;
}
