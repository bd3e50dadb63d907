#include "Block/SleepTime.h"

namespace vorn {

constinit thread_local bool SleepTime::isTimed = false;
constinit thread_local std::chrono::nanoseconds SleepTime::total{0};

}  // namespace vorn
