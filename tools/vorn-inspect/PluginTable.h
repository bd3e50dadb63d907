// What a plug-in says of itself, as JSON: the form in which it leaves the process that loaded it, and that --json
// prints.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/Plugin.h>

namespace vorn_inspect {

/**
 * name, summary, example, perFrame, readsFifo, writesFifo, setsPace, ownParameters; inputs and outputs {least, most,
 * each:
 * [{name, help, formats, minChannels, maxChannels}]}; parameters [{id, name, type, unit, range, default, help, access,
 * position, required}].
 */
nlohmann::json TableOf(const vorn::BlockInfo& info);

/** Adds what a block's own table says: a `value` to each parameter, and the parameters that the plug-in did not know of. */
void AddValues(nlohmann::json& parameters, const std::vector<std::string>& lines);

}  // namespace vorn_inspect
