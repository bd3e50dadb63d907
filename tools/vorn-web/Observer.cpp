#include "Observer.h"

#include <cstdint>
#include <utility>

#include "Drawing.h"

namespace vorn_web {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using support::Json;

constexpr milliseconds WITH_A_PAGE{100};  // between two looks at what moves
constexpr milliseconds WITHOUT{1000};
constexpr milliseconds BETWEEN_LOOKS_AT_ALL{1000};
constexpr milliseconds BEFORE_LOOKING_FOR_ANOTHER{200};
constexpr milliseconds LONGEST_ANSWER{2000};

std::int64_t MillisecondsNow() {
  return std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

std::string Observer::Start() {
  Target::Choice first = target.Choose();
  if (first.isWrong) return first.text;
  thread = std::thread([this, first] { Run(first); });
  return "";
}

void Observer::Stop() {
  stopping = true;
  Refresh();
  if (thread.joinable()) thread.join();
}

void Observer::Refresh() {
  const std::lock_guard lock(mutex);
  isWoken = true;
  woken.notify_all();
}

bool Observer::Pause(milliseconds length) {
  std::unique_lock lock(mutex);
  woken.wait_for(lock, length, [this] { return isWoken; });
  return std::exchange(isWoken, false);
}

void Observer::Tell(pid_t process, const std::string& text) {
  pid = process;
  board.Put("state", support::ToText({{"pid", process}, {"text", text}}));
}

void Observer::Run(Target::Choice first) {
  for (Target::Choice choice = std::move(first); !IsStopping(); choice = target.Choose()) {
    if (choice.pid != 0) {
      Follow(choice);
    } else {
      Tell(0, name.empty() ? choice.text : name + " has ended; " + choice.text);
    }
    Pause(BEFORE_LOOKING_FOR_ANOTHER);
  }
}

void Observer::Follow(const Target::Choice& choice) {
  name = choice.text;
  support::MonitorClient monitor(choice.pid);
  Tell(choice.pid, name);
  bool isDue = true;
  for (auto looked = Clock::now(); !IsStopping();) {
    if (isDue || Clock::now() - looked >= BETWEEN_LOOKS_AT_ALL) {
      if (!LookAtAll(monitor)) break;
      looked = Clock::now();
    }
    if (!Look(monitor, "stats", "stats")) break;
    isDue = Pause(board.Readers() > 0 ? WITH_A_PAGE : WITHOUT);
  }
  history.AddGap(MillisecondsNow());
  if (!IsStopping()) Tell(0, name + " has ended");
}

bool Observer::LookAtAll(support::MonitorClient& monitor) {
  static constexpr std::pair<const char*, const char*> REQUESTS[] = {
      {"graph", "graph"}, {"params", "params"}, {"timing", "timing"}, {"events", "events once"}, {"log", "log"}};
  for (const auto& [topic, request] : REQUESTS) {
    if (!Look(monitor, topic, request)) return false;
  }
  return true;
}

bool Observer::Look(support::MonitorClient& monitor, const char* topic, const char* request) {
  support::MonitorReply reply = monitor.AskLine(request, {LONGEST_ANSWER, [this] { return IsStopping(); }});
  switch (reply.outcome) {
    case support::MonitorOutcome::DONE: Take(topic, std::move(reply.json)); break;
    case support::MonitorOutcome::LATE: Tell(pid, name + " does not answer: it may have been halted"); return true;
    case support::MonitorOutcome::FAILED: break;  // a monitor that cannot say that
    case support::MonitorOutcome::CANCELLED:
    case support::MonitorOutcome::NOBODY: return false;
    case support::MonitorOutcome::NOT_ALLOWED:
    case support::MonitorOutcome::NONSENSE: Tell(pid, reply.problem); return true;
  }
  Tell(pid, name);
  return true;
}

void Observer::Take(const std::string& topic, Json reply) {
  if (topic == "stats") {
    const std::int64_t now = MillisecondsNow();
    reply["at"] = now;
    history.Add(reply, now);
  }
  board.Put(topic, support::ToText(reply));
  if (topic != "graph") return;
  std::string newShape = ShapeOf(reply);
  if (newShape == shape) return;
  shape = std::move(newShape);
  board.Put("wide", support::ToText(Draw(reply, Layout::WIDE)));
  board.Put("stacked", support::ToText(Draw(reply, Layout::STACKED)));
  board.Put("tall", support::ToText(Draw(reply, Layout::TALL)));
}

}  // namespace vorn_web
