// A route: its graph, its queue of actions, and its thread.
//
// ActionQueue.cpp    requests: from the caller through the queue to their handlers
// GraphEditing.cpp   the handlers that change the graph and talk to its blocks
// EditRequest.cpp    edits, several changes as one: from the caller to the route's thread and back
// EditPlan.cpp       what the graph is to be, worked out before anything is touched
// EditChange.cpp     the change itself, which happens or leaves no trace
// LoadedBlock.cpp    from a plug-in's file to a block
// StatusMachine.cpp  start, stop, the check of the graph, and what the thread does next
// FrameLoop.cpp      the thread: frame cycles
// Outlook.cpp        what it shows to those who look from outside
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <vorn/Route.h>
#include <vorn/kit/BlockView.h>
#include <vorn/kit/Label.h>
#include <vorn/kit/RouteBoard.h>

#include "Chronicle.h"
#include "Link/Link.h"
#include "Log.h"
#include "Route/FramePlan.h"
#include "Route/Numbers.h"
#include "Route/WaveSet.h"

namespace vorn {

struct EditJob;

class RouteImpl : public Route {
  friend class GraphEdit;

 public:
  enum Status : std::int32_t { STOPPED = 0, RUNNING = 1, BROKEN_RUNNING = 2, EXIT = 3 };

  RouteImpl(const std::string& name, Route::Callbacks* callbacks, const std::string& dumpPath);
  ~RouteImpl() override;

  Block* NewBlock(const char* soFileName, bool first, bool last, const std::vector<std::string>& args) override;
  Link* NewLink(unsigned int rate, SampleFormat format, unsigned int channels, long samplesPerFrame, Block* source,
                std::size_t sourceBlkOutEpIdx, Block* sink, std::size_t sinkBlkInEpIdx) override;
  int Start() override;
  int SetParameter(Block* block, unsigned int paramId, const std::vector<std::string>& params) override;
  int GetParameter(Block* block, unsigned int paramId, std::vector<std::string>& params) override;
  int Reset(Block* block) override;
  int Stop() override;
  int Delete(void* instance) override;
  int DeleteAll() override;
  void SetDump(const char* path) override;
  void ExecuteActions(Action* actions, std::size_t count) override;

  /** Has the route's thread carry it out, and waits for that. Throws std::bad_alloc. */
  void CarryOut(EditJob& job);

  // For the end of the process.

  bool IsOwnThread() const { return thread.get_id() == std::this_thread::get_id(); }
  /** Running, with a thread that can stop it. */
  bool MustStop() const { return CurrentStatus() == RUNNING && !threadEnded; }
  /** The thread has gone before it was told to: whatever is asked of this route waits for ever. */
  bool IsLost() const { return threadEnded && CurrentStatus() != EXIT; }
  /** Has the route stop after its cycle, which comes to an end now even where its blocks have none. Never waits. */
  void BeginToEnd() {
    ending.store(true, std::memory_order_relaxed);
    stopAsked.store(true, std::memory_order_relaxed);
    unsettled.store(true, std::memory_order_release);
  }
  /** Of a lost route: so that at least the system is done with the thread. */
  void JoinLost() { thread.join(); }
  /** The route's own thread, on its way out of the process. */
  void Leave();

  // For the console and the monitor. Any thread; none of these waits for the route.

  const std::string& Name() const { return name; }
  Status CurrentStatus() const { return status.load(std::memory_order_relaxed); }
  unsigned long long OkFrames() const { return okFrames.load(std::memory_order_relaxed); }
  unsigned long long ErrorFrames() const { return errorFrames.load(std::memory_order_relaxed); }

  /** The block, else the link, of that name; null for none. */
  void* FindInstance(const std::string& instanceName) const;

  /** The block whose code the thread runs; empty for none. */
  std::string BlockNow() const;
  /** What the thread has used of the processor. */
  std::chrono::nanoseconds ProcessorTime() const;
  struct Policy {
    const char* name;  ///< other, fifo or rr
    int priority;      ///< Of the last two; else 0.
  };
  Policy Scheduling() const;
  std::chrono::nanoseconds SinceStatus() const;
  /** Why it stopped, or did not start, and its thread has gone perhaps; empty after a start. */
  std::string LastReason() const;
  /** Which link is missing; empty where the graph is complete. */
  std::string WhyIncomplete() const;

  /** What a block was made of. */
  struct Origin {
    std::string soFileName;
    std::vector<std::string> args;  ///< Without the label.
    std::string label = {};         ///< What its host calls it; empty: nothing.
  };

  /** Times the calls of blocks, and cycles, anew; or no more. */
  void Time(bool on);
  bool IsTimed() const { return timingAsked.load(std::memory_order_relaxed); }
  CallTimes& CycleTimes() { return cycleTimes; }
  /** Has blocks work out, before the next cycle, those readings that they work out when asked. */
  void AskForReadings();
  bool AwaitsReadings() const { return readingsAsked.load(std::memory_order_acquire); }

  /** What a block of the kit shows, as long as the block is there; null for another one. */
  static const BlockView* ViewOf(const Block* block);

  // These expect the topology lock.
  /** Null where the block is not timed. */
  CallTimes* CallTimesOf_l(const Block* block) const;
  /** Null for a block that is no longer there. */
  const Origin* OriginOf_l(const Block* block) const;
  const std::set<Block*>& Blocks_l() const { return blocks; }
  const std::set<Link*>& Links_l() const { return links; }

 private:
  struct ActionPlus {
    Route::Action* action = nullptr;  // the caller's, who waits; or else:
    EditJob* edit = nullptr;
    std::condition_variable* done = nullptr;  // with the last action of a batch, else null
    bool* finished = nullptr;                 // goes with done: a waiter that wakes without it sleeps on
  };
  using Entries = std::list<std::shared_ptr<ActionPlus>>;

  /** What the thread does after Preprocess(). */
  enum Step : int { RUN_CYCLE = 0, SLEPT = -2, FORCE_STOP = -20, END_THREAD = -30 };

  struct CycleState {
    bool error = false;
    bool endOfFile = false;
  };

  class Stopwatch;
  struct NoWatch;

  static Entries NewEntries(std::size_t count);
  void Await(Entries& entries, Action* actions);
  void Await(Entries& entries);

  // The route's thread.
  static void MainThread(RouteImpl* route);
  void MainThreadLoop();
  Step Preprocess();
  Step AskToStartAgain();
  Step Die();
  void Settle();
  bool RefreshPlan();
  void RunFrameCycle();
  template <class Watch>
  void RunFrameCycle(Watch& watch);
  const FramePlan::Visit* GoOn();
  template <class Watch>
  const FramePlan::Visit* RunAlone(const FramePlan::Visit& visit, Watch& watch, CycleState& state);
  template <class Watch>
  const FramePlan::Visit* RunWave(Watch& watch, CycleState& state);
  template <class Watch>
  long CallBlock(const FramePlan::Visit& visit, Watch& watch);
  bool Take(const FramePlan::Visit& visit, long result, CycleState& state);
  bool TakeUnfinished(const FramePlan::Visit& visit, long result, CycleState& state);
  void Commit(const FramePlan::Visit& visit);
  void FinishCycle(const CycleState& state);
  /** Calls the client. What it throws changes nothing here. */
  template <class Call>
  void Tell(const char* callback, Call call);
  int IntegrityCheck(bool& ok) const;
  void StoreStatus(Status newStatus);
  void ShowInside(const std::atomic<const Block*>* where);
  void KeepReason(const char* text);
  void ForgetReason();
  void TellEvent(Chronicle::Kind kind, std::string_view text) const noexcept;
  void TellEdit(std::string_view instance, std::string_view text) const noexcept;
  void ServeWhoLooks();
  void SwitchTiming(bool on);
  void TimeBlock_l(const Block& block);  // with the topology lock

  // The route's thread, with the mutex held; the frame cycle alone calls Stop_l without it.
  void ProcessActions();
  static void Release_l(const ActionPlus& entry);
  static const char* TypeName(const ActionPlus& entry);
  void Dispatch_l(const ActionPlus& entry);
  void Dispatch_l(Route::Action& action);
  Block* NewBlock_l(const std::string& soFileName, bool first, bool last, const std::vector<std::string>& args);
  Link* NewLink_l(unsigned int rate, SampleFormat format, unsigned int channels, long samplesPerFrame, Block* source,
                  std::size_t sourceBlkOutEpIdx, Block* sink, std::size_t sinkBlkInEpIdx);
  int Start_l();
  template <class Blocks>
  int StartBlocks(const Blocks& starting);
  int StartBlock(Block& block);
  int Stop_l(Route::StopReason reason, const char* why);
  int Exit_l();
  int SetParam_l(Block* block, unsigned int paramId, const std::vector<std::string>& params);
  int GetParam_l(Block* block, unsigned int paramId, std::vector<std::string>& params);
  int Reset_l(Block* block);
  void TouchEnds(const Link& link);
  int Delete_l(void* instance);
  int DeleteAll_l();
  void SetDump_l(const char* path);
  bool NameBlock_l(Block& block, const std::string& baseName);
  void TakeNumber_l(const std::string& blockName);
  void ReleaseNumber_l(const std::string& blockName);
  void WarnOfDump_l(const Block& block) const;
  static bool IsStarted(const Block& block) { return block.started; }
  static void SetBoard(Block& block, RouteBoard* itsBoard) { block.board = itsBoard; }
  void EnterBlock_l(Block& block, Origin origin);
  void RemoveBlock_l(Block& block);
  void DestroyLink_l(Link* link);

  // Fixed from construction on.
  const std::string name;
  Route::Callbacks* const callbacks;

  // Only the route's thread touches these.
  std::string dumpPath;
  std::vector<void*> soHandles;
  std::map<std::string, Numbers, std::less<>> blockNumbers;  // by what stands before the number
  Numbers linkNumbers;
  RouteBoard board;  // for the blocks
  bool everyBlockStarted = false;
  bool startsAll = true;      // the next start asks all blocks, or else
  std::vector<Block*> added;  // only those that came since the last one
  bool holdsMutex = false;
  Entries lastEntries;  // for the end of the route, which needs no memory

  // A frame cycle: the graph as it reads it, and its waves. Only the route's thread touches these.
  FramePlan plan;
  WaveSet current;  // called in this wave
  WaveSet next;     // called in the next one
  WaveSet commit;   // finished in this one
  bool isTimed = false;

  // Changed by the route's thread alone, under the topology lock, and the plan with them; read there without it.
  std::set<Block*> blocks;
  std::set<Link*> links;
  std::map<const Block*, Origin> origins;
  const std::atomic<const Block*>* inside = nullptr;  // where the thread writes whose code it runs
  std::string lastReason;
  std::map<const Block*, std::unique_ptr<CallTimes>> callTimes;

  // Written by the route's thread, read by any.
  std::atomic<Status> status{STOPPED};
  std::atomic<std::chrono::steady_clock::time_point> statusTime{std::chrono::steady_clock::now()};
  std::atomic<unsigned long long> okFrames{0};
  std::atomic<unsigned long long> errorFrames{0};
  CallTimes cycleTimes;

  // Set when actions wait or something stopped: the next cycle starts with the queue and a check of the graph. While it
  // is clear a cycle needs no lock at all.
  std::atomic<bool> unsettled{true};

  std::atomic<bool> timingAsked{false};    // what isTimed is to be
  std::atomic<bool> readingsAsked{false};  // blocks are to work out their readings

  std::atomic<bool> ending{false};       // the cycle that runs comes to its end
  std::atomic<bool> stopAsked{false};    // outside of the queue
  std::atomic<bool> threadEnded{false};  // written by the route's thread

  std::mutex mutex;
  std::condition_variable wakeup;  // the route's thread sleeps here
  Entries actionList;              // guarded by mutex, and so is this:
  bool isLeft = false;             // nobody will carry out what is queued

  std::thread thread;  // last: it uses all of the above
};

template <class Call>
void RouteImpl::Tell(const char* callback, Call call) {
  if (!callbacks) return;
  try {
    call(*callbacks);
  } catch (const std::exception& e) {
    LOG_E("%s: %s() threw: %s", name.c_str(), callback, e.what());
  }
}

}  // namespace vorn
