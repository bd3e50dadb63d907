// Looks at a process through its monitor, again and again, and writes on the board what it sees.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "Board.h"
#include "History.h"
#include "Target.h"
#include "support/MonitorClient.h"

namespace vorn_web {

/**
 * Topics: `state` {"pid", "text"}, pid 0 where there is no process, and then what was seen last stays on the board;
 * `wide` and `tall`, the picture (see Drawing.h); and the monitor's replies to `graph`, `params`, `timing`, `events`,
 * `log` and `stats`, this with `at` (milliseconds since 1970).
 */
class Observer {
 public:
  Observer(Target newTarget, Board& newBoard, History& newHistory)
      : target(std::move(newTarget)), board(newBoard), history(newHistory) {}
  ~Observer() { Stop(); }
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  /** @return why the process cannot be looked at, and no other ever would be; empty when it has begun to look or to wait. */
  std::string Start();
  void Stop();

  /** 0: none. From any thread. */
  pid_t ProcessId() const { return pid; }
  /** Looks at everything at once, because something was changed. From any thread. */
  void Refresh();

 private:
  void Run(Target::Choice first);
  /** As long as it is there. */
  void Follow(const Target::Choice& choice);
  bool LookAtAll(support::MonitorClient& monitor);
  /** @return whether the process is still there. */
  bool Look(support::MonitorClient& monitor, const char* topic, const char* request);
  void Take(const std::string& topic, support::Json reply);
  void Tell(pid_t process, const std::string& text);
  /** @return whether it was woken before its time. */
  bool Pause(std::chrono::milliseconds length);
  bool IsStopping() const { return stopping; }

  // The thread's own, once it runs.
  Target target;
  std::string name;   // of the process that is looked at
  std::string shape;  // of the picture on the board

  Board& board;
  History& history;
  std::atomic<pid_t> pid{0};
  std::atomic<bool> stopping{false};
  std::mutex mutex;
  std::condition_variable woken;
  bool isWoken = false;  // guarded by mutex
  std::thread thread;
};

}  // namespace vorn_web
