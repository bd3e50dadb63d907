#include <pthread.h>
#include <sched.h>

#include <ctime>
#include <new>

#include "Block/Topology.h"
#include "Route/RouteImpl.h"

namespace vorn {
namespace {

using Clock = std::chrono::steady_clock;

/** As the check of a graph, for whoever has the topology lock. */
std::string Missing_l(const Block& block) {
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

int RouteImpl::RealTimePriority() const {
  const Topology::Lock lock;
  int policy = SCHED_OTHER;
  sched_param parameters{};
  if (!inside || pthread_getschedparam(const_cast<std::thread&>(thread).native_handle(), &policy, &parameters) != 0)
    return 0;
  return policy == SCHED_FIFO || policy == SCHED_RR ? parameters.sched_priority : 0;
}

void RouteImpl::KeepFailure(const Block& block, int result) try {
  std::string text = block.Name() + " did not start: " + std::to_string(result);
  const Topology::Lock lock;
  lastFailure = std::move(text);
} catch (const std::bad_alloc&) {
}

// Before every cycle, where a block has not started yet: no lock then.
void RouteImpl::ForgetFailure() {
  if (lastFailure.empty()) return;
  const Topology::Lock lock;
  lastFailure.clear();
}

std::string RouteImpl::LastFailure() const {
  const Topology::Lock lock;
  return lastFailure;
}

std::string RouteImpl::WhyIncomplete() const {
  const Topology::Lock lock;
  bool hasFirst = false;
  for (const Block* block : blocks) {
    if (std::string missing = Missing_l(*block); !missing.empty()) return missing;
    hasFirst = hasFirst || block->IsFirst();
  }
  return hasFirst ? "" : "there is no first block";
}

const RouteImpl::Origin* RouteImpl::OriginOf_l(const Block* block) const {
  const auto origin = origins.find(block);
  return origin == origins.end() ? nullptr : &origin->second;
}

}  // namespace vorn
