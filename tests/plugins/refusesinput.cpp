// Takes no link at its inputs.
#include "Plugin.h"
PLUGIN(int OnInEpLinked(unsigned long) override { return -5; })
