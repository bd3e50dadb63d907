#include "Block/Whereabouts.h"

namespace vorn {

constinit thread_local std::atomic<const char*> Whereabouts::routeName{nullptr};
constinit thread_local std::atomic<const char*> Whereabouts::blockName{nullptr};

}  // namespace vorn
