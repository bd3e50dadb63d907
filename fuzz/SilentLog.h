#pragma once

#include <functional>

namespace fuzz {

/** Gets the path of each log file that is asked for; null for none. */
extern std::function<void(const char* path)> onLogFile;

}  // namespace fuzz
