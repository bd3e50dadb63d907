#include <algorithm>

#include "Log.h"
#include "Route/RouteImpl.h"

namespace vorn {
namespace {

const char* Label(const Block& block) { return block.IsFirst() ? "(first) " : block.IsLast() ? "(last) " : ""; }

const char* Plural(unsigned long long count) { return count >= 2 ? "s" : ""; }

void Increment(std::atomic<unsigned long long>& counter) {
  // One writer: no need for a locked instruction.
  counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

void SortUnique(std::vector<Block*>& blocks) {
  if (blocks.size() < 2) return;
  std::sort(blocks.begin(), blocks.end());
  blocks.erase(std::unique(blocks.begin(), blocks.end()), blocks.end());
}

}  // namespace

void RouteImpl::MainThread(RouteImpl* route) { route->MainThreadLoop(); }

void RouteImpl::MainThreadLoop() {
  for (;;) {
    switch (Preprocess()) {
      case RUN_CYCLE: RunFrameCycle(); break;
      case SLEPT: break;
      case FORCE_STOP: Stop_l(StopReason::STOP_ERROR); break;
      default: return;
    }
  }
}

// Room for the fullest wave: a set holds each block once, and one more time for each link that leads to it.
void RouteImpl::ReserveWorkingSets() {
  for (auto* set : {&sets.current, &sets.next, &sets.commit}) set->reserve(blocks.size() + links.size());
}

void RouteImpl::RunFrameCycle() {
  CycleState state;
  sets.current.assign(firstBlocks.begin(), firstBlocks.end());
  while (!sets.current.empty()) {
    RunWave(state);
    sets.current.swap(sets.next);
  }
  FinishCycle(state);
}

// Calls the current blocks in pointer order, then commits those that finished.
void RouteImpl::RunWave(CycleState& state) {
  sets.next.clear();
  sets.commit.clear();
  for (Block* block : sets.current) {
    if (VisitBlock(*block, state)) continue;
    sets.next.clear();
    break;
  }
  for (Block* block : sets.commit) block->CommitFrame();
  SortUnique(sets.next);
}

/** False ends the visits of this wave, and with it the cycle. */
bool RouteImpl::VisitBlock(Block& block, CycleState& state) {
  const long ret = block.ProcessFrame();
  if (ret >= 0) {
    LOG_V("%s: %s %sis done", name.c_str(), block.Name().c_str(), Label(block));
    sets.commit.push_back(&block);
    if (!block.IsLast()) ScheduleSuccessors(block);
    return true;
  }
  switch (ret) {
    case FRAME_PENDING:
      LOG_V("%s: %s is pending", name.c_str(), block.Name().c_str());
      sets.next.push_back(&block);
      return true;
    case FRAME_DONE_WITHOUT_OUTPUT:
      LOG_V("%s: %s %sis done without output", name.c_str(), block.Name().c_str(), Label(block));
      sets.commit.push_back(&block);
      return true;
    case FRAME_TIMEOUT:
      LOG_E("%s: %s: Process frame timeout", name.c_str(), block.Name().c_str());
      state.error = true;
      return false;
    case FRAME_END_OF_FILE:
      LOG_I("%s: %s: End of file", name.c_str(), block.Name().c_str());
      Stop_l(StopReason::STOP_END_OF_FILE);
      state.endOfFile = true;
      return false;
    case FRAME_FADED_OUT:
      LOG_I("%s: %s: Faded out", name.c_str(), block.Name().c_str());
      Stop_l(StopReason::STOP_REQUESTED);
      sets.commit.push_back(&block);
      return false;
    default:
      LOG_E("%s: %s: Process frame failed %d", name.c_str(), block.Name().c_str(), static_cast<int>(ret));
      Stop_l(StopReason::STOP_ERROR);
      sets.commit.push_back(&block);
      state.error = true;
      return false;
  }
}

void RouteImpl::ScheduleSuccessors(const Block& block) {
  for (const OutputEndpoint* ep : block.linkedOutEps) {
    const Link* link = ep->AttachedLink();
    if (link && link->SinkEp()) sets.next.push_back(link->SinkEp()->Owner());
  }
}

void RouteImpl::FinishCycle(const CycleState& state) {
  if (state.endOfFile) return;
  if (state.error) {
    Increment(errorFrames);
    for (Block* block : blocks) block->Reset();
  } else {
    Increment(okFrames);
  }
  LOG_V("%s: %llu frame%s processed OK, %llu error frame%s", name.c_str(), OkFrames(), Plural(OkFrames()),
        ErrorFrames(), Plural(ErrorFrames()));
}

}  // namespace vorn
