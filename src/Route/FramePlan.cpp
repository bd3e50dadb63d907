#include "Route/FramePlan.h"

#include <algorithm>

#include "Link/Link.h"

namespace vorn {
namespace {

const char* Label(const Block& block) { return block.IsFirst() ? "(first) " : block.IsLast() ? "(last) " : ""; }

bool HasItsLinks(const Block& block) {
  return (block.IsFirst() || !block.ActiveInEps().empty()) && (block.IsLast() || !block.ActiveOutEps().empty());
}

bool IsBefore(const FramePlan::Visit* visit, const Block* block) { return visit->block < block; }

}  // namespace

FramePlan::Visit::Visit(Block& newBlock) : block(&newBlock), name(newBlock.Name().c_str()), label(Label(newBlock)) {}

// Room first, then what cannot fail.
void FramePlan::Enter(Block& block) {
  Visits added(&memory);
  added.emplace_back(block);
  if (block.IsFirst() && first.size() == first.capacity()) first.reserve(2 * first.size() + 8);
  visits.emplace(&block, added.begin());
  if (block.IsFirst()) first.insert(std::lower_bound(first.begin(), first.end(), &block, IsBefore), &added.back());
  stale.splice(stale.end(), added);
}

void FramePlan::Touch(const Block& block) {
  const Visits::iterator visit = visits.find(&block)->second;
  if (visit->isStale) return;
  visit->isStale = true;
  stale.splice(stale.end(), fresh, visit);
}

void FramePlan::Leave(const Block& block) {
  const auto place = visits.find(&block);
  if (place == visits.end()) return;
  const Visits::iterator visit = place->second;
  if (block.IsFirst()) first.erase(std::lower_bound(first.begin(), first.end(), &block, IsBefore));
  Uncount(*visit);
  visits.erase(place);
  (visit->isStale ? stale : fresh).erase(visit);
}

void FramePlan::Clear() {
  visits.clear();
  fresh.clear();
  stale.clear();
  first.clear();
  steps = incomplete = 0;
}

void FramePlan::Refresh() {
  while (!stale.empty()) {
    Refresh(stale.front());
    stale.front().isStale = false;
    fresh.splice(fresh.end(), stale, stale.begin());
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
    if (!block.IsLast()) visit.after.Add(&*visits.find(sink.Owner())->second);
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
