// Loads plug-ins in processes of their own: one that crashes, hangs or ends its process while it is loaded takes
// nothing with it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace vorn_inspect {

/**
 * Loads a plug-in and returns what it says of itself: see TableOf. Where `arguments` are given, a block is created with
 * them, and its own parameters are in the table too.
 *
 * A plug-in that cannot be loaded gives {"file": ..., "error": why}; one without a description {"file": ..., "kit":
 * false}.
 */
nlohmann::json LoadPlugin(const std::filesystem::path& path, const std::vector<std::string>& arguments);

}  // namespace vorn_inspect
