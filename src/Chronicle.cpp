#include "Chronicle.h"

#include <deque>
#include <mutex>
#include <new>

namespace vorn {
namespace {

struct Kept {
  std::mutex mutex;
  std::deque<Chronicle::Event> events;
  unsigned long last = 0;
  std::function<void()> listener;
};

// Never destroyed: routes may end after the statics of this library.
Kept& All() {
  static Kept& kept = *new Kept;
  return kept;
}

bool Repeats(const Chronicle::Event& a, const Chronicle::Event& b) {
  return a.kind == b.kind && a.route == b.route && a.block == b.block && a.text == b.text;
}

}  // namespace

void Chronicle::Tell(Kind kind, std::string_view route, std::string_view block, std::string_view text) noexcept try {
  Kept& kept = All();
  const std::lock_guard lock(kept.mutex);
  Event event{kept.last + 1,    std::chrono::system_clock::now(), kind, std::string(route), std::string(block),
              std::string(text)};
  if (!kept.events.empty() && Repeats(event, kept.events.back())) {
    kept.events.back() = std::move(event);
  } else {
    kept.events.push_back(std::move(event));
  }
  ++kept.last;
  if (kept.events.size() > KEPT) kept.events.pop_front();
  if (kept.listener) kept.listener();
} catch (const std::bad_alloc&) {
}

std::vector<Chronicle::Event> Chronicle::After(unsigned long number) {
  Kept& kept = All();
  const std::lock_guard lock(kept.mutex);
  std::vector<Event> events;
  for (const Event& event : kept.events) {
    if (event.number > number) events.push_back(event);
  }
  return events;
}

void Chronicle::Listen(std::function<void()> listener) {
  Kept& kept = All();
  const std::lock_guard lock(kept.mutex);
  kept.listener = std::move(listener);
}

}  // namespace vorn
