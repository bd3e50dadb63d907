#include <utility>

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

// A block may be called again because it is pending, and once more for each link that leads to it.
void RouteImpl::MakeRoomForWaves() {
  for (WaveSet* set : {&current, &next, &commit}) set->MakeRoom(blocks.size() + links.size());
}

void RouteImpl::RunFrameCycle() {
  CycleState state;
  current.Clear();
  for (Block* block : firstBlocks) current.Add(block);
  while (!current.IsEmpty()) {
    RunWave(state);
    std::swap(current, next);
  }
  FinishCycle(state);
}

// Calls the current blocks in pointer order, then commits those that finished.
void RouteImpl::RunWave(CycleState& state) {
  next.Clear();
  commit.Clear();
  for (Block* block : current) {
    if (VisitBlock(*block, state)) continue;
    next.Clear();
    break;
  }
  for (Block* block : commit) block->CommitFrame();
  next.Arrange();
}

/** False ends the visits of this wave, and with it the cycle. */
bool RouteImpl::VisitBlock(Block& block, CycleState& state) {
  const long result = block.ProcessFrame();
  if (result < 0) return VisitUnfinished(block, result, state);
  LOG_V("%s: %s %sis done", name.c_str(), block.Name().c_str(), Label(block));
  commit.Add(&block);
  if (block.IsLast()) return true;
  for (const OutputEndpoint* ep : block.linkedOutEps) {
    const Link* link = ep->AttachedLink();
    if (link && link->SinkEp()) next.Add(link->SinkEp()->Owner());
  }
  return true;
}

bool RouteImpl::VisitUnfinished(Block& block, long result, CycleState& state) {
  switch (result) {
    case FRAME_PENDING:
      LOG_V("%s: %s is pending", name.c_str(), block.Name().c_str());
      next.Add(&block);
      return true;
    case FRAME_DONE_WITHOUT_OUTPUT:
      LOG_V("%s: %s %sis done without output", name.c_str(), block.Name().c_str(), Label(block));
      commit.Add(&block);
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
      commit.Add(&block);
      return false;
    default:
      LOG_E("%s: %s: Process frame failed %d", name.c_str(), block.Name().c_str(), static_cast<int>(result));
      Stop_l(StopReason::STOP_ERROR);
      commit.Add(&block);
      state.error = true;
      return false;
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
