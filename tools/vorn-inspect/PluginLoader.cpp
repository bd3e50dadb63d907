#include "PluginLoader.h"

#include <dlfcn.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include <tlogging.h>
#include <vorn/Plugin.h>

#include "PluginTable.h"

namespace vorn_inspect {
namespace {

using Json = nlohmann::json;
using CreateBlockFunction = vorn::Block* (*)(bool first, bool last, const std::vector<std::string>& args);

constexpr int SECONDS_TO_LOAD = 20;

std::string LoaderError() {
  const char* error = dlerror();
  return error ? error : "unknown";
}

/** What the block itself says of its parameters; in the child. */
void AddOwnTable(Json& table, void* createBlock, const std::vector<std::string>& arguments) {
  const std::unique_ptr<vorn::Block> block(reinterpret_cast<CreateBlockFunction>(createBlock)(true, true, arguments));
  if (!block) {
    table["error"] = "its block takes other arguments, see above";
    return;
  }
  std::vector<std::string> lines;
  if (block->GetParameter(vorn::PARAMETER_TABLE, lines) == 0) AddValues(table["parameters"], lines);
}

Json Load(const std::filesystem::path& path, const std::vector<std::string>& arguments) {
  Json table = {{"file", path.string()}};
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    table["error"] = LoaderError();
    return table;
  }
  void* createBlock = dlsym(handle, "CreateBlock");
  if (!createBlock) {
    table["error"] = LoaderError();
    table["foreign"] = true;
    return table;
  }
  const auto describe = reinterpret_cast<vorn::DescribeBlockFunction>(dlsym(handle, "DescribeBlock"));
  const vorn::BlockInfo* info = describe ? describe() : nullptr;
  table["kit"] = info != nullptr;
  if (info && info->kitVersion != vorn::KIT_VERSION) {
    table["error"] = path.filename().string() + ' ' + vorn::OtherKit(info->kitVersion);
    return table;
  }
  if (const std::string fault = info ? vorn::FaultOf(*info) : ""; !fault.empty()) {
    table["error"] = path.filename().string() + ' ' + fault;
    return table;
  }
  if (info) table.update(TableOf(*info));
  if (!arguments.empty()) AddOwnTable(table, createBlock, arguments);
  return table;
}

void WriteAll(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n <= 0) return;
    done += static_cast<std::size_t>(n);
  }
}

/** What comes through the pipe until it closes. False when nothing comes for too long. */
bool ReadAll(int fd, std::string& text) {
  char piece[4096];
  for (;;) {
    pollfd waiting{fd, POLLIN, 0};
    if (poll(&waiting, 1, SECONDS_TO_LOAD * 1000) <= 0) return false;
    const ssize_t n = read(fd, piece, sizeof piece);
    if (n <= 0) return true;
    text.append(piece, static_cast<std::size_t>(n));
  }
}

std::string HowItEnded(int status) {
  if (WIFSIGNALED(status)) return std::string("it crashes while it is loaded: ") + strsignal(WTERMSIG(status));
  return "it ends the process while it is loaded, with exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Json LoadPlugin(const std::filesystem::path& path, const std::vector<std::string>& arguments) {
  const auto failed = [&path](const std::string& why) { return Json{{"file", path.string()}, {"error", why}}; };
  int ends[2];
  if (pipe(ends) != 0) return failed(std::string("no pipe: ") + std::strerror(errno));
  const pid_t child = fork();
  if (child < 0) return failed(std::string("no process to load it in: ") + std::strerror(errno));
  if (child == 0) {
    close(ends[0]);
    dup2(STDERR_FILENO, STDOUT_FILENO);  // what a plug-in prints is not part of the listing
    _tlogging_enable_options(TLOGGING_STDERR);
    _tlogging_set_level(2);
    WriteAll(ends[1], Load(path, arguments).dump(-1, ' ', false, Json::error_handler_t::replace));
    _exit(0);
  }
  close(ends[1]);
  std::string answer;
  const bool ended = ReadAll(ends[0], answer);
  if (!ended) kill(child, SIGKILL);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!ended) return failed("it hangs while it is loaded");
  const Json table = Json::parse(answer, nullptr, false);
  return table.is_discarded() || status != 0 ? failed(HowItEnded(status)) : table;
}

}  // namespace vorn_inspect
