#include "Route/FramePlan.h"

#include <algorithm>
#include <utility>

#include "Link/Link.h"

namespace vorn {
namespace {

const char* Label(const Block& block) { return block.IsFirst() ? "(first) " : block.IsLast() ? "(last) " : ""; }

bool HasItsLinks(const Block& block) {
  return (block.IsFirst() || !block.ActiveInEps().empty()) && (block.IsLast() || !block.ActiveOutEps().empty());
}

bool IsBefore(const FramePlan::Visit* visit, const Block* block) { return visit->block < block; }

void Push(FramePlan::Visit*& list, FramePlan::Visit& visit) { visit.next = std::exchange(list, &visit); }

}  // namespace

// Room first, then what cannot fail.
void FramePlan::Enter(Block& block) {
  MakeRoom();
  if (block.IsFirst() && first.size() == first.capacity()) first.reserve(2 * first.size() + 8);
  visits.emplace(&block, unused);
  Visit& visit = *std::exchange(unused, unused->next);
  visit.block = &block;
  visit.name = block.Name().c_str();
  visit.label = Label(block);
  visit.times = nullptr;
  visit.isComplete = true;
  if (block.IsFirst()) first.insert(std::lower_bound(first.begin(), first.end(), &block, IsBefore), &visit);
  Touch(visit);
}

void FramePlan::MakeRoom() {
  if (unused) return;
  pages.push_back(std::make_unique<Visit[]>(PAGE));
  for (std::size_t i = PAGE; i-- > 0;) Push(unused, pages.back()[i]);
}

void FramePlan::Time(const Block& block, CallTimes* times) { visits.find(&block)->second->times = times; }

void FramePlan::Touch(const Block& block) { Touch(*visits.find(&block)->second); }

void FramePlan::Touch(Visit& visit) {
  if (visit.isStale) return;
  visit.isStale = true;
  Push(stale, visit);
}

void FramePlan::Leave(const Block& block) {
  const auto place = visits.find(&block);
  if (place == visits.end()) return;
  Visit& visit = *place->second;
  if (block.IsFirst()) first.erase(std::lower_bound(first.begin(), first.end(), &block, IsBefore));
  visits.erase(place);
  Uncount(visit);
  visit.after.Clear();
  visit.block = nullptr;
  Touch(visit);
}

void FramePlan::Clear() {
  visits.clear();
  first.clear();
  pages.clear();
  unused = stale = nullptr;
  steps = incomplete = 0;
}

void FramePlan::Refresh() {
  while (stale) {
    Visit& visit = *stale;
    if (visit.block) Refresh(visit);
    visit.isStale = false;
    stale = visit.next;
    if (!visit.block) Push(unused, visit);
  }
}

void FramePlan::Refresh(Visit& visit) {
  const Block& block = *visit.block;
  // Room first: all that follows is done or not.
  visit.copies.MakeRoom(block.ActiveInEps().size() + block.ActiveOutEps().size());
  visit.after.MakeRoom(block.ActiveOutEps().size());
  Uncount(visit);
  visit.copies.Clear();
  visit.after.Clear();
  for (const auto& [index, ep] : block.ActiveInEps()) {
    visit.copies.Add({ep->FB(), ep->AttachedLink()->SourceEp()->FB()});
  }
  for (const auto& [index, ep] : block.ActiveOutEps()) {
    const InputEndpoint& sink = *ep->AttachedLink()->SinkEp();
    visit.copies.Add({ep->FB(), sink.FB()});
    if (!block.IsLast()) visit.after.Add(visits.find(sink.Owner())->second);
  }
  visit.isComplete = HasItsLinks(block);
  Count(visit);
}

void FramePlan::Count(const Visit& visit) {
  steps += visit.after.Size();
  if (!visit.isComplete) ++incomplete;
}

void FramePlan::Uncount(const Visit& visit) {
  steps -= visit.after.Size();
  if (!visit.isComplete) --incomplete;
}

}  // namespace vorn
