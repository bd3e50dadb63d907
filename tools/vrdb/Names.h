/** What routes, blocks and links are called, and the labels that stand for blocks. */
#pragma once

#include <string>

#include "Words.h"
#include "support/JsonMembers.h"

namespace vrdb {

using support::Json;

/** A member that is a text, printable. */
std::string Shown(const Json& object, const char* name);
/** A number with so many digits behind the point, times `factor`; "-" where the process does not say. */
std::string NumberText(const Json& object, const char* name, int decimals, double factor = 1);
/** A block as people know it: "gain_vol_0 (vol)", or "gain_0". */
std::string BlockTitle(const Json& block);

/** Null where there is none. */
const Json& RouteOf(const Json& graph, const std::string& name);
const Json& BlockOf(const Json& graph, const std::string& route, const std::string& name);

/**
 * Puts the names of blocks in place of their labels ("vol" for gain_vol_0) wherever a block or an instance stands among
 * the arguments. A word that is a name stays, and so does one that is nothing.
 *
 * @return what is wrong, one label that several blocks of the route have; empty: nothing.
 */
std::string ResolveLabels(const Json& graph, Words& words);

/** The first route or block among the arguments that is not there, in words; empty: all are. */
std::string UnknownName(const Json& graph, const Words& words);

/** The routes that have to carry the command out. */
Words RoutesOf(const Json& graph, const Words& words);

}  // namespace vrdb
