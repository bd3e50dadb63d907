// Takes no link at its outputs.
#include "Plugin.h"
PLUGIN(int OnOutEpLinked(unsigned long) override { return -6; })
