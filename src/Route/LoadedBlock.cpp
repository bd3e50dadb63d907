#include "Route/LoadedBlock.h"

#include <vorn/kit/Description.h>

#include "Block/Whereabouts.h"
#include "Log.h"

// What this file logs, it logs as the action, in whichever of its functions.
#define LOG_ACTION(level, ...) LOG_FROM(level, "NewBlock_l", __VA_ARGS__)

namespace vorn {
namespace {

using CreateBlockFunction = Block* (*)(bool first, bool last, const std::vector<std::string>& args);

Block* CallCreateBlock(void* function, bool first, bool last, const std::vector<std::string>& args) {
  try {
    return reinterpret_cast<CreateBlockFunction>(function)(first, last, args);
  } catch (...) {
    return nullptr;  // as if it had said so itself
  }
}

/** Which argument a plug-in of the kit does not take; empty where it is not that. */
std::string RefusedArgument(void* handle, const std::vector<std::string>& args) {
  const auto describe = reinterpret_cast<DescribeBlockFunction>(dlsym(handle, "DescribeBlock"));
  const BlockInfo* const info = describe ? describe() : nullptr;
  if (!info || info->kitVersion != KIT_VERSION || !info->planStreams) return {};
  std::vector<const char*> texts;
  texts.reserve(args.size());
  for (const std::string& text : args) texts.push_back(text.c_str());
  PlanRefusal refusal{};
  const int ret = info->planStreams(texts.data(), texts.size(), nullptr, 0, nullptr, 0, &refusal);
  return ret < 0 && refusal.kind == About::ARGUMENT ? refusal.text : "";
}

}  // namespace

std::string BaseName(const std::string& soFileName) {
  const std::size_t end = soFileName.rfind(".so");
  if (end == std::string::npos) return {};
  const std::size_t begin = soFileName.compare(0, 3, "lib") == 0 ? 3 : 0;
  return end > begin ? soFileName.substr(begin, end - begin) : std::string();
}

LoadedBlock LoadBlock(const std::string& routeName, const std::string& soFileName, bool first, bool last,
                      const std::vector<std::string>& args, std::string& why) {
  LoadedBlock loaded{nullptr, nullptr, soFileName, args};
  if (BaseName(soFileName).empty()) {
    LOG_ACTION('E', "%s: Invalid so file name", routeName.c_str());
    why = "'" + soFileName + "' is no file name of a plug-in, expected one such as libgain.so";
    return loaded;
  }
  Whereabouts::InFile(soFileName.c_str());  // it has no name yet
  loaded.handle.reset(dlopen(soFileName.c_str(), RTLD_LAZY));
  if (!loaded.handle) {
    const char* const error = dlerror();
    LOG_ACTION('E', "%s: Can't open %s", routeName.c_str(), soFileName.c_str());
    LOG_ACTION('D', "%s: %s", routeName.c_str(), error);
    why = std::string("the plug-in does not load: ") + error;
    return loaded;
  }
  void* const function = dlsym(loaded.handle.get(), "CreateBlock");
  if (!function) {
    LOG_ACTION('E', "%s: Can't find 'CreateBlock' function in %s", routeName.c_str(), soFileName.c_str());
    why = soFileName + " is no plug-in: it has no function CreateBlock";
    return loaded;
  }
  loaded.block.reset(CallCreateBlock(function, first, last, args));
  if (loaded.block) return loaded;
  LOG_ACTION('E', "%s: CreateBlock() returns nullptr", routeName.c_str());
  why = RefusedArgument(loaded.handle.get(), args);
  why = soFileName + (why.empty() ? " made no block; the log has its reason" : ": " + why);
  return loaded;
}

}  // namespace vorn
