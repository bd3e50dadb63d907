// The log of the library: one line, one call, whatever the level (the logging library filters first). Formats stand
// whole in the source, so that a line of a log can be found with grep.
#pragma once

#include <tlogging.h>

#define LOG_E(...) LOG_FROM('E', __func__, __VA_ARGS__)
#define LOG_W(...) LOG_FROM('W', __func__, __VA_ARGS__)
#define LOG_I(...) LOG_FROM('I', __func__, __VA_ARGS__)
#define LOG_D(...) LOG_FROM('D', __func__, __VA_ARGS__)
#define LOG_V(...) LOG_FROM('V', __func__, __VA_ARGS__)

#define LOG_FROM(level, function, ...) _tlogging_print(level, __FILE__, __LINE__, function, __VA_ARGS__)
