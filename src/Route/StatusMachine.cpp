#include <algorithm>
#include <exception>
#include <functional>

#include "Block/Whereabouts.h"
#include "Line.h"
#include "Log.h"
#include "Route/RouteImpl.h"

namespace vorn {
namespace {

/** So that the thread knows, when a callback ends the process, that it holds the route's mutex. */
class HeldMutex {
 public:
  explicit HeldMutex(bool& newFlag) : flag(newFlag) { flag = true; }
  ~HeldMutex() { flag = false; }

 private:
  bool& flag;
};

}  // namespace

int RouteImpl::Start_l() {
  if (CurrentStatus() != RUNNING) board.failed.store(false, std::memory_order_relaxed);
  everyBlockStarted = true;
  ForgetReason();
  std::sort(added.begin(), added.end(), std::less<>());
  const int ret = startsAll ? StartBlocks(blocks) : StartBlocks(added);
  if (ret < 0) return ret;
  startsAll = !everyBlockStarted;
  added.clear();
  if (CurrentStatus() == RUNNING) return 0;
  okFrames.store(0, std::memory_order_relaxed);
  errorFrames.store(0, std::memory_order_relaxed);
  StoreStatus(RUNNING);
  LOG_I("%s: Started", name.c_str());
  TellEvent(Chronicle::Kind::STARTED, "started");
  Tell("OnStarted", [](Callbacks& client) { client.OnStarted(); });
  LOG_I("%s: Status is RUNNING", name.c_str());
  return 0;
}

/** In pointer order, as far as none refuses. */
template <class Blocks>
int RouteImpl::StartBlocks(const Blocks& starting) {
  for (Block* block : starting) {
    const int ret = StartBlock(*block);
    if (ret < 0) {
      LOG_FROM('E', "Start_l", "%s: Failed to start %s (ret=%d)", name.c_str(), block->Name().c_str(), ret);
      board.failed.store(true, std::memory_order_relaxed);
      KeepReason(Line("%s did not start: %d", block->Name().c_str(), ret).data());
      return ret;
    }
    if (ret > 0) everyBlockStarted = false;  // neither started nor failed: it is asked again before the next cycle
  }
  return 0;
}

/** What the block answers; one that throws, as for want of memory, refuses. */
int RouteImpl::StartBlock(Block& block) {
  Whereabouts::InBlock(block);
  int ret = -20;
  try {
    ret = block.BaseStart();
  } catch (const std::exception& e) {
    LOG_FROM('E', "Start_l", "%s: %s: Start() threw: %s", name.c_str(), block.name.c_str(), e.what());
  }
  Whereabouts::Outside();
  return ret;
}

int RouteImpl::Stop_l(StopReason reason, const char* why) {
  if (CurrentStatus() == STOPPED) return 0;
  unsettled.store(true, std::memory_order_relaxed);
  startsAll = true;
  added.clear();
  if (reason == StopReason::STOP_ERROR) board.failed.store(true, std::memory_order_relaxed);
  LOG_I("%s: Stopping", name.c_str());
  for (Block* block : blocks) {
    Whereabouts::InBlock(*block);
    const int ret = block->BaseStop();
    if (ret < 0) {
      LOG_E("%s: Failed to stop %s (ret=%d)", name.c_str(), block->Name().c_str(), ret);
      return ret;
    }
  }
  Whereabouts::Outside();
  KeepReason(why);
  const bool ran = CurrentStatus() == RUNNING;
  StoreStatus(STOPPED);
  LOG_I("%s: Stopped", name.c_str());
  if (ran) TellEvent(Chronicle::Kind::STOPPED, why);
  Tell("OnStopped", [&](Callbacks& client) { client.OnStopped(reason); });
  return 0;
}

int RouteImpl::IntegrityCheck(bool& ok) const {
  ok = false;
  if (plan.First().empty()) {
    LOG_E("%s: No first block(s)", name.c_str());
    return 0;
  }
  ok = plan.IsComplete();
  if (ok) return 0;
  for (const Block* block : blocks) {
    if (block->ActiveInEps().empty() && !block->IsFirst()) {
      LOG_E("%s: %s (who is non-first-block) has no active input endpoint", name.c_str(), block->Name().c_str());
      return 0;
    }
    if (block->ActiveOutEps().empty() && !block->IsLast()) {
      LOG_E("%s: %s (who is non-last-block) has no active output endpoint", name.c_str(), block->Name().c_str());
      return 0;
    }
  }
  return 0;
}

// Before every cycle, as long as a block answers its start with more than 0. Nothing but that block has changed.
RouteImpl::Step RouteImpl::AskToStartAgain() { return Start_l() == 0 ? RUN_CYCLE : Die(); }

/** For ever: see Route::Start(). */
RouteImpl::Step RouteImpl::Die() {
  TellEvent(Chronicle::Kind::DIED, lastReason);
  return END_THREAD;
}

/** First the flag, then what others ask for without the mutex: who asks from now on sets it again. */
void RouteImpl::Settle() {
  unsettled.exchange(false, std::memory_order_acq_rel);
  if (stopAsked.load(std::memory_order_relaxed)) unsettled.store(true, std::memory_order_relaxed);
  ServeWhoLooks();
}

// Carries out what is queued, then decides from the status: run a frame cycle, iterate again after a sleep, force a
// stop, or end the thread.
RouteImpl::Step RouteImpl::Preprocess() {
  // A running graph that nobody touched since its last check needs neither the lock nor another check.
  if (!unsettled.load(std::memory_order_acquire)) return everyBlockStarted ? RUN_CYCLE : AskToStartAgain();

  std::unique_lock<std::mutex> lock(mutex);
  const HeldMutex held(holdsMutex);
  ProcessActions();
  if (stopAsked.exchange(false) && CurrentStatus() == RUNNING) Stop_l(StopReason::STOP_REQUESTED, "the process ends");
  const auto sleep = [&] { wakeup.wait(lock, [this] { return !actionList.empty(); }); };
  switch (CurrentStatus()) {
    case EXIT: LOG_I("%s: Status is EXIT", name.c_str()); return END_THREAD;
    case STOPPED:
      LOG_D("%s: Status is STOPPED", name.c_str());
      sleep();
      return SLEPT;
    case RUNNING:
    case BROKEN_RUNNING: break;
    default: LOG_E("%s: Unknown route status %d", name.c_str(), CurrentStatus()); return END_THREAD;
  }

  if (!RefreshPlan()) return FORCE_STOP;
  bool ok = false;
  if (IntegrityCheck(ok) < 0) {
    LOG_E("%s: Unable to do integrity check, force stop...", name.c_str());
    return FORCE_STOP;
  }
  if (ok) {
    if (Start_l() != 0) return Die();  // whatever the number: there is no caller who could be told
    Settle();
    return RUN_CYCLE;
  }
  const bool isNew = CurrentStatus() == RUNNING;
  Stop_l(StopReason::STOP_ERROR, "its graph is incomplete");
  StoreStatus(BROKEN_RUNNING);
  if (isNew) TellEvent(Chronicle::Kind::BROKEN, "its graph is incomplete");
  LOG_I("%s: Status is BROKEN_RUNNING, wait for new actions...", name.c_str());
  sleep();
  return SLEPT;
}

}  // namespace vorn
