// What the tests of the library's insides share: a route for each of them, files, threads.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Route/RouteImpl.h"
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

inline std::string ContentOf(const std::filesystem::path& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();  // does not throw where a thread ends that it reads about
  return content.str();
}

/** A folder that goes with the object. */
struct Folder {
  ~Folder() { std::filesystem::remove_all(path); }
  std::string Write(const std::string& content) const {
    std::ofstream(path + "file", std::ios::binary) << content;
    return path + "file";
  }
  char pattern[24] = "/tmp/vorn-test-XXXXXX";
  const std::string path = std::string(mkdtemp(pattern)) + "/";
};

/** What the system says of the threads of that name. */
inline std::vector<std::string> TasksNamed(const std::string& name) {
  std::vector<std::string> found;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (ContentOf(task.path() / "comm") == name + "\n") found.push_back(ContentOf(task.path() / "status"));
  }
  return found;
}
