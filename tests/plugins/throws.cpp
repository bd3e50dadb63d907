// Gives up in its constructor, when the base class stands already.
#include "Plugin.h"
PLUGIN(int device = (throw std::string("no such device"), 0);)
