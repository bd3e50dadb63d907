#include "Monitor/Reason.h"

#include <vorn/kit/BlockView.h>
#include <vorn/kit/Interrupt.h>

#include <algorithm>

#include "Block/Glimpse.h"
#include "Block/Topology.h"
#include "Line.h"

namespace vorn::monitor {
namespace {

using Clock = Standing::Clock;

constexpr std::chrono::milliseconds PATIENCE(200);  // a frame may be as long
constexpr int SHARE_OF_THE_BUSY = 100;  // who uses a hundredth of the time, on a crowded machine, does not sleep

double Seconds(std::chrono::nanoseconds time) { return std::chrono::duration<double>(time).count(); }
std::string InSeconds(std::chrono::nanoseconds time) { return Line("%.1f s", Seconds(time)).data(); }

/** A block at an end of a FIFO; both empty for none. */
struct User {
  std::string route;
  std::string block;

  bool operator==(const User&) const = default;
};

/** Blocks enter themselves there whenever they like, and may be gone since. */
User UserOf(Block* const& end) {
  const Topology::Lock lock;
  const Block* const block = Glimpse(end);
  return Topology::Exists_l(block) ? User{block->RouteName(), block->Name()} : User();
}

Object Describe(const User& user) {
  Object object;
  if (!user.block.empty()) object.Add("route", user.route).Add("block", user.block);
  return object;
}

/** Whether the block waits by the means of the kit, and for what; null for neither. */
const char* WaitOf(const RouteImpl& route, const std::string& name) {
  const Topology::Lock lock;
  for (const Block* block : route.Blocks_l()) {
    if (block->Name() != name) continue;
    const BlockView* const view = RouteImpl::ViewOf(block);
    const Interrupt* const interrupt = view ? view->interrupt->load(std::memory_order_relaxed) : nullptr;
    if (!interrupt || !interrupt->IsWaiting()) return nullptr;
    return view->setsPace ? "device" : "file";
  }
  return nullptr;
}

const RouteImpl* Find(const Registry& registry, const std::string& name) {
  const auto found = std::ranges::find_if(registry.routes, [&](const auto& route) { return route->Name() == name; });
  return found == registry.routes.end() ? nullptr : found->get();
}

/** What the other side of a FIFO does, as a member and as the end of a sentence. */
std::string TellOther(const User& user, const char* verb, const Evidence& evidence, Object& members) {
  const RouteImpl* const other = Find(evidence.registry, user.route);
  if (!other) return std::string("; no block ") + verb + " it";
  const auto since = other->SinceStatus();
  Object about;
  about.Add("route", user.route)
      .Add("block", user.block)
      .Add("status", StatusName(*other))
      .Add("since", Seconds(since));
  members.Add("other", about);
  std::string text = "; " + user.block + " of " + user.route + ' ' + verb + " it";
  if (other->CurrentStatus() == RouteImpl::RUNNING && !other->IsLost()) {
    const Standing& standing = evidence.standing(*other);
    if (!standing.HasStood(evidence.now)) return text + ", which runs";
    return text + ", which stands in " + standing.block + ", for " + InSeconds(evidence.now - standing.since);
  }
  text += ", which is " + std::string(StatusName(*other)) + ", for " + InSeconds(since);
  const std::string reason = other->LastReason();
  return reason.empty() ? text : text + ": " + reason;
}

/** Where the thread sleeps in a FIFO. @return false where it does not. */
bool WaitsInFIFO(Reason& reason, const RingBuffer& fifo, const User& self, const Evidence& evidence) {
  const FIFOState state = fifo.State();
  const User reader = UserOf(fifo.reader), writer = UserOf(fifo.writer);
  const bool reads = state.readerSleeps && reader == self;
  if (!reads && !(state.writerSleeps && writer == self)) return false;
  const char* const what = reads ? "samples" : "room";
  reason.why = "waits";
  reason.members.Add("for", what).Add("fifo", DescribeFIFO(fifo));
  reason.text = Line("no %s in %s (%ld of %ld)", what, fifo.name.c_str(), state.count, state.capacity).data();
  reason.text += TellOther(reads ? writer : reader, reads ? "writes" : "reads", evidence, reason.members);
  return true;
}

/** Of a route whose thread stays in the code of a block. */
Reason WhyItStands(const RouteImpl& route, const Standing& standing, const Evidence& evidence) {
  const auto stood = evidence.now - standing.since;
  Reason reason;
  reason.members.Add("block", standing.block).Add("since", Seconds(stood));
  const std::string place = " in " + standing.block + ", for " + InSeconds(stood);
  for (const auto& fifo : evidence.registry.fifos) {
    if (!WaitsInFIFO(reason, *fifo, {route.Name(), standing.block}, evidence)) continue;
    reason.text = route.Name() + " waits" + place + ": " + reason.text;
    return reason;
  }
  if (const char* const what = WaitOf(route, standing.block)) {
    reason.why = "waits";
    reason.members.Add("for", what);
    reason.text = route.Name() + " waits" + place + ": for its " + what;
    return reason;
  }
  const auto used = route.ProcessorTime() - standing.processor;
  reason.members.Add("processorSeconds", Seconds(used));
  const bool isBusy = SHARE_OF_THE_BUSY * used > stood;
  reason.why = isBusy ? "busy" : "sleeps";
  reason.text = route.Name() + (isBusy ? " computes" : " sleeps") + place;
  if (isBusy) reason.text += ", and used " + InSeconds(used) + " of a processor";
  return reason;
}

}  // namespace

void Standing::Look(const RouteImpl& route, Clock::time_point now) {
  const unsigned long long framesNow = route.OkFrames() + route.ErrorFrames();
  std::string blockNow = route.BlockNow();
  if (since != Clock::time_point() && frames == framesNow && block == blockNow) return;
  *this = {framesNow, std::move(blockNow), now, route.ProcessorTime()};
}

bool Standing::HasStood(Clock::time_point now) const { return !block.empty() && now - since >= PATIENCE; }

const char* StatusName(const RouteImpl& route) {
  static constexpr const char* NAMES[] = {"stopped", "running", "broken", "deleted"};
  return route.IsLost() ? "dead" : NAMES[route.CurrentStatus()];
}

Object DescribeFIFO(const RingBuffer& fifo) {
  const FIFOState state = fifo.State();
  Object object;
  object.Add("name", fifo.name)
      .Add("count", state.count)
      .Add("capacity", state.capacity)
      .Add("prefill", fifo.Prefill())
      .Add("rate", fifo.Rate())
      .Add("writer", Describe(UserOf(fifo.writer)))
      .Add("reader", Describe(UserOf(fifo.reader)))
      .Add("writerSleeps", state.writerSleeps)
      .Add("readerSleeps", state.readerSleeps)
      .Add("writingEnded", state.writingEnded)
      .Add("readingEnded", state.readingEnded);
  return object;
}

Reason ReasonOf(const RouteImpl& route, const Evidence& evidence) {
  const Standing& standing = evidence.standing(route);
  const std::string last = route.LastReason();
  Reason reason;
  if (route.IsLost()) {
    reason.members.Add("reason", last);
    return {"dead", route.Name() + " is dead: " + last + "; it can only be looked at", reason.members};
  }
  if (standing.HasStood(evidence.now)) return WhyItStands(route, standing, evidence);
  switch (route.CurrentStatus()) {
    case RouteImpl::RUNNING: return {"runs", route.Name() + " runs", {}};
    case RouteImpl::BROKEN_RUNNING: {
      const std::string missing = route.WhyIncomplete();
      reason.members.Add("reason", missing);
      return {"broken", route.Name() + " waits until its graph is mended: " + missing, reason.members};
    }
    case RouteImpl::STOPPED: {
      reason.members.Add("since", Seconds(route.SinceStatus())).Add("reason", last);
      const std::string text = route.Name() + " is stopped, for " + InSeconds(route.SinceStatus());
      return {"stopped", last.empty() ? text : text + ": " + last, reason.members};
    }
    default: return {"deleted", route.Name() + " is being deleted", {}};
  }
}

}  // namespace vorn::monitor
