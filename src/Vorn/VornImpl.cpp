#include "Vorn/VornImpl.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <system_error>

#include "Chronicle.h"
#include "Config/Profile.h"
#include "Log.h"
#include "Thread.h"

namespace vorn {
namespace {

// What routes get at the end to stop by themselves, before FIFOs are shut down and those that wait there fail.
constexpr std::chrono::milliseconds TIME_TO_STOP(100);

constexpr unsigned LOG_TO_STDOUT = 0x1;
constexpr unsigned LOG_TO_STDERR = 0x2;
constexpr unsigned LOG_SHORT_LINES = 0x4000;
constexpr int LEVEL_OF_SHORT_LINES = 4;

bool IsRouteName(const char* name) {
  return std::strlen(name) == 6 && std::strncmp(name, "Route", 5) == 0 && name[5] >= 'A' && name[5] <= 'Z';
}

void SwitchLogOption(const char* value, unsigned bit) {
  if (std::strcmp(value, "true") == 0) _tlogging_enable_options(bit);
  if (std::strcmp(value, "false") == 0) _tlogging_disable_options(bit);
}

/** Takes the object's owner out of the registry; null for a stranger. */
template <class Registered, class Interface>
std::shared_ptr<Registered> Unregister(std::list<std::shared_ptr<Registered>>& registry, const Interface* object) {
  const auto entry =
      std::find_if(registry.begin(), registry.end(), [&](const auto& owner) { return owner.get() == object; });
  if (entry == registry.end()) return nullptr;
  std::shared_ptr<Registered> owner = *entry;
  registry.erase(entry);
  return owner;
}

}  // namespace

Vorn::~Vorn() = default;

Vorn* Vorn::Instance() {
  /** Ends with the process that made it. A child of fork() has none of its threads, and leaves all alone. */
  static class Lasting {
   public:
    ~Lasting() {
      if (getpid() == maker) delete vorn;
    }
    VornImpl* const vorn = new VornImpl;

   private:
    const pid_t maker = getpid();
  } s_vorn;
  return s_vorn.vorn;
}

VornImpl::VornImpl(const char* configPath) : monitor(ForMonitor()) {
  Configure(configPath);
  try {
    debugThread = StartThread("vrdb", [this] { MainThread(this); });
  } catch (const std::system_error& e) {  // all else works without
    LOG_E("Unable to start the thread that listens to vrdb: %s", e.what());
    TellConsole(Console::NONE);
  }
  if (hasMonitor) monitor.Start();
}

monitor::Framework VornImpl::ForMonitor() {
  return {[this] {
            const std::lock_guard<std::mutex> lock(registryMutex);
            return monitor::Registry{routes, fifos};
          },
          [this] { ReleasedRoutes(); },
          [this](const std::string& word, std::stringstream& args, std::string& reply) {
            return RunCommand(word, args, reply);
          },
          [this] { return console.load() == Console::LISTENS; }};
}

VornImpl::~VornImpl() {
  monitor.Stop();
  ShutDownConsole();
  EndRoutes();  // a command or an edit may wait for one
  monitor.Finish();
  if (debugThread.joinable()) debugThread.join();
  LeaveWhatCannotEnd();
  // A block may use a FIFO until its route is gone.
  routes.clear();
}

// A route that runs stops after its cycle. One that sleeps in a FIFO wakes up and fails, and so does a thread of the
// client.
void VornImpl::EndRoutes() {
  {
    const std::lock_guard<std::mutex> lock(registryMutex);
    for (const auto& route : routes) {
      route->IsOwnThread() || route->IsLost() ? route->Leave() : route->BeginToEnd();
    }
  }
  const auto until = std::chrono::steady_clock::now() + TIME_TO_STOP;
  while (MustWaitForRoutes() && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const std::lock_guard<std::mutex> lock(registryMutex);
  for (const auto& fifo : fifos) fifo->ShutdownForAll();
}

bool VornImpl::MustWaitForRoutes() const {
  const std::lock_guard<std::mutex> lock(registryMutex);
  return std::any_of(routes.begin(), routes.end(),
                     [](const auto& route) { return route->MustStop() && !route->IsOwnThread(); });
}

// What stays for the rest of the process: a route whose thread ends the process, or has ended before its time; and all
// FIFOs, shut down, for threads of the client that are in one or come back to it.
void VornImpl::LeaveWhatCannotEnd() {
  static struct Left {
    std::list<std::shared_ptr<RingBuffer>> fifos;
    std::list<std::shared_ptr<RouteImpl>> routes;
  }& left = *new Left;
  const std::lock_guard<std::mutex> lock(registryMutex);
  left.fifos.splice(left.fifos.end(), fifos);
  for (auto route = routes.begin(); route != routes.end();) {
    const auto next = std::next(route);
    const bool isLost = (*route)->IsLost();
    if (isLost) (*route)->JoinLost();
    if (isLost || (*route)->IsOwnThread()) left.routes.splice(left.routes.end(), routes, route);
    route = next;
  }
}

void VornImpl::MainThread(VornImpl* vorn) {
  vorn->DebugThreadLoop();
  vorn->TellConsole(Console::NONE);
}

void VornImpl::TellConsole(Console now) {
  console.store(now);
  console.notify_all();
}

bool Vorn::HasConsole() const {
  const auto& console = static_cast<const VornImpl*>(this)->console;
  console.wait(VornImpl::Console::UNKNOWN);
  return console == VornImpl::Console::LISTENS;
}

void VornImpl::Configure(const char* configPath) {
  _tlogging_enable_options(LOG_TO_STDERR | LOG_SHORT_LINES);
  _tlogging_set_level(4);

  char value[256] = {};  // one for all keys: a key without a value takes that of the key before
  const auto read = [&](const char* key) { return GetProfileString(configPath, "config", key, value) == 0; };
  if (read("logtostdout")) SwitchLogOption(value, LOG_TO_STDOUT);
  if (read("logtostderr")) SwitchLogOption(value, LOG_TO_STDERR);
  if (read("loglevel") && value[0] >= '0' && value[0] <= '6') {
    const int level = value[0] - '0';
    _tlogging_set_level(level);
    if (level > LEVEL_OF_SHORT_LINES) _tlogging_disable_options(LOG_SHORT_LINES);
  }
  if (read("dumppath")) {
    dumpPath = value;
    if (!dumpPath.empty() && dumpPath.back() != '/') dumpPath += '/';
    _tlogging_set_file((dumpPath + "vorn.log").c_str());
  }
  if (read("monitor")) hasMonitor = std::strcmp(value, "false") != 0;
}

std::shared_ptr<RouteImpl> VornImpl::FindRoute(const std::string& name) const {
  const std::lock_guard<std::mutex> lock(registryMutex);
  for (const auto& route : routes) {
    if (route->Name() == name) return route;
  }
  return nullptr;
}

bool VornImpl::HasRoute_l(const std::string& name) const {
  return std::any_of(routes.begin(), routes.end(), [&](const auto& route) { return route->Name() == name; });
}

std::vector<std::string> VornImpl::RouteNames() const {
  const std::lock_guard<std::mutex> lock(registryMutex);
  std::vector<std::string> names;
  for (const auto& route : routes) names.push_back(route->Name());
  return names;
}

Route* VornImpl::NewRoute(const char* name, Route::Callbacks* callbacks) {
  if (!name) {
    LOG_E("Route name is nullptr");
    return nullptr;
  }
  if (!IsRouteName(name)) {
    LOG_E("Wrong route name '%s', rename it to 'Route#' where '#' stands for [A-Z]", name);
    return nullptr;
  }
  // Held until the route is entered: a client and the console may ask for the same name.
  const std::lock_guard<std::mutex> lock(registryMutex);
  if (HasRoute_l(name)) {
    LOG_E("Name '%s' existed, need to rename", name);
    return nullptr;
  }
  routes.push_front(std::make_shared<RouteImpl>(name, callbacks, dumpPath));
  LOG_I("Created %s", name);
  Chronicle::Tell(Chronicle::Kind::MADE, name, {}, "was made");
  return routes.front().get();
}

void VornImpl::DeleteRoute(Route* route) { DropRoute(route, 0); }

void VornImpl::DropRoute(Route* route, long sharesOfCaller) {
  if (!route) return;
  std::shared_ptr<RouteImpl> owner;
  {
    std::unique_lock<std::mutex> lock(registryMutex);
    owner = Unregister(routes, route);
    // A console command that is busy with the route finishes first, so that the route ends here and not behind the
    // caller's back, who may free its callbacks next.
    routeReleased.wait(lock, [&] { return owner.use_count() <= 1 + sharesOfCaller; });
  }
  if (owner) Chronicle::Tell(Chronicle::Kind::DELETED, owner->Name(), {}, "was deleted");
  if (!owner) LOG_FROM('W', "DeleteRoute", "Can't find route %p", static_cast<void*>(route));
}

/** A share of a route that can still answer. */
std::shared_ptr<RouteImpl> VornImpl::ShareOf(const Route* route) const {
  const std::lock_guard<std::mutex> lock(registryMutex);
  const auto found =
      std::find_if(routes.begin(), routes.end(), [&](const auto& owner) { return owner.get() == route; });
  return found == routes.end() || (*found)->IsLost() ? nullptr : *found;
}

std::shared_ptr<Route> Vorn::HoldRoute(Route* route) {
  auto* const impl = static_cast<VornImpl*>(this);
  auto share = impl->ShareOf(route);
  if (!share) return nullptr;
  return {route, [impl, share = std::move(share)](Route*) mutable {
            share.reset();
            impl->ReleasedRoutes();
          }};
}

bool Vorn::IsLost(Route* route) const {
  const auto* const impl = static_cast<const VornImpl*>(this);
  const std::lock_guard<std::mutex> lock(impl->registryMutex);
  return std::any_of(impl->routes.begin(), impl->routes.end(),
                     [&](const auto& owner) { return owner.get() == route && owner->IsLost(); });
}

void VornImpl::ReleasedRoutes() {
  const std::lock_guard<std::mutex> lock(registryMutex);
  routeReleased.notify_all();
}

FIFO* VornImpl::NewFIFO(unsigned int rate, unsigned long sampleSize, long capacity, long prefill) {
  const auto fifo = std::make_shared<RingBuffer>(rate, sampleSize, capacity, prefill);
  const std::lock_guard<std::mutex> lock(registryMutex);
  for (std::uint32_t i = 0; i < 4294967295; ++i) {
    const std::string candidate = "fifo_" + std::to_string(i);
    if (std::any_of(fifos.begin(), fifos.end(), [&](const auto& other) { return other->name == candidate; })) continue;
    fifo->name = candidate;
    fifos.push_front(fifo);
    return fifo.get();
  }
  LOG_E("Unable to give a name to this fifo");
  return nullptr;
}

void VornImpl::DeleteFIFO(FIFO* fifo) {
  if (!fifo) return;
  std::shared_ptr<RingBuffer> owner;
  {
    const std::lock_guard<std::mutex> lock(registryMutex);
    owner = Unregister(fifos, fifo);
  }
  if (!owner) LOG_W("Can't find FIFO %p", static_cast<void*>(fifo));
}

}  // namespace vorn
