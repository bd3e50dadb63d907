// What a frame cycle reads of the graph: brought up to date where the graph has changed, and merely read while it runs.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

#include <vorn/Block.h>

#include "Route/CallTimes.h"
#include "Route/Few.h"

namespace vorn {

class FramePlan {
 public:
  struct Copy {
    const FrameBuffer* from;
    FrameBuffer* to;
  };
  /** A block and all that its call leads to. */
  struct Visit {
    Block* block = nullptr;
    const char* name = nullptr;
    const char* label = nullptr;  // of the lines that say that it is done
    Few<const Visit*, 1> after;   // who is called when it has produced a frame; of a last block nobody
    Few<Copy, 2> copies;          // what a commit carries over its links, in order
    bool isComplete = true;       // has the links that it needs
    bool isStale = false;
    CallTimes* times = nullptr;  // null while nobody times
    Visit* next = nullptr;       // of the stale or of the unused ones
  };

  FramePlan() = default;
  FramePlan(const FramePlan&) = delete;
  FramePlan& operator=(const FramePlan&) = delete;

  /** A block that is new in the graph, and has its name. Throws std::bad_alloc, and changes nothing then. */
  void Enter(Block& block);
  /** One whose links have changed. */
  void Touch(const Block& block);
  /** One that goes, or was not entered; its links are gone. */
  void Leave(const Block& block);
  void Clear();

  /** Where the calls of a block that is entered are timed; null: nowhere. */
  void Time(const Block& block, CallTimes* times);

  /** Works out what has changed. To be done before anything below. Throws std::bad_alloc; the next one goes on. */
  void Refresh();

  std::size_t Size() const { return visits.size(); }
  bool IsComplete() const { return incomplete == 0; }
  /** The first blocks, in pointer order. */
  const std::vector<const Visit*>& First() const { return first; }
  /** The most additions to a wave: a block may be pending, and is added once more for each link that leads to it. */
  std::size_t MostInWave() const { return visits.size() + steps; }

 private:
  static constexpr std::size_t PAGE = 32;  // visits lie side by side, so that a cycle finds them fast

  void MakeRoom();
  void Touch(Visit& visit);
  void Refresh(Visit& visit);
  /** What the whole plan counts of its visits. */
  void Count(const Visit& visit);
  void Uncount(const Visit& visit);

  std::vector<std::unique_ptr<Visit[]>> pages;
  Visit* unused = nullptr;
  Visit* stale = nullptr;  // to be made anew, or given up: who changes a graph may have no memory for that
  std::map<const Block*, Visit*> visits;
  std::vector<const Visit*> first;
  std::size_t steps = 0;  // from a visit to one after it
  std::size_t incomplete = 0;
};

}  // namespace vorn
