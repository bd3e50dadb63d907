// The picture of all graphs that other threads may look at while routes change theirs.
//
// A route changes its graph on its own thread and reads it there without a lock. Whoever looks from another thread (the
// console) holds the topology lock, and so does the route's thread for the instant of each change: names, active
// endpoints, the links of endpoints, and a route's sets of blocks and links. It is a leaf: nothing is called under it,
// so a look at the graph never waits for a running cycle, a slow block or an action.
#pragma once

#include <mutex>
#include <string>

namespace vorn {

class Block;

class Topology {
 public:
  class Lock {
   public:
    Lock();

   private:
    std::lock_guard<std::mutex> guard;
  };

  // These expect the lock.
  static void Enter_l(const Block* block);
  static void Leave_l(const Block* block);
  /** Whether the pointer is that of a block that exists, without reading what it points at. */
  static bool Exists_l(const Block* block);
};

/** What a log line says of a block that a route does not know: never read through a pointer that leads nowhere. */
struct StrangerName {
  explicit StrangerName(const Block* block);

  const void* address = nullptr;  // of the name's text; null when there is no such block
  std::string text = "(null)";
};

}  // namespace vorn
