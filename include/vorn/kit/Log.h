/** Part of <vorn/Plugin.h>: lines in the log, with the names of route and block in front. */
#ifndef VORN_KIT_LOG_H
#define VORN_KIT_LOG_H

#include <tlogging.h>

#define VORN_LOG_E(...) VORN_LOG_LINE('E', __VA_ARGS__, "")
#define VORN_LOG_W(...) VORN_LOG_LINE('W', __VA_ARGS__, "")
#define VORN_LOG_I(...) VORN_LOG_LINE('I', __VA_ARGS__, "")
#define VORN_LOG_D(...) VORN_LOG_LINE('D', __VA_ARGS__, "")
#define VORN_LOG_V(...) VORN_LOG_LINE('V', __VA_ARGS__, "")
// The empty text after the arguments lets a format stand alone, for which C++17 has no macro.
#define VORN_LOG_LINE(level, format, ...)                                                                 \
  _tlogging_print(level, __FILE__, __LINE__, __func__, "%s: %s: " format "%s", this->RouteName().c_str(), \
                  this->Name().c_str(), __VA_ARGS__)

#endif
