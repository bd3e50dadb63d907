#include "PlugIns.h"

#include <dlfcn.h>

#include <filesystem>

namespace vorn::graph {
namespace {

const BlockInfo* DescriptionIn(void* handle) {
  auto* const describe = reinterpret_cast<DescribeBlockFunction>(dlsym(handle, "DescribeBlock"));
  return describe ? describe() : nullptr;
}

/** The path without "..": blocks are named after it, and dumps after blocks, which so stay inside of their folder. */
std::string Inward(const std::string& soFileName) {
  if (soFileName.find("../") == soFileName.npos) return soFileName;
  std::error_code problem;
  const auto path = std::filesystem::canonical(soFileName, problem);
  return problem ? soFileName : path.string();
}

}  // namespace

// A bare name is looked for where the library looks: this program's run path names the same folder.
Result<PlugIn> LoadedPlugIns::Find(const Word& name) {
  const std::string soFileName = Inward(SoFileName(name.text));
  void* const handle = dlopen(soFileName.c_str(), RTLD_LAZY);
  if (!handle) {
    return Error{name.at, "no block '" + name.text + "': " + dlerror() + "; 'vorn-inspect' lists what there is"};
  }
  if (!dlsym(handle, "CreateBlock")) return Error{name.at, soFileName + " is no plug-in: it has no CreateBlock"};
  const BlockInfo* const info = DescriptionIn(handle);
  if (info && info->kitVersion != KIT_VERSION) return Error{name.at, soFileName + ' ' + OtherKit(info->kitVersion)};
  const std::string fault = info ? FaultOf(*info) : "";
  if (!fault.empty()) return Error{name.at, soFileName + ' ' + fault};
  return PlugIn{soFileName, info};
}

std::string SoFileName(const std::string& name) {
  const bool isFile = name.find('/') != name.npos || name.find(".so") != name.npos;
  return isFile ? name : "lib" + name + ".so";
}

}  // namespace vorn::graph
