#include <pthread.h>
#include <sched.h>

#include <ctime>
#include <new>

#include <vorn/kit/BlockView.h>
#include <vorn/kit/Conventions.h>

#include "Block/Topology.h"
#include "Route/RouteImpl.h"

namespace vorn {
namespace {

using Clock = std::chrono::steady_clock;

/** As the check of a graph, for whoever has the topology lock. */
std::string MissingLinkOf(const Block& block) {
  if (!block.IsFirst() && block.ActiveInEps().empty())
    return block.Name() + " has no input linked, and is no first block";
  if (!block.IsLast() && block.ActiveOutEps().empty())
    return block.Name() + " has no output linked, and is no last block";
  return {};
}

}  // namespace

void RouteImpl::StoreStatus(Status newStatus) {
  statusTime.store(Clock::now(), std::memory_order_relaxed);
  status.store(newStatus, std::memory_order_relaxed);
}

std::chrono::nanoseconds RouteImpl::SinceStatus() const {
  return Clock::now() - statusTime.load(std::memory_order_relaxed);
}

// The variable goes with its thread.
void RouteImpl::ShowInside(const std::atomic<const Block*>* where) {
  const Topology::Lock lock;
  inside = where;
}

std::string RouteImpl::BlockNow() const {
  const Topology::Lock lock;
  const Block* const block = inside ? inside->load(std::memory_order_relaxed) : nullptr;
  return block && Topology::Exists_l(block) ? block->Name() : std::string();
}

std::chrono::nanoseconds RouteImpl::ProcessorTime() const {
  const Topology::Lock lock;
  clockid_t clock;
  timespec time{};
  if (!inside || pthread_getcpuclockid(const_cast<std::thread&>(thread).native_handle(), &clock) != 0) return {};
  clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

RouteImpl::Policy RouteImpl::Scheduling() const {
  const Topology::Lock lock;
  int policy = SCHED_OTHER;
  sched_param parameters{};
  if (!inside || pthread_getschedparam(const_cast<std::thread&>(thread).native_handle(), &policy, &parameters) != 0)
    return {"other", 0};
  if (policy != SCHED_FIFO && policy != SCHED_RR) return {"other", 0};
  return {policy == SCHED_FIFO ? "fifo" : "rr", parameters.sched_priority};
}

void RouteImpl::KeepReason(const char* text) try {
  const Topology::Lock lock;
  lastReason = text;
} catch (const std::bad_alloc&) {
}

// Before every cycle, where a block has not started yet: no lock then.
void RouteImpl::ForgetReason() {
  if (lastReason.empty()) return;
  const Topology::Lock lock;
  lastReason.clear();
}

std::string RouteImpl::LastReason() const {
  const Topology::Lock lock;
  return lastReason;
}

void RouteImpl::TellEvent(Chronicle::Kind kind, std::string_view text) const noexcept {
  Chronicle::Tell(kind, name, {}, text);
}

/** Of a route that is not being built: what somebody changed may be why it sounds otherwise. */
void RouteImpl::TellEdit(std::string_view instance, std::string_view text) const noexcept {
  const Status now = CurrentStatus();
  if (now == RUNNING || now == BROKEN_RUNNING) Chronicle::Tell(Chronicle::Kind::EDITED, name, instance, text);
}

void RouteImpl::Time(bool on) {
  timingAsked.store(on, std::memory_order_relaxed);
  unsettled.store(true, std::memory_order_release);
}

void RouteImpl::AskForReadings() {
  readingsAsked.store(true, std::memory_order_relaxed);
  unsettled.store(true, std::memory_order_release);
}

/** Between two cycles of a route that runs. */
void RouteImpl::ServeWhoLooks() {
  if (isTimed != IsTimed()) SwitchTiming(!isTimed);
  if (!readingsAsked.load(std::memory_order_relaxed)) return;
  for (Block* block : blocks) {
    if (ViewOf(block)) block->ioctl(KIT_MEASURE, nullptr);
  }
  readingsAsked.store(false, std::memory_order_release);
}

void RouteImpl::SwitchTiming(bool on) try {
  const Topology::Lock lock;
  callTimes.clear();
  for (const Block* block : blocks) on ? TimeBlock_l(*block) : plan.Time(*block, nullptr);
  if (on) cycleTimes.Clear();
  isTimed = on;
} catch (const std::bad_alloc&) {
  LOG_E("%s: No memory to time the blocks", name.c_str());
  for (const Block* block : blocks) plan.Time(*block, nullptr);
  Time(false);
}

void RouteImpl::TimeBlock_l(const Block& block) {
  auto& times = callTimes[&block];
  times = std::make_unique<CallTimes>();
  plan.Time(block, times.get());
}

CallTimes* RouteImpl::CallTimesOf_l(const Block* block) const {
  const auto times = callTimes.find(block);
  return times == callTimes.end() ? nullptr : times->second.get();
}

const BlockView* RouteImpl::ViewOf(const Block* block) {
  const BlockView* const view = block->View();
  return view && view->kitVersion == KIT_VERSION ? view : nullptr;
}

std::string RouteImpl::WhyIncomplete() const {
  const Topology::Lock lock;
  bool hasFirst = false;
  for (const Block* block : blocks) {
    if (std::string missing = MissingLinkOf(*block); !missing.empty()) return missing;
    hasFirst = hasFirst || block->IsFirst();
  }
  return hasFirst ? "" : "there is no first block";
}

const RouteImpl::Origin* RouteImpl::OriginOf_l(const Block* block) const {
  const auto origin = origins.find(block);
  return origin == origins.end() ? nullptr : &origin->second;
}

}  // namespace vorn
