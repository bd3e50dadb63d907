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

const char* Plural(unsigned long long count) { return count >= 2 ? "s" : ""; }

void Increment(std::atomic<unsigned long long>& counter) {
  // One writer: no need for a locked instruction.
  counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

}  // namespace

Route::Position Route::Here() noexcept { return {Whereabouts::route, Whereabouts::Name()}; }

void RouteImpl::MainThread(RouteImpl* route) {
  Whereabouts::InRoute(route->name.c_str());
  route->ShowInside(&Whereabouts::block);
  route->MainThreadLoop();
  route->ShowInside(nullptr);
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

/** Works out what cycles read of the graph, where it has changed. */
bool RouteImpl::RefreshPlan() try {
  plan.Refresh();
  for (WaveSet* set : {&current, &next, &commit}) set->MakeRoom(plan.MostInWave());
  return true;
} catch (const std::bad_alloc&) {
  LOG_E("%s: No memory for frame cycles of %zu blocks", name.c_str(), blocks.size());
  return false;
}

// Graphs are chains for most of their length: a wave of one block needs no sets.
void RouteImpl::RunFrameCycle() {
  CycleState state;
  next.Clear();
  commit.Clear();
  for (const FramePlan::Visit* visit : plan.First()) next.Add(visit);
  const FramePlan::Visit* alone = GoOn();
  for (std::size_t left = LAST_WAVES + plan.Size(); left > 0 && (alone != nullptr || !current.IsEmpty());) {
    if (ending.load(std::memory_order_relaxed)) --left;
    alone = alone != nullptr ? RunAlone(*alone, state) : RunWave(state);
  }
  Whereabouts::Outside();
  FinishCycle(state);
}

/** Commits what is finished and turns to the next wave. @return its block where that is alone: `current` is empty then. */
const FramePlan::Visit* RouteImpl::GoOn() {
  for (const FramePlan::Visit* visit : commit) Commit(*visit);
  next.Arrange();
  std::swap(current, next);
  return current.TakeSingle();
}

const FramePlan::Visit* RouteImpl::RunAlone(const FramePlan::Visit& visit, CycleState& state) {
  const long result = CallBlock(visit);
  if (result >= 0 && visit.after.Size() <= 1) {
    Commit(visit);
    return visit.after.Size() == 0 ? nullptr : visit.after.Front();
  }
  next.Clear();
  commit.Clear();
  if (!Take(visit, result, state)) next.Clear();
  return GoOn();
}

// Calls the current blocks in pointer order, then commits those that finished.
const FramePlan::Visit* RouteImpl::RunWave(CycleState& state) {
  next.Clear();
  commit.Clear();
  for (const FramePlan::Visit* visit : current) {
    if (Take(*visit, CallBlock(*visit), state)) continue;
    next.Clear();
    break;
  }
  return GoOn();
}

long RouteImpl::CallBlock(const FramePlan::Visit& visit) {
  Block& block = *visit.block;
  Whereabouts::InBlock(block);
  const long result = block.ProcessFrame();
  if (result >= 0) LOG_LOOP('V', "%s: %s %sis done", name.c_str(), visit.name, visit.label);
  return result;
}

/** Block::CommitFrame, whose copies are known beforehand as long as nothing is dumped. */
void RouteImpl::Commit(const FramePlan::Visit& visit) {
  if (!dumpPath.empty()) return static_cast<void>(visit.block->CommitFrame());
  for (const auto& [from, to] : visit.copies) *to = *from;
}

/** What comes of a call. False ends the calls of this wave, and with it the cycle. */
bool RouteImpl::Take(const FramePlan::Visit& visit, long result, CycleState& state) {
  if (result < 0) return TakeUnfinished(visit, result, state);
  commit.Add(&visit);
  for (const FramePlan::Visit* after : visit.after) next.Add(after);
  return true;
}

bool RouteImpl::TakeUnfinished(const FramePlan::Visit& visit, long result, CycleState& state) {
  switch (result) {
    case FRAME_PENDING:
      LOG_LOOP('V', "%s: %s is pending", name.c_str(), visit.name);
      next.Add(&visit);
      return true;
    case FRAME_DONE_WITHOUT_OUTPUT:
      LOG_LOOP('V', "%s: %s %sis done without output", name.c_str(), visit.name, visit.label);
      commit.Add(&visit);
      return true;
    case FRAME_TIMEOUT:
      LOG_LOOP('E', "%s: %s: Process frame timeout", name.c_str(), visit.name);
      state.error = true;
      return false;
    case FRAME_END_OF_FILE:
      LOG_LOOP('I', "%s: %s: End of file", name.c_str(), visit.name);
      Stop_l(StopReason::STOP_END_OF_FILE);
      state.endOfFile = true;
      return false;
    case FRAME_FADED_OUT:
      LOG_LOOP('I', "%s: %s: Faded out", name.c_str(), visit.name);
      Stop_l(StopReason::STOP_REQUESTED);
      commit.Add(&visit);
      return false;
    default:
      LOG_LOOP('E', "%s: %s: Process frame failed %d", name.c_str(), visit.name, static_cast<int>(result));
      Stop_l(StopReason::STOP_ERROR);
      commit.Add(&visit);
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
