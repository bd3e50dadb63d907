// Where plug-ins are.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vorn_inspect {

struct PluginFile {
  std::filesystem::path path;
  bool certain;  // it stands where only plug-ins stand, or was named; otherwise it may be any library
};

/** "gain" for libgain.so. */
std::string NameOf(const std::filesystem::path& path);

/** The shared objects in a folder, by name. Empty where the folder cannot be read. */
std::vector<PluginFile> FilesIn(const std::filesystem::path& folder, bool certain);

/** Those that a route finds by a bare name: in LD_LIBRARY_PATH and in the folder `vorn` beside libvorn.so. */
std::vector<PluginFile> FilesOfRoutes();

}  // namespace vorn_inspect
