#include <vorn/Block.h>

#include <exception>

#include "Block/Topology.h"
#include "Block/Whereabouts.h"
#include "Log.h"

namespace vorn {

Block::Block(bool isFirst, bool isLast) : first(isFirst), last(isLast) {
  for (std::size_t i = 0; i < Endpoint::COUNT; ++i) {
    inEps[i].index = outEps[i].index = i;
    inEps[i].block = outEps[i].block = this;
  }
  const Topology::Lock lock;
  Topology::Enter_l(this);
}

Block::~Block() {
  {
    const Topology::Lock lock;
    Topology::Leave_l(this);
  }
  CloseDump();
  LOG_I("%s: %s: Deleted", routeName.c_str(), name.c_str());
}

int Block::ioctl(unsigned int, void*) { return -20; }
const char* Block::Subname() const { return nullptr; }
int Block::OnInEpLinked(unsigned long) { return 0; }
void Block::OnInEpUnlinked(unsigned long) {}
int Block::OnOutEpLinked(unsigned long) { return 0; }
void Block::OnOutEpUnlinked(unsigned long) {}
int Block::Start() { return 0; }
int Block::Stop() { return 0; }
void Block::Reset() {}
long Block::Delay() const { return 0; }

int Block::SetParameter(unsigned int paramId, const std::vector<std::string>& params) {
  LOG_I("%s: %s: paramId=%d, params.size()=%zu", routeName.c_str(), name.c_str(), static_cast<int>(paramId),
        params.size());
  return 0;
}

int Block::GetParameter(unsigned int paramId, std::vector<std::string>&) {
  LOG_I("%s: %s: paramId=%d", routeName.c_str(), name.c_str(), static_cast<int>(paramId));
  return 0;
}

void Block::SetName(const std::string& newRouteName, const std::string& newName, const std::string* newDumpPath) {
  {
    const Topology::Lock lock;
    routeName = newRouteName;
    name = newName;
  }
  dumpPath = newDumpPath;
  LOG_I("%s: %s: Created", routeName.c_str(), name.c_str());
}

namespace {

// The active endpoints: changed under the topology lock, read without it by the route's own thread.

template <class Ep>
void Flatten(const std::map<std::size_t, Ep*>& active, std::vector<Ep*>& linked) {
  linked.clear();
  for (const auto& [index, ep] : active) linked.push_back(ep);
}

template <class Ep>
bool Activate(std::map<std::size_t, Ep*>& active, std::vector<Ep*>& linked, Ep& ep, unsigned long index) {
  const Topology::Lock lock;
  linked.reserve(linked.size() + 1);  // all that follows is done or not
  const bool added = active.emplace(index, &ep).second;
  Flatten(active, linked);
  return added;
}

template <class Ep>
void Deactivate(std::map<std::size_t, Ep*>& active, std::vector<Ep*>& linked, unsigned long index) {
  const Topology::Lock lock;
  active.erase(index);
  Flatten(active, linked);
}

template <class Ep>
void MarkEmpty(const std::vector<Ep*>& linked) {
  for (Ep* ep : linked) ep->FB()->samples = 0;
}

}  // namespace

int Block::AskHook(int (Block::*hook)(unsigned long), unsigned long index) {
  Whereabouts::InBlock(*this);
  try {
    return (this->*hook)(index);
  } catch (const std::exception& e) {
    LOG_E("%s: %s: The hook for endpoint %zu threw: %s", routeName.c_str(), name.c_str(), index, e.what());
    return -20;
  }
}

int Block::BaseOnInEpLinked(unsigned long index) {
  if (!Activate(activeInEps, linkedInEps, inEps[index], index)) {
    LOG_E("%s: %s: Input endpoint %zu existed", routeName.c_str(), name.c_str(), index);
    return -20;
  }
  const int ret = AskHook(&Block::OnInEpLinked, index);
  if (ret < 0) {
    Deactivate(activeInEps, linkedInEps, index);
    return ret;
  }
  LOG_D("%s: %s: Input endpoint %zu linked", routeName.c_str(), name.c_str(), index);
  return ret;
}

int Block::BaseOnOutEpLinked(unsigned long index) {
  if (!Activate(activeOutEps, linkedOutEps, outEps[index], index)) {
    LOG_E("%s: %s: Output endpoint %zu existed", routeName.c_str(), name.c_str(), index);
    return -20;
  }
  const int ret = AskHook(&Block::OnOutEpLinked, index);
  if (ret < 0) {
    Deactivate(activeOutEps, linkedOutEps, index);
    return ret;
  }
  LOG_D("%s: %s: Output endpoint %zu linked", routeName.c_str(), name.c_str(), index);
  return ret;
}

void Block::BaseOnInEpUnlinked(unsigned long index) {
  Deactivate(activeInEps, linkedInEps, index);
  LOG_D("%s: %s: Input endpoint %zu unlinked", routeName.c_str(), name.c_str(), index);
  Whereabouts::InBlock(*this);
  OnInEpUnlinked(index);
}

void Block::BaseOnOutEpUnlinked(unsigned long index) {
  Deactivate(activeOutEps, linkedOutEps, index);
  LOG_D("%s: %s: Output endpoint %zu unlinked", routeName.c_str(), name.c_str(), index);
  Whereabouts::InBlock(*this);
  OnOutEpUnlinked(index);
}

int Block::BaseStart() {
  if (started) return 0;
  const int ret = Start();
  if (ret == 0) started = true;
  return ret;
}

int Block::BaseStop() {
  if (!started) return 0;
  const int ret = Stop();
  if (ret == 0) started = false;
  return ret;
}

void Block::BaseReset() {
  LOG_D("%s: %s: Reset", routeName.c_str(), name.c_str());
  Reset();
  MarkEmpty(linkedInEps);
  MarkEmpty(linkedOutEps);
}

bool Block::ActiveInEpsDataIsReady() const {
  for (const InputEndpoint* ep : linkedInEps) {
    if (ep->FB()->samples == 0) return false;
  }
  return true;
}

bool Block::ActiveOutEpsDataIsEmpty() const {
  for (const OutputEndpoint* ep : linkedOutEps) {
    if (ep->FB()->samples == 0) return true;
  }
  return false;
}

void Block::ClearActiveInEpsData() { MarkEmpty(linkedInEps); }

}  // namespace vorn
