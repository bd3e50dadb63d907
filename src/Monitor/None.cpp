// In place of the monitor, in a library that is built without it.
#include "Monitor/Monitor.h"

namespace vorn::monitor {

class Monitor::Speaker {};

Monitor::Monitor(Framework) {}
Monitor::~Monitor() = default;
void Monitor::Start() {}
void Monitor::Stop() {}
void Monitor::Finish() {}

}  // namespace vorn::monitor
