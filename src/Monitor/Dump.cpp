#include "Monitor/Dump.h"

#include <algorithm>

#include "Block/Topology.h"
#include "Monitor/Survey.h"

namespace vorn::monitor {
namespace {

using Actions = std::vector<Route::Action>;

void AddDump(Actions& batch, const char* folder) {
  Route::Action& dump = batch.emplace_back();
  dump.type = Route::Action::Type::SET_DUMP;
  dump.setDump = {folder};
}

/** A block that is deleted before its turn only fails its own action. */
void AddResets(Actions& batch, const RouteImpl& route) {
  const Topology::Lock lock;
  for (Block* block : route.Blocks_l()) {
    Route::Action& reset = batch.emplace_back();
    reset.type = Route::Action::Type::RESET;
    reset.reset = {block, 0};
  }
}

std::shared_ptr<RouteImpl> Find(const Registry& registry, const std::string& name) {
  const auto found = std::ranges::find_if(registry.routes, [&](const auto& route) { return route->Name() == name; });
  return found == registry.routes.end() ? nullptr : *found;
}

/** All between the same two cycles: files that are open from before end, so that all files begin there. */
Object Dump(RouteImpl& route, const char* folder, bool resets) {
  Actions batch;
  AddDump(batch, nullptr);
  if (folder && resets) AddResets(batch, route);
  if (folder) AddDump(batch, folder);
  const bool wasStopped = route.CurrentStatus() == RouteImpl::STOPPED;
  route.ExecuteActions(batch.data(), batch.size());
  const bool isStopped = route.CurrentStatus() == RouteImpl::STOPPED;
  Object object;
  return object.Add("name", route.Name()).Add("stopped", wasStopped && isStopped);
}

}  // namespace

Object CarryOutDump(const std::vector<std::string>& words, const Framework& framework) {
  const bool resets = words.size() == 3 && words[1] == "reset";
  if (words.size() != 2 && !resets) return Failure("dump", "expected [reset] FOLDER, or off");
  const std::string& folder = words.back();
  std::vector<std::string> names;
  for (const auto& route : framework.registry().routes) names.push_back(route->Name());
  framework.released();
  List routes;
  for (const std::string& name : names) {  // one share at a time, so that a route that stands keeps no other one
    {
      const auto route = Find(framework.registry(), name);
      if (route && !route->IsLost()) {
        routes.Add(Dump(*route, folder == "off" ? nullptr : folder.c_str(), resets).Text());
      }
    }
    framework.released();
  }
  return Begin("dump").Add("ok", true).Add("routes", routes);
}

}  // namespace vorn::monitor
