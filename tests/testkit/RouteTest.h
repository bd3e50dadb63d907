// What the tests of the library's insides share: a route for each of them, files, threads.
#pragma once

#include "Route/RouteImpl.h"
#include "testkit/Files.h"
#include "testkit/Probe.h"

using namespace vorn;

struct RouteTest : testing::Test {
  RouteTest() { Log::Keep("EWI"); }
  void Renew() { route.reset(), route = std::make_unique<RouteImpl>("RouteA", &callbacks, ""); }
  /** Starts the route, and waits until it has stopped by itself and its last cycle is counted. */
  void RunToEnd() {
    EXPECT_EQ(route->Start(), 0);
    EXPECT_TRUE(WaitUntil([&] { return route->CurrentStatus() == RouteImpl::STOPPED; }));
    route->Stop();  // comes after the cycle
  }
  Recorder callbacks;
  std::unique_ptr<RouteImpl> route = std::make_unique<RouteImpl>("RouteA", &callbacks, "");
};

inline std::string Pointer(const void* address) { return (std::ostringstream() << address).str(); }

/** What the system says of the threads of that name. */
inline std::vector<std::string> TasksNamed(const std::string& name) {
  std::vector<std::string> found;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (Contents(task.path() / "comm") == name + "\n") found.push_back(Contents(task.path() / "status"));
  }
  return found;
}
