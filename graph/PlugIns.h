// What plug-ins say of themselves before they make a block.
#pragma once

#include <vorn/kit/Description.h>

#include "GraphDescription.h"

namespace vorn::graph {

struct PlugIn {
  std::string soFileName;           ///< As Route::NewBlock takes it.
  const BlockInfo* info = nullptr;  ///< Null: a plug-in that does not describe itself.
};

/** Where the plug-ins of a graph are looked up. */
class PlugIns {
 public:
  virtual ~PlugIns() = default;
  /** @param name of a standard block or an installed one (gain), or of a file (libgain.so, ./libmine.so). */
  virtual Result<PlugIn> Find(const Word& name) = 0;
};

/** Loads them. What it loaded stays loaded until the program ends. */
class LoadedPlugIns final : public PlugIns {
 public:
  Result<PlugIn> Find(const Word& name) override;
};

/** libgain.so for gain; a text with a '/' or ".so" in it is a file name already. */
std::string SoFileName(const std::string& name);

}  // namespace vorn::graph
