#include "FileUse.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "Arguments.h"

namespace vorn::graph {
namespace {

namespace fs = std::filesystem;

/** What stays the same for a file under all its names. One that does not exist yet has a folder, and a name there. */
struct Identity {
  dev_t device = 0;
  ino_t inode = 0;
  std::string name = {};

  bool operator==(const Identity&) const = default;
};

struct Use {
  std::size_t node;
  bool writes;
  std::string path;
  Identity file;
};

/** Nothing for what everybody may use: a terminal, /dev/null. */
std::optional<Identity> IdentityOf(const std::string& path, bool writes) {
  struct stat status {};
  const int descriptor = writes ? 1 : 0;
  if (path == "-" ? fstat(descriptor, &status) == 0 : stat(path.c_str(), &status) == 0) {
    if (S_ISCHR(status.st_mode) && path != "-") return std::nullopt;
    return Identity{status.st_dev, status.st_ino};
  }
  std::error_code unknown;
  const fs::path whole = fs::weakly_canonical(fs::absolute(path, unknown), unknown);
  if (unknown || stat(whole.parent_path().c_str(), &status) != 0) return std::nullopt;
  return Identity{status.st_dev, status.st_ino, whole.filename()};
}

std::vector<Use> UsesOf(const GraphPlan& plan) {
  std::vector<Use> uses;
  for (std::size_t node = 0; node < plan.blocks.size(); ++node) {
    const BlockPlan& block = plan.blocks[node];
    if (!block.plugIn.info) continue;
    for (std::uint32_t i = 0; i < block.plugIn.info->parameterCount; ++i) {
      const ParameterInfo& parameter = block.plugIn.info->parameters[i];
      if ((parameter.flags & (PARAMETER_READS_FILE | PARAMETER_WRITES_FILE)) == 0) continue;
      const bool writes = (parameter.flags & PARAMETER_WRITES_FILE) != 0;
      const auto path = ValueOf(block, parameter);
      const auto file = path ? IdentityOf(*path, writes) : std::nullopt;
      if (file) uses.push_back({node, writes, *path, *file});
    }
  }
  return uses;
}

std::string NameOf(const Use& use) {
  if (use.path == "-") return use.writes ? "standard output" : "standard input";
  return Quoted(use.path);
}

/** Several may read one file, but standard input gives every sample to one of them only. */
bool Exclude(const Use& a, const Use& b) {
  return a.file == b.file && (a.writes || b.writes || (a.path == "-" && b.path == "-"));
}

}  // namespace

bool WritesStandardOutput(const GraphPlan& plan) {
  const std::vector<Use> uses = UsesOf(plan);
  return std::any_of(uses.begin(), uses.end(), [](const Use& use) { return use.writes && use.path == "-"; });
}

std::optional<Error> CheckFiles(const GraphPlan& plan) {
  const std::vector<Use> uses = UsesOf(plan);
  for (auto use = uses.begin(); use != uses.end(); ++use) {
    const auto other = std::find_if(uses.begin(), use, [&](const Use& before) { return Exclude(*use, before); });
    if (other == use) continue;
    const auto& nodes = plan.graph.nodes;
    const std::string alias = use->path == other->path ? "" : " as " + NameOf(*other);
    return Error{nodes[use->node].at, "block " + Quoted(nodes[use->node].name) +
                                          (use->writes ? " writes " : " reads ") + NameOf(*use) + ", which block " +
                                          Quoted(nodes[other->node].name) + (other->writes ? " writes" : " reads") +
                                          alias + "; expected another path"};
  }
  return std::nullopt;
}

}  // namespace vorn::graph
