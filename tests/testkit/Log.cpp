#include "testkit/Log.h"

#include <tlogging.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <mutex>
#include <utility>

namespace testkit {
namespace {

std::atomic<unsigned> keptLevels{0};
std::mutex mutex;
std::string lines;

bool IsKept(char level) { return keptLevels >> (level - 'A') & 1; }
int Setting(const std::string& call) { return IsKept('T') ? Log::Add(call), 0 : 0; }

}  // namespace

void Log::Keep(const std::string& levels) {
  unsigned mask = 0;
  for (char level : levels) mask |= 1u << (level - 'A');
  keptLevels = mask;
  Take();
}

void Log::Add(const std::string& line) {
  {
    const std::lock_guard<std::mutex> lock(mutex);
    if (line.find("Status is STOPPED") == line.npos) lines += line + "\n";
  }
  if (const auto see = watch.load()) see(line);
}

std::string Log::Take() {
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(lines, {});
}

bool Log::Has(const std::string& line) {
  const std::lock_guard<std::mutex> lock(mutex);
  return ("\n" + lines).find("\n" + Lines(line)) != lines.npos;
}

std::string Lines(const std::string& text) {
  std::string result;
  bool inName = false;
  for (char c : text + (text.empty() ? "" : "|")) {
    if (std::exchange(inName, c == '@' || (inName && std::islower(c))) && !inName) result += "_0";
    result += c == '~' ? "RouteA: " : c == '@' ? "probe_" : c == '|' ? "\n" : std::string(1, c);
  }
  return result;
}

}  // namespace testkit

int _tlogging_print(char level, const char*, int, const char* function, const char* format, ...) {
  if (!testkit::IsKept(level)) return 0;
  char text[1024];
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  const std::string name = testkit::IsKept('N') ? std::string(function) + ": " : "";
  testkit::Log::Add(std::string(1, level) + " " + name + text);
  return length;
}
int _tlogging_set_level(int level) { return testkit::Setting("level " + std::to_string(level)); }
int _tlogging_set_file(const char* path) {
  testkit::Setting("file " + std::string(path ? path : "none"));
  return path && !std::filesystem::exists(std::filesystem::path(path).parent_path()) ? -ENOENT : 0;
}
int _tlogging_enable_options(unsigned bits) { return testkit::Setting("enable " + std::to_string(bits)); }
int _tlogging_disable_options(unsigned bits) { return testkit::Setting("disable " + std::to_string(bits)); }
