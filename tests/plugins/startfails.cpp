// Does not start.
#include "Plugin.h"
PLUGIN(int Start() override { return -7; })
