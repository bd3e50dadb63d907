#include "Plugins.h"

#include <filesystem>

#include "Program.h"
#include "support/JsonMembers.h"

namespace vorn_web {
namespace {

/** The one beside this program; where there is none, the one in PATH. */
std::string Inspector() {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  const auto beside = self.parent_path() / "vorn-inspect";
  return std::filesystem::exists(beside, error) ? beside.string() : "vorn-inspect";
}

}  // namespace

std::string Plugins::ToJson() {
  constexpr std::chrono::seconds LONGEST_LISTING{60};
  const std::lock_guard lock(mutex);
  if (!list.empty()) return list;
  const ProgramResult run = RunProgram({Inspector(), "--json"}, "", LONGEST_LISTING);
  if (!run.problem.empty()) return support::ToText({{"error", "no list of plug-ins: " + run.problem}});
  const auto plugins = support::Json::parse(run.output, nullptr, false);
  if (!plugins.is_array()) return support::ToText({{"error", "no list of plug-ins: vorn-inspect said no JSON"}});
  return list = support::ToText(plugins);
}

}  // namespace vorn_web
