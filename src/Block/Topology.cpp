#include "Block/Topology.h"

#include <unordered_set>

#include <vorn/Block.h>

namespace vorn {
namespace {

std::mutex mutex;

// Never destroyed: blocks may outlive the statics of this library at process exit.
std::unordered_set<const Block*>& Blocks() {
  static auto& blocks = *new std::unordered_set<const Block*>;
  return blocks;
}

}  // namespace

Topology::Lock::Lock() : guard(mutex) {}

void Topology::Enter_l(const Block* block) { Blocks().insert(block); }
void Topology::Leave_l(const Block* block) { Blocks().erase(block); }
bool Topology::Exists_l(const Block* block) { return Blocks().contains(block); }

StrangerName::StrangerName(const Block* block) {
  const Topology::Lock lock;
  if (!Topology::Exists_l(block)) return;
  address = block->Name().c_str();
  text = block->Name();
}

}  // namespace vorn
