// The plug-ins that there are, as `vorn-inspect --json` lists them.
#pragma once

#include <mutex>
#include <string>

namespace vorn_web {

/** All operations from any thread. */
class Plugins {
 public:
  /** A list as JSON, or an object with `error`. Asked for once; after an error anew. */
  std::string ToJson();

 private:
  std::mutex mutex;  // held while the list is made
  std::string list;  // guarded by mutex
};

}  // namespace vorn_web
