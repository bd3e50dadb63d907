// Tables of plug-ins as people read them.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace vorn_inspect {

/** One line for a listing. */
std::string LineOf(const std::string& name, const nlohmann::json& table);

/** All that one plug-in says of itself. */
std::string PageOf(const std::string& name, const nlohmann::json& table);

/** A row of the Markdown table in docs/blocks.md, and that table's head. */
std::string MarkdownRowOf(const nlohmann::json& table);
extern const char MARKDOWN_HEAD[];

}  // namespace vorn_inspect
