// What a plug-in says of its block before there is one.
#pragma once

#include <dlfcn.h>

#include <vorn/kit/Description.h>

namespace testkit {

// Null where there is no such plug-in.
inline const vorn::BlockInfo* InfoOf(const std::string& block) {
  void* plugin = dlopen(("lib" + block + ".so").c_str(), RTLD_NOW);
  if (plugin == nullptr) return nullptr;
  return reinterpret_cast<vorn::DescribeBlockFunction>(dlsym(plugin, "DescribeBlock"))();
}

}  // namespace testkit
