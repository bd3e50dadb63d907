#include "PluginFiles.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

#include <vorn/Vorn.h>

namespace vorn_inspect {
namespace fs = std::filesystem;
namespace {

fs::path FolderOfInstalled() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&vorn::Vorn::Instance), &info) == 0 || !info.dli_fname) return {};
  std::error_code error;
  return fs::canonical(info.dli_fname, error).parent_path() / "vorn";
}

std::vector<fs::path> FoldersOfLoader() {
  std::vector<fs::path> folders;
  const char* text = std::getenv("LD_LIBRARY_PATH");
  std::string folder;
  for (const char* c = text ? text : "";; ++c) {
    if (*c != ':' && *c != ';' && *c != '\0') {
      folder += *c;
      continue;
    }
    if (!folder.empty()) folders.emplace_back(folder);
    folder.clear();
    if (*c == '\0') return folders;
  }
}

/** Cheaper than loading every library of a folder: a plug-in has the name of its symbol somewhere. */
bool MentionsCreateBlock(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string content(std::istreambuf_iterator<char>(file), {});
  return content.find("CreateBlock") != std::string::npos;
}

}  // namespace

std::string NameOf(const fs::path& path) {
  const std::string file = path.filename();
  const std::size_t begin = file.rfind("lib", 0) == 0 ? 3 : 0;
  return file.substr(begin, file.rfind(".so") - begin);
}

std::vector<PluginFile> FilesIn(const fs::path& folder, bool certain) {
  std::vector<PluginFile> files;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const fs::path& path = entry->path();
    if (path.extension() != ".so" || !entry->is_regular_file(error)) continue;
    if (certain || MentionsCreateBlock(path)) files.push_back({path, certain});
  }
  std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
  return files;
}

std::vector<PluginFile> FilesOfRoutes() {
  std::vector<PluginFile> files;
  std::set<std::string> seen;  // the loader takes the first of a name
  const fs::path installed = FolderOfInstalled();
  std::vector<fs::path> folders = FoldersOfLoader();
  folders.push_back(installed);
  for (const fs::path& folder : folders) {
    std::error_code error;
    for (PluginFile& file : FilesIn(folder, fs::equivalent(folder, installed, error))) {
      if (seen.insert(file.path.filename()).second) files.push_back(std::move(file));
    }
  }
  std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return NameOf(a.path) < NameOf(b.path); });
  return files;
}

}  // namespace vorn_inspect
