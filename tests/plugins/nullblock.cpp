// Makes no block.
#include "Plugin.h"
PLUGIN(void* operator new(std::size_t) noexcept { return nullptr; })
