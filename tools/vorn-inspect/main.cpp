// vorn-inspect: what plug-ins there are, and what one of them takes and does.
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "PluginFiles.h"
#include "PluginLoader.h"
#include "PluginText.h"
#include "support/StandardStreams.h"

namespace {

using namespace vorn_inspect;
using Json = nlohmann::json;

constexpr int FAILED = 1;
constexpr int WRONG_USAGE = 2;

struct Options {
  std::string what;
  std::vector<std::string> arguments;
  bool json = false;
  bool markdown = false;
};

void Print(const std::string& text) { std::fputs(text.c_str(), stdout); }

int List(const std::vector<PluginFile>& files, const Options& options) {
  Json all = Json::array();
  if (options.markdown) Print(MARKDOWN_HEAD);
  for (const PluginFile& file : files) {
    Json table = LoadPlugin(file.path, {});
    if (table.value("foreign", false) && !file.certain) continue;  // some library that only mentions the symbol
    if (options.markdown && table.value("kit", false)) Print(MarkdownRowOf(table));
    if (!options.json && !options.markdown) Print(LineOf(NameOf(file.path), table) + "\n");
    all.push_back(std::move(table));
  }
  if (options.json) Print(all.dump(2) + "\n");
  return 0;
}

int Show(const std::filesystem::path& path, const Options& options) {
  const Json table = LoadPlugin(path, options.arguments);
  if (table.contains("error")) {
    std::fprintf(stderr, "vorn-inspect: %s: %s\n", path.c_str(), table["error"].get<std::string>().c_str());
    return FAILED;
  }
  Print(options.json ? table.dump(2) + "\n" : PageOf(NameOf(path), table));
  return 0;
}

int Run(const Options& options) {
  namespace fs = std::filesystem;
  if (options.what.empty()) return List(FilesOfRoutes(), options);
  std::error_code error;
  if (fs::is_directory(options.what, error)) return List(FilesIn(options.what, true), options);
  if (options.what.find('/') != std::string::npos || fs::path(options.what).extension() == ".so") {
    return Show(options.what, options);
  }
  for (const PluginFile& file : FilesOfRoutes()) {
    if (NameOf(file.path) == options.what) return Show(file.path, options);
  }
  std::fprintf(stderr, "vorn-inspect: no plug-in '%s'; 'vorn-inspect' lists those that are found\n",
               options.what.c_str());
  return FAILED;
}

}  // namespace

int main(int argc, char** argv) {
  vorn::OpenStandardStreams();
  Options options;
  CLI::App app("Lists plug-ins of Vorn, or shows one.", "vorn-inspect");
  app.footer(
      "Plug-ins are looked for in LD_LIBRARY_PATH and in the folder 'vorn' beside libvorn.so. Each is loaded in a "
      "process of its\n"
      "own, so a broken one is listed with the reason.\n\n"
      "Exit status: 0; 1 when the plug-in that was asked for is not there or cannot be loaded; 2 for wrong usage.");
  app.add_option("WHAT", options.what,
                 "A block's name, the file of a plug-in, or a folder of plug-ins; all if left out");
  app.add_option("ARGUMENT", options.arguments, "Arguments of the block: shows the parameters that it has with them");
  app.add_flag("--json", options.json, "Print JSON");
  app.add_flag("--markdown", options.markdown, "List as a Markdown table")->excludes("--json");
  app.set_version_flag("--version", "vorn-inspect " VORN_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : WRONG_USAGE;
  }
  const int status = Run(options);
  const std::string problem = vorn::FlushOutput();
  if (problem.empty()) return status;
  std::fprintf(stderr, "vorn-inspect: %s\n", problem.c_str());
  return status == 0 ? FAILED : status;
}
