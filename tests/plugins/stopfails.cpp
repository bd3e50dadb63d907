// Does not stop.
#include "Plugin.h"
PLUGIN(int Stop() override { return -8; })
