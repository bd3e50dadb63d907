#include "Block/Whereabouts.h"

#include <vorn/Block.h>

namespace vorn {

constinit thread_local std::atomic<const char*> Whereabouts::route{nullptr};
constinit thread_local std::atomic<const Block*> Whereabouts::block{nullptr};
constinit thread_local std::atomic<const char*> Whereabouts::file{nullptr};

const char* Whereabouts::Name() {
  const Block* const which = block;
  return which ? which->Name().c_str() : file.load();
}

}  // namespace vorn
