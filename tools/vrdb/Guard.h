/** What there is to say before a command is carried out: what it would wait for, and what it would stop. */
#pragma once

#include <string>

#include "Words.h"
#include "support/JsonMembers.h"

namespace vrdb {

using support::Json;

/** Whether a route with this reply to `why`, or this entry of `stats`, carries nothing out before somebody else acts. */
bool Stands(const Json& why);
/** Why a route does what it does, in one printable sentence. */
std::string WhySentence(const Json& why);

/**
 * What is missing in a running route once the words have been carried out, so that it stops; empty: it goes on, or does
 * not run anyway.
 */
std::string WhatBreaks(const Json& graph, const Words& words);
/** The edit that does the like between two cycles: "'remove RouteA gain_0' ..."; empty: there is none. */
std::string BetterEdit(const Json& graph, const Words& words);

}  // namespace vrdb
