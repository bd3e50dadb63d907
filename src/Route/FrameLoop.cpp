#include <new>
#include <utility>

#include <vorn/kit/BlockView.h>
#include <vorn/kit/Interrupt.h>

#include "Block/SleepTime.h"
#include "Block/Whereabouts.h"
#include "Line.h"
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

/** Of a cycle that is timed: one reading of the clock a call, which is the end of one and the beginning of the next. */
class RouteImpl::Stopwatch {
 public:
  Stopwatch() { SleepTime::isTimed = true; }
  ~Stopwatch() { SleepTime::isTimed = false; }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

  /** Calls the block, and notes how long that took. What it slept does not count. */
  long Call(const FramePlan::Visit& visit, Block& block) {
    const auto before = SleptBy(block);
    const long result = block.ProcessFrame();
    const auto now = Clock::now();
    const auto slept = SleptBy(block) - before;
    if (visit.times) visit.times->Add(now - last - slept);
    sleptInAll += slept;
    last = now;
    return result;
  }

  std::chrono::nanoseconds Cycle() const { return Clock::now() - begin - sleptInAll; }

 private:
  using Clock = std::chrono::steady_clock;

  static std::chrono::nanoseconds SleptBy(const Block& block) {
    const BlockView* const view = block.View();
    const Interrupt* const interrupt = view && view->interrupt ? view->interrupt->load() : nullptr;
    return SleepTime::total + std::chrono::nanoseconds(interrupt ? interrupt->Slept() : 0);
  }

  const Clock::time_point begin = Clock::now();
  Clock::time_point last = begin;
  std::chrono::nanoseconds sleptInAll{0};
};

/** In place of the watch, where nobody times. */
struct RouteImpl::NoWatch {
  static long Call(const FramePlan::Visit&, Block& block) { return block.ProcessFrame(); }
};

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
      case FORCE_STOP: Stop_l(StopReason::STOP_ERROR, "no memory for frame cycles"); break;
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

void RouteImpl::RunFrameCycle() {
  if (!isTimed) {
    NoWatch none;
    return RunFrameCycle(none);
  }
  Stopwatch watch;
  RunFrameCycle(watch);
  cycleTimes.Add(watch.Cycle());
}

// Graphs are chains for most of their length: a wave of one block needs no sets.
template <class Watch>
void RouteImpl::RunFrameCycle(Watch& watch) {
  CycleState state;
  next.Clear();
  commit.Clear();
  for (const FramePlan::Visit* visit : plan.First()) next.Add(visit);
  const FramePlan::Visit* alone = GoOn();
  for (std::size_t left = LAST_WAVES + plan.Size(); left > 0 && (alone != nullptr || !current.IsEmpty());) {
    if (ending.load(std::memory_order_relaxed)) --left;
    alone = alone != nullptr ? RunAlone(*alone, watch, state) : RunWave(watch, state);
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

template <class Watch>
const FramePlan::Visit* RouteImpl::RunAlone(const FramePlan::Visit& visit, Watch& watch, CycleState& state) {
  const long result = CallBlock(visit, watch);
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
template <class Watch>
const FramePlan::Visit* RouteImpl::RunWave(Watch& watch, CycleState& state) {
  next.Clear();
  commit.Clear();
  for (const FramePlan::Visit* visit : current) {
    if (Take(*visit, CallBlock(*visit, watch), state)) continue;
    next.Clear();
    break;
  }
  return GoOn();
}

template <class Watch>
long RouteImpl::CallBlock(const FramePlan::Visit& visit, Watch& watch) {
  Block& block = *visit.block;
  Whereabouts::InBlock(block);
  const long result = watch.Call(visit, block);
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
      Stop_l(StopReason::STOP_END_OF_FILE, "the streams have ended");
      state.endOfFile = true;
      return false;
    case FRAME_FADED_OUT:
      LOG_LOOP('I', "%s: %s: Faded out", name.c_str(), visit.name);
      Stop_l(StopReason::STOP_REQUESTED, Line("%s has faded out", visit.name).data());
      commit.Add(&visit);
      return false;
    default:
      LOG_LOOP('E', "%s: %s: Process frame failed %d", name.c_str(), visit.name, static_cast<int>(result));
      Stop_l(StopReason::STOP_ERROR, Line("%s failed: %ld", visit.name, result).data());
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
