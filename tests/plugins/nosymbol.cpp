// Has no function that makes blocks.
#define CreateBlock MakeBlock
#include "Plugin.h"
PLUGIN()
