// What tests read and write.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace testkit {

/** A folder that goes with the object. */
class Folder {
 public:
  Folder() {
    if (mkdtemp(path) == nullptr) std::abort();
  }
  ~Folder() { std::filesystem::remove_all(path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string operator/(const std::string& name) const { return path + ('/' + name); }

 private:
  char path[24] = "/tmp/vorn-test-XXXXXX";
};

/** Does not throw where a thread ends that it reads about. */
inline std::string Contents(const std::filesystem::path& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

/** @return the path. */
inline std::string Write(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

}  // namespace testkit
