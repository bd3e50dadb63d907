#include <unistd.h>

#include <exception>
#include <memory>
#include <new>

#include "Block/Topology.h"
#include "Block/Whereabouts.h"
#include "Line.h"
#include "Log.h"
#include "Route/LoadedBlock.h"
#include "Route/RouteImpl.h"

namespace vorn {
namespace {

constexpr int REFUSED = -20;

template <class Instances>
typename Instances::value_type FindByName(const Instances& instances, const std::string& name) {
  for (auto* instance : instances) {
    if (instance->Name() == name) return instance;
  }
  return nullptr;
}

}  // namespace

Block* RouteImpl::NewBlock_l(const std::string& soFileName, bool first, bool last,
                             const std::vector<std::string>& args) {
  LOG_D("%s: soFileName=%s, first=%d, last=%d", name.c_str(), soFileName.c_str(), first, last);
  for (std::size_t i = 0; i < args.size(); ++i) LOG_D("%s: args[%zu]=%s", name.c_str(), i, args[i].c_str());

  std::string why;
  LoadedBlock loaded = LoadBlock(name, soFileName, first, last, args, why);
  if (!loaded.block) return nullptr;
  Block* const block = loaded.block.get();
  if (!NameBlock_l(*block, BaseName(soFileName))) {
    LOG_E("%s: Unable to give a name to this block", name.c_str());
    static_cast<void>(loaded.handle.release());  // a block that got no name stays, and so does its code
    return loaded.block.release(), nullptr;
  }
  if (soHandles.size() == soHandles.capacity()) soHandles.reserve(2 * soHandles.size() + 8);
  EnterBlock_l(*block, {soFileName, args});
  soHandles.push_back(loaded.handle.release());
  WarnOfDump_l(*block);
  return loaded.block.release();
}

/** All or nothing, where memory runs out. */
void RouteImpl::EnterBlock_l(Block& block, Origin origin) try {
  origin.label = TakeLabel(origin.args);
  plan.Enter(block);
  const Topology::Lock lock;
  blocks.insert(&block);
  origins[&block] = std::move(origin);
  if (isTimed) TimeBlock_l(block);
  if (!startsAll) added.push_back(&block);
  TakeNumber_l(block.name);
} catch (const std::bad_alloc&) {
  RemoveBlock_l(block);
  throw;
}

void RouteImpl::RemoveBlock_l(Block& block) {
  plan.Leave(block);
  const Topology::Lock lock;
  origins.erase(&block);
  callTimes.erase(&block);
  blocks.erase(&block);
  std::erase(added, &block);
  ReleaseNumber_l(block.name);
}

void RouteImpl::TakeNumber_l(const std::string& blockName) {
  blockNumbers.find(StemOf(blockName))->second.Take(NumberOf(blockName));
}

void RouteImpl::ReleaseNumber_l(const std::string& blockName) {
  blockNumbers.find(StemOf(blockName))->second.Release(NumberOf(blockName));
}

bool RouteImpl::NameBlock_l(Block& block, const std::string& baseName) {
  const char* subname = block.Subname();
  const std::string stem = baseName + (subname && *subname ? "_" + std::string(subname) : "") + "_";
  const std::size_t number = blockNumbers[stem].Lowest();
  if (number > Numbers::LAST) return false;
  block.board = &board;
  block.SetName(name, stem + std::to_string(number), &dumpPath);
  return true;
}

Link* RouteImpl::NewLink_l(unsigned int rate, SampleFormat format, unsigned int channels, long samplesPerFrame,
                           Block* source, std::size_t sourceBlkOutEpIdx, Block* sink, std::size_t sinkBlkInEpIdx) {
  if (!blocks.contains(source)) {
    const StrangerName stranger(source);
    if (stranger.address) {
      LOG_E("%s: source %p doesn't exist", name.c_str(), stranger.address);
    } else {
      LOG_E("%s: source %s doesn't exist", name.c_str(), stranger.text.c_str());
    }
    return nullptr;
  }
  if (!blocks.contains(sink)) {
    const StrangerName stranger(sink);
    if (stranger.address) {
      LOG_E("%s: sink %p doesn't exist", name.c_str(), stranger.address);
    } else {
      LOG_E("%s: sink %s doesn't exist", name.c_str(), stranger.text.c_str());
    }
    return nullptr;
  }
  if (sourceBlkOutEpIdx >= Endpoint::COUNT) {
    LOG_E("%s: Invalid sourceBlkOutEpIdx %zu", name.c_str(), sourceBlkOutEpIdx);
    return nullptr;
  }
  if (sinkBlkInEpIdx >= Endpoint::COUNT) {
    LOG_E("%s: %s: Invalid sinkBlkInEpIdx %zu", name.c_str(), sink->Name().c_str(), sinkBlkInEpIdx);
    return nullptr;
  }
  const std::size_t number = linkNumbers.Lowest();
  if (number > Numbers::LAST) {
    LOG_E("%s: Unable to give a name to this link", name.c_str());
    return nullptr;
  }
  const std::string linkName = "lnk_" + std::to_string(number);
  try {
    auto link = std::make_unique<Link>(name, linkName, rate, format, channels, samplesPerFrame);
    if (link->Connect(&source->OutEp(sourceBlkOutEpIdx), &sink->InEp(sinkBlkInEpIdx)) < 0) return nullptr;
    TouchEnds(*link);
    const Topology::Lock lock;
    links.insert(link.get());
    linkNumbers.Take(number);
    return link.release();
  } catch (const std::exception& e) {  // a frame that no memory holds must not end the client's process
    LOG_E("%s: %s: No memory for frames of %ld samples: %s", name.c_str(), linkName.c_str(), samplesPerFrame, e.what());
    return nullptr;
  }
}

void RouteImpl::TouchEnds(const Link& link) {
  plan.Touch(*link.SourceEp()->Owner());
  plan.Touch(*link.SinkEp()->Owner());
}

void RouteImpl::DestroyLink_l(Link* link) {
  TouchEnds(*link);
  {
    const Topology::Lock lock;
    links.erase(link);
  }
  linkNumbers.Release(NumberOf(link->Name()));
  delete link;
}

int RouteImpl::Delete_l(void* instance) {
  if (auto* link = static_cast<Link*>(instance); links.contains(link)) {
    TellEdit(link->Name(), "was deleted");
    DestroyLink_l(link);
    return 0;
  }
  auto* block = static_cast<Block*>(instance);
  if (!blocks.contains(block)) {
    LOG_E("%s: No instance %p", name.c_str(), instance);
    return REFUSED;
  }
  TellEdit(block->Name(), "was deleted");
  for (std::size_t i = 0; i < Endpoint::COUNT; ++i) {
    if (block->InEp(i).IsActive()) DestroyLink_l(block->InEp(i).AttachedLink());
  }
  for (std::size_t i = 0; i < Endpoint::COUNT; ++i) {
    if (block->OutEp(i).IsActive()) DestroyLink_l(block->OutEp(i).AttachedLink());
  }
  RemoveBlock_l(*block);
  Whereabouts::InBlock(*block);
  delete block;
  return 0;
}

int RouteImpl::DeleteAll_l() {
  std::set<Link*> allLinks;
  std::set<Block*> allBlocks;
  plan.Clear();
  added.clear();
  {
    const Topology::Lock lock;
    allLinks.swap(links);
    allBlocks.swap(blocks);
    origins.clear();
    callTimes.clear();
  }
  if (!allBlocks.empty()) TellEdit({}, "everything was deleted");
  blockNumbers.clear();
  linkNumbers = Numbers();
  for (Link* link : allLinks) delete link;
  for (Block* block : allBlocks) {
    Whereabouts::InBlock(*block);
    delete block;
  }
  return 0;
}

int RouteImpl::SetParam_l(Block* block, unsigned int paramId, const std::vector<std::string>& params) {
  if (!blocks.contains(block)) {
    if (block) {
      LOG_E("%s: Block %p doesn't exist", name.c_str(), static_cast<void*>(block));
    } else {
      LOG_E("%s: Block %s doesn't exist", name.c_str(), "(null)");
    }
    return REFUSED;
  }
  LOG_I("%s: Setting parameter id %u to %s", name.c_str(), paramId, block->Name().c_str());
  Whereabouts::InBlock(*block);
  const int ret = block->SetParameter(paramId, params);
  if (ret == 0) TellEdit(block->Name(), Line("parameter %u was set", paramId).data());
  return ret;
}

int RouteImpl::GetParam_l(Block* block, unsigned int paramId, std::vector<std::string>& params) {
  if (!blocks.contains(block)) {
    LOG_E("%s: Block %s doesn't exist", name.c_str(), StrangerName(block).text.c_str());
    return REFUSED;
  }
  LOG_I("%s: Getting parameter %u from block %s", name.c_str(), paramId, block->Name().c_str());
  Whereabouts::InBlock(*block);
  return block->GetParameter(paramId, params);
}

int RouteImpl::Reset_l(Block* block) {
  if (!blocks.contains(block)) {
    LOG_E("%s: Block %s doesn't exist", name.c_str(), StrangerName(block).text.c_str());
    return REFUSED;
  }
  Whereabouts::InBlock(*block);
  block->BaseReset();
  return 0;
}

void RouteImpl::SetDump_l(const char* path) {
  if (!path) {
    dumpPath.clear();
    for (Block* block : blocks) block->CloseDump();
    LOG_I("%s: Disabled dumping data", name.c_str());
    return;
  }
  dumpPath = path;
  if (!dumpPath.empty() && dumpPath.back() != '/') dumpPath += '/';
  LOG_I("%s: Enabled dumping data to %s", name.c_str(), dumpPath.c_str());
  for (const Block* block : blocks) WarnOfDump_l(*block);
}

// A block made from a path has it in its name, so its file lies in a folder that nobody may have made. Files that
// cannot be opened are no error, but here all of them are known beforehand.
void RouteImpl::WarnOfDump_l(const Block& block) const {
  const std::size_t slash = block.name.rfind('/');
  if (dumpPath.empty() || slash == std::string::npos) return;
  const std::string folder = dumpPath + name + "-" + block.name.substr(0, slash + 1);
  if (access(folder.c_str(), W_OK) != 0) {
    LOG_FROM('W', "SetDump_l", "%s: %s: Will not be dumped: there is no folder %s to write to", name.c_str(),
             block.name.c_str(), folder.c_str());
  }
}

void* RouteImpl::FindInstance(const std::string& instanceName) const {
  const Topology::Lock lock;
  if (Block* block = FindByName(blocks, instanceName)) return block;
  return FindByName(links, instanceName);
}

}  // namespace vorn
