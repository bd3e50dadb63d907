// What was logged while this object lives.
#pragma once

#include <tlogging.h>

#include "testkit/Files.h"

namespace testkit {

class LogFile {
 public:
  LogFile() { _tlogging_set_file(path.c_str()); }
  ~LogFile() { _tlogging_set_file(nullptr); }
  std::string Text() const { return Contents(path); }
  bool Has(const std::string& part) const { return Text().find(part) != std::string::npos; }

 private:
  Folder folder;
  std::string path = folder / "log";
};

}  // namespace testkit
