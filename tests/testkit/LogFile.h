// What was logged while this object lives, and a folder of its own for files.
#pragma once

#include <tlogging.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace testkit {

class Scratch {
 public:
  Scratch() {
    char path[] = "/tmp/vorn-test-XXXXXX";
    if (::mkdtemp(path) == nullptr) std::abort();
    folder = path;
  }
  ~Scratch() { std::filesystem::remove_all(folder); }
  std::string operator/(const std::string& name) const { return folder + "/" + name; }

 private:
  std::string folder;
};

class LogFile {
 public:
  LogFile() { _tlogging_set_file(path.c_str()); }
  ~LogFile() { _tlogging_set_file(nullptr); }
  std::string Text() const {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  bool Has(const std::string& part) const { return Text().find(part) != std::string::npos; }

 private:
  Scratch scratch;
  std::string path = scratch / "log";
};

}  // namespace testkit
