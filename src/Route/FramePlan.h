// What a frame cycle reads of the graph: worked out when the graph has changed, and merely read while it runs.
#pragma once

#include <set>
#include <span>
#include <vector>

#include <vorn/Block.h>

namespace vorn {

class FramePlan {
 public:
  struct Copy {
    const FrameBuffer* from;
    FrameBuffer* to;
  };
  /** A block and all that its call leads to. The visits of a plan lie in the pointer order of their blocks. */
  struct Visit {
    Block* block;
    const char* name;
    const char* label;                    // of the lines that say that it is done
    std::span<const Copy> copies;         // what a commit carries over its links, in order
    std::span<const Visit* const> after;  // who is called when it has produced a frame; of a last block nobody
  };

  /** Needs to be made before it is read again. The old one stays readable as far as its blocks exist. */
  void MarkStale() { isStale = true; }
  bool IsStale() const { return isStale; }
  /** Throws std::bad_alloc, and stays stale. */
  void Make(const std::set<Block*>& blocks, const std::set<Block*>& firstBlocks);

  std::size_t Size() const { return visits.size(); }
  std::span<const Visit* const> First() const { return first; }
  /** The most additions to a wave: a block may be pending, and is added once more for each link that leads to it. */
  std::size_t MostInWave() const { return visits.size() + after.size(); }

 private:
  const Visit* VisitOf(const Block* block) const;

  bool isStale = true;
  std::vector<Visit> visits;
  std::vector<Copy> copies;
  std::vector<const Visit*> after;
  std::vector<const Visit*> first;
};

}  // namespace vorn
