/** What `status` shows, made of what the monitor says. */
#pragma once

#include <string>
#include <string_view>

#include "support/JsonMembers.h"

namespace vrdb {

using support::Json;

/** The text of the console's report, except that lines are whole and time stamps are missing. */
std::string StatusText(const Json& graph, const Json& stats);

/** A route's status as the console has it: RUNNING, BROKEN_RUNNING and so on. */
std::string StatusWord(const std::string& status);

/** Both replies as one object: a route has what either says of it. */
Json StatusJson(const Json& graph, const Json& stats);

/**
 * Takes the next line off the console's report, without its line end. The console cuts every line at 255 characters,
 * and the line end with it: the next line then follows at once.
 */
std::string_view TakeReportLine(std::string_view& text);

}  // namespace vrdb
