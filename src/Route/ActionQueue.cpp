#include <dlfcn.h>

#include <exception>
#include <new>

#include "Block/Whereabouts.h"
#include "Log.h"
#include "Route/GraphEdit.h"
#include "Route/RouteImpl.h"
#include "Thread.h"

namespace vorn {
namespace {

constexpr int REFUSED = -20;

const char* TypeName(Route::Action::Type type) {
  static constexpr const char* NAMES[] = {"NEW_BLOCK",     "NEW_LINK", "START",   "SET_PARAMETER",
                                          "GET_PARAMETER", "RESET",    "STOP",    "DELETE",
                                          "DELETE_ALL",    "EXIT",     "SET_DUMP"};
  const auto index = static_cast<std::size_t>(type);
  return index < std::size(NAMES) ? NAMES[index] : "?";
}

Route::Action Request(Route::Action::Type type) {
  Route::Action action{};
  action.type = type;
  return action;
}

Block* BlockAt(Block** slot) { return slot ? *slot : nullptr; }

}  // namespace

Route::~Route() = default;
Route::Callbacks::~Callbacks() = default;
void Route::Callbacks::OnStarted() {}
void Route::Callbacks::OnStopped(StopReason) {}
void Route::Callbacks::OnExit() {}

RouteImpl::RouteImpl(const std::string& newName, Route::Callbacks* newCallbacks, const std::string& newDumpPath)
    : name(newName), callbacks(newCallbacks), dumpPath(newDumpPath), lastEntries(NewEntries(3)) {
  thread = StartThread(name, [this] { MainThread(this); });
}

RouteImpl::~RouteImpl() {
  ending.store(true, std::memory_order_relaxed);
  for (const Action::Type type : {Action::Type::STOP, Action::Type::DELETE_ALL, Action::Type::EXIT}) {
    Action action = Request(type);
    Entries entry;
    entry.splice(entry.begin(), lastEntries, lastEntries.begin());
    Await(entry, &action);
  }
  thread.join();
  for (void* handle : soHandles) dlclose(handle);
  LOG_I("%s: Deleted", name.c_str());
}

Block* RouteImpl::NewBlock(const char* soFileName, bool first, bool last, const std::vector<std::string>& args) {
  if (!soFileName) {
    LOG_E("%s: so file name is nullptr", name.c_str());
    return nullptr;
  }
  Block* block = nullptr;
  Action action = Request(Action::Type::NEW_BLOCK);
  action.newBlock = {soFileName, first, last, &args, &block};
  ExecuteActions(&action, 1);
  return block;
}

Link* RouteImpl::NewLink(unsigned int rate, SampleFormat format, unsigned int channels, long samplesPerFrame,
                         Block* source, std::size_t sourceBlkOutEpIdx, Block* sink, std::size_t sinkBlkInEpIdx) {
  if (!source) {
    LOG_E("%s: Source block is nullptr", name.c_str());
    return nullptr;
  }
  if (!sink) {
    LOG_E("%s: Sink block is nullptr", name.c_str());
    return nullptr;
  }
  if (sourceBlkOutEpIdx >= Endpoint::COUNT) {
    LOG_E("%s: Invalid source block output endpoint index %zu", name.c_str(), sourceBlkOutEpIdx);
    return nullptr;
  }
  if (sinkBlkInEpIdx >= Endpoint::COUNT) {
    LOG_E("%s: Invalid sink block input endpoint index %zu", name.c_str(), sinkBlkInEpIdx);
    return nullptr;
  }
  Action action = Request(Action::Type::NEW_LINK);
  action.newLink = {rate,  format,         channels, samplesPerFrame, &source, sourceBlkOutEpIdx,
                    &sink, sinkBlkInEpIdx, nullptr};
  ExecuteActions(&action, 1);
  return action.newLink.link;
}

int RouteImpl::Start() {
  Action action = Request(Action::Type::START);
  action.start = {REFUSED};
  ExecuteActions(&action, 1);
  return action.start.ret;
}

int RouteImpl::SetParameter(Block* block, unsigned int paramId, const std::vector<std::string>& params) {
  Action action = Request(Action::Type::SET_PARAMETER);
  action.setParameter = {block, paramId, &params, REFUSED};
  ExecuteActions(&action, 1);
  return action.setParameter.ret;
}

int RouteImpl::GetParameter(Block* block, unsigned int paramId, std::vector<std::string>& params) {
  Action action = Request(Action::Type::GET_PARAMETER);
  action.getParameter = {block, paramId, &params, REFUSED};
  ExecuteActions(&action, 1);
  return action.getParameter.ret;
}

int RouteImpl::Reset(Block* block) {
  Action action = Request(Action::Type::RESET);
  action.reset = {block, REFUSED};
  ExecuteActions(&action, 1);
  return action.reset.ret;
}

int RouteImpl::Stop() {
  Action action = Request(Action::Type::STOP);
  action.stop = {REFUSED};
  ExecuteActions(&action, 1);
  return action.stop.ret;
}

int RouteImpl::Delete(void* instance) {
  Action action = Request(Action::Type::DELETE);
  action.del = {instance, REFUSED};
  ExecuteActions(&action, 1);
  return action.del.ret;
}

int RouteImpl::DeleteAll() {
  Action action = Request(Action::Type::DELETE_ALL);
  action.deleteAll = {REFUSED};
  ExecuteActions(&action, 1);
  return action.deleteAll.ret;
}

void RouteImpl::SetDump(const char* path) {
  Action action = Request(Action::Type::SET_DUMP);
  action.setDump = {path};
  ExecuteActions(&action, 1);
}

void RouteImpl::ExecuteActions(Action* actions, std::size_t count) {
  if (!actions || count == 0) return;
  Entries entries;
  try {
    entries = NewEntries(count);
  } catch (const std::bad_alloc&) {  // all or nothing: the results stay as their owner preset them
    LOG_E("%s: No memory for a batch of %zu actions", name.c_str(), count);
    return;
  }
  Await(entries, actions);
}

RouteImpl::Entries RouteImpl::NewEntries(std::size_t count) {
  Entries entries;
  while (entries.size() < count) entries.push_back(std::make_shared<ActionPlus>());
  return entries;
}

/** Queues the actions, one an entry, and waits until they are carried out. Allocates nothing. */
void RouteImpl::Await(Entries& entries, Action* actions) {
  for (const auto& entry : entries) entry->action = actions++;
  Await(entries);
}

void RouteImpl::CarryOut(EditJob& job) {
  Entries entry = NewEntries(1);
  entry.front()->edit = &job;
  Await(entry);
}

void RouteImpl::Await(Entries& entries) {
  std::condition_variable done;
  bool finished = false;
  entries.back()->done = &done;
  entries.back()->finished = &finished;

  std::unique_lock<std::mutex> lock(mutex);
  if (isLeft) return;
  actionList.splice(actionList.end(), entries);
  unsettled.store(true, std::memory_order_release);
  wakeup.notify_one();
  done.wait(lock, [&finished] { return finished; });
}

void RouteImpl::ProcessActions() {
  while (!actionList.empty()) {
    const std::shared_ptr<ActionPlus> entry = actionList.front();
    LOG_D("%s: Processing action '%s'", name.c_str(), TypeName(*entry));
    try {
      Dispatch_l(*entry);
    } catch (const std::exception& e) {  // no memory, or a block that throws: the request's failure alone
      const char* const block = Whereabouts::Name();
      LOG_E("%s: %s%sAction '%s' failed: %s", name.c_str(), block ? block : "", block ? ": " : "", TypeName(*entry),
            e.what());
    }
    Whereabouts::Outside();
    Release_l(*entry);
    actionList.pop_front();
  }
}

void RouteImpl::Release_l(const ActionPlus& entry) {
  if (!entry.done) return;
  *entry.finished = true;
  entry.done->notify_one();
}

/** Lets go of all who wait for this route, and of those who will. The caller never returns to what it was called from. */
void RouteImpl::Leave() {
  if (!holdsMutex) mutex.lock();
  isLeft = true;
  for (const auto& entry : actionList) Release_l(*entry);
  mutex.unlock();
}

const char* RouteImpl::TypeName(const ActionPlus& entry) {
  return entry.edit ? "EDIT" : vorn::TypeName(entry.action->type);
}

void RouteImpl::Dispatch_l(const ActionPlus& entry) {
  entry.edit ? GraphEdit(*this, *entry.edit).Run() : Dispatch_l(*entry.action);
}

void RouteImpl::Dispatch_l(Action& action) {
  using Type = Action::Type;
  static const std::vector<std::string> NO_TEXTS;
  switch (action.type) {
    case Type::NEW_BLOCK: {
      auto& a = action.newBlock;
      if (a.block) *a.block = nullptr;
      if (!a.soFileName) {
        LOG_E("%s: so file name is nullptr", name.c_str());
        break;
      }
      Block* block = NewBlock_l(std::string(a.soFileName), a.first, a.last, a.args ? *a.args : NO_TEXTS);
      if (a.block) *a.block = block;
      if (block) TellEdit(block->Name(), "was made");
      break;
    }
    case Type::NEW_LINK: {
      auto& a = action.newLink;
      a.link = nullptr;
      a.link = NewLink_l(a.rate, a.format, a.channels, a.samplesPerFrame, BlockAt(a.source), a.sourceBlkOutEpIdx,
                         BlockAt(a.sink), a.sinkBlkInEpIdx);
      if (a.link) TellEdit(a.link->Name(), "was made");
      break;
    }
    case Type::START: action.start.ret = Start_l(); break;
    case Type::SET_PARAMETER: {
      auto& a = action.setParameter;
      a.ret = SetParam_l(a.block, a.paramId, a.params ? *a.params : NO_TEXTS);
      break;
    }
    case Type::GET_PARAMETER: {
      auto& a = action.getParameter;
      std::vector<std::string> unread;
      a.ret = GetParam_l(a.block, a.paramId, a.params ? *a.params : unread);
      break;
    }
    case Type::RESET: action.reset.ret = Reset_l(action.reset.block); break;
    case Type::STOP: action.stop.ret = Stop_l(StopReason::STOP_REQUESTED, "somebody asked for it"); break;
    case Type::DELETE: action.del.ret = Delete_l(action.del.instance); break;
    case Type::DELETE_ALL: action.deleteAll.ret = DeleteAll_l(); break;
    case Type::EXIT: Exit_l(); break;
    case Type::SET_DUMP: SetDump_l(action.setDump.path); break;
    default: LOG_FROM('E', "ProcessActions", "%s: Unknown action: %s", name.c_str(), vorn::TypeName(action.type));
  }
}

int RouteImpl::Exit_l() {
  StoreStatus(EXIT);
  Tell("OnExit", [](Callbacks& client) { client.OnExit(); });
  return 0;
}

}  // namespace vorn
