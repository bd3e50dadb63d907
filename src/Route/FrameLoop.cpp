#include <new>
#include <utility>

#include "Block/Whereabouts.h"
#include "Log.h"
#include "Route/RouteImpl.h"

// What this file logs, it logs as the loop, in whichever of its functions.
#define LOG_LOOP(level, ...) LOG_FROM(level, "MainThreadLoop", __VA_ARGS__)

namespace vorn {
namespace {

// How many waves a cycle may still have when the route is about to end: more than any that has an end of its own needs.
constexpr std::size_t LAST_WAVES = 1000;

const char* Label(const Block& block) { return block.IsFirst() ? "(first) " : block.IsLast() ? "(last) " : ""; }

const char* Plural(unsigned long long count) { return count >= 2 ? "s" : ""; }

void Increment(std::atomic<unsigned long long>& counter) {
  // One writer: no need for a locked instruction.
  counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

}  // namespace

Route::Position Route::Here() noexcept { return {Whereabouts::route, Whereabouts::Name()}; }

void RouteImpl::MainThread(RouteImpl* route) {
  Whereabouts::InRoute(route->name.c_str());
  route->MainThreadLoop();
  route->threadEnded = true;
}

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
bool RouteImpl::MakeRoomForWaves() try {
  for (WaveSet* set : {&current, &next, &commit}) set->MakeRoom(blocks.size() + links.size());
  return true;
} catch (const std::bad_alloc&) {
  LOG_E("%s: No memory for frame cycles of %zu blocks", name.c_str(), blocks.size());
  return false;
}

void RouteImpl::RunFrameCycle() {
  CycleState state;
  current.Clear();
  for (Block* block : firstBlocks) current.Add(block);
  for (std::size_t left = LAST_WAVES + blocks.size(); !current.IsEmpty() && left > 0;) {
    if (ending.load(std::memory_order_relaxed)) --left;
    RunWave(state);
    std::swap(current, next);
  }
  Whereabouts::Outside();
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
  Whereabouts::InBlock(block);
  const long result = block.ProcessFrame();
  if (result < 0) return VisitUnfinished(block, result, state);
  LOG_LOOP('V', "%s: %s %sis done", name.c_str(), block.Name().c_str(), Label(block));
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
      LOG_LOOP('V', "%s: %s is pending", name.c_str(), block.Name().c_str());
      next.Add(&block);
      return true;
    case FRAME_DONE_WITHOUT_OUTPUT:
      LOG_LOOP('V', "%s: %s %sis done without output", name.c_str(), block.Name().c_str(), Label(block));
      commit.Add(&block);
      return true;
    case FRAME_TIMEOUT:
      LOG_LOOP('E', "%s: %s: Process frame timeout", name.c_str(), block.Name().c_str());
      state.error = true;
      return false;
    case FRAME_END_OF_FILE:
      LOG_LOOP('I', "%s: %s: End of file", name.c_str(), block.Name().c_str());
      Stop_l(StopReason::STOP_END_OF_FILE);
      state.endOfFile = true;
      return false;
    case FRAME_FADED_OUT:
      LOG_LOOP('I', "%s: %s: Faded out", name.c_str(), block.Name().c_str());
      Stop_l(StopReason::STOP_REQUESTED);
      commit.Add(&block);
      return false;
    default:
      LOG_LOOP('E', "%s: %s: Process frame failed %d", name.c_str(), block.Name().c_str(), static_cast<int>(result));
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
    for (Block* block : blocks) {
      Whereabouts::InBlock(*block);
      block->Reset();
    }
    Whereabouts::Outside();
  } else {
    Increment(okFrames);
  }
  LOG_LOOP('V', "%s: %llu frame%s processed OK, %llu error frame%s", name.c_str(), OkFrames(), Plural(OkFrames()),
           ErrorFrames(), Plural(ErrorFrames()));
}

}  // namespace vorn
