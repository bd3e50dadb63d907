#include "Route/FramePlan.h"

#include <algorithm>

#include "Link/Link.h"

namespace vorn {
namespace {

const char* Label(const Block& block) { return block.IsFirst() ? "(first) " : block.IsLast() ? "(last) " : ""; }

/** The part of `all` that was added since it held `begin` elements. */
template <class T>
std::span<const T> Since(const std::vector<T>& all, std::size_t begin) {
  return {all.data() + begin, all.size() - begin};
}

}  // namespace

void FramePlan::Make(const std::set<Block*>& blocks, const std::set<Block*>& firstBlocks) {
  isStale = true;
  visits.clear();
  copies.clear();
  after.clear();
  first.clear();
  // Room beforehand: what was added is pointed at.
  visits.reserve(blocks.size());
  std::size_t ends = 0;
  std::size_t outputs = 0;
  for (Block* block : blocks) {
    visits.push_back({block, block->Name().c_str(), Label(*block), {}, {}});
    outputs += block->ActiveOutEps().size();
    ends += block->ActiveInEps().size() + block->ActiveOutEps().size();
  }
  copies.reserve(ends);
  after.reserve(outputs);
  for (Visit& visit : visits) {
    const std::size_t copied = copies.size();
    for (const auto& [index, ep] : visit.block->ActiveInEps()) {
      copies.push_back({ep->FB(), ep->AttachedLink()->SourceEp()->FB()});
    }
    const std::size_t added = after.size();
    for (const auto& [index, ep] : visit.block->ActiveOutEps()) {
      const InputEndpoint& sink = *ep->AttachedLink()->SinkEp();
      copies.push_back({ep->FB(), sink.FB()});
      if (!visit.block->IsLast()) after.push_back(VisitOf(sink.Owner()));
    }
    visit.copies = Since(copies, copied);
    visit.after = Since(after, added);
  }
  for (const Block* block : firstBlocks) first.push_back(VisitOf(block));
  isStale = false;
}

const FramePlan::Visit* FramePlan::VisitOf(const Block* block) const {
  return &*std::lower_bound(visits.begin(), visits.end(), block,
                            [](const Visit& visit, const Block* wanted) { return visit.block < wanted; });
}

}  // namespace vorn
