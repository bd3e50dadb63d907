// A block that a plug-in has made, and what keeps its code in memory.
#pragma once

#include <dlfcn.h>

#include <memory>
#include <string>
#include <vector>

#include <vorn/Block.h>

namespace vorn {

struct CloseHandle {
  void operator()(void* handle) const { dlclose(handle); }
};

/** Of no route yet, or no more. */
struct LoadedBlock {
  std::unique_ptr<void, CloseHandle> handle;
  std::unique_ptr<Block> block;  // goes before its code does
  std::string soFileName;
  std::vector<std::string> args;
};

/** What stands before the last ".so" of a file name, less "lib" in front; empty where there is nothing. */
std::string BaseName(const std::string& soFileName);

/**
 * Loads the plug-in and has it make a block. Any thread.
 *
 * @param routeName for the log. @param why where no block was made, the reason in words.
 */
LoadedBlock LoadBlock(const std::string& routeName, const std::string& soFileName, bool first, bool last,
                      const std::vector<std::string>& args, std::string& why);

}  // namespace vorn
