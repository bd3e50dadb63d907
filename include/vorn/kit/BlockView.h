/** Part of <vorn/Plugin.h>: what a block of the kit shows to the library, which looks without asking the route. */
#ifndef VORN_KIT_BLOCK_VIEW_H
#define VORN_KIT_BLOCK_VIEW_H

#include <atomic>
#include <cstdint>

#include <vorn/kit/RouteBoard.h>

namespace vorn {

class Interrupt;
class Parameters;

/** Part of the block: good as long as that is. See the members for what other threads may do with them. */
struct BlockView {
  const std::uint32_t kitVersion = KIT_VERSION;        ///< What the plug-in was built with: look no further at another.
  const Parameters* parameters = nullptr;              ///< Line(), and the table: any thread.
  const std::atomic<Interrupt*>* interrupt = nullptr;  ///< IsWaiting() and Slept(): any thread.
  bool setsPace = false;                               ///< It waits for a device or its like.
};

}  // namespace vorn

#endif
