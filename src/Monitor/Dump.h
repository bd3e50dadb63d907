// The request `dump`: writes what leaves every block to files, from one cycle on.
#pragma once

#include <string>
#include <vector>

#include "Monitor/Json.h"
#include "Monitor/Monitor.h"

namespace vorn::monitor {

/**
 * @param words `dump [reset] FOLDER`, or `dump off`. A route that stands keeps this waiting, and no other one.
 */
Object CarryOutDump(const std::vector<std::string>& words, const Framework& framework);

}  // namespace vorn::monitor
